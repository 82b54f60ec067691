#ifndef KPL_DATA_API_CONTAINER_IMPL_H_
#define KPL_DATA_API_CONTAINER_IMPL_H_

#include "data/api/item_handle.h"
#include "data/tree/container.h"
#include "kestrine/platform/data/structure/container.h"

namespace kestrine::platform::data::structure {

using core::memory::SharedPtr;
using core::storage::datastore::IDataStore;
using core::string::WideString;

// The one implementation of IContainer: a front over a Structural::Container that it owns.
// Every operation but empty() and store() takes the store's lock for its whole length and
// forwards to the container logic; what it finds comes back in new handles. Destroying the
// handle closes the logic object under the lock and never changes the store otherwise.
//
// Every handle on a store sees the store's current children: a child created, renamed or
// removed through any handle, thread or document import is seen by the next call through
// any other (the sets share one index per store; see Metadata::IndexCache).
//
// Child containers come back as NodeImpl, GroupImpl or LinkImpl; the front end, links and
// create() of a node give plain ContainerImpl objects without a kind view.
class ContainerImpl : public Api::ItemHandle<IContainer, Structural::Container> {
 public:
  class ContainerFilter;
  class DesignFilter;

  // Takes ownership of an opened container logic object.
  explicit ContainerImpl(Structural::Container* logic) : ItemHandle(logic) {}

  SharedPtr<IContainer> parent() override;
  WideString base() const override;
  bool empty() const override;
  tType type() const override;
  bool destroy(WideString name) override;
  bool rename(WideString name) override;
  SharedPtr<IContainer> create(tType type, WideString name, metadata::ISchema* schema) override;
  SharedPtr<metadata::IPrimitive> create(WideString name, metadata::tValue type) override;
  SharedPtr<metadata::ITable> create(WideString name, metadata::ISchema* schema) override;
  bool has(WideString name) override;
  SharedPtr<IContainer> container(WideString name) override;
  SharedPtr<metadata::IProperty> property(WideString name) override;
  SharedPtr<metadata::IPropertyFilter> properties() override;
  SharedPtr<IContainerFilter> containers() override;
  bool validates(metadata::ISchema* schema, bool quick) override;
  bool validates(WideString name, metadata::ISchema* schema, bool quick) override;
  bool copy(SharedPtr<IContainer> source) override;
  bool clone(SharedPtr<IContainer> source) override;
  bool clone(SharedPtr<metadata::IProperty> source) override;
  bool clone(WideString from, WideString to, bool absolute) override;
  bool clone(IDataStore* store, WideString path) override;

 private:
  // Clones `original` (from any store, with its subtree) into this container's store and adds
  // the copy here under `name`, its own name; false when this container has a child of that
  // name already. The caller holds the lock.
  bool adopt(const WideString& name, Metadata::Item* original);
  // Clones the record at `source` of this store, with its subtree, into `into` under `name`;
  // false when the name is taken there or the record is not a property or container. The
  // caller holds the lock.
  bool cloneInto(Structural::Container& into, unsigned source, const WideString& name);
};

}  // namespace kestrine::platform::data::structure

#endif  // KPL_DATA_API_CONTAINER_IMPL_H_
