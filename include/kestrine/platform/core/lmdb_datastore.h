#ifndef KESTRINE_PLATFORM_CORE_LMDB_DATASTORE_H_
#define KESTRINE_PLATFORM_CORE_LMDB_DATASTORE_H_

#include <cstddef>
#include <string>

#include "kestrine/platform/core/export.h"
#include "kestrine/platform/core/transactional_datastore.h"

namespace kestrine::platform::core::storage::datastore {

// Records kept in one LMDB file, with the same answers as MemoryDataStore for the same
// sequence of operations (see TransactionalDataStore). Offsets, the free list, used() and
// version() survive closing and reopening.
//
// Damage. Each record carries a checksum that every read verifies: a damaged record throws
// core::Exception ("<path>: damaged record at offset N: ..."), and its bytes never reach the
// caller. checkRecords() reads the whole file. Damage to LMDB's own pages cannot be detected
// this way; the README says what to do about it.
//
// `path` names a file (not a directory). Next to it live LMDB's reader table `<path>-lock`
// and `<path>-writer`, which a process holds locked while it has a transaction pending.
//
// Transactions. Changes gather in one pending transaction that commits atomically (all of it
// or none of it reaches the file, also when the process is killed) at the commit points that
// TransactionalDataStore names. A commit that fails stays pending, and the next commit point
// retries it. flush() commits in one LMDB write transaction, growing the file's map when it
// is full; on failure it throws core::Exception ("...: disk full" when the disk is), the
// transaction stays pending, to be retried, and the file keeps its last committed state.
// abandon() leaves the file at its last committed state.
//
// Processes. Several processes may open the same file. Writers take turns: a process's
// first change waits until no other process has a transaction pending, and works on the
// newest committed state. A reader never sees uncommitted changes of another process;
// while a thread of this process holds the store lock and no change is pending here, reads
// see one committed state, the newest at the first read under the lock. What was read before
// a transaction's first change may be older than its base: conflicts between such reads and
// another process's commits are not detected. stamp()'s `foreign` moves when the view that
// reads the file opens on commits of another process.
//
// A file may be open only once per process; a second store on the same file throws.
// Every operation is safe from any thread, with or without the store lock.
class KPL_CORE_API LmdbDataStore : public TransactionalDataStore {
 public:
  // Address space reserved for the file at first; the map grows on demand, so this bounds
  // nothing. A file that another process has grown is opened at its grown size.
  static const std::size_t kDefaultMapSize = std::size_t(64) << 20;

  // Opens the store file at `path`, creating an empty store if the file does not exist or
  // is empty. Throws core::Exception naming the path and the cause when it is a directory,
  // cannot be opened or created, is not an LMDB file, is an LMDB file of another
  // application, is damaged, or is already open in this process.
  explicit LmdbDataStore(std::string path, std::size_t mapSize = kDefaultMapSize);

  // Opens the store file at `path` as `access` says. Read-only (see StoreAccess), the file
  // must hold a store; it may be read-only, in a read-only folder, and open for writing in
  // other processes at the same time: this one reads in LMDB read transactions and never
  // takes the writers' lock.
  LmdbDataStore(std::string path, StoreAccess access, std::size_t mapSize = kDefaultMapSize);

  // The file's path as given.
  const std::string& path() const;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KESTRINE_PLATFORM_CORE_LMDB_DATASTORE_H_
