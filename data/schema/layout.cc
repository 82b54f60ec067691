#include "data/schema/layout.h"

#include <cwchar>
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
    : definition_(definition),
      path_(path),
      stride_(0),
      values_(0),
      limit_(locator != nullptr ? locator->fieldLimit() : 0),
      cost_(0) {
  std::wstring prefix;
  layout(locator, prefix, definition);
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
  std::unique_ptr<Field> owned(field);
  tField& view = field->view();
  charge(std::wcslen(view.name));
  fields_.push_back(std::move(owned));
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

void Layout::layout(SchemaLocatorImpl* locator, std::wstring& prefix, Metadata::Set* set) {
  IDataStore* store = set->store();
  Metadata::Descent level(set->offset());
  // Every entry of the children list, in its order, whether the name index holds it or not.
  const Record::Offsets children(store, set->children());
  const size_t mark = prefix.size();
  for (unsigned i = 0; i < children.items(); ++i) {
    Design::Logic child(store, children.get(i), false);
    if (child.kind() != Record::kTable && child.kind() != Record::kPrimitive) continue;
    // One buffer for the whole walk, cut back after each member: a copy per level would make
    // deep nesting cost the square of its depth.
    prefix.resize(mark);
    prefix.append(child->tag());
    if (child.kind() == Record::kTable) {
      prefix.append(L".");
      // A nested table costs like a field, so that tables nested without end still count.
      charge(prefix.size());
      layout(locator, prefix, child.set());
      continue;
    }
    const auto& primitive = static_cast<const Design::Primitive&>(*child.operator->());
    if (primitive.valuetype() != metadata::kStruct) {
      auto field = std::make_unique<Field>(prefix.c_str());
      field->view().type = primitive.valuetype();
      field->view().count = primitive.dimension();
      field->view().size = primitive.valuesize();
      add(field.release());
      continue;
    }
    if (locator == nullptr) continue;
    // Only a base of exactly one layout describes one element; anything else is left out.
    core::memory::SharedPtr<SchemaImpl> base = locator->schema(WideString(primitive.base()));
    // A member type that is itself too large makes this one too large, not merely shorter.
    if (!base && locator->tooLarge(WideString(primitive.base()))) throw TooLarge();
    if (!base || base->links() != 1) continue;
    const Layout& sub = *base->layout(0);
    // A sub-layout of stride 0 (no fields, or only empty ones) gives no element size to
    // divide the value by: schema data that cannot describe a struct.
    if (sub.stride() == 0) continue;
    expand(prefix, sub, primitive.valuesize() / sub.stride());
  }
  prefix.resize(mark);
}

// Counted as the layout grows, and before an expansion is built: a few nested types can ask
// for millions of fields, and long names cost memory as fields do.
void Layout::charge(unsigned long long characters) {
  cost_ += 1 + characters / kCharactersPerField;
  if (limit_ != 0 && cost_ > limit_) throw TooLarge();
}

void Layout::expand(const std::wstring& member, const Layout& sub, unsigned count) {
  if (limit_ != 0 && static_cast<unsigned long long>(count) * sub.fields_.size() > limit_)
    throw TooLarge();
  for (unsigned element = 0; element < count; ++element) {
    std::wstring prefix(member);
    if (count != 1) prefix.append(L"[" + std::to_wstring(element) + L"]");
    prefix.append(L".");
    const size_t mark = prefix.size();
    for (const auto& field : sub.fields_) {
      prefix.resize(mark);
      prefix.append(field->view().name);
      add(new Field(prefix.c_str(), *field));
    }
  }
}

}  // namespace kestrine::platform::data::Schema
