#include "data/api/property_filter.h"

#include "data/api/handles.h"
#include "data/tree/lock.h"

namespace kestrine::platform::data::structure {

SharedPtr<metadata::IProperty> ContainerImpl::DesignFilter::current() {
  Metadata::Lock lock(store());
  return Api::wrapProperty(store(), offset());
}

}  // namespace kestrine::platform::data::structure

namespace kestrine::platform::data::metadata {

IPropertyFilter::~IPropertyFilter() = default;

}  // namespace kestrine::platform::data::metadata
