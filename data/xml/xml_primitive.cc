#include "data/xml/xml_primitive.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "data/tree/primitive.h"
#include "data/xml/value_text.h"

namespace kestrine::platform::data::XML {

using core::string::StringAlgorithm;

namespace {

struct tName {
  const char* name;
  const wchar_t* wide;
};

#define KPL_XML_NAME(text) \
  { text, L##text }
// Indexed by value type.
const tName kpNames[] = {
    {nullptr, nullptr},        KPL_XML_NAME("binary"),    KPL_XML_NAME("uuid"),
    KPL_XML_NAME("string"),    KPL_XML_NAME("time"),      KPL_XML_NAME("uri"),
    KPL_XML_NAME("version"),   KPL_XML_NAME("bool"),      KPL_XML_NAME("int8"),
    KPL_XML_NAME("uint8"),     KPL_XML_NAME("int16"),     KPL_XML_NAME("uint16"),
    KPL_XML_NAME("int32"),     KPL_XML_NAME("uint32"),    KPL_XML_NAME("int64"),
    KPL_XML_NAME("uint64"),    KPL_XML_NAME("scalar"),    KPL_XML_NAME("double"),
    KPL_XML_NAME("vector2"),   KPL_XML_NAME("vector3"),   KPL_XML_NAME("vector4"),
    KPL_XML_NAME("matrix2x2"), KPL_XML_NAME("matrix3x3"), KPL_XML_NAME("matrix4x4"),
    KPL_XML_NAME("struct"),
};
#undef KPL_XML_NAME
constexpr unsigned kTypes = sizeof kpNames / sizeof kpNames[0];

bool textual(metadata::tValue type) {
  return type >= metadata::kUUID && type <= metadata::kVersion;
}

bool numeric(metadata::tValue type) {
  return type >= metadata::kBool && type <= metadata::kMatrix4x4;
}

// The components of a vector or matrix; 0 for the types whose count the document gives.
unsigned fixedCount(metadata::tValue type) {
  switch (type) {
    case metadata::kVector2:
      return 2;
    case metadata::kVector3:
      return 3;
    case metadata::kVector4:
    case metadata::kMatrix2x2:
      return 4;
    case metadata::kMatrix3x3:
      return 9;
    case metadata::kMatrix4x4:
      return 16;
    default:
      return 0;
  }
}

// Calls visit(type, position, width) for each component of `structs` packed structs laid
// out by `layout`: per struct, the fields in layout order, each field's components in turn,
// at the field's offset plus the component's index times its width. Stops when visit
// answers false.
template <class Visit>
void components(metadata::IStructLayout* layout, std::size_t structs, Visit visit) {
  unsigned fields = layout->fields();
  for (std::size_t s = 0; s < structs; ++s) {
    for (unsigned f = 0; f < fields; ++f) {
      const metadata::IStructLayout::tField* field = layout->get(f);
      if (field == nullptr || field->count == 0) continue;
      unsigned width = field->size / field->count;
      for (unsigned c = 0; c < field->count; ++c) {
        std::size_t position = s * layout->stride() + field->offset + std::size_t(c) * width;
        if (!visit(field->type, position, width)) return;
      }
    }
  }
}

}  // namespace

XMLPrimitive::XMLPrimitive(IDataStore* store, metadata::tValue type,
                           metadata::ISchemaLocator* locator)
    : Element(store), type_(type), locator_(locator) {}

const char* XMLPrimitive::name(metadata::tValue type) {
  return type < kTypes ? kpNames[type].name : nullptr;
}

const char* XMLPrimitive::name() const {
  return name(type_);
}

const wchar_t* XMLPrimitive::wname() const {
  return type_ < kTypes ? kpNames[type_].wide : nullptr;
}

unsigned XMLPrimitive::type() const {
  return 1;
}

unsigned XMLPrimitive::count(const char** attributes) const {
  if (unsigned fixed = fixedCount(type_)) return fixed;
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

void XMLPrimitive::split(const char* text) {
  auto separator = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  scratch_.assign(text);
  tokens_.clear();
  char* at = scratch_.data();
  char* end = at + scratch_.size();
  while (at != end && separator(*at))
    ++at;
  for (;;) {
    tokens_.push_back(at);
    while (at != end && !separator(*at))
      ++at;
    if (at == end) return;
    *at++ = '\0';
    while (at != end && separator(*at))
      ++at;
    if (at == end) {
      tokens_.push_back(at);
      return;
    }
  }
}

void XMLPrimitive::numbers(Design::Primitive* primitive) {
  // Setting token by token would write the record once per token, each time whole; the
  // array is assembled here instead and written once, with the same result.
  unsigned width = Design::Primitive::stride(type_);
  unsigned held = primitive->dimension();
  values_.assign(std::max<std::size_t>(held, tokens_.size()) * width, 0);
  if (held > 0) primitive->get(values_.data(), 0, held);
  unsigned end = 0;
  for (unsigned i = 0; i < tokens_.size(); ++i) {
    char value[8];
    if (!scan(type_, tokens_[i], value)) continue;
    std::memcpy(values_.data() + std::size_t(i) * width, value, width);
    end = i + 1;
  }
  if (end > 0) primitive->set(values_.data(), 0, std::max(end, held));
}

void XMLPrimitive::structs(Design::Primitive* primitive) {
  const wchar_t* base = primitive->base();
  if (base == nullptr || locator_ == nullptr) return;
  core::memory::SharedPtr<metadata::ISchema> schema = locator_->resolve(base);
  metadata::IStructLayout* layout = schema ? schema->layout() : nullptr;
  if (layout == nullptr || layout->values() == 0 || layout->fields() == 0) return;
  std::size_t count = tokens_.size() / layout->values();
  std::size_t bytes = count * layout->stride();
  if (bytes == 0 || bytes > 0xFFFFFFFFu) return;
  values_.assign(bytes, 0);
  std::size_t token = 0;
  components(layout, count, [&](metadata::tValue type, std::size_t position, unsigned width) {
    if (token == tokens_.size()) return false;
    char value[8];
    if (width <= sizeof value && position + width <= values_.size() &&
        scan(type, tokens_[token], value))
      std::memcpy(values_.data() + position, value, width);
    ++token;
    return true;
  });
  primitive->set(values_.data(), 0, static_cast<unsigned>(bytes));
}

bool XMLPrimitive::set(Metadata::Item* item, const char* text) {
  if (substate_ == kNameSub) return localize(item, text);
  bool append = substate_ == kValSub;
  if (append) substate_ = kNoSub;
  // The document's outermost element may stand for a target of another kind.
  auto* primitive = dynamic_cast<Design::Primitive*>(item);
  if (primitive == nullptr || text == nullptr || primitive->uri() != nullptr) return false;
  if (type_ == metadata::kBinary) {
    std::vector<unsigned char> bytes;
    StringAlgorithm::DecodeBase64(text, std::strlen(text), bytes);
    if (!bytes.empty())
      primitive->set(reinterpret_cast<const char*>(bytes.data()), 0,
                     static_cast<unsigned>(bytes.size()));
  } else if (textual(type_)) {
    WideString string = StringAlgorithm::UTF8Decode(text);
    primitive->set(reinterpret_cast<const char*>(string.string()),
                   append ? primitive->dimension() : 0, string.length() + 1);
  } else if (numeric(type_)) {
    split(text);
    numbers(primitive);
  } else if (type_ == metadata::kStruct) {
    split(text);
    structs(primitive);
  }
  return false;
}

bool XMLPrimitive::text(Design::Primitive* primitive, std::wstring& out) {
  std::vector<char> values(primitive->valuesize());
  primitive->get(values.data(), 0, primitive->dimension());
  wchar_t number[kNumberText];
  auto add = [&](const wchar_t* text) {
    if (!out.empty()) out += L' ';
    out += text;
  };
  if (numeric(type_)) {
    unsigned width = Design::Primitive::stride(type_);
    for (std::size_t at = 0; at + width <= values.size(); at += width) {
      print(type_, values.data() + at, number);
      add(number);
    }
    return true;
  }
  if (type_ != metadata::kStruct || locator_ == nullptr || primitive->base() == nullptr)
    return false;
  core::memory::SharedPtr<metadata::ISchema> schema = locator_->resolve(primitive->base());
  metadata::IStructLayout* layout = schema ? schema->layout() : nullptr;
  if (layout == nullptr || layout->stride() == 0) return false;
  components(layout, values.size() / layout->stride(),
             [&](metadata::tValue type, std::size_t position, unsigned) {
               // A component without a number form (a string member) reads back as zero.
               bool fits = position + Design::Primitive::stride(type) <= values.size();
               add(fits && print(type, values.data() + position, number) ? number : L"0");
               return true;
             });
  return true;
}

void XMLPrimitive::block(core::xml::XMLSerializer* writer, const wchar_t* text, std::size_t length,
                         bool wrap) {
  if (wrap) writer->startElement(L"val");
  writer->characters(text, length);
  if (wrap) writer->endElement();
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
  if (primitive->uri() != nullptr || primitive->dimension() == 0) return true;

  bool wrap = item->locales() > 0;
  if (type_ == metadata::kBinary) {
    std::vector<char> bytes(primitive->valuesize());
    primitive->get(bytes.data(), 0, primitive->dimension());
    WideString text = StringAlgorithm::UTF8Decode(
        StringAlgorithm::EncodeBase64(bytes.data(), bytes.size()).c_str());
    block(writer, text.string(), text.length(), wrap);
  } else if (textual(type_)) {
    std::vector<wchar_t> chars(primitive->dimension());
    primitive->get(reinterpret_cast<char*>(chars.data()), 0, primitive->dimension());
    // Strings end at their terminators; a last one without is still a string.
    std::vector<std::pair<std::size_t, std::size_t>> strings;
    std::size_t start = 0;
    for (std::size_t i = 0; i < chars.size(); ++i) {
      if (chars[i] != L'\0') continue;
      strings.emplace_back(start, i - start);
      start = i + 1;
    }
    if (start < chars.size()) strings.emplace_back(start, chars.size() - start);
    for (const auto& [at, length] : strings)
      block(writer, chars.data() + at, length, wrap || strings.size() > 1);
  } else {
    std::wstring values;
    if (text(primitive, values)) block(writer, values.data(), values.size(), wrap);
  }
  return true;
}

}  // namespace kestrine::platform::data::XML
