#ifndef KPL_CORE_STORAGE_POSTGRES_ADDRESS_H_
#define KPL_CORE_STORAGE_POSTGRES_ADDRESS_H_

#include <string>
#include <vector>

namespace kestrine::platform::core::storage::datastore {

// A store's address: a libpq connection URI whose query may name the store,
//   postgresql://[user[:password]@][host][:port][/database][?parameter=value&...&store=NAME]
// (also postgres://). The `store` parameter is ours and is taken out before libpq sees the
// URI; everything else is libpq's to check when connecting.
class PostgresAddress {
 public:
  // Throws core::Exception for another scheme, and for a store name that is empty, given
  // twice or not percent-encoded properly. The message never holds a password.
  explicit PostgresAddress(const std::string& uri);

  // The URI for libpq: the one given, without the store parameter.
  const std::string& connection() const { return connection_; }
  // The store's name, percent-decoded; "default" when the URI names none.
  const std::string& store() const { return store_; }
  // The URI given, without its password, for messages.
  const std::string& display() const { return display_; }

  // `message` with the URI's password, in any spelling it had in the URI, blotted out: libpq
  // quotes parts of a URI it cannot parse.
  std::string redact(std::string message) const;

 private:
  std::string connection_;
  std::string store_ = "default";
  std::string display_;
  std::vector<std::string> secrets_;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_POSTGRES_ADDRESS_H_
