#include "data/xml/xml_table.h"

#include <cstring>
#include <memory>

#include "data/tree/table.h"

namespace kestrine::platform::data::XML {

using core::string::StringAlgorithm;

const XMLTable::tType XMLTable::_kpTypes[] = {
    {"string", metadata::kString},    {"binary", metadata::kBinary},
    {"scalar", metadata::kScalar},    {"double", metadata::kDouble},
    {"bool", metadata::kBool},        {"string", metadata::kString},
    {"uuid", metadata::kUUID},        {"time", metadata::kTime},
    {"uri", metadata::kURI},          {"version", metadata::kVersion},
    {"int8", metadata::kInt8},        {"uint8", metadata::kUInt8},
    {"int16", metadata::kInt16},      {"uint16", metadata::kUInt16},
    {"int32", metadata::kInt32},      {"uint32", metadata::kUInt32},
    {"int64", metadata::kInt64},      {"uint64", metadata::kUInt64},
    {"mtx2x2", metadata::kMatrix2x2}, {"mtx3x3", metadata::kMatrix3x3},
    {"mtx4x4", metadata::kMatrix4x4}, {"vec2", metadata::kVector2},
    {"vec3", metadata::kVector3},     {"vec4", metadata::kVector4},
    {nullptr, metadata::kNone},
};

XMLTable::XMLTable(IDataStore* store, metadata::ISchemaLocator* locator)
    : Element(store), locator_(locator) {}

const char* XMLTable::name() const {
  return "table";
}

const wchar_t* XMLTable::wname() const {
  return L"table";
}

unsigned XMLTable::type() const {
  return 2;
}

const XMLTable::tType* XMLTable::lookup(const char* name) {
  for (const tType* entry = _kpTypes; entry->value != metadata::kNone; ++entry)
    if (std::strcmp(entry->name, name) == 0) return entry;
  return nullptr;
}

const XMLTable::tType* XMLTable::lookup(metadata::tValue type) {
  for (const tType* entry = _kpTypes; entry->value != metadata::kNone; ++entry)
    if (entry->value == type) return entry;
  return nullptr;
}

Metadata::Item* XMLTable::open(const char** attributes) {
  const char* name = mandatory(attributes);
  if (name == nullptr) return nullptr;
  auto table = std::make_unique<Design::Table>(store_, StringAlgorithm::UTF8Decode(name).string());
  derive(table.get(), attributes, locator_);
  return table.release();
}

Metadata::Item* XMLTable::nest(Metadata::Item* parent, Metadata::Item* child) {
  return adopt(parent, child, kRefuse, kMerge, kMerge);
}

bool XMLTable::sub(const char* name, const char** attributes) {
  if (substate_ != kNoSub) return false;
  if (std::strcmp(name, "name") == 0) return acceptName(attributes);
  if (std::strcmp(name, "default") != 0) return false;
  const char* unit = find("unit", attributes);
  const char* type = find("type", attributes);
  if (unit == nullptr || type == nullptr) return false;
  unit_ = unit;
  type_ = type;
  substate_ = kDefaultSub;
  return true;
}

bool XMLTable::set(Metadata::Item* item, const char* text) {
  if (substate_ != kDefaultSub) return localize(item, text);
  units::tUnit unit = _oUnits.unit(unit_.c_str());
  const tType* type = lookup(type_.c_str());
  if (type == nullptr) return false;
  // The document's outermost element may stand for a target of another kind.
  if (auto* table = dynamic_cast<Design::Table*>(item)) table->defaults(unit, type->value);
  substate_ = kNoSub;
  return false;
}

bool XMLTable::serialize(Metadata::Item* item, core::xml::XMLSerializer* writer) {
  auto* table = dynamic_cast<Design::Table*>(item);
  if (table == nullptr) return false;
  begin(writer, wname(), item);
  attribute(writer, L"class", table->base());
  for (units::tUnitGroup group : table->groups()) {
    writer->startElement(L"default");
    const char* unit = _oUnits.unit(table->units(group));
    writer->addAttribute(L"unit", StringAlgorithm::UTF8Decode(unit).string());
    if (const tType* type = lookup(table->valuetype(group)))
      writer->addAttribute(L"type", StringAlgorithm::UTF8Decode(type->name).string());
    writer->endElement();
  }
  names(item, writer);
  return true;
}

}  // namespace kestrine::platform::data::XML
