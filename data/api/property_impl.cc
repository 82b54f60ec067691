#include "data/api/property_impl.h"

#include "data/api/handles.h"
#include "data/api/item_operations.h"
#include "data/record/base.h"
#include "data/tree/lock.h"

namespace kestrine::platform::data::metadata {

using Metadata::Lock;

IProperty::~IProperty() = default;

IProperty::tType PropertyImpl::type() const {
  Lock lock(store());
  return Record::peek(store(), logic()->offset()) == Record::kPrimitive ? kPrimitive : kTable;
}

bool PropertyImpl::rename(WideString name) {
  return Api::rename(*logic(), name, true);
}

SharedPtr<IProperty> PropertyImpl::parent() {
  Lock lock(store());
  if (Record::peek(store(), logic()->parent()) != Record::kTable) return {};
  return Api::wrapProperty(store(), logic()->parent());
}

void PropertyImpl::on(unsigned char bits) {
  Lock lock(store());
  logic()->on(bits);
}

void PropertyImpl::off(unsigned char bits) {
  Lock lock(store());
  logic()->off(bits);
}

}  // namespace kestrine::platform::data::metadata
