#ifndef KPL_CORE_STORAGE_POSTGRES_CONNECTION_H_
#define KPL_CORE_STORAGE_POSTGRES_CONNECTION_H_

#include <libpq-fe.h>

#include <memory>
#include <string>
#include <vector>

#include "core/storage/postgres_address.h"
#include "core/storage/store_state.h"

namespace kestrine::platform::core::storage::datastore {

// The values of a statement's $1, $2, ... Integers and bytes travel in binary, so that no
// value is ever spelt out in SQL text or needs escaping; text travels as text, for values
// the statement casts (an array literal "{1,2}" for $2::bigint[]).
class PostgresParameters {
 public:
  PostgresParameters& int4(int value);
  PostgresParameters& int8(long long value);
  PostgresParameters& text(std::string value);

  // As libpq takes them; the pointers stay valid while this object is unchanged.
  int count() const { return static_cast<int>(values_.size()); }
  const Oid* types() const { return types_.data(); }
  const int* formats() const { return formats_.data(); }
  std::vector<const char*> values() const;
  std::vector<int> lengths() const;

 private:
  PostgresParameters& add(std::string bytes, Oid type, int format);

  std::vector<std::string> values_;
  std::vector<Oid> types_;
  std::vector<int> formats_;
};

// One statement to run: its SQL text and its parameters.
struct PostgresStatement {
  const char* sql;
  PostgresParameters parameters;
};

// The answer to one statement, its rows in binary. Readers check each field's shape and throw
// core::Exception "<store>: unexpected answer from the server" for anything else, so that a
// damaged or foreign table never makes the store read past a field.
class PostgresResult {
 public:
  PostgresResult(PGresult* result, const std::string& name);

  ExecStatusType status() const;
  // The SQLSTATE of a failed statement ("42P01"), "" otherwise.
  std::string sqlState() const;
  // The server's message for a failed statement, on one line.
  std::string error() const;
  // True when the server ended the session with this answer (shut down, terminated it).
  bool endsSession() const;

  int rows() const;
  // A column of type integer or bigint.
  long long integer(int row, int column) const;
  // A column of type bytea; the bytes live as long as the result.
  RecordBytes bytes(int row, int column) const;

 private:
  const char* field(int row, int column, int length) const;

  std::unique_ptr<PGresult, void (*)(PGresult*)> result_;
  const std::string* name_;
};

// One connection to the server. Every failure throws core::Exception with one line,
// "<address without password>: <operation>: <cause>". Not thread-safe.
class PostgresConnection {
 public:
  // Connects, waiting at most 10 seconds unless the URI or PGCONNECT_TIMEOUT says otherwise.
  explicit PostgresConnection(const PostgresAddress& address);
  ~PostgresConnection();
  PostgresConnection(const PostgresConnection&) = delete;
  PostgresConnection& operator=(const PostgresConnection&) = delete;

  // The address as messages show it.
  const std::string& name() const { return address_.display(); }

  // True once the connection has failed; the session has then ended, with its locks and its
  // open transaction. Every operation but reconnect() then throws.
  bool broken() const;
  // Connects again when broken.
  void reconnect();

  // Runs one statement and throws if it fails.
  PostgresResult exec(const char* operation, const PostgresStatement& statement);
  // Runs one statement; a statement that fails answers with its error instead of throwing.
  // A lost connection still throws.
  PostgresResult attempt(const char* operation, const PostgresStatement& statement);
  // Runs the statements in order in one round trip and answers their results; throws at the
  // first that fails (the ones after it are not run).
  std::vector<PostgresResult> pipeline(const char* operation,
                                       const std::vector<PostgresStatement>& statements);

  // Streams rows to a COPY ... FROM STDIN statement. Destroyed before finish(), it ends the
  // copy as failed, so that the connection takes statements again.
  class Copy {
   public:
    Copy(PostgresConnection& connection, const char* operation, const char* sql);
    ~Copy();
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;
    void send(const std::string& data);
    void finish();

   private:
    PostgresConnection& connection_;
    const char* operation_;
    bool open_ = true;
  };

  [[noreturn]] void fail(const char* operation, const std::string& cause) const;

 private:
  void connect();
  void drop();
  PGconn* live(const char* operation);
  PostgresResult result(const char* operation, PGresult* result);

  PostgresAddress address_;
  PGconn* connection_ = nullptr;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_POSTGRES_CONNECTION_H_
