#include "data/xml/xml_primitive.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "data/tree/primitive.h"
#include "data/values/value_types.h"

namespace kestrine::platform::data::XML {

using core::string::StringAlgorithm;

XMLPrimitive::XMLPrimitive(IDataStore* store, metadata::tValue type,
                           metadata::ISchemaLocator* locator)
    : Element(store), type_(type), locator_(locator), text_(locator) {}

const char* XMLPrimitive::name() const {
  return Values::traits(type_).name;
}

unsigned XMLPrimitive::type() const {
  return 1;
}

unsigned XMLPrimitive::count(const char** attributes) const {
  if (unsigned fixed = Values::traits(type_).components) return fixed;
  unsigned count = 0;
  if (const char* dim = find("dim", attributes))
    scan(metadata::kUInt32, dim, reinterpret_cast<char*>(&count));
  return count;
}

Metadata::Item* XMLPrimitive::open(const char** attributes) {
  const char* name = mandatory(attributes);
  if (name == nullptr) return nullptr;
  // "type" names the schema of a struct; the other types have no use for one.
  const char* type = type_ == metadata::kStruct ? find("type", attributes) : nullptr;
  if (type_ == metadata::kStruct && type == nullptr) {
    message_ = L"missing mandatory 'type' attribute for <struct>";
    return nullptr;
  }
  if (type_ == metadata::kStruct && locator_ == nullptr) {
    message_ = L"missing locator to resolve the 'type' attribute";
    return nullptr;
  }
  const char* uri = find("uri", attributes);
  // Elements of a struct are bytes: count times the struct's size. Counted before the record
  // is made, so that a count refused by the limit leaves nothing behind.
  unsigned long long elements = count(attributes);
  WideString base;
  bool resolved = false;
  if (type != nullptr) {
    base = StringAlgorithm::UTF8Decode(type);
    core::memory::SharedPtr<metadata::ISchema> schema = locator_->resolve(base);
    resolved = schema && schema->layout() != nullptr;
    elements = resolved ? elements * schema->layout()->stride() : 0;
    if (!resolved && locator_->tooLarge(base)) {
      message_ = L"type '";
      message_.append(base);
      message_.append(
          (L"' expands to more than " + std::to_wstring(locator_->fieldLimit()) + L" fields")
              .c_str());
      return nullptr;
    }
  }
  unsigned long long bytes = elements * Design::Primitive::stride(type_);
  if (uri == nullptr && limit_ != 0 && bytes > limit_) {
    message_ = (L"the values would take " + std::to_wstring(bytes) + L" bytes, more than the " +
                L"limit of " + std::to_wstring(limit_))
                   .c_str();
    return nullptr;
  }
  // A record's size is a 32-bit number: an array that could never be stored is no count.
  if (bytes > 0xFFFFFFFFull) elements = 0;

  // The record is made whole, in one write. string(), never null: an empty URI or locale is
  // still one.
  Design::Primitive::tStart start;
  WideString uriText, localeText;
  if (uri != nullptr) {
    uriText = StringAlgorithm::UTF8Decode(uri);
    start.uri = uriText.string();
  }
  if (const char* locale = find("locale", attributes)) {
    localeText = StringAlgorithm::UTF8Decode(locale);
    start.valuelocale = localeText.string();
  }
  const char* units = find("units", attributes);
  if (units != nullptr) start.units = _oUnits.unit(units);
  if (resolved) start.base = base.string();
  // An unresolved struct is made without base and values.
  if (type == nullptr || resolved) start.elements = static_cast<unsigned>(elements);
  auto primitive = std::make_unique<Design::Primitive>(store_, type_, decoded(name), start);
  if (units != nullptr && start.units == 0)
    remark(L"unknown unit ", StringAlgorithm::UTF8Decode(units), L": the values have none");
  if (type != nullptr && !resolved) {
    // Kept, and not reported: the primitive is made all the same.
    message_ = L"unable to resolve type schema '";
    message_.append(base);
    message_.append(L"'");
    remark(message_);
  }
  return primitive.release();
}

bool XMLPrimitive::set(Metadata::Item* item, const char* text) {
  if (substate_ == kNameSub) return localize(item, text);
  bool append = substate_ == kValSub;
  if (append) substate_ = kNoSub;
  // The document's outermost element may stand for a target of another kind.
  if (Design::Primitive* primitive = item->asPrimitive())
    text_.read(*primitive, text, append, PrimitiveText::tWatch{remarks_, limit_}, ahead_);
  return false;
}

void XMLPrimitive::close(Metadata::Item* item) {
  if (Design::Primitive* primitive = item->asPrimitive()) text_.finish(*primitive);
}

}  // namespace kestrine::platform::data::XML
