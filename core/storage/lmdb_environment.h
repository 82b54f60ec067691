#ifndef KPL_CORE_STORAGE_LMDB_ENVIRONMENT_H_
#define KPL_CORE_STORAGE_LMDB_ENVIRONMENT_H_

#include <lmdb.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "core/storage/store_state.h"

namespace kestrine::platform::core::storage::datastore {

// The puts and deletes of one commit, inside an LMDB write transaction.
class LmdbWriter final : public CommitWriter {
 public:
  void putRecord(unsigned offset, const RecordBytes& bytes) override;
  void deleteRecord(unsigned offset) override;
  void dropFree(unsigned first, unsigned end) override;
  void putFree(unsigned position, unsigned offset) override;
  void putState(const StoreState& state) override;

 private:
  friend class LmdbEnvironment;
  LmdbWriter(MDB_txn* txn, MDB_dbi records, MDB_dbi freeStack, MDB_dbi meta, bool checksummed)
      : txn_(txn),
        records_(records),
        freeStack_(freeStack),
        meta_(meta),
        checksummed_(checksummed) {}

  MDB_txn* txn_;
  MDB_dbi records_;
  MDB_dbi freeStack_;
  MDB_dbi meta_;
  bool checksummed_;
};

// One LMDB environment on a single file (MDB_NOSUBDIR) with the store's three databases:
// "records" (offset -> checksum and bytes), "free" (stack position -> freed offset) and "meta"
// (the format marker and the StoreState). Not thread-safe: its owner serialises every call.
//
// Checksums. Each record's bytes follow a checksum of them and their offset, verified on
// every read, so that a damaged record is reported rather than interpreted. (Files of the
// first format have none, and keep having none.) LMDB's own pages carry no checksum: damage
// to its B-tree cannot be detected, only the records' bytes can.
//
// Reading goes through one read-only transaction, the view, which is reset and renewed
// rather than recreated. It is made with MDB_NOTLS, so that it belongs to no thread and
// whichever thread holds the owner's mutex may use it.
class LmdbEnvironment final : public CommittedStore {
 public:
  // Opens or creates the store file. Throws core::Exception on any fault (see
  // LmdbDataStore's constructor); nothing stays open then. `readOnly` opens an existing
  // store without ever writing to it, also when the file or its folder is read-only.
  LmdbEnvironment(const std::string& path, std::size_t mapSize, bool readOnly);
  ~LmdbEnvironment();
  LmdbEnvironment(const LmdbEnvironment&) = delete;
  LmdbEnvironment& operator=(const LmdbEnvironment&) = delete;

  const std::string& path() const { return path_; }
  const std::string& name() const override { return path_; }

  // Opens the view on the newest committed state if it is closed.
  void openView();
  void closeView();

  // How many times the view opened on a state that holds commits of others: commits that
  // this environment did not make itself since it last looked.
  unsigned long long foreignChanges() const { return foreignChanges_; }

  // Reads of the open view. The record is absent when the offset holds none; throws
  // core::Exception "<path>: damaged record at offset N: ..." when its checksum fails.
  std::optional<RecordBytes> record(unsigned offset) const;
  unsigned freeOffset(unsigned position) override;
  StoreState state() const;

  // Runs `apply` in one write transaction and commits it. When the map is full, closes the
  // view, doubles the map and runs `apply` again, so `apply` must depend on nothing but its
  // caller's memory. Throws core::Exception when the commit fails; the file then keeps its
  // last committed state.
  void commit(const std::function<void(LmdbWriter&)>& apply);

  // Throws core::Exception "<path>: <operation>: <cause>".
  [[noreturn]] void fail(const std::string& operation, int rc) const;
  [[noreturn]] void damaged(const std::string& what) const;
  [[noreturn]] void damagedRecord(unsigned offset, const char* what) const;
  [[noreturn]] void foreign() const;

 private:
  void openEnvironment(std::size_t mapSize, bool readOnly);
  void openDatabases(MDB_txn* txn, unsigned createFlag);
  void create();
  void close();
  void checkLength() const;
  void beginRead(MDB_txn** txn);
  void writeTransaction(const char* operation, const std::function<void(MDB_txn*)>& apply);
  void remap(std::size_t size);
  std::size_t mapSize() const;

  std::string path_;
  MDB_env* env_ = nullptr;
  MDB_txn* view_ = nullptr;
  bool viewOpen_ = false;
  MDB_dbi records_ = 0;
  MDB_dbi freeStack_ = 0;
  MDB_dbi meta_ = 0;
  bool checksummed_ = true;
  std::pair<unsigned long long, unsigned long long> fileId_{0, 0};
  // The newest committed transaction this environment knows of: the view's, or its own last.
  std::size_t seenTransaction_ = 0;
  unsigned long long foreignChanges_ = 0;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_LMDB_ENVIRONMENT_H_
