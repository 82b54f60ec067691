#include "data/api/cursor.h"

#include "data/tree/lock.h"

namespace kestrine::platform::data::Api {

void Cursor::start(unsigned count) {
  count_ = count;
  position_ = 0;
  forward();
}

bool Cursor::accepted(unsigned position) const {
  unsigned offset = child(position);
  if (offset == IDataStore::BADOFF) return false;
  unsigned kind = Record::peek(store_, offset);
  return kind < 32 && ((kinds_ >> kind) & 1) != 0;
}

unsigned Cursor::forward() {
  Metadata::Lock lock(store_);
  for (; position_ < end(); ++position_)
    if (accepted(position_)) return position_;
  return IDataStore::BADOFF;
}

unsigned Cursor::backward() {
  Metadata::Lock lock(store_);
  for (;; --position_) {
    if (accepted(position_)) return position_;
    if (position_ == 0) return IDataStore::BADOFF;
  }
}

bool Cursor::next() {
  if (!valid()) return false;
  ++position_;
  return forward() != IDataStore::BADOFF;
}

bool Cursor::prev() {
  if (count_ == 0 || position_ == 0) return false;
  unsigned stood = position_;
  --position_;
  if (backward() != IDataStore::BADOFF) return true;
  position_ = stood;
  return false;
}

}  // namespace kestrine::platform::data::Api
