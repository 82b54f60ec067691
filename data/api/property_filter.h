#ifndef KPL_DATA_API_PROPERTY_FILTER_H_
#define KPL_DATA_API_PROPERTY_FILTER_H_

#include "data/api/container_impl.h"
#include "data/api/snapshot.h"

namespace kestrine::platform::data::structure {

// ContainerImpl::DesignFilter: the properties (primitives and tables) of a container, over a
// copy of its children list taken when properties() made it.
class ContainerImpl::DesignFilter : public metadata::IPropertyFilter, public Api::Snapshot {
 public:
  // The caller holds the store lock.
  DesignFilter(IDataStore* store, unsigned container)
      : Api::Snapshot(store, container, Api::kProperties) {}

  bool next() override { return Cursor::next(); }
  bool prev() override { return Cursor::prev(); }
  SharedPtr<metadata::IProperty> current() override;
};

}  // namespace kestrine::platform::data::structure

#endif  // KPL_DATA_API_PROPERTY_FILTER_H_
