#include "data/api/node_impl.h"

#include "data/api/handles.h"

namespace kestrine::platform::data::structure {

INode::~INode() = default;

INode* INode::to(IContainer* container) {
  return Api::view<INode>(container, IContainer::kNode);
}

}  // namespace kestrine::platform::data::structure
