#ifndef KPL_CORE_STORAGE_RECORD_ARENA_H_
#define KPL_CORE_STORAGE_RECORD_ARENA_H_

#include <cstddef>
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
  struct Record {
    unsigned char* data = nullptr;
    unsigned size = 0;
    unsigned capacity = 0;
    bool live = false;
    bool own = false;  // a block of its own rather than room in a chunk
  };
  struct FreeChunk {
    void operator()(unsigned char* chunk) const { std::free(chunk); }
  };
  using Block = std::unique_ptr<unsigned char, FreeChunk>;

  void reserve(Record& record, unsigned capacity, unsigned keep);
  unsigned char* room(std::size_t capacity);
  bool newest(const Record& record) const;
  void drop(Record& record);
  void packIfWorthIt();
  void pack(std::vector<Block>& old);

  std::vector<Record> records_;
  std::vector<unsigned> freeOffsets_;
  std::vector<Block> chunks_;
  unsigned char* next_ = nullptr;  // the free room at the end of the newest chunk
  unsigned char* end_ = nullptr;
  std::size_t held_ = 0;    // room in chunks that records hold
  std::size_t wasted_ = 0;  // room in chunks that no record holds, the free room apart
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_RECORD_ARENA_H_
