#ifndef KESTRINE_PLATFORM_CORE_LMDB_DATASTORE_H_
#define KESTRINE_PLATFORM_CORE_LMDB_DATASTORE_H_

#include <cstddef>
#include <memory>
#include <string>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/export.h"

namespace kestrine::platform::core::storage::datastore {

// Records kept in one LMDB file, with the same answers as MemoryDataStore for the same
// sequence of operations: the same offsets (the first record of a new file at 0, freed
// offsets reused last-freed first), the same used() and records(). Offsets, the free list,
// used() and version() survive closing and reopening.
//
// `path` names a file (not a directory). Next to it live LMDB's reader table `<path>-lock`
// and `<path>-writer`, which a process holds locked while it has a transaction pending.
//
// Transactions. Changes gather in one pending transaction, shared by all threads of the
// process, that commits atomically (all of it or none of it reaches the file, also when the
// process is killed) at the release of the outermost store lock, at complete(), at flush()
// and when the store is destroyed. Changes made without the lock (a document import) thus
// stay one transaction until one of those points.
//
// Processes. Several processes may open the same file. Writers take turns: a process's
// first change waits until no other process has a transaction pending, and works on the
// newest committed state. A reader never sees uncommitted changes of another process;
// while a thread of this process holds the store lock and no change is pending here, reads
// see one committed state, the newest at the first read under the lock. What was read before
// a transaction's first change may be older than its base: conflicts between such reads and
// another process's commits are not detected.
//
// A file may be open only once per process; a second store on the same file throws.
// Every operation is safe from any thread, with or without the store lock.
class KPL_CORE_API LmdbDataStore : public IDataStore {
 public:
  // Address space reserved for the file at first; the map grows on demand, so this bounds
  // nothing. A file that another process has grown is opened at its grown size.
  static const std::size_t kDefaultMapSize = std::size_t(64) << 20;

  // Opens the store file at `path`, creating an empty store if the file does not exist or
  // is empty. Throws core::Exception naming the path and the cause when it is a directory,
  // cannot be opened or created, is not an LMDB file, is an LMDB file of another
  // application, is damaged, or is already open in this process.
  explicit LmdbDataStore(std::string path, std::size_t mapSize = kDefaultMapSize);

  // Commits what is pending. A failure here cannot be reported: the file then stays at its
  // last committed state. Call flush() first to learn of it.
  ~LmdbDataStore() override;

  LmdbDataStore(const LmdbDataStore&) = delete;
  LmdbDataStore& operator=(const LmdbDataStore&) = delete;

  // The store lock: re-entrant for one thread. Releasing the outermost handle commits the
  // pending transaction; if that commit fails, the transaction stays pending and the next
  // commit point retries it (flush() and complete() report the failure).
  ILock* lock() override;

  unsigned create(const void* data, unsigned size) override;
  void append(unsigned offset, const void* data, unsigned size) override;
  void write(unsigned offset, const void* data, unsigned size, bool changed) override;
  unsigned size(unsigned offset) override;
  unsigned read(unsigned offset, void* destination, unsigned maximum) override;
  void free(unsigned offset) override;
  unsigned long long used() override;
  void version(unsigned version) override;
  unsigned version() override;

  // Commits the pending transaction, as flush() does.
  void complete() override;

  // Drops the pending transaction; the file keeps its last committed state. Always true.
  bool abandon() override;

  // `foreign` moves when the view that reads the file opens on commits of another process.
  bool stamp(tStamp& stamp) override;
  IAttachment* attachment() override;
  void attach(std::unique_ptr<IAttachment> attachment) override;

  // Commits the pending transaction in one LMDB write transaction, growing the file's map
  // when it is full. Throws core::Exception on failure ("...: disk full" when the disk is);
  // the transaction then stays pending, to be retried, and the file keeps its last
  // committed state. Does nothing when nothing is pending.
  void flush();

  // Number of live records; a diagnostic for tests and tools.
  unsigned records();

  // The file's path as given.
  const std::string& path() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KESTRINE_PLATFORM_CORE_LMDB_DATASTORE_H_
