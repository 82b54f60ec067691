#include "data/units/units_dictionary.h"

#include <cstring>

#include "data/units/unit_tables.h"

namespace kestrine::platform::data {

UnitsDictionary::UnitsDictionary() {
  names_.set_empty_key(0);
  units_.set_empty_key("$$$$$_____empty_key");
  // emplace leaves an existing key alone, so a unit's later names never replace its first.
  for (const tUnitName* entry = kpUnitLUT; entry->name != nullptr; ++entry) {
    // Unit names are ASCII.
    names_.insert(
        {entry->unit,
         tNames{entry->name, std::wstring(entry->name, entry->name + std::strlen(entry->name))}});
    units_.insert({entry->name, entry->unit});
  }
  for (const tGroupName* entry = kpGroupLUT; entry->name != nullptr; ++entry) {
    groups_.emplace(entry->group, entry->name);
  }
}

const UnitsDictionary::tNames* UnitsDictionary::names(units::tUnit unit) const {
  if (unit == 0) return nullptr;
  auto found = names_.find(unit);
  return found == names_.end() ? nullptr : &found->second;
}

const char* UnitsDictionary::unit(units::tUnit unit) const {
  const tNames* found = names(unit);
  return found != nullptr ? found->narrow : nullptr;
}

std::wstring_view UnitsDictionary::wideUnit(units::tUnit unit) const {
  const tNames* found = names(unit);
  return found != nullptr ? std::wstring_view(found->wide) : std::wstring_view();
}

units::tUnit UnitsDictionary::unit(const char* name) const {
  if (name == nullptr) return units::tUnit(0);
  auto found = units_.find(name);
  return found == units_.end() ? units::tUnit(0) : found->second;
}

const char* UnitsDictionary::group(units::tUnitGroup group) const {
  auto found = groups_.find(group);
  return found == groups_.end() ? nullptr : found->second;
}

const UnitsDictionary& unitsDictionary() {
  static const UnitsDictionary dictionary;
  return dictionary;
}

const char* units::unitName(tUnit unit) {
  return unitsDictionary().unit(unit);
}

units::tUnit units::unitNamed(const char* name) {
  return unitsDictionary().unit(name);
}

}  // namespace kestrine::platform::data
