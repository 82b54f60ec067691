#include "data/xml/element.h"

#include <cstring>
#include <memory>

#include "data/record/base.h"
#include "data/tree/primitive.h"
#include "data/tree/table.h"
#include "data/values/number_text.h"

namespace kestrine::platform::data::XML {

using core::string::StringAlgorithm;

const UnitsDictionary& Element::_oUnits = unitsDictionary();

namespace {

// An existing child of a parent's set, opened to be merged with a new one of its kind.
std::unique_ptr<Metadata::Item> reopen(IDataStore* store, unsigned offset, Record::tType kind) {
  if (kind == Record::kTable) return std::make_unique<Design::Table>(store, offset, false);
  return std::make_unique<Design::Primitive>(store, offset);
}

bool equivalent(Metadata::Item* existing, Metadata::Item* child, Record::tType kind) {
  if (kind == Record::kTable) {
    auto* table = dynamic_cast<Design::Table*>(child);
    return table != nullptr && static_cast<Design::Table*>(existing)->equivalent(*table);
  }
  Design::Primitive* primitive = child->asPrimitive();
  return primitive != nullptr && static_cast<Design::Primitive*>(existing)->equivalent(*primitive);
}

}  // namespace

Element::Element(IDataStore* store) : store_(store), substate_(kNoSub) {}

Element::~Element() = default;

unsigned Element::type() const {
  return 6;
}

Metadata::Item* Element::open(const char** attributes) {
  message_ = L"unknown element, skipping";
  return nullptr;
}

Metadata::Item* Element::nest(Metadata::Item* parent, Metadata::Item* child) {
  message_ = L"unable to nest";
  return nullptr;
}

bool Element::set(Metadata::Item* item, const char* text) {
  return localize(item, text);
}

void Element::close(Metadata::Item*) {}

bool Element::sub(const char* name, const char** attributes) {
  if (substate_ != kNoSub) return false;
  if (std::strcmp(name, "val") == 0) {
    substate_ = kValSub;
    // Only a primitive takes the text of a "val"; elsewhere the state stays and blocks.
    if (type() != Record::kPrimitive)
      remark(L"a val is dropped here, and no later name of this kind of element is read");
    return true;
  }
  if (std::strcmp(name, "name") == 0) return acceptName(attributes);
  return false;
}

const char* Element::find(const char* name, const char** attributes) {
  if (attributes == nullptr) return nullptr;
  // The first bytes are compared inline: most attributes differ there, and each call of
  // strcmp costs more than the comparison.
  for (; attributes[0] != nullptr; attributes += 2)
    if (attributes[0][0] == name[0] && std::strcmp(attributes[0], name) == 0) return attributes[1];
  return nullptr;
}

bool Element::print(metadata::tValue type, const char* value, wchar_t* out) {
  return Values::printNumber(type, value, out, Values::FloatDigits::kSeven) != 0;
}

bool Element::scan(metadata::tValue type, const char* text, char* value) {
  return Values::scanNumber(type, text, value);
}

Metadata::Item* Element::adopt(Metadata::Item* parent, Metadata::Item* child, tAdoption container,
                               tAdoption table, tAdoption primitive) {
  Metadata::Set* set = parent != nullptr ? parent->asSet() : nullptr;
  if (set == nullptr || child == nullptr) return nullptr;
  Record::tType kind = Record::peek(store_, child->offset());
  tAdoption how = kind == Record::kContainer   ? container
                  : kind == Record::kTable     ? table
                  : kind == Record::kPrimitive ? primitive
                                               : kRefuse;
  switch (how) {
    case kRefuse:
      return nullptr;
    case kAdd:
      if (!set->add(child->offset(), child->tag()))
        remark(L"", child->tag(), L" is held already: this one is read but dropped");
      return child;
    case kAddOrFail:
      return set->add(child->offset(), child->tag()) ? child : nullptr;
    case kMerge:
      break;
  }
  // Mostly the name is new: added straight away, since add() refuses a name held and
  // changes nothing then.
  if (set->add(child->offset(), child->tag())) return child;
  unsigned existing = set->find(child->tag());
  if (existing == IDataStore::BADOFF || Record::peek(store_, existing) != kind) return nullptr;
  std::unique_ptr<Metadata::Item> found = reopen(store_, existing, kind);
  if (!equivalent(found.get(), child, kind)) return nullptr;
  // A hidden item is a member inherited from a class, there for the document to fill in;
  // a visible one was given before, and what this one sets replaces it.
  if ((found->flags() & 0x04) == 0)
    remark(L"merged into the earlier ", child->tag(), L": its values replace the earlier ones");
  found->show();
  return found.release();
}

void Element::remark(const wchar_t* before, const WideString& quoted, const wchar_t* after) const {
  if (remarks_ == nullptr) return;
  WideString text(before);
  text.append(L"'").append(quoted).append(L"'").append(after);
  remarks_->remark(text);
}

const char* Element::mandatory(const char** attributes) {
  const char* name = find("name", attributes);
  // The message says 'id' although the attribute is "name": readers of the reports know it so.
  if (name == nullptr) message_ = L"missing mandatory 'id' attribute";
  return name;
}

const wchar_t* Element::decoded(const char* text) {
  StringAlgorithm::UTF8Decode(text, text != nullptr ? std::strlen(text) : 0, decoded_);
  return decoded_.c_str();
}

bool Element::acceptName(const char** attributes) {
  const char* locale = find("locale", attributes);
  locale_ = locale != nullptr ? locale : "en-us";
  substate_ = kNameSub;
  return true;
}

bool Element::localize(Metadata::Item* item, const char* text) {
  if (substate_ != kNameSub) return false;
  if (text == nullptr) {
    substate_ = kNoSub;
    return true;
  }
  WideString name = StringAlgorithm::UTF8Decode(text);
  WideString locale = StringAlgorithm::UTF8Decode(locale_.c_str());
  // string(), never null: a null text would remove the locale instead of naming it.
  item->localize(name.string(), locale.string());
  substate_ = kNoSub;
  return true;
}

}  // namespace kestrine::platform::data::XML
