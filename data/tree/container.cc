#include "data/tree/container.h"

#include "data/record/container_record.h"
#include "kestrine/platform/core/memory.h"

namespace kestrine::platform::data::Structural {

using core::memory::PooledHeap;

Container::Container(IDataStore* store, structure::IContainer::tType type, const wchar_t* name)
    : type_(type) {
  store_ = store;
  Record::Container record(store, name);
  offset_ = record.offset();
  name_ = name;
  record.type(static_cast<std::uint8_t>(type));
  record.update(true);
  record.ref();
}

Container::Container(IDataStore* store, unsigned offset, bool shallow) {
  store_ = store;
  offset_ = offset;
  Record::Container record(store, offset);
  parent_ = record.parent();
  name_ = record.name();
  children_ = record.children();
  type_ = static_cast<structure::IContainer::tType>(record.type());
  locale_ = record.locale();
  base_ = record.string(Record::Container::kBase);
  info_ = record.string(Record::Container::kInfo);
  if (!shallow) populate();
  // Counted last, so that a constructor that fails leaves the count as it was.
  record.ref();
}

Container::~Container() {
  unref();
}

void* Container::operator new(std::size_t size) {
  return PooledHeap::malloc(size);
}

void Container::operator delete(void* block, std::size_t size) {
  PooledHeap::free(block, size);
}

const wchar_t* Container::info() const {
  return info_.value();
}

void Container::info(const wchar_t* text) {
  Record::Container record(store_, offset_);
  record.string(Record::Container::kInfo, text);
  info_ = text;
}

const wchar_t* Container::base() const {
  return base_.value();
}

unsigned Container::inherit(metadata::ISchema* schema) {
  inheritChain(schema, base_, Record::Container::kBase, true);
  return 1;
}

bool Container::equivalent(const Container& other) const {
  return name_ == other.name_ && type_ == other.type_ && base_ == other.base_;
}

bool Container::unreferenced() {
  if (Record::Container(store_, offset_).references() > 1) return false;
  return Set::unreferenced();
}

void Container::clear() {
  clearSet();
}

unsigned Container::clone(IDataStore* target) {
  return cloneSet(target);
}

}  // namespace kestrine::platform::data::Structural
