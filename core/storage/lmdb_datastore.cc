#include "kestrine/platform/core/lmdb_datastore.h"

#include <memory>
#include <optional>
#include <utility>

#include "core/storage/file_lock.h"
#include "core/storage/lmdb_environment.h"
#include "core/storage/store_back_end.h"

namespace kestrine::platform::core::storage::datastore {

namespace {

// Processes. A pending transaction holds `writer_` (flock on "<path>-writer") from its first
// change to its commit, and starts from the newest committed state, so two processes never
// give out the same offset and each transaction applies to the state it was begun on.
//
// The view. While the store is held, the environment's read view stays open between
// operations: while a transaction is pending it shows the transaction's base (nobody else can
// commit meanwhile), while only the store lock is held one committed state for the lock
// holder, opened at the first read under the lock. Otherwise each operation opens it on the
// newest committed state and letGo() closes it again.
class LmdbBackEnd final : public StoreBackEnd {
 public:
  // A read-only store never changes, so it needs no turn to, and no lock file for it.
  LmdbBackEnd(const std::string& path, std::size_t mapSize, StoreAccess access)
      : environment_(path, mapSize, access == StoreAccess::kReadOnly) {
    if (access == StoreAccess::kReadWrite) writer_.emplace(path + "-writer");
  }

  CommittedStore& committed() override { return environment_; }
  void startReading(bool) override { environment_.openView(); }
  std::optional<RecordBytes> record(unsigned offset) override {
    return environment_.record(offset);
  }
  StoreState state() override { return environment_.state(); }
  unsigned long long foreignChanges() const override { return environment_.foreignChanges(); }

  void letGo() override { environment_.closeView(); }

  void awaitTurn() override { writer_->lock(); }

  StoreState startChange() override {
    environment_.closeView();  // reopened on the newest state, the base
    environment_.openView();
    return environment_.state();
  }

  void commit(PendingTransaction& transaction, bool) override {
    environment_.commit([&transaction](LmdbWriter& out) { transaction.apply(out); });
    environment_.closeView();  // the next read sees this commit
  }

  void endChange() override { writer_->unlock(); }

 private:
  LmdbEnvironment environment_;
  std::optional<FileLock> writer_;
};

}  // namespace

LmdbDataStore::LmdbDataStore(std::string path, std::size_t mapSize)
    : LmdbDataStore(std::move(path), StoreAccess::kReadWrite, mapSize) {}

LmdbDataStore::LmdbDataStore(std::string path, StoreAccess access, std::size_t mapSize)
    : TransactionalDataStore(std::make_unique<LmdbBackEnd>(path, mapSize, access), access) {}

const std::string& LmdbDataStore::path() const {
  return name();
}

}  // namespace kestrine::platform::core::storage::datastore
