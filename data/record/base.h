#ifndef KPL_DATA_RECORD_BASE_H_
#define KPL_DATA_RECORD_BASE_H_

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/string.h"

namespace kestrine::platform::data::Record {

using core::storage::datastore::IDataStore;

static_assert(sizeof(wchar_t) == 4, "records store wide strings as 32-bit units");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records are little-endian");

// The kind byte at position 0 of every record.
enum tType : std::uint8_t {
  kRoot = 0,
  kPrimitive = 1,
  kTable = 2,
  kOffsets = 3,
  kContainer = 4,
  kLocale = 5,
  // Not a kind: what peek() answers where there is no record. No valid record starts with
  // this byte.
  kNoRecord = 0xFF,
};

// The buffer size for a record of `n` bytes: 0, then 8, 16, 32, 48, 64, 96, 128, 256, 512,
// 1024, 2048, 4096 and 16384 (there is no 8192 class), and `n` itself above 16384.
unsigned allocator(unsigned n);

// The kind of the record at `offset`, its first byte; kNoRecord for BADOFF, a freed offset,
// or an empty record.
tType peek(IDataStore* store, unsigned offset);

// Throws core::Exception "damaged record at offset N: <what>".
[[noreturn]] void damagedRecord(unsigned offset, const std::string& what);

// How a record is loaded: copied into a buffer of its own, which may then be changed, or,
// where the store shows its records where they lie (IDataStore::view), read there without a
// copy. A record loaded in place is only read, through a const reference, and only as long as
// the view lasts (see there); a store that shows nothing gets it copied.
enum class Loading { kCopy, kInPlace };

// The in-memory working copy of one record: the whole record is read into a pooled buffer,
// edited in place by the typed records, and written back whole by update(). Record objects
// live on the stack for one operation; nothing here checks offsets. A record read from the
// store is checked against its own size by the typed records before any of its fields is
// trusted (see Entity, Offsets, Locale), and no field outside the record is ever read or
// written: a damaged record ends the operation with core::Exception ("damaged record at
// offset N: ...") instead of a crash.
//
// The bytes between the used size and the capacity are kept zero by alloc, grow and shrink,
// so an in-place grow exposes zeros (the array setters of the typed records do not zero
// their new buffers).
class Base {
 public:
  Base();
  // Loads the record at `offset` whole.
  Base(IDataStore* store, unsigned offset, Loading how = Loading::kCopy);
  // Loads the record at `offset` whole in place of the one held, keeping the buffer when it
  // is large enough: a walk that only reads allocates for its largest record alone.
  void load(unsigned offset, Loading how = Loading::kCopy);
  // A fresh record of `size` zero bytes with kind `type`; the store sees it at update().
  Base(IDataStore* store, unsigned size, tType type);
  virtual ~Base();
  Base(const Base&) = delete;
  Base& operator=(const Base&) = delete;

  IDataStore* store() const { return store_; }
  // BADOFF until the first update() of a fresh record.
  unsigned offset() const { return offset_; }
  // The kind byte; kNoRecord for a record that could not be read.
  tType id() const { return used_ != 0 ? static_cast<tType>(buffer_[0]) : kNoRecord; }
  unsigned used() const { return used_; }
  unsigned capacity() const { return capacity_; }
  unsigned char* data() { return buffer_; }
  const unsigned char* data() const { return buffer_; }

  // Creates the record at its first call, overwrites it in place afterwards. `changed` is
  // false when only a reference count moved.
  void update(bool changed);
  // Writes only the `width` bytes at `at` of an existing record (see IDataStore::patch).
  void patch(unsigned at, unsigned width, bool changed);
  // Stores a copy of the bytes as a new record in `target` (which may be this store) and
  // returns its offset. Offsets inside the copy still refer to the source store.
  unsigned clone(IDataStore* target) const;

  // Replaces the buffer by `n` zero bytes in their size class (n = 0 drops it).
  void alloc(unsigned n);
  // Appends `len` zero bytes.
  void grow(unsigned len);
  // Removes `len` bytes at `at`, zeroing the freed tail.
  void shrink(unsigned at, unsigned len);
  // Inserts `len` zero bytes at `at`. The tail is copied from at + len down to at, the
  // same direction as shrink: an old quirk that is kept, since nothing calls it.
  void grow(unsigned at, unsigned len);

 protected:
  // Fields are read and written only within the record: a field past its end is the mark of a
  // damaged record (or of a record loaded as the wrong kind), never a reason to touch memory
  // beyond the buffer.
  std::uint8_t get8(unsigned at) const { return buffer_[within(at, 1)]; }
  void put8(unsigned at, std::uint8_t value) { buffer_[within(at, 1)] = value; }
  std::uint32_t get32(unsigned at) const {
    std::uint32_t value;
    std::memcpy(&value, buffer_ + within(at, 4), 4);
    return value;
  }
  void put32(unsigned at, std::uint32_t value) { std::memcpy(buffer_ + within(at, 4), &value, 4); }

  // Throws core::Exception "damaged record at offset N: <what>".
  [[noreturn]] void damaged(const std::string& what) const;

  // Where the array whose length field stands at `selector` begins, given the fixed part's
  // size and every array selector of the kind in storage order.
  unsigned arrayStart(unsigned fixed, const unsigned* selectors, unsigned count,
                      unsigned selector) const;
  // The wide text stored in an array, up to its terminator: empty for an empty array, and
  // never past the array even when the terminator is missing. The view lies in the buffer.
  std::wstring_view arrayText(unsigned start, unsigned length) const;
  // Replaces the array at `selector` by `length` bytes of `data` and writes the record. The
  // new buffer is not zero-filled; with a selector that is not one of `selectors`, the
  // arrays are not carried over.
  void replaceArray(unsigned fixed, const unsigned* selectors, unsigned count, unsigned selector,
                    const void* data, unsigned length);
  // Swaps in a new buffer, freeing the old one.
  void adopt(unsigned char* buffer, unsigned used, unsigned capacity);

 private:
  unsigned within(unsigned at, unsigned width) const {
    if (static_cast<unsigned long long>(at) + width > used_) fieldPastTheEnd(at);
    return at;
  }
  [[noreturn]] void fieldPastTheEnd(unsigned at) const;
  // Points at the record's bytes in the store; false, changing nothing, where it shows none.
  bool loadInPlace(unsigned offset);
  void release();

  IDataStore* store_;
  unsigned offset_;
  unsigned char* buffer_;  // the store's own bytes when loaded in place, with capacity_ 0
  unsigned used_;
  unsigned capacity_;
};

}  // namespace kestrine::platform::data::Record

#endif  // KPL_DATA_RECORD_BASE_H_
