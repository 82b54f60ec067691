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
// only while the tables need no constructor of their own to run first.
const UnitsDictionary kBuiltAtStartup;

const UnitsDictionary& dictionary() {
  static const UnitsDictionary instance;
  return instance;
}

// The name the dictionary gives `value`, as a string so that null shows up as a failure.
std::string nameOf(std::uint32_t value) {
  const char* name = dictionary().unit(tUnit(value));
  return name == nullptr ? "(null)" : name;
}

// A lost row or a truncated table would leave documents with unknown unit names.
TEST(UnitTables, HoldEveryUnitAndGroup) {
  int units = 0;
  for (const tUnitName* entry = kpUnitLUT; entry->name != nullptr; ++entry)
    ++units;
  EXPECT_EQ(units, 780);

  int groups = 0;
  for (const tGroupName* entry = kpGroupLUT; entry->name != nullptr; ++entry) {
    ++groups;
    EXPECT_EQ(entry->group, tUnitGroup(groups << 12)) << entry->name;
    EXPECT_STREQ(dictionary().group(entry->group), entry->name);
  }
  EXPECT_EQ(groups, 68);
}

// A mistyped value would put a unit in the wrong group or on top of another unit, and the
// stores written with the old number would read back as something else.
TEST(UnitTables, IndexesRunFromOneWithoutGapsExceptForSecondNames) {
  std::map<std::uint32_t, std::uint32_t> lastIndex;  // by group
  std::set<std::uint32_t> seen;
  int secondNames = 0;
  for (const tUnitName* entry = kpUnitLUT; entry->name != nullptr; ++entry) {
    const std::uint32_t group = entry->unit & kGroupMask;
    ASSERT_NE(dictionary().group(tUnitGroup(group)), nullptr) << entry->name;
    if (!seen.insert(entry->unit).second) {
      ++secondNames;
      continue;
    }
    EXPECT_EQ(entry->unit & ~kGroupMask, ++lastIndex[group]) << entry->name;
  }
  EXPECT_EQ(secondNames, 7);  // Quart, Gallon, Stere, Pint, Arcminute, Arcsecond, Nit
  EXPECT_EQ(seen.size(), 773u);
  EXPECT_EQ(lastIndex.size(), 68u);  // no group is empty
}

TEST(UnitsDictionary, CanBeBuiltDuringStaticInitialisation) {
  EXPECT_EQ(kBuiltAtStartup.unit("Unitless"), units::Unitless);
  EXPECT_EQ(kBuiltAtStartup.unit("AmperePerMeter"), units::AmperePerMeter);
  EXPECT_STREQ(kBuiltAtStartup.group(units::group::MagneticFieldIntensity),
               "MagneticFieldIntensity");
}

// Every name of the table finds its own value, and every value finds the first name it was
// listed under, so a parse followed by a render never changes a unit. Names are looked up
// from copies: document text never shares the table's storage.
TEST(UnitsDictionary, AgreesWithTheTableForEveryName) {
  std::map<std::uint32_t, const char*> firstName;
  for (const tUnitName* entry = kpUnitLUT; entry->name != nullptr; ++entry) {
    firstName.emplace(entry->unit, entry->name);
    const std::string copy = entry->name;
    EXPECT_EQ(dictionary().unit(copy.c_str()), entry->unit) << entry->name;
  }
  for (const auto& [value, name] : firstName)
    EXPECT_EQ(nameOf(value), name);
}

// Values worked out by hand from the group numbers and the positions in the unit list.
TEST(UnitsDictionary, MatchesHandComputedValues) {
  const struct {
    const char* name;
    std::uint32_t value;
  } cases[] = {
      {"Unitless", 4097},                   // group 1, index 1
      {"Meter", 8193},                      // group 2, index 1
      {"Bolt", 0x2042},                     // last of Length, index 66
      {"AcreInch", 0x405E},                 // last of Volume, index 94
      {"Milliarcsecond", 0x800A},           // after two second names in Angle
      {"Therm_EC", 0x13023},                // last of Energy, index 35
      {"PoundForcePerSquareFoot", 135207},  // last of Pressure, 33 * 4096 + 39
      {"Yobibyte", 0x29015},                // last of ComputerStorage, index 21
      {"Millenium_Julian", 180265},         // last of Time, 44 * 4096 + 41
      {"Footlambert", 0x37002},             // the index after Nit
      {"SurveyFootPerSecondSquared", 0x30003},
      {"AmperePerMeter", 278530},  // last group, 68 * 4096 + 2
  };
  for (const auto& c : cases) {
    EXPECT_EQ(dictionary().unit(c.name), c.value) << c.name;
    EXPECT_EQ(nameOf(c.value), c.name);
  }
  EXPECT_EQ(units::Meter, 8193u);
  EXPECT_EQ(units::AmperePerMeter, 278530u);
  EXPECT_EQ(units::group::MagneticFieldIntensity, 0x44000u);
}

