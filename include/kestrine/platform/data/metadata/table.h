#ifndef KESTRINE_PLATFORM_DATA_METADATA_TABLE_H_
#define KESTRINE_PLATFORM_DATA_METADATA_TABLE_H_

#include "kestrine/platform/data/metadata/filter.h"
#include "kestrine/platform/data/metadata/primitive.h"
#include "kestrine/platform/data/metadata/property.h"
#include "kestrine/platform/data/metadata/schema.h"
#include "kestrine/platform/data/metadata/value.h"
#include "kestrine/platform/data/units.h"

namespace kestrine::platform::data::metadata {

// A table property: named members (primitives and nested tables), laid out from a schema
// or built by hand, with per-unit-group defaults for the type and unit of new members.
// Every operation but container() takes the store lock.
class KPL_DATA_API ITable {
 public:
  virtual ~ITable();
  // The same object seen as a property.
  virtual IProperty* container() const = 0;
  // The member at a name or dotted path; empty when there is none.
  virtual core::memory::SharedPtr<IProperty> lookup(core::string::WideString name) = 0;
  virtual core::memory::SharedPtr<IPropertyFilter> properties() = 0;
  // True when the table was laid out from `schema`, or conforms to it member by member.
  virtual bool validates(ISchema* schema) = 0;
  // A nested table, laid out from `schema` when one is given; empty when the name is taken.
  virtual core::memory::SharedPtr<ITable> create(core::string::WideString name,
                                                 ISchema* schema) = 0;
  // A primitive member; its unit is set when `unit` is not 0. Empty when the name is taken.
  virtual core::memory::SharedPtr<IPrimitive> create(core::string::WideString name, tValue type,
                                                     units::tUnit unit) = 0;
  // A primitive member typed by the defaults of `group` (this table's, else its parent
  // table's); empty when neither has defaults for the group or the name is taken.
  virtual core::memory::SharedPtr<IPrimitive> create(core::string::WideString name,
                                                     units::tUnitGroup group) = 0;
  // Removes a member with everything below it; false when there is none, or it is still
  // open elsewhere or name-locked.
  virtual bool destroy(core::string::WideString name) = 0;
  virtual unsigned items() = 0;
  // The index-th member in storage order; empty when it is not a property.
  virtual core::memory::SharedPtr<IProperty> at(unsigned int index) = 0;
  // Records the default unit and type of the unit's group; 1, or 0 when either is 0.
  virtual unsigned defaults(units::tUnit unit, tValue type) = 0;
  // The unit groups that have defaults, in ascending order of group value.
  virtual unsigned groups() = 0;
  virtual units::tUnitGroup group(unsigned int index) = 0;
  // The group's default type and unit: this table's, else its parent table's (one level
  // only); 0 when neither has one.
  virtual tValue valuetype(units::tUnitGroup group) = 0;
  virtual units::tUnit units(units::tUnitGroup group) = 0;
  // The schema paths the table was laid out from, joined by ";"; empty when none.
  virtual core::string::WideString base() = 0;

  // The table view of a property, valid as long as the caller's handle to it; null for null
  // or a primitive.
  static ITable* to(IProperty* property);
};

}  // namespace kestrine::platform::data::metadata

#endif  // KESTRINE_PLATFORM_DATA_METADATA_TABLE_H_
