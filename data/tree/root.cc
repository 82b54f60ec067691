#include "data/tree/root.h"

#include "data/record/root_record.h"

namespace kestrine::platform::data::Metadata {

Root::Root(IDataStore* store, unsigned offset) {
  store_ = store;
  offset_ = offset;
  Record::Root record(store, offset);
  name_ = record.name();
  children_ = record.children();
  locale_ = record.locale();
  populate();
  // Counted last, so that a constructor that fails leaves the count as it was.
  record.ref();
}

Root::Root(IDataStore* store, const wchar_t* name) {
  store_ = store;
  Record::Root record(store, name);
  offset_ = record.offset();
  name_ = name;
  record.ref();
}

Root::~Root() {
  unref();
}

bool Root::unreferenced() {
  if (Record::Root(store_, offset_).references() >= 2) return false;
  return Set::unreferenced();
}

void Root::clear() {
  clearSet();
}

unsigned Root::clone(IDataStore*) {
  return IDataStore::BADOFF;
}

}  // namespace kestrine::platform::data::Metadata
