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

  // Overwrites `size` bytes of the record at `offset` from its byte `at` on, leaving its size
  // and its other bytes as they are; `changed` as for write. Throws, changing nothing, if no
  // record is there or the bytes run past its end. The default reads the whole record and
  // writes it back; a store that can change bytes where they lie does so.
  virtual void patch(unsigned offset, unsigned at, const void* data, unsigned size, bool changed);

  // The size of the record at `offset`; 0 for BADOFF and for an offset that holds no record.
  virtual unsigned size(unsigned offset) = 0;

  // Copies at most `maximum` bytes of the record to `destination` and returns how many were
  // copied; 0xFFFFFFFF means the whole record. 0, copying nothing, for BADOFF or no record.
  virtual unsigned read(unsigned offset, void* destination, unsigned maximum) = 0;

  // The bytes of the record at `offset` where they lie, and its size in `size`, for a walk
  // that reads many records and would rather not copy them: valid while the calling thread
  // holds the store lock, until it creates, appends to, writes or frees a record (a patch
  // changes the bytes where they lie, and the view shows the change). Null, leaving `size`
  // alone, when the caller does not hold the lock, when no record is there, or when the store
  // keeps no bytes to show (the default); the caller then reads a copy.
  virtual const void* view(unsigned offset, unsigned& size);

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

  // Drops the changes made since the last commit point, for a store that keeps changes
  // pending until then (a store file). False, changing nothing, for a store that applies
  // every change at once (the default, and MemoryDataStore). Hold the store lock around the
  // call, so that no other thread adds changes meanwhile.
  virtual bool abandon();

  // -- For clients that cache what they read ------------------------------------------------
  //
  // The data layer keeps indexes of names over the records and must learn when they may
  // have gone stale. A store that tracks its changes answers stamp() and keeps an
  // attachment; the defaults track and keep nothing, and a client then trusts nothing it
  // read beyond one holding of the store lock.

  // Where the records stand. `own` moves with every create, append, write, free and version
  // change made through this object, and with anything else it does that changes what it
  // reads (abandoning pending changes); `foreign` moves when what it reads comes to include
  // changes made elsewhere (another process committing to a shared file or database).
  struct tStamp {
    unsigned long long own = 0;
    unsigned long long foreign = 0;
    bool operator==(const tStamp& other) const {
      return own == other.own && foreign == other.foreign;
    }
    bool operator!=(const tStamp& other) const { return !(*this == other); }
  };

  // Fills `stamp` and answers true when the store tracks its changes; false, leaving `stamp`
  // alone, when it does not (the default). Taken under the store lock, it also fixes the
  // state that the holder reads from then on, as far as the store can: a shared store moves
  // on to the newest state at the holder's first change, and `foreign` moves with it.
  virtual bool stamp(tStamp& stamp);

  // An object that a client keeps beside the store and that is destroyed with it; the data
  // layer keeps its index cache there. Stores that track changes keep one; the default keeps
  // none (attach destroys what it is given, attachment() answers null). The attachment must
  // not use the store from its destructor. Both are called under the store lock.
  class KPL_CORE_API IAttachment {
   public:
    virtual ~IAttachment();
  };
  virtual IAttachment* attachment();
  virtual void attach(std::unique_ptr<IAttachment> attachment);
};

// Records kept in memory: O(1) create, read, write and free by offset. The holder of the
// store lock works on the records without further locking; the operations of other threads
// wait until it lets the lock go. Records lie in chunks of 2 MiB; past its first chunk a
// store asks the system to back the next ones with transparent huge pages (a hint that the
// system's settings may turn down), so that a large store costs few page faults.
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
  void patch(unsigned offset, unsigned at, const void* data, unsigned size, bool changed) override;
  unsigned size(unsigned offset) override;
  unsigned read(unsigned offset, void* destination, unsigned maximum) override;
  const void* view(unsigned offset, unsigned& size) override;
  void free(unsigned offset) override;
  unsigned long long used() override;
  void version(unsigned version) override;
  unsigned version() override;
  void complete() override;
  bool stamp(tStamp& stamp) override;
  IAttachment* attachment() override;
  void attach(std::unique_ptr<IAttachment> attachment) override;

  // Number of live records; a diagnostic for tests and tools.
  unsigned records();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KESTRINE_PLATFORM_CORE_DATASTORE_H_
