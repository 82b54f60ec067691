#ifndef KPL_CORE_STORAGE_RECORD_ARENA_H_
#define KPL_CORE_STORAGE_RECORD_ARENA_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace kestrine::platform::core::storage::datastore {

// The records of a memory store, by offset. Their bytes lie in large chunks in the order the
// records were made, so that a walk over a tree made in document order reads memory in order,
// and making or freeing a record costs no call to the system allocator. A record that grows
// while it is the newest grows in place; one that outgrows its room elsewhere moves, and its
// old room becomes a hole. When the holes come to half of what the records hold, the records
// are packed into fresh chunks, in the order they lay. A record too large for a chunk gets a
// block of its own. Chunks are the size of a huge page and aligned to one; once an arena has
// outgrown its first, the system is asked to back the next ones with huge pages, so that a
// store of tens of megabytes costs dozens of page faults instead of thousands, while a small
// store keeps plain pages. Not thread-safe: its owner serialises the calls.
class RecordArena {
 public:
  static constexpr std::size_t kChunkBytes = std::size_t{2} << 20;  // a huge page

  // A record's bytes; valid until the next call that changes the arena.
  struct Bytes {
    unsigned char* data;
    unsigned size;
  };

  RecordArena() = default;
  RecordArena(const RecordArena&) = delete;
  RecordArena& operator=(const RecordArena&) = delete;
  ~RecordArena();

  // The record at `offset`; false when it holds none.
  bool find(unsigned offset, Bytes& bytes) const;

  // A new record of `size` bytes, copied from `data` or zero-filled when it is null, at a
  // freed offset or a new one; returns the offset. Throws Exception when no offsets are left
  // and std::bad_alloc when memory is, changing nothing.
  unsigned create(const void* data, unsigned size);

  // Gives the record at `offset` `size` bytes, keeping its first `keep` of them (no more than
  // it has); returns where they lie, or null when the offset holds no record. Throws
  // std::bad_alloc when memory runs out, leaving the record as it was.
  unsigned char* resize(unsigned offset, unsigned size, unsigned keep);

  // Frees the record at `offset`; false when it holds none.
  bool free(unsigned offset);

  // Offsets given out so far, freed ones included.
  std::size_t offsets() const { return records_.size(); }

  // Bytes taken for chunks; the blocks of large records come on top.
  std::size_t chunkBytes() const;

 private:
  // Records above this get blocks of their own, so a chunk leaves at most this much unused at
  // its end, and a large record grows by the system's realloc.
  static constexpr std::size_t kLargest = std::size_t{64} << 10;

  struct Free {
    void operator()(void* block) const { std::free(block); }
  };
  using Block = std::unique_ptr<unsigned char, Free>;

  // 16 bytes, for a store holds millions of them. A record lies in a block of its own exactly
  // when its room exceeds what a chunk takes; a freed offset points at `freedMark`, so that
  // neither needs a flag.
  struct Record {
    unsigned char* data = nullptr;
    unsigned size = 0;
    unsigned capacity = 0;
    bool live() const { return data != &freedMark; }
    bool own() const { return capacity > kLargest; }
  };
  static unsigned char freedMark;

  // The records by offset, in segments that double in size, so that the table grows without
  // copying what it holds: a vector that doubles holds its old and its new array at once, 72
  // bytes a record at the moment it grows, and leaves the old array behind in the heap.
  // Segments are taken uninitialised, so the part of the last one not yet used costs no
  // resident memory.
  class Slots {
   public:
    std::size_t size() const { return size_; }
    Record& operator[](std::size_t offset) { return *at(offset); }
    const Record& operator[](std::size_t offset) const { return *at(offset); }
    // Appends a live, empty record; throws std::bad_alloc, changing nothing.
    void push();
    void pop() { --size_; }

   private:
    static constexpr unsigned kFirstBits = 10;  // 1024 records in the first segment
    // Enough segments for every offset an unsigned can hold.
    static constexpr unsigned kSegments = 33 - kFirstBits;

    // Where the slot of `offset` lies: segment s holds 2^(kFirstBits + s) slots.
    struct Place {
      unsigned segment;
      std::size_t index;
    };
    static Place place(std::size_t offset) {
      const std::uint64_t shifted = offset + (std::uint64_t{1} << kFirstBits);
      const unsigned top = 63 - __builtin_clzll(shifted);
      return {top - kFirstBits, static_cast<std::size_t>(shifted - (std::uint64_t{1} << top))};
    }
    Record* at(std::size_t offset) const {
      const Place slot = place(offset);
      return segments_[slot.segment].get() + slot.index;
    }

    std::unique_ptr<Record, Free> segments_[kSegments];
    std::size_t size_ = 0;
  };

  void reserve(Record& record, unsigned capacity, unsigned keep);
  unsigned char* room(std::size_t capacity);
  bool newest(const Record& record) const;
  void drop(Record& record);
  void packIfWorthIt();
  void pack(std::vector<Block>& old);

  Slots records_;
  std::vector<unsigned> freeOffsets_;
  std::vector<Block> chunks_;
  unsigned char* next_ = nullptr;  // the free room at the end of the newest chunk
  unsigned char* end_ = nullptr;
  std::size_t held_ = 0;    // room in chunks that records hold
  std::size_t wasted_ = 0;  // room in chunks that no record holds, the free room apart
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_RECORD_ARENA_H_
