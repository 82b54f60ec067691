#ifndef KESTRINE_PLATFORM_CORE_TRANSACTIONAL_DATASTORE_H_
#define KESTRINE_PLATFORM_CORE_TRANSACTIONAL_DATASTORE_H_

#include <memory>
#include <string>
#include <vector>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/export.h"

namespace kestrine::platform::core::storage::datastore {

class StoreBackEnd;

// How a store is opened. A read-only store never writes to where its records live, never
// waits for a writer, and refuses every change with core::Exception ("<name>: the store is
// open read-only"); each operation sees the newest committed state. The reference counts
// that the object model writes while it reads (IDataStore::write with `changed` false) are
// the exception: they stay in the object's memory, for as long as the committed state they
// were made on is the one it reads, and are never written.
enum class StoreAccess { kReadWrite, kReadOnly };

// What the stores that keep their records beyond the process share: LmdbDataStore (a file)
// and PostgresDataStore (a database). Clients make one of those; each one's header says where
// its records live and what a commit costs there.
//
// They give the same answers as MemoryDataStore for the same sequence of operations: the
// same offsets (the first record of a new store at 0, freed offsets reused last-freed
// first), the same used(), records() and version(), all of which survive closing and
// reopening.
//
// Transactions. Changes gather in one pending transaction, shared by all threads of the
// process, that commits atomically (all of it or none of it reaches the store, also when the
// process is killed) at the release of the outermost store lock, at complete(), at flush()
// and when the store is destroyed. Changes made without the lock (a document import) thus
// stay one transaction until one of those points.
//
// Every operation is safe from any thread, with or without the store lock.
//
// The class is public so that the stores declare the interface once, and so that a client
// holding any of them can commit and count records without knowing which it holds. What each
// store has of its own, its back end, stays inside the library.
class KPL_CORE_API TransactionalDataStore : public IDataStore {
 public:
  // Commits what is pending. A failure here cannot be reported: the store then keeps its
  // last committed state. Call flush() first to learn of it.
  ~TransactionalDataStore() override;

  TransactionalDataStore(const TransactionalDataStore&) = delete;
  TransactionalDataStore& operator=(const TransactionalDataStore&) = delete;

  // The store lock: re-entrant for one thread. Releasing the outermost handle commits the
  // pending transaction; if that commit fails, flush() and complete() report it.
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

  // Drops the pending transaction; the store keeps its last committed state. Always true.
  bool abandon() override;

  // `foreign` moves when what this object reads comes to include commits made elsewhere.
  bool stamp(tStamp& stamp) override;
  IAttachment* attachment() override;
  void attach(std::unique_ptr<IAttachment> attachment) override;

  // Commits the pending transaction atomically. Throws core::Exception on failure; the store
  // then keeps its last committed state. Does nothing when nothing is pending.
  void flush();

  // Number of live records; a diagnostic for tests and tools.
  unsigned records();

  // Reads every record of the last committed state and checks it, and the store's counts
  // against them: appends one line to `damaged` per fault found ("<name>: damaged record at
  // offset N: ..."). Costs a read of the whole store.
  void checkRecords(std::vector<std::string>& damaged);

 protected:
  // Takes over `backEnd`, the part of the store that is its own (internal to the library).
  TransactionalDataStore(std::unique_ptr<StoreBackEnd> backEnd, StoreAccess access);

  // How messages name the store: a file's path, a database store's address.
  const std::string& name() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KESTRINE_PLATFORM_CORE_TRANSACTIONAL_DATASTORE_H_
