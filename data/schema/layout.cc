#include "data/schema/layout.h"

#include <string>

#include "data/record/offsets.h"
#include "data/schema/schema_impl.h"
#include "data/schema/schema_locator_impl.h"
#include "data/tree/descent.h"
#include "data/tree/logic.h"
#include "data/tree/primitive.h"

namespace kestrine::platform::data::metadata {

IStructLayout::~IStructLayout() = default;

}  // namespace kestrine::platform::data::metadata

namespace kestrine::platform::data::Schema {

using core::string::WideString;

Layout::Field::Field(const wchar_t* name)
    : name_(name), view_{name_.string(), metadata::kNone, 0, 0, 0} {}

Layout::Field::Field(const wchar_t* name, const Field& other) : name_(name), view_(other.view_) {
  view_.name = name_.string();
}

void Layout::tQuietDelete::operator()(Metadata::Set* set) const noexcept {
  try {
    delete set;
  } catch (...) {
    // See ~Layout: the count stays one too high, which only keeps the record from looking free.
  }
}

Layout::Layout(SchemaLocatorImpl* locator, const wchar_t* path, Metadata::Set* definition)
    : definition_(definition), path_(path), stride_(0), values_(0) {
  layout(locator, WideString(), definition);
}

Layout::~Layout() = default;

unsigned Layout::fields() const {
  return static_cast<unsigned>(fields_.size());
}

unsigned Layout::stride() const {
  return stride_;
}

unsigned Layout::values() const {
  return values_;
}

const Layout::tField* Layout::get(WideString name) {
  auto found = index_.find(name.string());
  return found == index_.end() ? nullptr : &found->second->view();
}

const Layout::tField* Layout::get(unsigned index) {
  return &fields_[index]->view();
}

void Layout::add(Field* field) {
  fields_.push_back(std::unique_ptr<Field>(field));
  tField& view = field->view();
  // A marker key can never be indexed; such a field is still laid out, only not found by name.
  if (!Metadata::reserved(view.name)) {
    try {
      index_.insert({view.name, field});
    } catch (...) {
      fields_.pop_back();
      throw;
    }
  }
  view.offset = stride_;
  stride_ += view.size;
  values_ += view.count;
}

void Layout::layout(SchemaLocatorImpl* locator, const WideString& prefix, Metadata::Set* set) {
  IDataStore* store = set->store();
  Metadata::Descent level(set->offset());
  // Every entry of the children list, in its order, whether the name index holds it or not.
  const Record::Offsets children(store, set->children());
  for (unsigned i = 0; i < children.items(); ++i) {
    Design::Logic child(store, children.get(i), false);
    if (child.kind() != Record::kTable && child.kind() != Record::kPrimitive) continue;
    WideString name(prefix);
    name.append(child->tag());
    if (child.kind() == Record::kTable) {
      layout(locator, name.append(L"."), child.set());
      continue;
    }
    const auto& primitive = static_cast<const Design::Primitive&>(*child.operator->());
    if (primitive.valuetype() != metadata::kStruct) {
      auto field = std::make_unique<Field>(name.string());
      field->view().type = primitive.valuetype();
      field->view().count = primitive.dimension();
      field->view().size = primitive.valuesize();
      add(field.release());
      continue;
    }
    if (locator == nullptr) continue;
    // Only a base of exactly one layout describes one element; anything else is left out.
    core::memory::SharedPtr<SchemaImpl> base = locator->schema(WideString(primitive.base()));
    if (!base || base->links() != 1) continue;
    const Layout& sub = *base->layout(0);
    // A sub-layout of stride 0 (no fields, or only empty ones) gives no element size to
    // divide the value by: schema data that cannot describe a struct.
    if (sub.stride() == 0) continue;
    expand(name, sub, primitive.valuesize() / sub.stride());
  }
}

void Layout::expand(const WideString& member, const Layout& sub, unsigned count) {
  for (unsigned element = 0; element < count; ++element) {
    WideString prefix(member);
    if (count != 1) prefix.append((L"[" + std::to_wstring(element) + L"]").c_str());
    prefix.append(L".");
    for (const auto& field : sub.fields_) {
      WideString name(prefix);
      name.append(field->view().name);
      add(new Field(name.string(), *field));
    }
  }
}

}  // namespace kestrine::platform::data::Schema
