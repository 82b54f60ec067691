#include "core/storage/postgres_database.h"

#include <cstdint>
#include <optional>
#include <utility>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

namespace {

// The tables; postgres_datastore.h shows them whole. Values always travel as parameters.
const char* const kCreateTables[] = {
    "CREATE TABLE IF NOT EXISTS kpl_stores ("
    " id integer GENERATED ALWAYS AS IDENTITY PRIMARY KEY,"
    " name text NOT NULL UNIQUE,"
    " next_offset bigint NOT NULL DEFAULT 0,"
    " free_count bigint NOT NULL DEFAULT 0,"
    " live_records bigint NOT NULL DEFAULT 0,"
    " live_bytes bigint NOT NULL DEFAULT 0,"
    " version bigint NOT NULL DEFAULT 0,"
    " commits bigint NOT NULL DEFAULT 0)",
    "CREATE TABLE IF NOT EXISTS kpl_records ("
    " store integer NOT NULL,"
    " record_offset bigint NOT NULL,"
    " bytes bytea NOT NULL,"
    " PRIMARY KEY (store, record_offset))",
    "CREATE TABLE IF NOT EXISTS kpl_free ("
    " store integer NOT NULL,"
    " stack_position bigint NOT NULL,"
    " freed_offset bigint NOT NULL,"
    " PRIMARY KEY (store, stack_position))",
};
// Without the NOT EXISTS an existing store would use up a number of the identity each time.
const char kAddStore[] =
    "INSERT INTO kpl_stores (name) SELECT $1::text"
    " WHERE NOT EXISTS (SELECT FROM kpl_stores WHERE name = $1::text)"
    " ON CONFLICT (name) DO NOTHING";
const char kFindStore[] = "SELECT id FROM kpl_stores WHERE name = $1::text";
const char kReadState[] =
    "SELECT next_offset, free_count, live_records, live_bytes, version, commits"
    " FROM kpl_stores WHERE id = $1";
const char kReadRecords[] =
    "SELECT record_offset, bytes FROM kpl_records"
    " WHERE store = $1 AND record_offset BETWEEN $2 AND $3";
const char kReadFree[] =
    "SELECT stack_position, freed_offset FROM kpl_free"
    " WHERE store = $1 AND stack_position >= $2 AND stack_position <= $3"
    " ORDER BY stack_position";
const char kDeleteRecords[] =
    "DELETE FROM kpl_records WHERE store = $1 AND record_offset = ANY ($2::bigint[])";
const char kCopyRecords[] =
    "COPY kpl_records (store, record_offset, bytes) FROM STDIN (FORMAT binary)";
const char kDropFree[] =
    "DELETE FROM kpl_free WHERE store = $1 AND stack_position >= $2 AND stack_position < $3";
const char kPushFree[] =
    "INSERT INTO kpl_free (store, stack_position, freed_offset)"
    " SELECT $1, p, o FROM unnest($2::bigint[], $3::bigint[]) AS pushed (p, o)";
const char kWriteState[] =
    "UPDATE kpl_stores SET next_offset = $2, free_count = $3, live_records = $4,"
    " live_bytes = $5, version = $6, commits = commits + 1 WHERE id = $1 RETURNING commits";
const char kLock[] = "SELECT pg_advisory_lock($1, $2)";
const char kUnlock[] = "SELECT pg_advisory_unlock($1, $2)";
const char kLockTransaction[] = "SELECT pg_advisory_xact_lock($1, $2)";

// Advisory locks are keyed by two integers: this one says "a kpl store", the other is the
// store's id. Id 0, which no store has, serialises the making of tables and stores.
constexpr int kLockClass = 0x6B706C00;  // "kpl\0"
constexpr int kMakingLock = 0;

// Free stack positions read in one round trip.
constexpr unsigned kFreeBatch = 512;

// Bytes of rows that a binary COPY gathers before it hands them to libpq.
constexpr std::size_t kCopyChunk = std::size_t(1) << 20;

// The SQLSTATE of a statement on a table that does not exist.
const char kUndefinedTable[] = "42P01";

// The PostgreSQL text form of an array of integers: "{1,2,3}".
std::string arrayText(const std::vector<unsigned>& values) {
  std::string text = "{";
  for (unsigned value : values)
    text += (text.size() > 1 ? "," : "") + std::to_string(value);
  return text + "}";
}

template <class Integer>
void appendBigEndian(std::string& buffer, Integer value) {
  for (int shift = 8 * (sizeof(Integer) - 1); shift >= 0; shift -= 8)
    buffer += static_cast<char>((static_cast<std::uint64_t>(value) >> shift) & 0xFF);
}

// Writes one commit: the records by one binary COPY that streams while the pending
// transaction walks them, the free stack and the state as statements to run after it.
class PostgresCommitWriter final : public CommitWriter {
 public:
  PostgresCommitWriter(PostgresConnection& connection, int store)
      : connection_(connection), store_(store) {}

