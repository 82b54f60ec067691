#include "data/api/group_impl.h"

#include "data/api/handles.h"

namespace kestrine::platform::data::structure {

IGroup::~IGroup() = default;

IGroup* IGroup::to(IContainer* container) {
  return Api::view<IGroup>(container, IContainer::kGroup);
}

}  // namespace kestrine::platform::data::structure
