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

const wchar_t* XMLPrimitive::wname() const {
  return Values::traits(type_).wideName;
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
  auto primitive = std::make_unique<Design::Primitive>(store_, type_,
                                                       StringAlgorithm::UTF8Decode(name).string());
  const char* uri = find("uri", attributes);
  // string(), never null: an empty URI or locale is still one.
  if (uri != nullptr) primitive->uri(StringAlgorithm::UTF8Decode(uri).string());
  if (const char* locale = find("locale", attributes))
    primitive->valuelocale(StringAlgorithm::UTF8Decode(locale).string());
  if (const char* units = find("units", attributes)) primitive->units(_oUnits.unit(units));

  // Elements of a struct are bytes: count times the struct's size.
  unsigned long long elements = count(attributes);
  if (type != nullptr) {
    WideString base = StringAlgorithm::UTF8Decode(type);
    core::memory::SharedPtr<metadata::ISchema> schema = locator_->resolve(base);
    if (!schema || schema->layout() == nullptr) {
      message_ = L"unable to resolve type schema '";
      message_.append(base);
      message_.append(L"'");
      return primitive.release();
    }
    primitive->base(base.string());
    elements *= schema->layout()->stride();
  }
  // A record's size is a 32-bit number: an array that could never be stored is no count.
  if (elements * Design::Primitive::stride(type_) > 0xFFFFFFFFull) elements = 0;
  if (uri == nullptr) primitive->reset(static_cast<unsigned>(elements));
  return primitive.release();
}

bool XMLPrimitive::set(Metadata::Item* item, const char* text) {
  if (substate_ == kNameSub) return localize(item, text);
  bool append = substate_ == kValSub;
  if (append) substate_ = kNoSub;
  // The document's outermost element may stand for a target of another kind.
  if (auto* primitive = dynamic_cast<Design::Primitive*>(item))
    text_.read(*primitive, text, append);
  return false;
}

bool XMLPrimitive::serialize(Metadata::Item* item, core::xml::XMLSerializer* writer) {
  auto* primitive = dynamic_cast<Design::Primitive*>(item);
  if (primitive == nullptr || wname() == nullptr) return false;
  begin(writer, wname(), item);
  if (const char* units = _oUnits.unit(primitive->units()))
    writer->addAttribute(L"units", StringAlgorithm::UTF8Decode(units).string());
  attribute(writer, L"locale", primitive->valuelocale());
  if (type_ == metadata::kStruct) attribute(writer, L"type", primitive->base());
  attribute(writer, L"uri", primitive->uri());
  names(item, writer);
  std::vector<std::wstring> blocks = text_.write(*primitive, Values::FloatDigits::kSeven);
  // Values go into "val" elements when the item has localized names, so that text never
  // mixes with them, and whenever there are several strings.
  bool wrap = blocks.size() > 1 || (!blocks.empty() && item->locales() > 0);
  for (const std::wstring& block : blocks) {
    if (wrap) writer->startElement(L"val");
    writer->characters(block.data(), block.size());
    if (wrap) writer->endElement();
  }
  return true;
}

}  // namespace kestrine::platform::data::XML