  void putRecord(unsigned offset, const RecordBytes& bytes) override {
    if (!copy_) {
      copy_.emplace(connection_, "commit", kCopyRecords);
      // Signature, flags, header extension length.
      buffer_.assign("PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0", 19);
    }
    appendBigEndian<std::int16_t>(buffer_, 3);
    appendBigEndian<std::int32_t>(buffer_, 4);
    appendBigEndian<std::int32_t>(buffer_, store_);
    appendBigEndian<std::int32_t>(buffer_, 8);
    appendBigEndian<std::int64_t>(buffer_, offset);
    appendBigEndian<std::int32_t>(buffer_, static_cast<std::int32_t>(bytes.size));
    buffer_.append(reinterpret_cast<const char*>(bytes.data), bytes.size);
    if (buffer_.size() >= kCopyChunk) send();
  }

  // Records that go were deleted before the copy began, with those that it replaces.
  void deleteRecord(unsigned) override {}

  void dropFree(unsigned first, unsigned end) override {
    statements_.push_back({kDropFree, PostgresParameters().int4(store_).int8(first).int8(end)});
  }

  void putFree(unsigned position, unsigned offset) override {
    pushedPositions_.push_back(position);
    pushedOffsets_.push_back(offset);
  }

  void putState(const StoreState& state) override { state_ = state; }

  // Ends the copy and answers the statements that finish the commit; the state's comes last.
  std::vector<PostgresStatement> finish() {
    if (copy_) {
      appendBigEndian<std::int16_t>(buffer_, -1);
      send();
      copy_->finish();
    }
    if (!pushedPositions_.empty()) {
      statements_.push_back({kPushFree, PostgresParameters()
                                            .int4(store_)
                                            .text(arrayText(pushedPositions_))
                                            .text(arrayText(pushedOffsets_))});
    }
    statements_.push_back({kWriteState, PostgresParameters()
                                            .int4(store_)
                                            .int8(state_.nextOffset)
                                            .int8(state_.freeCount)
                                            .int8(state_.liveRecords)
                                            .int8(static_cast<long long>(state_.liveBytes))
                                            .int8(state_.version)});
    return std::move(statements_);
  }

 private:
  void send() {
    copy_->send(buffer_);
    buffer_.clear();
  }

  PostgresConnection& connection_;
  int store_;
  std::optional<PostgresConnection::Copy> copy_;
  std::string buffer_;
  std::vector<unsigned> pushedPositions_;
  std::vector<unsigned> pushedOffsets_;
  StoreState state_;
  std::vector<PostgresStatement> statements_;
};

bool isOffset(long long value) {
  return value >= 0 && value < IDataStore::BADOFF;
}

}  // namespace

PostgresDatabase::PostgresDatabase(const PostgresAddress& address, bool create)
    : connection_(address) {
  id_ = find(address.store());
  if (id_ == 0 && create) {
    make(address.store());
    id_ = find(address.store());
  }
  if (id_ == 0) throw Exception(name() + ": no such store");
}

// The store's id; 0, which no store has, when the store or the tables do not exist.
int PostgresDatabase::find(const std::string& store) {
  PostgresResult answer =
      connection_.attempt("open", {kFindStore, PostgresParameters().text(store)});
  if (answer.sqlState() == kUndefinedTable) return 0;
  if (answer.status() != PGRES_TUPLES_OK) connection_.fail("open", answer.error());
  return answer.rows() == 0 ? 0 : static_cast<int>(answer.integer(0, 0));
}

// Two clients may make the same store, or the first tables of a database, at once. The
// statements "IF NOT EXISTS" do not exclude each other, so both run under one transaction
// lock: the second client waits, then finds the work done and changes nothing.
void PostgresDatabase::make(const std::string& store) {
  std::vector<PostgresStatement> statements;
  statements.push_back({"BEGIN", {}});
  statements.push_back({kLockTransaction, PostgresParameters().int4(kLockClass).int4(kMakingLock)});
  for (const char* table : kCreateTables)
    statements.push_back({table, {}});
  statements.push_back({kAddStore, PostgresParameters().text(store)});
  statements.push_back({"COMMIT", {}});
  try {
    connection_.pipeline("create the store", statements);
  } catch (...) {
    tidy({"ROLLBACK", {}});
    throw;
  }
}

SharedState PostgresDatabase::stateIn(const PostgresResult& answer) const {
  if (answer.rows() != 1) damaged("the store's row is gone");
  long long next = answer.integer(0, 0), free = answer.integer(0, 1);
  long long records = answer.integer(0, 2), bytes = answer.integer(0, 3);
  long long version = answer.integer(0, 4), commits = answer.integer(0, 5);
  if (next < 0 || next > IDataStore::BADOFF || free < 0 || free > next || records < 0 ||
      records > next || bytes < 0 || version < 0 || version > 0xFFFFFFFFLL || commits < 0) {
    damaged("the store's state is out of range");
  }
  SharedState shared;
  shared.state.nextOffset = static_cast<unsigned>(next);
  shared.state.freeCount = static_cast<unsigned>(free);
  shared.state.liveRecords = static_cast<unsigned>(records);
  shared.state.liveBytes = static_cast<unsigned long long>(bytes);
  shared.state.version = static_cast<unsigned>(version);
  shared.commits = static_cast<unsigned long long>(commits);
  return shared;
}

