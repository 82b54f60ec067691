#include "core/storage/postgres_address.h"

#include <optional>

#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// `text` with its %XX escapes decoded; nothing when an escape is malformed.
std::optional<std::string> percentDecoded(const std::string& text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    if (i + 2 >= text.size() || hexDigit(text[i + 1]) < 0 || hexDigit(text[i + 2]) < 0)
      return std::nullopt;
    decoded += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
    i += 2;
  }
  return decoded;
}

std::string joined(const std::vector<std::string>& parameters) {
  std::string query;
  for (const std::string& parameter : parameters)
    query += (query.empty() ? "?" : "&") + parameter;
  return query;
}

}  // namespace

PostgresAddress::PostgresAddress(const std::string& uri) {
  // Nothing of a refused address is echoed: it may hold a password.
  std::string::size_type schemeEnd = uri.find("://");
  std::string scheme = uri.substr(0, schemeEnd);
  if (schemeEnd == std::string::npos || (scheme != "postgresql" && scheme != "postgres"))
    throw Exception("not a PostgreSQL store address: it begins with postgresql:// or postgres://");
  std::string::size_type queryStart = uri.find('?');
  std::string base = uri.substr(0, queryStart);

  // The password of user:password@host stays out of what is shown.
  std::string shownBase = base;
  std::string::size_type authority = schemeEnd + 3;
  std::string::size_type at = base.rfind('@', base.find('/', authority));
  if (at != std::string::npos && at >= authority) {
    std::string::size_type colon = base.find(':', authority);
    if (colon < at) {
      secrets_.push_back(base.substr(colon + 1, at - colon - 1));
      shownBase.erase(colon, at - colon);
    }
  }

  std::vector<std::string> kept, shown;
  bool named = false;
  std::string query = queryStart == std::string::npos ? "" : uri.substr(queryStart + 1);
  for (std::string::size_type start = 0; start < query.size();) {
    std::string::size_type end = query.find('&', start);
    if (end == std::string::npos) end = query.size();
    std::string parameter = query.substr(start, end - start);
    start = end + 1;
    if (parameter.empty()) continue;
    std::string key = parameter.substr(0, parameter.find('='));
    std::string value = key.size() < parameter.size() ? parameter.substr(key.size() + 1) : "";
    if (key == "password" || key == "sslpassword") {
      secrets_.push_back(value);
      kept.push_back(parameter);
      continue;
    }
    shown.push_back(parameter);
    if (key != "store") {
      kept.push_back(parameter);
      continue;
    }
    std::optional<std::string> name = percentDecoded(value);
    // A zero byte would end the name early on its way to the server, as text.
    if (named || !name || name->empty() || name->find('\0') != std::string::npos)
      throw Exception(shownBase + ": the store parameter must name one store, percent-encoded");
    store_ = *name;
    named = true;
  }
  connection_ = base + joined(kept);
  display_ = shownBase + joined(shown);
  for (std::size_t i = 0, given = secrets_.size(); i < given; ++i) {
    if (std::optional<std::string> decoded = percentDecoded(secrets_[i]))
      secrets_.push_back(*decoded);
  }
}

std::string PostgresAddress::redact(std::string message) const {
  for (const std::string& secret : secrets_) {
    if (secret.empty()) continue;
    for (std::string::size_type at = message.find(secret); at != std::string::npos;
         at = message.find(secret, at))
      message.replace(at, secret.size(), "***");
  }
  return message;
}

}  // namespace kestrine::platform::core::storage::datastore
