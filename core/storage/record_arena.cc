#include "core/storage/record_arena.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

namespace {

// Chunks made before huge pages are asked for: a store that fits in them keeps plain pages.
constexpr std::size_t kPlainChunks = 1;
// Holes below this are never worth a pack.
constexpr std::size_t kTolerated = std::size_t{8} << 20;

std::size_t roundUp(std::size_t size) {
  return (size + 7) & ~std::size_t{7};
}

// Room for a record that grows in steps, so that a list appended to one entry at a time
// moves a logarithmic number of times.
std::size_t grown(std::size_t capacity, std::size_t wanted) {
  return std::max(wanted, capacity + capacity / 2);
}

unsigned char* newChunk(bool hugePages) {
  void* chunk = nullptr;
  if (posix_memalign(&chunk, RecordArena::kChunkBytes, RecordArena::kChunkBytes) != 0)
    throw std::bad_alloc();
  // Only advice: where huge pages are off or none is free, the chunk gets plain pages.
  if (hugePages) madvise(chunk, RecordArena::kChunkBytes, MADV_HUGEPAGE);
  return static_cast<unsigned char*>(chunk);
}

}  // namespace

unsigned char RecordArena::freedMark;

void RecordArena::Slots::push() {
  const Place slot = place(size_);
  std::unique_ptr<Record, Free>& segment = segments_[slot.segment];
  if (!segment) {
    segment.reset(static_cast<Record*>(std::malloc(sizeof(Record) << (kFirstBits + slot.segment))));
    if (!segment) throw std::bad_alloc();
  }
  new (segment.get() + slot.index) Record();
  ++size_;
}

RecordArena::~RecordArena() {
  for (std::size_t offset = 0; offset < records_.size(); ++offset)
    if (records_[offset].own()) std::free(records_[offset].data);
}

bool RecordArena::find(unsigned offset, Bytes& bytes) const {
  if (offset >= records_.size() || !records_[offset].live()) return false;
  bytes = {records_[offset].data, records_[offset].size};
  return true;
}

std::size_t RecordArena::chunkBytes() const {
  return chunks_.size() * kChunkBytes;
}

unsigned RecordArena::create(const void* data, unsigned size) {
  Record record;
  bool reused = !freeOffsets_.empty();
  if (!reused) {
    if (records_.size() >= IDataStore::BADOFF) throw Exception("memory datastore: no offsets left");
    records_.push();
  }
  try {
    reserve(record, size, 0);
  } catch (...) {
    if (!reused) records_.pop();
    throw;
  }
  record.size = size;
  if (size != 0) {
    if (data)
      std::memcpy(record.data, data, size);
    else
      std::memset(record.data, 0, size);
  }
  unsigned offset = static_cast<unsigned>(records_.size() - 1);
  if (reused) {
    offset = freeOffsets_.back();
    freeOffsets_.pop_back();
  }
  records_[offset] = record;
  return offset;
}

unsigned char* RecordArena::resize(unsigned offset, unsigned size, unsigned keep) {
  if (offset >= records_.size() || !records_[offset].live()) return nullptr;
  Record& record = records_[offset];
  reserve(record, size, std::min(keep, record.size));
  record.size = size;
  packIfWorthIt();
  return records_[offset].data;
}

bool RecordArena::free(unsigned offset) {
  if (offset >= records_.size() || !records_[offset].live()) return false;
  freeOffsets_.push_back(offset);
  drop(records_[offset]);
  records_[offset].data = &freedMark;
  packIfWorthIt();
  return true;
}

void RecordArena::reserve(Record& record, unsigned capacity, unsigned keep) {
  if (capacity <= record.capacity) return;
  if (record.own() || capacity > kLargest) {
    std::size_t size = record.own() ? grown(record.capacity, capacity) : capacity;
    size = std::min<std::size_t>(size, std::numeric_limits<unsigned>::max());
    void* block = record.own() ? std::realloc(record.data, size) : std::malloc(size);
    if (block == nullptr) throw std::bad_alloc();
    if (!record.own()) {
      if (keep != 0) std::memcpy(block, record.data, keep);
      drop(record);
    }
    record.data = static_cast<unsigned char*>(block);
    record.capacity = static_cast<unsigned>(size);
    return;
  }
  std::size_t wanted = roundUp(capacity);
  if (newest(record) && wanted - record.capacity <= static_cast<std::size_t>(end_ - next_)) {
    // The newest record grows where it lies.
    next_ += wanted - record.capacity;
    held_ += wanted - record.capacity;
    record.capacity = static_cast<unsigned>(wanted);
    return;
  }
  std::size_t size = record.capacity == 0 ? wanted : roundUp(grown(record.capacity, wanted));
  if (size > kLargest) size = wanted;
  unsigned char* data = room(size);
  if (keep != 0) std::memcpy(data, record.data, keep);
  drop(record);
  record.data = data;
  record.capacity = static_cast<unsigned>(size);
}

