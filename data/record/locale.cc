#include "data/record/locale.h"

#include <string>

#include "kestrine/platform/core/memory.h"

namespace kestrine::platform::data::Record {

Locale::Locale(IDataStore* store, unsigned offset, Loading how) : Base(store, offset, how) {
  check();
}

void Locale::load(unsigned offset, Loading how) {
  Base::load(offset, how);
  check();
}

void Locale::check() const {
  if (used() == 0) return;
  if (id() != kLocale) damaged("a record of kind " + std::to_string(id()) + " where names belong");
  if (used() < 8 || length() > used() - 8) damaged("names that run past its end");
}

void Locale::payload(unsigned length, const void* bytes) {
  unsigned size = used() + length - this->length();
  unsigned capacity = allocator(size);
  unsigned char* buffer = static_cast<unsigned char*>(core::memory::PooledHeap::malloc(capacity));
  buffer[0] = kLocale;
  std::memcpy(buffer + 1, &length, 4);
  if (length != 0) std::memcpy(buffer + 8, bytes, length);
  adopt(buffer, size, capacity);
  update(true);
}

}  // namespace kestrine::platform::data::Record
