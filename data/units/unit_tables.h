#ifndef KPL_DATA_UNITS_UNIT_TABLES_H_
#define KPL_DATA_UNITS_UNIT_TABLES_H_

#include "kestrine/platform/data/units.h"

namespace kestrine::platform::data {

// One row of kpUnitLUT; a null name ends the table.
struct tUnitName {
  const char* name;
  units::tUnit unit;
};

// One row of kpGroupLUT; a null name ends the table.
struct tGroupName {
  const char* name;
  units::tUnitGroup group;
};

// Every unit under every name it is written with in XML, in the order the dictionary indexes
// them; a second name for a unit follows its first. The names are byte-exact: eleven of them
// carry a comma and blanks that documents must repeat to match. Both tables are constant-
// initialised, so dictionaries built by other files' static constructors can read them.
extern const tUnitName kpUnitLUT[];

// The unit groups in number order.
extern const tGroupName kpGroupLUT[];

}  // namespace kestrine::platform::data

#endif  // KPL_DATA_UNITS_UNIT_TABLES_H_
