#include "data/api/container_filter.h"

#include "data/api/handles.h"
#include "data/tree/lock.h"

namespace kestrine::platform::data::structure {

IContainerFilter::~IContainerFilter() = default;

SharedPtr<IContainer> ContainerImpl::ContainerFilter::current() {
  Metadata::Lock lock(store());
  return Api::wrapContainer(store(), offset());
}

}  // namespace kestrine::platform::data::structure