unsigned char* RecordArena::room(std::size_t capacity) {
  if (capacity > static_cast<std::size_t>(end_ - next_)) {
    // Owned before the list takes it, so that a list that cannot grow drops it again.
    Block chunk(newChunk(chunks_.size() >= kPlainChunks));
    chunks_.push_back(std::move(chunk));
    wasted_ += end_ - next_;
    next_ = chunks_.back().get();
    end_ = next_ + kChunkBytes;
  }
  unsigned char* at = next_;
  next_ += capacity;
  held_ += capacity;
  return at;
}

bool RecordArena::newest(const Record& record) const {
  return record.capacity != 0 && !record.own() && record.data + record.capacity == next_ &&
         record.data >= end_ - kChunkBytes;
}

void RecordArena::drop(Record& record) {
  if (record.own()) {
    std::free(record.data);
  } else if (newest(record)) {
    next_ -= record.capacity;
    held_ -= record.capacity;
  } else {
    held_ -= record.capacity;
    wasted_ += record.capacity;
  }
  record.data = nullptr;
  record.capacity = 0;
}

void RecordArena::packIfWorthIt() {
  if (wasted_ < kTolerated || wasted_ < held_ / 2) return;
  std::vector<Block> old;
  try {
    pack(old);
  } catch (const std::bad_alloc&) {
    // A pack only saves memory: what it could not move stays where it lies.
    if (old.empty()) return;
    for (Block& chunk : old)
      if (chunk) chunks_.push_back(std::move(chunk));
    held_ = 0;
    for (std::size_t offset = 0; offset < records_.size(); ++offset)
      if (!records_[offset].own()) held_ += records_[offset].capacity;
    wasted_ = chunks_.size() * kChunkBytes - held_ - (end_ - next_);
  }
}

void RecordArena::pack(std::vector<Block>& old) {
  // The records that lie in chunks, in the order they lie: chunk by chunk as the chunks were
  // made, then by address. An old chunk is let go as soon as its records have moved, so a
  // pack needs little more memory than the records themselves.
  std::vector<std::pair<const unsigned char*, std::size_t>> bases;
  bases.reserve(chunks_.size());
  for (std::size_t i = 0; i < chunks_.size(); ++i)
    bases.emplace_back(chunks_[i].get(), i);
  std::sort(bases.begin(), bases.end());
  struct Placed {
    std::size_t chunk;
    const unsigned char* data;
    unsigned offset;
    bool operator<(const Placed& other) const {
      return chunk != other.chunk ? chunk < other.chunk : data < other.data;
    }
  };
  std::vector<Placed> placed;
  for (unsigned offset = 0; offset < records_.size(); ++offset) {
    const Record& record = records_[offset];
    if (record.own() || record.capacity == 0) continue;
    const unsigned char* data = record.data;
    auto base = std::upper_bound(bases.begin(), bases.end(),
                                 std::make_pair(data, std::numeric_limits<std::size_t>::max()));
    placed.push_back({std::prev(base)->second, data, offset});
  }
  std::sort(placed.begin(), placed.end());

  // A chunk holds records of up to kLargest bytes to within kLargest of its end, so the
  // packed records take fewer chunks than they had, give or take one; with the old chunks
  // that are left when a pack stops half way, three times as many is room enough.
  old.reserve(3 * chunks_.size() + 2);
  old.swap(chunks_);
  next_ = end_ = nullptr;
  held_ = wasted_ = 0;
  for (std::size_t i = 0; i < placed.size(); ++i) {
    Record& record = records_[placed[i].offset];
    std::size_t size = roundUp(record.size);
    unsigned char* data = size == 0 ? nullptr : room(size);
    if (record.size != 0) std::memcpy(data, record.data, record.size);
    record.data = data;
    record.capacity = static_cast<unsigned>(size);
    if (i + 1 == placed.size() || placed[i + 1].chunk != placed[i].chunk)
      old[placed[i].chunk].reset();
  }
}

}  // namespace kestrine::platform::core::storage::datastore
