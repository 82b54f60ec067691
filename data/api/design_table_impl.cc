#include "data/api/design_table_impl.h"

#include "data/api/conformance.h"
#include "data/api/design_primitive_impl.h"
#include "data/api/handles.h"
#include "data/api/item_operations.h"
#include "data/api/member_filter.h"
#include "data/record/base.h"
#include "data/tree/lock.h"

namespace kestrine::platform::data::metadata {

using Metadata::Lock;

namespace {

const unsigned kAbsent = IDataStore::BADOFF;

}  // namespace

ITable::~ITable() = default;

ITable* ITable::to(IProperty* property) {
  return Api::view<ITable>(property, IProperty::kTable);
}

SharedPtr<IProperty> DesignTableImpl::lookup(WideString name) {
  Lock lock(store());
  return Api::wrapProperty(store(), table()->lookup(name.value()));
}

SharedPtr<IPropertyFilter> DesignTableImpl::properties() {
  Lock lock(store());
  return SharedPtr<IPropertyFilter>(new DesignFilter(store(), logic()->offset()));
}

bool DesignTableImpl::validates(ISchema* schema) {
  Lock lock(store());
  return Api::conforms(*table(), table()->base(), schema, false);
}

SharedPtr<ITable> DesignTableImpl::create(WideString name, ISchema* schema) {
  Lock lock(store());
  if (!Api::nameable(name) || table()->lookup(name.value()) != kAbsent) return {};
  Api::Pending<Design::Table> opened(Api::createChild<Design::Table>(*table(), name.value()));
  if (opened.get() == nullptr) return {};
  if (schema != nullptr) opened->inherit(schema);
  return Api::makeHandle<DesignTableImpl, ITable>(opened);
}

SharedPtr<IPrimitive> DesignTableImpl::create(WideString name, tValue type, units::tUnit unit) {
  Lock lock(store());
  if (!Api::nameable(name) || !Api::storable(type) || table()->lookup(name.value()) != kAbsent)
    return {};
  Api::Pending<Design::Primitive> opened(
      Api::createChild<Design::Primitive>(*table(), type, name.value()));
  if (opened.get() == nullptr) return {};
  Design::Primitive* primitive = opened.get();
  SharedPtr<IPrimitive> handle = Api::makeHandle<DesignPrimitiveImpl, IPrimitive>(opened);
  if (unit != 0) primitive->units(unit);
  return handle;
}

// The typed form is called through the interface while the lock is held: it takes the lock
// again on this thread.
SharedPtr<IPrimitive> DesignTableImpl::create(WideString name, units::tUnitGroup group) {
  Lock lock(store());
  auto type = static_cast<tValue>(inherited(group, false));
  if (type == kNone) return {};
  return create(name, type, static_cast<units::tUnit>(inherited(group, true)));
}

bool DesignTableImpl::destroy(WideString name) {
  Lock lock(store());
  return table()->remove(name.value());
}

unsigned DesignTableImpl::items() {
  Lock lock(store());
  return table()->items();
}

SharedPtr<IProperty> DesignTableImpl::at(unsigned int index) {
  Lock lock(store());
  return Api::wrapProperty(store(), table()->at(index));
}

unsigned DesignTableImpl::defaults(units::tUnit unit, tValue type) {
  Lock lock(store());
  return table()->defaults(unit, type);
}

unsigned DesignTableImpl::groups() {
  Lock lock(store());
  return static_cast<unsigned>(table()->groups().size());
}

units::tUnitGroup DesignTableImpl::group(unsigned int index) {
  Lock lock(store());
  std::vector<units::tUnitGroup> groups = table()->groups();
  return index < groups.size() ? groups[index] : units::tUnitGroup(0);
}

tValue DesignTableImpl::valuetype(units::tUnitGroup group) {
  Lock lock(store());
  return static_cast<tValue>(inherited(group, false));
}

units::tUnit DesignTableImpl::units(units::tUnitGroup group) {
  Lock lock(store());
  return static_cast<units::tUnit>(inherited(group, true));
}

WideString DesignTableImpl::base() {
  Lock lock(store());
  return table()->base();
}

std::uint32_t DesignTableImpl::inherited(units::tUnitGroup group, bool unit) const {
  auto ask = [group, unit](const Design::Table& table) -> std::uint32_t {
    if (unit) return table.units(group);
    return table.valuetype(group);
  };
  std::uint32_t own = ask(*table());
  if (own != 0) return own;
  unsigned parent = table()->parent();
  if (Record::peek(store(), parent) != Record::kTable) return 0;
  // Only the defaults are read, so the parent's members need no index.
  return ask(Design::Table(store(), parent, true));
}

}  // namespace kestrine::platform::data::metadata
