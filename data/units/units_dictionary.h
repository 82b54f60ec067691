#ifndef KPL_DATA_UNITS_UNITS_DICTIONARY_H_
#define KPL_DATA_UNITS_UNITS_DICTIONARY_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include <sparsehash/dense_hash_map>

#include "kestrine/platform/core/hash.h"
#include "kestrine/platform/data/units.h"

namespace kestrine::platform::data {

// Translates units between the numbers that records store and the names that XML carries.
// A dictionary is immutable once built: any number of threads may read one instance at the
// same time without locking. The names it returns point into the constant unit tables and
// stay valid for the life of the process; callers never free them.
class UnitsDictionary {
 public:
  // Indexes every unit and group of the constant tables. The names are not copied; each
  // unit's first name is also kept as wide text, which is what export writes.
  UnitsDictionary();
  UnitsDictionary(const UnitsDictionary&) = delete;
  UnitsDictionary& operator=(const UnitsDictionary&) = delete;

  // The name of `unit`, or null when no unit has that value (0 included). A unit with several
  // names answers the first one of the table ("Quart_US_fluid" for Quart).
  const char* unit(units::tUnit unit) const;
  // The same name as wide text, or empty.
  std::wstring_view wideUnit(units::tUnit unit) const;

  // The unit named exactly `name`: byte for byte, case-sensitive, trailing text included
  // ("InvCelsius," matches, "InvCelsius" does not). 0 when `name` is null or unknown.
  // Beware that a literal 0 argument selects this overload; pass units::tUnit(0) for the other.
  units::tUnit unit(const char* name) const;

  // The name of `group`, or null when it is not one of the groups (0 and unit values included).
  const char* group(units::tUnitGroup group) const;

 private:
  // Orders groups by value. A map over standard and enum types alone would have its
  // out-of-line members exported from the shared library; a comparator of this hidden class
  // keeps them private.
  struct tValueLess {
    bool operator()(std::uint32_t a, std::uint32_t b) const { return a < b; }
  };

  // Fibonacci hashing; the high half of the product, since the table takes a hash's low bits
  // and units of different groups share theirs.
  struct tHashValue {
    std::size_t operator()(std::uint32_t value) const {
      return static_cast<std::size_t>((value * 0x9E3779B97F4A7C15ull) >> 32);
    }
  };

  struct tNames {
    const char* narrow;
    std::wstring wide;
  };
  // The names of `unit`, or null. They are looked up for every primitive an export writes:
  // hashed, with the value 0, which no unit has, as the empty key.
  const tNames* names(units::tUnit unit) const;

  google::dense_hash_map<std::uint32_t, tNames, tHashValue> names_;
  // Hashed: every primitive with units that a document gives is looked up here by name.
  google::dense_hash_map<const char*, units::tUnit, core::tSFHKernel, core::tCharCompareEqual>
      units_;
  std::map<units::tUnitGroup, const char*, tValueLess> groups_;
};

// The process's one dictionary, built at its first use and shared read-only by every thread.
const UnitsDictionary& unitsDictionary();

}  // namespace kestrine::platform::data

#endif  // KPL_DATA_UNITS_UNITS_DICTIONARY_H_
