#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

namespace {

// Each offset ever given out costs one slot; used() counts it so that a store that has been
// written to never reports 0 again, even when all its records were freed.
constexpr unsigned long long kSlotBytes = 8;

// A record's bytes; `live` is false once freed (the slot then waits on the free list).
struct Slot {
  std::vector<unsigned char> bytes;
  bool live = false;
};

class RecursiveLock final : public IDataStore::ILock {
 public:
  explicit RecursiveLock(std::recursive_mutex& mutex) : mutex_(mutex) { mutex_.lock(); }
  ~RecursiveLock() override { mutex_.unlock(); }

 private:
  std::recursive_mutex& mutex_;
};

[[noreturn]] void throwNoRecord(const char* operation, unsigned offset) {
  throw Exception(std::string("memory datastore: ") + operation + " of offset " +
                  std::to_string(offset) + ", which holds no record");
}

}  // namespace

struct MemoryDataStore::Impl {
  // The store lock handed out by lock(): it orders callers, not the store's own state.
  std::recursive_mutex storeLock;
  // Guards the slots; readers share it, so concurrent reads proceed in parallel.
  std::shared_mutex slotsMutex;
  std::vector<Slot> slots;
  std::vector<unsigned> freeOffsets;
  unsigned long long liveBytes = 0;
  unsigned liveRecords = 0;
  std::atomic<unsigned> version{0};
  // Moves with every change, for the stamp; there is nobody else to make changes.
  std::atomic<unsigned long long> changes{0};
  std::unique_ptr<IAttachment> attachment;

  Slot* find(unsigned offset) {
    if (offset >= slots.size() || !slots[offset].live) return nullptr;
    return &slots[offset];
  }
};

MemoryDataStore::MemoryDataStore() : impl_(new Impl) {}

MemoryDataStore::~MemoryDataStore() = default;

IDataStore::ILock* MemoryDataStore::lock() { return new RecursiveLock(impl_->storeLock); }

unsigned MemoryDataStore::create(const void* data, unsigned size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  std::vector<unsigned char> record(bytes, bytes + (data ? size : 0));
  record.resize(size);
  std::unique_lock<std::shared_mutex> guard(impl_->slotsMutex);
  unsigned offset;
  if (!impl_->freeOffsets.empty()) {
    offset = impl_->freeOffsets.back();
    impl_->freeOffsets.pop_back();
  } else {
    if (impl_->slots.size() >= BADOFF) throw Exception("memory datastore: no offsets left");
    offset = static_cast<unsigned>(impl_->slots.size());
    impl_->slots.emplace_back();
  }
  Slot& slot = impl_->slots[offset];
  slot.bytes.swap(record);
  slot.live = true;
  impl_->liveBytes += size;
  ++impl_->liveRecords;
  impl_->changes.fetch_add(1, std::memory_order_relaxed);
  return offset;
}

void MemoryDataStore::append(unsigned offset, const void* data, unsigned size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  std::unique_lock<std::shared_mutex> guard(impl_->slotsMutex);
  Slot* slot = impl_->find(offset);
  if (slot == nullptr) throwNoRecord("append", offset);
  slot->bytes.insert(slot->bytes.end(), bytes, bytes + size);
  impl_->liveBytes += size;
  impl_->changes.fetch_add(1, std::memory_order_relaxed);
}

void MemoryDataStore::write(unsigned offset, const void* data, unsigned size, bool) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  std::unique_lock<std::shared_mutex> guard(impl_->slotsMutex);
  Slot* slot = impl_->find(offset);
  if (slot == nullptr) throwNoRecord("write", offset);
  impl_->liveBytes += size;
  impl_->liveBytes -= slot->bytes.size();
  slot->bytes.assign(bytes, bytes + size);
  impl_->changes.fetch_add(1, std::memory_order_relaxed);
}

unsigned MemoryDataStore::size(unsigned offset) {
  std::shared_lock<std::shared_mutex> guard(impl_->slotsMutex);
  Slot* slot = impl_->find(offset);
  return slot ? static_cast<unsigned>(slot->bytes.size()) : 0;
}

unsigned MemoryDataStore::read(unsigned offset, void* destination, unsigned maximum) {
  std::shared_lock<std::shared_mutex> guard(impl_->slotsMutex);
  Slot* slot = impl_->find(offset);
  if (slot == nullptr) return 0;
  unsigned count = std::min<unsigned>(maximum, static_cast<unsigned>(slot->bytes.size()));
  if (count != 0) std::memcpy(destination, slot->bytes.data(), count);
  return count;
}

void MemoryDataStore::free(unsigned offset) {
  std::unique_lock<std::shared_mutex> guard(impl_->slotsMutex);
  Slot* slot = impl_->find(offset);
  if (slot == nullptr) return;
  impl_->liveBytes -= slot->bytes.size();
  --impl_->liveRecords;
  std::vector<unsigned char>().swap(slot->bytes);
  slot->live = false;
  impl_->freeOffsets.push_back(offset);
  impl_->changes.fetch_add(1, std::memory_order_relaxed);
}

unsigned long long MemoryDataStore::used() {
  std::shared_lock<std::shared_mutex> guard(impl_->slotsMutex);
  return impl_->liveBytes + kSlotBytes * impl_->slots.size();
}

void MemoryDataStore::version(unsigned version) {
  impl_->version.store(version);
  impl_->changes.fetch_add(1, std::memory_order_relaxed);
}

unsigned MemoryDataStore::version() { return impl_->version.load(); }

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
  std::shared_lock<std::shared_mutex> guard(impl_->slotsMutex);
  return impl_->liveRecords;
}

}  // namespace kestrine::platform::core::storage::datastore
