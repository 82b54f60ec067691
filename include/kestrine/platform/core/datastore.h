#ifndef KESTRINE_PLATFORM_CORE_DATASTORE_H_
#define KESTRINE_PLATFORM_CORE_DATASTORE_H_

#include <memory>

#include "kestrine/platform/core/export.h"

namespace kestrine::platform::core::storage::datastore {

// A store of variable-length byte records addressed by 32-bit offsets.
//
// Every operation is safe to call from any thread at any time, whether or not the caller
// holds the store's lock: the lock serialises whole sequences of operations between
// cooperating callers, it does not protect the store's own structures. Every operation may
// throw core::Exception on a real fault; a throwing operation changes nothing.
class KPL_CORE_API IDataStore {
 public:
  // The offset of no record. Never given out for a real record.
  static const unsigned BADOFF = 0xFFFFFFFF;

  // A held store lock; deleting the handle releases it.
  struct KPL_CORE_API ILock {
    virtual ~ILock();
  };

  virtual ~IDataStore();

  // Takes the store's lock, blocking until it is free. Re-entrant: a thread that holds the
  // lock may take it again, and must delete every handle it got. Caller owns the handle.
  virtual ILock* lock() = 0;

  // Stores a new record of `size` bytes copied from `data` and returns its offset. The first
  // record created in an empty store is at offset 0; freed offsets may be given out again.
  virtual unsigned create(const void* data, unsigned size) = 0;

  // Appends `size` bytes to the record at `offset`. Throws if no record is there.
  virtual void append(unsigned offset, const void* data, unsigned size) = 0;

  // Replaces the whole record at `offset` with `size` bytes (longer or shorter). `changed`
  // is false when only a reference count changed. Throws if no record is there.
  virtual void write(unsigned offset, const void* data, unsigned size, bool changed) = 0;

  // The size of the record at `offset`; 0 for BADOFF and for an offset that holds no record.
  virtual unsigned size(unsigned offset) = 0;

  // Copies at most `maximum` bytes of the record to `destination` and returns how many were
  // copied; 0xFFFFFFFF means the whole record. 0, copying nothing, for BADOFF or no record.
  virtual unsigned read(unsigned offset, void* destination, unsigned maximum) = 0;

  // Releases the record at `offset`; the offset then holds no record. Freeing BADOFF or an
  // offset that holds no record does nothing.
  virtual void free(unsigned offset) = 0;

  // Bytes taken by the store's records; 0 exactly when nothing has ever been written.
  virtual unsigned long long used() = 0;

  // The format version of the data the store holds (0 until set).
  virtual void version(unsigned version) = 0;
  virtual unsigned version() = 0;

  // Called once after a document has been parsed into the store.
  virtual void complete() = 0;
};

// Records kept in memory: O(1) create, read, write and free by offset.
class KPL_CORE_API MemoryDataStore : public IDataStore {
 public:
  MemoryDataStore();
  ~MemoryDataStore() override;
  MemoryDataStore(const MemoryDataStore&) = delete;
  MemoryDataStore& operator=(const MemoryDataStore&) = delete;

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
  void complete() override;

  // Number of live records; a diagnostic for tests and tools.
  unsigned records();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KESTRINE_PLATFORM_CORE_DATASTORE_H_