// Second names share the value of the unit they repeat, and the value reads back as the
// first name, whichever name a document used.
TEST(UnitsDictionary, SecondNamesShareTheFirstNamesValue) {
  EXPECT_EQ(dictionary().unit("Nit"), 225281u);
  EXPECT_EQ(nameOf(225281), "CandelasPerSquareMeter");
  EXPECT_EQ(dictionary().unit("Quart"), 0x400Cu);
  EXPECT_EQ(nameOf(0x400C), "Quart_US_fluid");

  EXPECT_EQ(units::Gallon, units::Gallon_US_fluid);
  EXPECT_EQ(units::Stere, units::CubicMeter);
  EXPECT_EQ(units::Pint, units::Pint_US_fluid);
  EXPECT_EQ(units::Arcminute, units::AngleMinute);
  EXPECT_EQ(units::Arcsecond, units::AngleSecond);
  EXPECT_EQ(dictionary().unit("Arcsecond"), units::AngleSecond);
  EXPECT_EQ(nameOf(units::Stere), "CubicMeter");
}

// Documents carry these names with their comma and blanks; trimming them in the table
// would make those documents' units unknown.
TEST(UnitsDictionary, KeepsTrailingTextOfStoredNames) {
  const struct {
    const char* stored;
    tUnit unit;
  } cases[] = {
      {"OuncePerGallon,   ", units::OuncePerGallon},
      {"KilonewtonPerCubicMeter,   ", units::KilonewtonPerCubicMeter},
      {"LiterPerSecond,              ", units::LiterPerSecond},
      {"PoundForcePerFoot,   ", units::PoundForcePerFoot},
      {"KilowattPerSquareFoot,   ", units::KilowattPerSquareFoot},
      {"MeterPerKilonewton,   ", units::MeterPerKilonewton},
      {"SquareMeterPerKilonewton,   ", units::SquareMeterPerKilonewton},
      {"KipFootPerDegreePerFoot,   ", units::KipFootPerDegreePerFoot},
      {"CubicFootPerMinuteCubicFoot,   ", units::CubicFootPerMinuteCubicFoot},
      {"FootPerSecondSquared,   ", units::FootPerSecondSquared},
      {"InvCelsius,", units::InvCelsius},
  };
  for (const auto& c : cases) {
    const std::string bare(c.stored, std::strcspn(c.stored, ", "));
    EXPECT_EQ(dictionary().unit(c.stored), c.unit) << bare;
    EXPECT_EQ(dictionary().unit(bare.c_str()), 0u) << bare;
    EXPECT_EQ(nameOf(c.unit), c.stored);
  }
  EXPECT_EQ(units::OuncePerGallon, 0x11007u);  // Density, index 7
  EXPECT_EQ(units::InvCelsius, 0x43002u);      // CoefficientOfThermalExpansion, index 2

  int withTrailingText = 0;
  for (const tUnitName* entry = kpUnitLUT; entry->name != nullptr; ++entry) {
    if (std::strpbrk(entry->name, ", ") != nullptr) ++withTrailingText;
  }
  EXPECT_EQ(withTrailingText, 11);
}

TEST(UnitsDictionary, RefusesUnknownNamesAndValues) {
  EXPECT_EQ(dictionary().unit("meter"), 0u);
  EXPECT_EQ(dictionary().unit("Meter "), 0u);
  EXPECT_EQ(dictionary().unit(""), 0u);
  EXPECT_EQ(dictionary().unit(static_cast<const char*>(nullptr)), 0u);

  EXPECT_EQ(dictionary().unit(tUnit(0)), nullptr);
  EXPECT_EQ(dictionary().unit(tUnit(units::group::Length)), nullptr);       // index 0
  EXPECT_EQ(dictionary().unit(tUnit(units::group::Length + 67)), nullptr);  // past Bolt
  EXPECT_EQ(dictionary().unit(tUnit(0x45001)), nullptr);                    // no group 69
}

TEST(UnitsDictionary, NamesGroupsOnly) {
  EXPECT_STREQ(dictionary().group(units::group::Dimensionless), "Dimensionless");
  EXPECT_STREQ(dictionary().group(tUnitGroup(0x37000)), "Luminance");
  EXPECT_STREQ(dictionary().group(tUnitGroup(0x44000)), "MagneticFieldIntensity");
  EXPECT_EQ(dictionary().group(tUnitGroup(0)), nullptr);
  EXPECT_EQ(dictionary().group(tUnitGroup(0x45000)), nullptr);
  EXPECT_EQ(dictionary().group(tUnitGroup(units::Meter)), nullptr);  // a unit, not a group
}

}  // namespace
}  // namespace kestrine::platform::data
