#include "data/xml/xml_table.h"

#include <cstring>
#include <memory>

#include "data/tree/table.h"
#include "data/values/value_types.h"

namespace kestrine::platform::data::XML {

using core::string::StringAlgorithm;

XMLTable::XMLTable(IDataStore* store, metadata::ISchemaLocator* locator)
    : Element(store), locator_(locator) {}

const char* XMLTable::name() const {
  return "table";
}

unsigned XMLTable::type() const {
  return 2;
}

Metadata::Item* XMLTable::open(const char** attributes) {
  const char* name = mandatory(attributes);
  if (name == nullptr) return nullptr;
  auto table = std::make_unique<Design::Table>(store_, decoded(name));
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
  const Values::tValueTraits* type = Values::byDefaultName(type_.c_str());
  if (type == nullptr) {
    // Told once: the default stays pending and refuses every later sub-element.
    if (!blocked_)
      remark(L"", StringAlgorithm::UTF8Decode(type_.c_str()),
             L" is no default type: no later name or default of any table is read");
    blocked_ = true;
    return false;
  }
  if (unit == 0)
    remark(L"unknown unit ", StringAlgorithm::UTF8Decode(unit_.c_str()),
           L": the default has no unit");
  // The document's outermost element may stand for a target of another kind.
  if (auto* table = dynamic_cast<Design::Table*>(item)) table->defaults(unit, type->type);
  substate_ = kNoSub;
  return false;
}

}  // namespace kestrine::platform::data::XML