PostgresParameters PostgresDatabase::lockKey() const {
  return PostgresParameters().int4(kLockClass).int4(id_);
}

SharedState PostgresDatabase::state() {
  connection_.reconnect();
  return stateIn(connection_.exec("read the state", {kReadState, PostgresParameters().int4(id_)}));
}

// The lock and the read of the state go in one round trip: the read is a statement of its
// own, so it sees the commits of whoever held the lock before.
SharedState PostgresDatabase::lock() {
  connection_.reconnect();
  freeWindow_.clear();
  try {
    std::vector<PostgresResult> answers = connection_.pipeline(
        "lock", {{kLock, lockKey()}, {kReadState, PostgresParameters().int4(id_)}});
    return stateIn(answers[1]);
  } catch (...) {
    // The lock may have been taken before the read failed; the session would keep it, and
    // shut every other client out, while this one believes it free.
    tidy({kUnlock, lockKey()});
    throw;
  }
}

void PostgresDatabase::unlock() {
  connection_.exec("unlock", {kUnlock, lockKey()});
}

RecordCache::Records PostgresDatabase::records(unsigned first, unsigned last) {
  PostgresResult answer = connection_.exec(
      "read records", {kReadRecords, PostgresParameters().int4(id_).int8(first).int8(last)});
  RecordCache::Records records;
  records.reserve(answer.rows());
  for (int row = 0; row < answer.rows(); ++row) {
    long long offset = answer.integer(row, 0);
    if (offset < first || offset > last) damaged("a record lies outside the block read");
    RecordBytes bytes = answer.bytes(row, 1);
    records.emplace_back(static_cast<unsigned>(offset),
                         std::vector<unsigned char>(bytes.data, bytes.data + bytes.size));
  }
  return records;
}

unsigned PostgresDatabase::freeOffset(unsigned position) {
  if (position < freeWindowStart_ || position - freeWindowStart_ >= freeWindow_.size()) {
    unsigned first = position >= kFreeBatch ? position - kFreeBatch + 1 : 0;
    PostgresResult answer =
        connection_.exec("read the free list",
                         {kReadFree, PostgresParameters().int4(id_).int8(first).int8(position)});
    freeWindow_.clear();
    for (int row = 0; row < answer.rows(); ++row) {
      long long offset = answer.integer(row, 1);
      if (answer.integer(row, 0) != first + row || !isOffset(offset))
        damaged("free list entry " + std::to_string(first + row) + " is missing");
      freeWindow_.push_back(static_cast<unsigned>(offset));
    }
    freeWindowStart_ = first;
    if (freeWindow_.size() != position - first + 1)
      damaged("free list entry " + std::to_string(position) + " is missing");
  }
  return freeWindow_[position - freeWindowStart_];
}

// Records that the transaction replaces or frees are deleted first, so that the copy only
// inserts: COPY loads rows many times faster than statements can, but cannot update.
unsigned long long PostgresDatabase::commit(const PendingTransaction& transaction, bool unlock) {
  std::vector<PostgresStatement> opening;
  opening.push_back({"BEGIN", {}});
  std::vector<unsigned> replaced = transaction.touchedCommittedOffsets();
  if (!replaced.empty()) {
    opening.push_back({kDeleteRecords, PostgresParameters().int4(id_).text(arrayText(replaced))});
  }
  try {
    connection_.pipeline("commit", opening);
    PostgresCommitWriter writer(connection_, id_);
    transaction.apply(writer);
    std::vector<PostgresStatement> closing = writer.finish();
    std::size_t stateAnswer = closing.size() - 1;
    closing.push_back({"COMMIT", {}});
    if (unlock) closing.push_back({kUnlock, lockKey()});
    std::vector<PostgresResult> answers = connection_.pipeline("commit", closing);
    freeWindow_.clear();  // its positions may hold other offsets now
    if (answers[stateAnswer].rows() != 1) damaged("the store's row is gone");
    return static_cast<unsigned long long>(answers[stateAnswer].integer(0, 0));
  } catch (...) {
    tidy({"ROLLBACK", {}});
    throw;
  }
}

// Runs a statement that tidies up after a failure, if the connection still stands. The
// failure is on its way to the caller already; the tidying's own adds nothing to it.
void PostgresDatabase::tidy(const PostgresStatement& statement) {
  try {
    if (connected()) connection_.attempt("tidy up", statement);
  } catch (const Exception&) {
  }
}

void PostgresDatabase::damaged(const std::string& what) const {
  throw Exception(name() + ": damaged store: " + what);
}

}  // namespace kestrine::platform::core::storage::datastore
