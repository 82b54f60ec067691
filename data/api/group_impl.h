#ifndef KPL_DATA_API_GROUP_IMPL_H_
#define KPL_DATA_API_GROUP_IMPL_H_

#include "data/api/container_impl.h"

namespace kestrine::platform::data::structure {

// A container of the group kind, as create(), container(name), parent() and the container
// filter give it: a ContainerImpl with the IGroup view, which adds only the way back.
class GroupImpl : public ContainerImpl, public IGroup {
 public:
  // Takes ownership of an opened container logic object.
  explicit GroupImpl(Structural::Container* logic) : ContainerImpl(logic) {}

  IContainer* container() const override { return const_cast<GroupImpl*>(this); }
};

}  // namespace kestrine::platform::data::structure

#endif  // KPL_DATA_API_GROUP_IMPL_H_
