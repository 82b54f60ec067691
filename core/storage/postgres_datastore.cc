#include "kestrine/platform/core/postgres_datastore.h"

#include <memory>
#include <optional>

#include "core/storage/pending_transaction.h"
#include "core/storage/postgres_database.h"
#include "core/storage/record_cache.h"
#include "core/storage/store_back_end.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

namespace {

// Bytes of committed records a client keeps in memory at most.
constexpr std::size_t kCacheBytes = std::size_t(256) << 20;

// Holding. `holding_` says that this client holds the store's advisory lock in the database.
// It does while the store is held, and then nobody else commits: `committed_` and the cache
// stay true without asking the server, and a pending transaction's base is `committed_`.
// Otherwise each operation first reads the store's state. The lock is also the turn to change
// the store, taken under the store's mutex: the connection serves one operation at a time.
class PostgresBackEnd final : public StoreBackEnd {
 public:
  PostgresBackEnd(const std::string& uri, bool create)
      : database_(PostgresAddress(uri), create), cache_(kCacheBytes) {}

  CommittedStore& committed() override { return database_; }

  void startReading(bool held) override {
    if (holding_) return;
    if (held) return hold();  // the connection was lost while held
    adopt(database_.state());
  }

  std::optional<RecordBytes> record(unsigned offset) override {
    if (offset >= committed_.state.nextOffset) return std::nullopt;
    const PendingTransaction::Change* change = cache_.find(offset);
    if (change == nullptr) change = load(offset);
    if (change == nullptr) return std::nullopt;
    return change->record();
  }

  StoreState state() override { return committed_.state; }
  unsigned long long foreignChanges() const override { return foreignChanges_; }

  void lockStore() override { hold(); }

  void letGo() override {
    if (!holding_) return;
    holding_ = false;
    database_.unlock();
  }

  StoreState startChange() override {
    hold();
    return committed_.state;
  }

  // An empty transaction costs the server nothing; letGo() ends the holding it began.
  void commit(PendingTransaction& transaction, bool keepHolding) override {
    if (transaction.empty()) return;
    unsigned long long commits = database_.commit(transaction, !keepHolding);
    holding_ = keepHolding;
    committed_ = SharedState{transaction.state(), commits};
    cache_.absorb(transaction.takeChanges());
  }

  // A lost connection took the advisory lock with it; the next operation connects again.
  bool lostHold(bool changesDropped) override {
    if (database_.connected()) return false;
    holding_ = false;
    if (changesDropped) changesLost_ = true;
    return true;
  }

  void reportLostChanges() override {
    if (!changesLost_) return;
    changesLost_ = false;
    throw Exception(database_.name() +
                    ": the connection to the server was lost, and with it the changes made "
                    "since the last commit");
  }

 private:
  // Takes in the newest committed state; the cache goes when another client has committed.
  void adopt(const SharedState& newest) {
    if (known_ && newest.commits != committed_.commits) {
      cache_.clear();
      ++foreignChanges_;
    }
    committed_ = newest;
    known_ = true;
  }

  // Reads the block of offsets around `offset` into the cache and answers its entry. Kept
  // out of record(), which under the store lock mostly finds the record cached.
  [[gnu::noinline]] const PendingTransaction::Change* load(unsigned offset) {
    unsigned first = offset / RecordCache::kBlock * RecordCache::kBlock;
    cache_.load(offset / RecordCache::kBlock,
                database_.records(first, first + (RecordCache::kBlock - 1)));
    return cache_.find(offset);
  }

  void hold() {
    if (holding_) return;
    adopt(database_.lock());
    holding_ = true;
  }

  PostgresDatabase database_;
  RecordCache cache_;
  SharedState committed_;  // what the cache belongs to
  bool known_ = false;     // false until `committed_` was read once
  bool holding_ = false;
  // Changes dropped with a lost connection, for the next flush() to report.
  bool changesLost_ = false;
  unsigned long long foreignChanges_ = 0;
};

}  // namespace

PostgresDataStore::PostgresDataStore(const std::string& uri, bool create)
    : TransactionalDataStore(std::make_unique<PostgresBackEnd>(uri, create),
                             StoreAccess::kReadWrite) {}

const std::string& PostgresDataStore::address() const {
  return name();
}

}  // namespace kestrine::platform::core::storage::datastore
