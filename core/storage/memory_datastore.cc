#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>

#include "core/storage/record_arena.h"
#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

namespace {

// Each offset ever given out costs one slot; used() counts it so that a store that has been
// written to never reports 0 again, even when all its records were freed.
constexpr unsigned long long kSlotBytes = 8;

[[noreturn]] void throwNoRecord(const char* operation, unsigned offset) {
  throw Exception(std::string("memory datastore: ") + operation + " of offset " +
                  std::to_string(offset) + ", which holds no record");
}

}  // namespace

struct MemoryDataStore::Impl {
  // The store lock handed out by lock(), re-entrant for its holder.
  std::recursive_mutex storeLock;
  // Guards the slots; readers share it, so concurrent reads proceed in parallel. The holder
  // of the store lock holds it exclusively for as long, so that its operations (an import
  // makes millions) take no lock of their own; the operations of other threads wait for it.
  std::shared_mutex slotsMutex;
  // The thread that holds the store lock; only that thread writes its own id here, so a
  // thread that reads its id holds the lock.
  std::atomic<std::thread::id> holder{std::thread::id()};
  unsigned depth = 0;  // touched only by the holder
  RecordArena records;
  unsigned long long liveBytes = 0;
  unsigned liveRecords = 0;
  std::atomic<unsigned> version{0};
  // Moves with every change, for the stamp; there is nobody else to make changes.
  std::atomic<unsigned long long> changes{0};
  std::unique_ptr<IAttachment> attachment;

  bool heldHere() const {
    return holder.load(std::memory_order_relaxed) == std::this_thread::get_id();
  }

  // The store lock: the outermost hold also takes the slots.
  class Hold final : public IDataStore::ILock {
   public:
    explicit Hold(Impl& impl) : impl_(impl) {
      impl_.storeLock.lock();
      if (impl_.depth++ > 0) return;
      impl_.slotsMutex.lock();
      impl_.holder.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }
    ~Hold() override {
      if (--impl_.depth == 0) {
        impl_.holder.store(std::thread::id(), std::memory_order_relaxed);
        impl_.slotsMutex.unlock();
      }
      impl_.storeLock.unlock();
    }

   private:
    Impl& impl_;
  };

  // Access to the slots for one operation: shared for reading, exclusive for changing, and
  // nothing to take for the holder of the store lock, which has them already.
  template <class Guard>
  class Access {
   public:
    explicit Access(Impl& impl) : guard_(impl.slotsMutex, std::defer_lock) {
      if (!impl.heldHere()) guard_.lock();
    }

   private:
    Guard guard_;
  };
  using Reading = Access<std::shared_lock<std::shared_mutex>>;
  using Changing = Access<std::unique_lock<std::shared_mutex>>;
};

MemoryDataStore::MemoryDataStore() : impl_(new Impl) {}

MemoryDataStore::~MemoryDataStore() = default;

IDataStore::ILock* MemoryDataStore::lock() {
  return new Impl::Hold(*impl_);
}

unsigned MemoryDataStore::create(const void* data, unsigned size) {
  Impl::Changing guard(*impl_);
  unsigned offset = impl_->records.create(data, size);
  impl_->liveBytes += size;
  ++impl_->liveRecords;
  impl_->changes.fetch_add(1, std::memory_order_relaxed);
  return offset;
}

void MemoryDataStore::append(unsigned offset, const void* data, unsigned size) {
  Impl::Changing guard(*impl_);
  RecordArena::Bytes record;
  if (!impl_->records.find(offset, record)) throwNoRecord("append", offset);
  if (size > std::numeric_limits<unsigned>::max() - record.size)
    throw Exception("memory datastore: a record at offset " + std::to_string(offset) +
                    " would grow past 4 GiB");
  unsigned char* bytes = impl_->records.resize(offset, record.size + size, record.size);
  if (size != 0) std::memcpy(bytes + record.size, data, size);
  impl_->liveBytes += size;
  impl_->changes.fetch_add(1, std::memory_order_relaxed);
}

void MemoryDataStore::write(unsigned offset, const void* data, unsigned size, bool) {
  Impl::Changing guard(*impl_);
  RecordArena::Bytes record;
  if (!impl_->records.find(offset, record)) throwNoRecord("write", offset);
  unsigned char* bytes = impl_->records.resize(offset, size, 0);
  if (size != 0) std::memcpy(bytes, data, size);
  impl_->liveBytes += size;
  impl_->liveBytes -= record.size;
  impl_->changes.fetch_add(1, std::memory_order_relaxed);
}

void MemoryDataStore::patch(unsigned offset, unsigned at, const void* data, unsigned size, bool) {
  Impl::Changing guard(*impl_);
  RecordArena::Bytes record;
  if (!impl_->records.find(offset, record)) throwNoRecord("patch", offset);
  if (at > record.size || size > record.size - at)
    throw Exception("memory datastore: patch of " + std::to_string(size) + " bytes at byte " +
                    std::to_string(at) + " of the record at offset " + std::to_string(offset) +
                    ", which has " + std::to_string(record.size));
  if (size != 0) std::memcpy(record.data + at, data, size);
  impl_->changes.fetch_add(1, std::memory_order_relaxed);
}

unsigned MemoryDataStore::size(unsigned offset) {
  Impl::Reading guard(*impl_);
  RecordArena::Bytes record;
  return impl_->records.find(offset, record) ? record.size : 0;
}

unsigned MemoryDataStore::read(unsigned offset, void* destination, unsigned maximum) {
  Impl::Reading guard(*impl_);
  RecordArena::Bytes record;
  if (!impl_->records.find(offset, record)) return 0;
  unsigned count = std::min(maximum, record.size);
  if (count != 0) std::memcpy(destination, record.data, count);
  return count;
}

const void* MemoryDataStore::view(unsigned offset, unsigned& size) {
  // Only the holder of the store lock keeps other threads from changing the record.
  if (!impl_->heldHere()) return nullptr;
  RecordArena::Bytes record;
  if (!impl_->records.find(offset, record) || record.size == 0) return nullptr;
  size = record.size;
  return record.data;
}

void MemoryDataStore::free(unsigned offset) {
  Impl::Changing guard(*impl_);
  RecordArena::Bytes record;
  if (!impl_->records.find(offset, record)) return;
  impl_->records.free(offset);
  impl_->liveBytes -= record.size;
  --impl_->liveRecords;
  impl_->changes.fetch_add(1, std::memory_order_relaxed);
}

unsigned long long MemoryDataStore::used() {
  Impl::Reading guard(*impl_);
  return impl_->liveBytes + kSlotBytes * impl_->records.offsets();
}

void MemoryDataStore::version(unsigned version) {
  impl_->version.store(version);
  impl_->changes.fetch_add(1, std::memory_order_relaxed);
}

unsigned MemoryDataStore::version() {
  return impl_->version.load();
}

void MemoryDataStore::complete() {}

bool MemoryDataStore::stamp(tStamp& stamp) {
  stamp.own = impl_->changes.load(std::memory_order_relaxed);
  stamp.foreign = 0;
  return true;
}

IDataStore::IAttachment* MemoryDataStore::attachment() {
  return impl_->attachment.get();
}

void MemoryDataStore::attach(std::unique_ptr<IAttachment> attachment) {
  impl_->attachment = std::move(attachment);
}

unsigned MemoryDataStore::records() {
  Impl::Reading guard(*impl_);
  return impl_->liveRecords;
}

}  // namespace kestrine::platform::core::storage::datastore
