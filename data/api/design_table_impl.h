#ifndef KPL_DATA_API_DESIGN_TABLE_IMPL_H_
#define KPL_DATA_API_DESIGN_TABLE_IMPL_H_

#include <cstdint>

#include "data/api/property_impl.h"
#include "data/tree/table.h"
#include "kestrine/platform/data/metadata/table.h"

namespace kestrine::platform::data::metadata {

// A table property: PropertyImpl with the ITable view over the Design::Table it owns. Every
// operation but container() takes the store lock for its whole length.
//
// Unlike a container, a table checks a new member's name with lookup(), so a dotted name that
// reaches an existing member is refused too.
class DesignTableImpl : public PropertyImpl, public ITable {
 public:
  class DesignFilter;

  // Takes ownership of an opened table logic object.
  explicit DesignTableImpl(Design::Table* logic) : PropertyImpl(logic) {}

  IProperty* container() const override { return const_cast<DesignTableImpl*>(this); }
  SharedPtr<IProperty> lookup(WideString name) override;
  SharedPtr<IPropertyFilter> properties() override;
  bool validates(ISchema* schema) override;
  SharedPtr<ITable> create(WideString name, ISchema* schema) override;
  SharedPtr<IPrimitive> create(WideString name, tValue type, units::tUnit unit) override;
  SharedPtr<IPrimitive> create(WideString name, units::tUnitGroup group) override;
  bool destroy(WideString name) override;
  unsigned items() override;
  SharedPtr<IProperty> at(unsigned int index) override;
  unsigned defaults(units::tUnit unit, tValue type) override;
  unsigned groups() override;
  units::tUnitGroup group(unsigned int index) override;
  // The defaults are inherited from the parent table only, never from further up: a member
  // table takes its defaults from the table that holds it, not from that table's holder.
  tValue valuetype(units::tUnitGroup group) override;
  units::tUnit units(units::tUnitGroup group) override;
  WideString base() override;

 private:
  Design::Table* table() const { return static_cast<Design::Table*>(logic()); }
  // The group's default unit (when `unit`) or value type, this table's or else its parent
  // table's. The caller holds the lock.
  std::uint32_t inherited(units::tUnitGroup group, bool unit) const;
};

}  // namespace kestrine::platform::data::metadata

#endif  // KPL_DATA_API_DESIGN_TABLE_IMPL_H_
