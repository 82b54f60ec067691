#ifndef KPL_DATA_API_NODE_IMPL_H_
#define KPL_DATA_API_NODE_IMPL_H_

#include "data/api/container_impl.h"

namespace kestrine::platform::data::structure {

// A container of the node kind, as container(name), parent() and the container filter give
// it: a ContainerImpl with the INode view, which adds only the way back.
class NodeImpl : public ContainerImpl, public INode {
 public:
  // Takes ownership of an opened container logic object.
  explicit NodeImpl(Structural::Container* logic) : ContainerImpl(logic) {}

  IContainer* container() const override { return const_cast<NodeImpl*>(this); }
};

}  // namespace kestrine::platform::data::structure

#endif  // KPL_DATA_API_NODE_IMPL_H_
