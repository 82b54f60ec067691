#ifndef KPL_DATA_API_LINK_IMPL_H_
#define KPL_DATA_API_LINK_IMPL_H_

#include "data/api/container_impl.h"

namespace kestrine::platform::data::structure {

// A container of the link kind: a ContainerImpl with the ILink view. The target path is kept
// in the record as the container's info text; nothing else is stored.
class LinkImpl : public ContainerImpl, public ILink {
 public:
  // Takes ownership of an opened container logic object.
  explicit LinkImpl(Structural::Container* logic) : ContainerImpl(logic) {}

  IContainer* container() const override { return const_cast<LinkImpl*>(this); }
  // Resolves the target from the root of `store`, or of the link's own store when none is
  // given, holding the link's store lock and then the given one (even when it is the same).
  // The container comes back as a plain ContainerImpl.
  SharedPtr<IContainer> follow(IDataStore* store) override;
  WideString target() override;
  // An empty path clears the target.
  void target(WideString path) override;
};

}  // namespace kestrine::platform::data::structure

#endif  // KPL_DATA_API_LINK_IMPL_H_
