#include "data/units/units_dictionary.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>

#include "data/units/unit_tables.h"

namespace kestrine::platform::data {
namespace {

using units::tUnit;
using units::tUnitGroup;

constexpr std::uint32_t kGroupMask = 0xFFFFF000;

// Built during static initialisation, as the XML handlers' shared instance is, which works
// only while the tables need no constructor of their own to run first. Every test below
// reads this instance, so a dictionary built too early fails all of them.
const UnitsDictionary kDictionary;

// The name the dictionary gives `value`, as a string so that null shows up as a failure.
std::string nameOf(std::uint32_t value) {
  const char* name = kDictionary.unit(tUnit(value));
  return name == nullptr ? "(null)" : name;
}

// Catches: a lost row or a truncated table, which would leave documents with unknown unit
// names; and a mistyped value, which would put a unit in the wrong group or on top of
// another unit, so that stores written with the old number read back as something else.
TEST(UnitTables, HoldEveryUnitAndGroupWithIndexesRunningFromOne) {
  int groups = 0;
  for (const tGroupName* entry = kpGroupLUT; entry->name != nullptr; ++entry) {
    ++groups;
    EXPECT_EQ(entry->group, tUnitGroup(groups << 12)) << entry->name;
    EXPECT_STREQ(kDictionary.group(entry->group), entry->name);
  }
  EXPECT_EQ(groups, 68);

  int units = 0, secondNames = 0;
  std::map<std::uint32_t, std::uint32_t> lastIndex;  // by group
  std::set<std::uint32_t> seen;
  for (const tUnitName* entry = kpUnitLUT; entry->name != nullptr; ++entry) {
    ++units;
    const std::uint32_t group = entry->unit & kGroupMask;
    ASSERT_NE(kDictionary.group(tUnitGroup(group)), nullptr) << entry->name;
    if (!seen.insert(entry->unit).second) {
      ++secondNames;
      continue;
    }
    EXPECT_EQ(entry->unit & ~kGroupMask, ++lastIndex[group]) << entry->name;
  }
  EXPECT_EQ(units, 780);
  EXPECT_EQ(secondNames, 7);         // Quart, Gallon, Stere, Pint, Arcminute, Arcsecond, Nit
  EXPECT_EQ(lastIndex.size(), 68u);  // no group is empty
}

// Catches: a name of the table that does not find its own value, or a value that does not
// find the first name it was listed under, so that a parse followed by a render changes a
// unit. Names are looked up from copies: document text never shares the table's storage.
TEST(UnitsDictionary, AgreesWithTheTableForEveryName) {
  std::map<std::uint32_t, const char*> firstName;
  for (const tUnitName* entry = kpUnitLUT; entry->name != nullptr; ++entry) {
    firstName.emplace(entry->unit, entry->name);
    const std::string copy = entry->name;
    EXPECT_EQ(kDictionary.unit(copy.c_str()), entry->unit) << entry->name;
  }
  for (const auto& [value, name] : firstName)
    EXPECT_EQ(nameOf(value), name);
}

// Catches: stored names trimmed of their trailing comma and blanks, which would make the
// units of the documents that carry them unknown.
TEST(UnitsDictionary, KeepsTrailingTextOfStoredNames) {
  const struct {
    const char* stored;
    tUnit unit;
  } cases[] = {
      {"OuncePerGallon,   ", units::OuncePerGallon},
      {"LiterPerSecond,              ", units::LiterPerSecond},
      {"InvCelsius,", units::InvCelsius},
  };
  for (const auto& c : cases) {
    const std::string bare(c.stored, std::strcspn(c.stored, ", "));
    EXPECT_EQ(kDictionary.unit(c.stored), c.unit) << bare;
    EXPECT_EQ(kDictionary.unit(bare.c_str()), 0u) << bare;
    EXPECT_EQ(nameOf(c.unit), c.stored);
  }

  int withTrailingText = 0;
  for (const tUnitName* entry = kpUnitLUT; entry->name != nullptr; ++entry) {
    if (std::strpbrk(entry->name, ", ") != nullptr) ++withTrailingText;
  }
  EXPECT_EQ(withTrailingText, 11);
}

// Catches: look-ups that are not exact (case, blanks), and values between or beyond the
// table's (index 0, past a group's last unit, past the last group, a unit taken for a group)
// answered with a name.
TEST(UnitsDictionary, RefusesUnknownNamesValuesAndGroups) {
  EXPECT_EQ(kDictionary.unit("meter"), 0u);
  EXPECT_EQ(kDictionary.unit("Meter "), 0u);
  EXPECT_EQ(kDictionary.unit(""), 0u);
  EXPECT_EQ(kDictionary.unit(static_cast<const char*>(nullptr)), 0u);

  EXPECT_EQ(kDictionary.unit(tUnit(0)), nullptr);
  EXPECT_EQ(kDictionary.unit(tUnit(units::group::Length)), nullptr);       // index 0
  EXPECT_EQ(kDictionary.unit(tUnit(units::group::Length + 67)), nullptr);  // past Bolt
  EXPECT_EQ(kDictionary.unit(tUnit(0x45001)), nullptr);                    // no group 69
  EXPECT_EQ(kDictionary.group(tUnitGroup(0)), nullptr);
  EXPECT_EQ(kDictionary.group(tUnitGroup(0x45000)), nullptr);
  EXPECT_EQ(kDictionary.group(tUnitGroup(units::Meter)), nullptr);
}

}  // namespace
}  // namespace kestrine::platform::data
