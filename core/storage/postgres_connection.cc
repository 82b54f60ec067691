#include "core/storage/postgres_connection.h"

#include <endian.h>

#include <cstdlib>
#include <cstring>

#include "core/storage/postgres_library.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

namespace {

// Type identifiers of the server's catalogue (pg_type.h, which only the server's headers
// carry); they are fixed across versions.
constexpr Oid kInt4 = 23;
constexpr Oid kInt8 = 20;
constexpr int kBinary = 1;

// libpq's messages span lines ("...failed: ...\n\tIs the server running...?\n"); a message of
// ours is one line.
std::string oneLine(const char* text) {
  std::string line;
  for (const char* c = text != nullptr ? text : ""; *c != '\0'; ++c) {
    bool space = *c == '\n' || *c == '\t' || *c == '\r' || *c == ' ';
    if (!space) {
      line += *c;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  while (!line.empty() && line.back() == ' ')
    line.pop_back();
  return line.empty() ? "unknown failure" : line;
}

// The server talks as NOTICE about harmless things ("relation already exists, skipping");
// libpq would print them on standard error.
void ignoreNotice(void*, const char*) {}

// libpq, which a connection has loaded before it makes any other call.
const PostgresLibrary& pq() {
  return PostgresLibrary::get();
}

bool failed(ExecStatusType status) {
  return status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK && status != PGRES_COPY_IN;
}

}  // namespace

PostgresParameters& PostgresParameters::add(std::string bytes, Oid type, int format) {
  values_.push_back(std::move(bytes));
  types_.push_back(type);
  formats_.push_back(format);
  return *this;
}

PostgresParameters& PostgresParameters::int4(int value) {
  std::uint32_t big = htobe32(static_cast<std::uint32_t>(value));
  return add(std::string(reinterpret_cast<const char*>(&big), sizeof big), kInt4, kBinary);
}

PostgresParameters& PostgresParameters::int8(long long value) {
  std::uint64_t big = htobe64(static_cast<std::uint64_t>(value));
  return add(std::string(reinterpret_cast<const char*>(&big), sizeof big), kInt8, kBinary);
}

PostgresParameters& PostgresParameters::text(std::string value) {
  return add(std::move(value), 0, 0);
}

std::vector<const char*> PostgresParameters::values() const {
  std::vector<const char*> pointers;
  for (const std::string& value : values_)
    pointers.push_back(value.data());
  return pointers;
}

std::vector<int> PostgresParameters::lengths() const {
  std::vector<int> lengths;
  for (const std::string& value : values_)
    lengths.push_back(static_cast<int>(value.size()));
  return lengths;
}

PostgresResult::PostgresResult(PGresult* result, const std::string& name)
    : result_(result, pq().PQclear), name_(&name) {}

ExecStatusType PostgresResult::status() const {
  return result_ ? pq().PQresultStatus(result_.get()) : PGRES_FATAL_ERROR;
}

std::string PostgresResult::sqlState() const {
  const char* state = result_ ? pq().PQresultErrorField(result_.get(), PG_DIAG_SQLSTATE) : nullptr;
  return state != nullptr ? state : "";
}

std::string PostgresResult::error() const {
  if (!result_) return "no answer from the server";
  const char* primary = pq().PQresultErrorField(result_.get(), PG_DIAG_MESSAGE_PRIMARY);
  return oneLine(primary != nullptr ? primary : pq().PQresultErrorMessage(result_.get()));
}

bool PostgresResult::endsSession() const {
  const char* severity =
      result_ ? pq().PQresultErrorField(result_.get(), PG_DIAG_SEVERITY_NONLOCALIZED) : nullptr;
  return severity != nullptr &&
         (std::strcmp(severity, "FATAL") == 0 || std::strcmp(severity, "PANIC") == 0);
}

int PostgresResult::rows() const {
  return pq().PQntuples(result_.get());
}

const char* PostgresResult::field(int row, int column, int length) const {
  PGresult* result = result_.get();
  if (row >= pq().PQntuples(result) || column >= pq().PQnfields(result) ||
      pq().PQfformat(result, column) != 1 || pq().PQgetisnull(result, row, column) ||
      (length >= 0 && pq().PQgetlength(result, row, column) != length))
    throw Exception(*name_ + ": unexpected answer from the server");
  return pq().PQgetvalue(result, row, column);
}

long long PostgresResult::integer(int row, int column) const {
  if (pq().PQftype(result_.get(), column) == kInt4) {
    std::uint32_t big;
    std::memcpy(&big, field(row, column, sizeof big), sizeof big);
    return static_cast<std::int32_t>(be32toh(big));
  }
  std::uint64_t big;
  std::memcpy(&big, field(row, column, sizeof big), sizeof big);
  return static_cast<long long>(be64toh(big));
}

RecordBytes PostgresResult::bytes(int row, int column) const {
  const char* data = field(row, column, -1);
  return RecordBytes{reinterpret_cast<const unsigned char*>(data),
                     static_cast<std::size_t>(pq().PQgetlength(result_.get(), row, column))};
}

PostgresConnection::PostgresConnection(const PostgresAddress& address) : address_(address) {
  connect();
}

PostgresConnection::~PostgresConnection() {
  pq().PQfinish(connection_);
}

void PostgresConnection::connect() {
  try {
    PostgresLibrary::get();
  } catch (const Exception& failure) {
    fail("connect", failure.what());
  }
  const char* keywords[] = {"connect_timeout", "fallback_application_name", "dbname", nullptr};
  const char* values[] = {"10", "kpl", address_.connection().c_str(), nullptr};
  // Keywords before dbname give way to the URI's; only the environment needs a look.
  int first = std::getenv("PGCONNECT_TIMEOUT") != nullptr ? 1 : 0;
  PGconn* connection = pq().PQconnectdbParams(keywords + first, values + first, 1);
  if (connection == nullptr) fail("connect", "out of memory");
  if (pq().PQstatus(connection) != CONNECTION_OK) {
    std::string cause = pq().PQerrorMessage(connection);
    pq().PQfinish(connection);
    fail("connect", cause);
  }
  pq().PQsetNoticeProcessor(connection, ignoreNotice, nullptr);
  connection_ = connection;
}

bool PostgresConnection::broken() const {
  return connection_ == nullptr || pq().PQstatus(connection_) != CONNECTION_OK;
}

void PostgresConnection::reconnect() {
  if (!broken()) return;
  drop();
  connect();
}

// Closes a connection whose session is over, or whose exchange with the server is out of
// step. A session that somehow still stood then ends too, and with it its locks: a lost
// connection must never come back holding what its owner believes gone.
void PostgresConnection::drop() {
  pq().PQfinish(connection_);
  connection_ = nullptr;
}

PGconn* PostgresConnection::live(const char* operation) {
  if (!broken()) return connection_;
  drop();
  fail(operation, "the connection to the server was lost");
}

PostgresResult PostgresConnection::result(const char* operation, PGresult* answer) {
  if (answer == nullptr) {  // libpq's own failure: memory, or the connection
    std::string cause = pq().PQerrorMessage(connection_);
    drop();
    fail(operation, cause);
  }
  PostgresResult result(answer, name());
  if (failed(result.status()) && (broken() || result.endsSession())) {
    drop();
    fail(operation, result.error());
  }
  return result;
}

PostgresResult PostgresConnection::attempt(const char* operation,
                                           const PostgresStatement& statement) {
  PGconn* connection = live(operation);
  const PostgresParameters& parameters = statement.parameters;
  std::vector<const char*> values = parameters.values();
  std::vector<int> lengths = parameters.lengths();
  return result(operation,
                pq().PQexecParams(connection, statement.sql, parameters.count(), parameters.types(),
                                  values.data(), lengths.data(), parameters.formats(), kBinary));
}

PostgresResult PostgresConnection::exec(const char* operation, const PostgresStatement& statement) {
  PostgresResult answer = attempt(operation, statement);
  if (failed(answer.status())) fail(operation, answer.error());
  return answer;
}

std::vector<PostgresResult> PostgresConnection::pipeline(
    const char* operation, const std::vector<PostgresStatement>& statements) {
  PGconn* connection = live(operation);
  bool sent = pq().PQenterPipelineMode(connection) == 1;
  for (const PostgresStatement& statement : statements) {
    const PostgresParameters& parameters = statement.parameters;
    std::vector<const char*> values = parameters.values();
    std::vector<int> lengths = parameters.lengths();
    sent = sent && pq().PQsendQueryParams(connection, statement.sql, parameters.count(),
                                          parameters.types(), values.data(), lengths.data(),
                                          parameters.formats(), kBinary) == 1;
  }
  sent = sent && pq().PQpipelineSync(connection) == 1;
  // Each statement answers with one result and a null, the sync last. After a failure the
  // server skips the rest, which answer PGRES_PIPELINE_ABORTED.
  std::vector<PostgresResult> results;
  std::string failure;
  bool sessionEnded = false;
  for (std::size_t i = 0; sent && i < statements.size(); ++i) {
    PGresult* answer = pq().PQgetResult(connection);
    if (answer == nullptr) break;
    results.emplace_back(answer, name());
    while (PGresult* rest = pq().PQgetResult(connection))
      pq().PQclear(rest);
    const PostgresResult& last = results.back();
    if (failure.empty() && last.status() != PGRES_PIPELINE_ABORTED && failed(last.status()))
      failure = last.error();
    sessionEnded = sessionEnded || last.endsSession();
  }
  PGresult* sync = results.size() == statements.size() ? pq().PQgetResult(connection) : nullptr;
  bool synced = sync != nullptr && pq().PQresultStatus(sync) == PGRES_PIPELINE_SYNC;
  pq().PQclear(sync);
  if (!synced || sessionEnded || pq().PQexitPipelineMode(connection) != 1) {
    if (failure.empty()) failure = pq().PQerrorMessage(connection);
    drop();
  }
  if (!failure.empty()) fail(operation, failure);
  return results;
}

PostgresConnection::Copy::Copy(PostgresConnection& connection, const char* operation,
                               const char* sql)
    : connection_(connection), operation_(operation) {
  PostgresResult answer =
      connection.result(operation, pq().PQexec(connection.live(operation), sql));
  if (answer.status() != PGRES_COPY_IN) {
    open_ = false;
    connection.fail(operation, answer.error());
  }
}

PostgresConnection::Copy::~Copy() {
  if (!open_ || connection_.broken()) return;
  PGconn* connection = connection_.connection_;
  pq().PQputCopyEnd(connection, "abandoned");
  while (PGresult* answer = pq().PQgetResult(connection))
    pq().PQclear(answer);
}

void PostgresConnection::Copy::send(const std::string& data) {
  PGconn* connection = connection_.live(operation_);
  if (pq().PQputCopyData(connection, data.data(), static_cast<int>(data.size())) == 1) return;
  std::string cause = pq().PQerrorMessage(connection);
  open_ = false;
  connection_.drop();
  connection_.fail(operation_, cause);
}

void PostgresConnection::Copy::finish() {
  PGconn* connection = connection_.live(operation_);
  open_ = false;
  if (pq().PQputCopyEnd(connection, nullptr) != 1) {
    std::string cause = pq().PQerrorMessage(connection);
    connection_.drop();
    connection_.fail(operation_, cause);
  }
  PostgresResult answer = connection_.result(operation_, pq().PQgetResult(connection));
  while (PGresult* rest = pq().PQgetResult(connection))
    pq().PQclear(rest);
  if (failed(answer.status())) connection_.fail(operation_, answer.error());
}

void PostgresConnection::fail(const char* operation, const std::string& cause) const {
  throw Exception(address_.redact(name() + ": " + operation + ": " + oneLine(cause.c_str())));
}

}  // namespace kestrine::platform::core::storage::datastore
