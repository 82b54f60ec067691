#ifndef KPL_DATA_API_CONTAINER_FILTER_H_
#define KPL_DATA_API_CONTAINER_FILTER_H_

#include "data/api/container_impl.h"
#include "data/api/snapshot.h"

namespace kestrine::platform::data::structure {

// ContainerImpl::ContainerFilter: the child containers of a container, over a copy of its
// children list taken when containers() made it. Each child comes back as its kind's object.
class ContainerImpl::ContainerFilter : public IContainerFilter, public Api::Snapshot {
 public:
  // The caller holds the store lock.
  ContainerFilter(IDataStore* store, unsigned container)
      : Api::Snapshot(store, container, Api::kContainers) {}

  bool next() override { return Cursor::next(); }
  bool prev() override { return Cursor::prev(); }
  SharedPtr<IContainer> current() override;
};

}  // namespace kestrine::platform::data::structure

#endif  // KPL_DATA_API_CONTAINER_FILTER_H_
