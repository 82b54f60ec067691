#include "data/record/base.h"

#include <algorithm>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "kestrine/platform/core/exception.h"
#include "kestrine/platform/core/memory.h"

namespace kestrine::platform::data::Record {

using core::memory::PooledHeap;

namespace {

unsigned char* allocateZeroed(unsigned capacity) {
  unsigned char* buffer = static_cast<unsigned char*>(PooledHeap::malloc(capacity));
  std::memset(buffer, 0, capacity);
  return buffer;
}

}  // namespace

// The pooled heap's own size classes, so that a buffer takes its block whole.
unsigned allocator(unsigned n) {
  return n == 0 ? 0 : static_cast<unsigned>(PooledHeap::blockSize(n));
}

tType peek(IDataStore* store, unsigned offset) {
  std::uint8_t kind = 0;
  return store->read(offset, &kind, 1) == 1 ? static_cast<tType>(kind) : kNoRecord;
}

void damagedRecord(unsigned offset, const std::string& what) {
  throw core::Exception("damaged record at offset " + std::to_string(offset) + ": " + what);
}

void Base::damaged(const std::string& what) const {
  damagedRecord(offset_, what);
}

void Base::fieldPastTheEnd(unsigned at) const {
  damaged("a field at byte " + std::to_string(at) + " lies past its end (" + std::to_string(used_) +
          " bytes)");
}

Base::Base()
    : store_(nullptr), offset_(IDataStore::BADOFF), buffer_(nullptr), used_(0), capacity_(0) {}

Base::Base(IDataStore* store, unsigned offset, Loading how) : Base() {
  store_ = store;
  load(offset, how);
}

void Base::load(unsigned offset, Loading how) {
  if (how == Loading::kInPlace && loadInPlace(offset)) return;
  offset_ = offset;
  // Bytes shown in place are the store's: the record lets go of them, without clearing.
  if (capacity_ == 0) release();
  // Past the bytes the last record used, the buffer is zero already.
  unsigned dirty = used_;
  try {
    // Most records fit the buffer at hand: one is read at once, and its size asked for only
    // when it filled the buffer, which may mean that it is larger. Reading at most what the
    // buffer holds keeps it safe even if a caller outside the store lock resized the record
    // in between; under the lock this is the whole record.
    unsigned got = capacity_ == 0 ? 0 : store_->read(offset, buffer_, capacity_);
    if (got == capacity_) {
      const unsigned size = store_->size(offset);
      if (size > capacity_) {
        const unsigned capacity = allocator(size);
        auto* buffer = static_cast<unsigned char*>(PooledHeap::malloc(capacity));
        release();
        buffer_ = buffer;
        capacity_ = capacity;
        dirty = capacity;
        got = store_->read(offset, buffer_, size);
      }
    }
    used_ = got;
  } catch (...) {
    release();  // the buffer may hold part of a read: nothing of it is kept
    throw;
  }
  if (dirty > used_) std::memset(buffer_ + used_, 0, dirty - used_);
}

bool Base::loadInPlace(unsigned offset) {
  unsigned size = 0;
  const void* bytes = nullptr;
  try {
    bytes = store_->view(offset, size);
  } catch (...) {
    offset_ = offset;
    release();  // as a failed copy leaves it: nothing of the last record is kept
    throw;
  }
  if (bytes == nullptr) return false;
  release();
  offset_ = offset;
  buffer_ = static_cast<unsigned char*>(const_cast<void*>(bytes));
  used_ = size;
  return true;
}

Base::Base(IDataStore* store, unsigned size, tType type) : Base() {
  store_ = store;
  alloc(size);
  if (size != 0) buffer_[0] = type;
}

Base::~Base() {
  release();
}

void Base::release() {
  if (capacity_ != 0) PooledHeap::free(buffer_, capacity_);
  buffer_ = nullptr;
  used_ = 0;
  capacity_ = 0;
}

void Base::adopt(unsigned char* buffer, unsigned used, unsigned capacity) {
  release();
  buffer_ = buffer;
  used_ = used;
  capacity_ = capacity;
}

void Base::update(bool changed) {
  if (offset_ == IDataStore::BADOFF)
    offset_ = store_->create(buffer_, used_);
  else
    store_->write(offset_, buffer_, used_, changed);
}

void Base::patch(unsigned at, unsigned width, bool changed) {
  store_->patch(offset_, within(at, width), buffer_ + at, width, changed);
}

unsigned Base::clone(IDataStore* target) const {
  return target->create(buffer_, used_);
}

void Base::alloc(unsigned n) {
  release();
  if (n == 0) return;
  unsigned capacity = allocator(n);
  adopt(allocateZeroed(capacity), n, capacity);
}

void Base::grow(unsigned len) {
  if (len == 0) return;
  if (used_ + len <= capacity_) {
    used_ += len;
    return;
  }
  unsigned capacity = allocator(used_ + len);
  unsigned char* buffer = allocateZeroed(capacity);
  if (used_ != 0) std::memcpy(buffer, buffer_, used_);
  adopt(buffer, used_ + len, capacity);
}

void Base::shrink(unsigned at, unsigned len) {
  if (len == 0) return;
  std::memmove(buffer_ + at, buffer_ + at + len, used_ - at - len);
  std::memset(buffer_ + used_ - len, 0, len);
  used_ -= len;
}

void Base::grow(unsigned at, unsigned len) {
  if (len == 0) return;
  if (used_ + len <= capacity_) {
    if (at != used_) std::memmove(buffer_ + at, buffer_ + at + len, used_ - at);
    std::memset(buffer_ + at, 0, len);
    used_ += len;
    return;
  }
  unsigned capacity = allocator(used_ + len);
  unsigned char* buffer = allocateZeroed(capacity);
  if (at != 0) std::memcpy(buffer, buffer_, at);
  if (at != used_) {
    // The source range runs past the old used size; beyond the old capacity the buffer
    // would hold zeros, which the fresh buffer already has, so only what exists is copied.
    unsigned available = capacity_ > at + len ? std::min(used_ - at, capacity_ - at - len) : 0;
    std::memcpy(buffer + at, buffer_ + at + len, available);
  }
  adopt(buffer, used_ + len, capacity);
}

unsigned Base::arrayStart(unsigned fixed, const unsigned* selectors, unsigned count,
                          unsigned selector) const {
  unsigned start = fixed;
  for (unsigned i = 0; i < count && selectors[i] != selector; ++i)
    start += get32(selectors[i]);
  return start;
}

std::wstring_view Base::arrayText(unsigned start, unsigned length) const {
  if (length < 4 || start >= used_) return {};
  const wchar_t* text = reinterpret_cast<const wchar_t*>(buffer_ + start);
  unsigned units = std::min(length, used_ - start) / 4;
  unsigned n = 0;
#ifdef __SSE2__
  // The terminator is looked for four characters at a time, within the array: every name
  // read is measured so.
  static_assert(sizeof(wchar_t) == 4, "four characters to a vector");
  for (; n + 4 <= units; n += 4) {
    const __m128i four = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + n));
    const int zeros = _mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(four, _mm_setzero_si128())));
    if (zeros != 0) return {text, n + static_cast<unsigned>(__builtin_ctz(zeros))};
  }
#endif
  while (n < units && text[n] != 0)
    ++n;
  return {text, n};
}

void Base::replaceArray(unsigned fixed, const unsigned* selectors, unsigned count,
                        unsigned selector, const void* data, unsigned length) {
  unsigned size = used_ + length - get32(selector);
  unsigned capacity = allocator(size);
  unsigned char* buffer = static_cast<unsigned char*>(PooledHeap::malloc(capacity));
  std::memcpy(buffer, buffer_, fixed);
  bool known = std::find(selectors, selectors + count, selector) != selectors + count;
  unsigned from = fixed, to = fixed;
  for (unsigned i = 0; known && i < count; ++i) {
    unsigned old = get32(selectors[i]);
    if (selectors[i] == selector) {
      if (length != 0) std::memcpy(buffer + to, data, length);
      to += length;
    } else {
      std::memcpy(buffer + to, buffer_ + from, old);
      to += old;
    }
    from += old;
  }
  adopt(buffer, size, capacity);
  put32(selector, length);
  update(true);
}

}  // namespace kestrine::platform::data::Record
