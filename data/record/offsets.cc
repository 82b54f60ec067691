#include "data/record/offsets.h"

#include <string>

namespace kestrine::platform::data::Record {

Offsets::Offsets(IDataStore* store, unsigned offset, Loading how) : Base(store, offset, how) {
  check();
}

void Offsets::load(unsigned offset, Loading how) {
  Base::load(offset, how);
  check();
}

void Offsets::check() const {
  if (used() == 0) return;
  if (id() != kOffsets)
    damaged("a record of kind " + std::to_string(id()) + " where a list belongs");
  if (used() < 4 || used() % 4 != 0) damaged("a list of " + std::to_string(used()) + " bytes");
}

void Offsets::add(unsigned value) {
  grow(4);
  put32(used() - 4, value);
  update(true);
}

void Offsets::set(unsigned i, unsigned value) {
  unsigned n = items();
  if (i >= n) grow((i - n) * 4 + 4);
  put32(4 + 4 * i, value);
  update(true);
}

void Offsets::set(unsigned i, unsigned first, unsigned second) {
  unsigned n = items();
  if (i + 1 >= n) grow((i + 1 - n) * 4 + 4);
  put32(4 + 4 * i, first);
  put32(8 + 4 * i, second);
  update(true);
}

bool Offsets::removeIndex(unsigned i) {
  if (i >= items()) return false;
  shrink(4 + 4 * i, 4);
  update(true);
  return true;
}

bool Offsets::removeVal(unsigned value) {
  for (unsigned i = 0, n = items(); i < n; ++i)
    if (get(i) == value) return removeIndex(i);
  return false;
}

}  // namespace kestrine::platform::data::Record
