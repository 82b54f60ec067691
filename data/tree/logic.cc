#include "data/tree/logic.h"

#include "data/tree/container.h"
#include "data/tree/primitive.h"
#include "data/tree/root.h"
#include "data/tree/table.h"

namespace kestrine::platform::data::Design {

Logic::Logic(IDataStore* store, unsigned offset, bool shallow)
    : kind_(Record::peek(store, offset)), item_(nullptr) {
  switch (kind_) {
    case Record::kRoot:
      item_ = new Metadata::Root(store, offset);
      break;
    case Record::kPrimitive:
      item_ = new Primitive(store, offset);
      break;
    case Record::kTable:
      item_ = new Table(store, offset, shallow);
      break;
    case Record::kContainer:
      item_ = new Structural::Container(store, offset, shallow);
      break;
    default:
      break;
  }
}

Logic::~Logic() noexcept(false) {
  close();
}

Metadata::Set* Logic::set() const {
  if (item_ == nullptr || kind_ == Record::kPrimitive) return nullptr;
  return static_cast<Metadata::Set*>(item_);
}

void Logic::close() {
  Metadata::Item* item = item_;
  item_ = nullptr;
  delete item;
}

}  // namespace kestrine::platform::data::Design
