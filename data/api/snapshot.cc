#include "data/api/snapshot.h"

#include "data/record/container_record.h"
#include "data/record/offsets.h"

namespace kestrine::platform::data::Api {

Snapshot::Snapshot(IDataStore* store, unsigned container, unsigned kinds) : Cursor(store, kinds) {
  // The list is read from the record, not from the container's index: another handle may
  // have given the container its first child since this one was opened.
  unsigned children = Record::Container(store, container).children();
  if (children != IDataStore::BADOFF) {
    Record::Offsets list(store, children);
    offsets_.assign(list.get(), list.get() + list.items());
  }
  start(end());
}

unsigned Snapshot::child(unsigned position) const {
  return position < offsets_.size() ? offsets_[position] : IDataStore::BADOFF;
}

}  // namespace kestrine::platform::data::Api
