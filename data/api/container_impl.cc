#include "data/api/container_impl.h"

#include <cwchar>

#include "data/api/conformance.h"
#include "data/api/container_filter.h"
#include "data/api/design_primitive_impl.h"
#include "data/api/design_table_impl.h"
#include "data/api/group_impl.h"
#include "data/api/handles.h"
#include "data/api/item_operations.h"
#include "data/api/link_impl.h"
#include "data/api/property_filter.h"
#include "data/record/container_record.h"
#include "data/tree/finder.h"
#include "data/tree/lock.h"
#include "data/tree/logic.h"
#include "data/tree/primitive.h"
#include "data/tree/table.h"

namespace kestrine::platform::data::structure {

namespace {

using Metadata::Lock;

const unsigned kAbsent = IDataStore::BADOFF;

// A dotted path split at its last ".": the parent path before it and the new name after it.
// Without a ".", the parent path is empty and the name is the whole path.
struct Destination {
  explicit Destination(const WideString& path) {
    const wchar_t* text = path.string();
    const wchar_t* dot = std::wcsrchr(text, L'.');
    dotted = dot != nullptr;
    parent = dotted ? WideString(text, static_cast<unsigned>(dot - text)) : WideString();
    name = dotted ? WideString(dot + 1) : path;
  }
  bool dotted;
  WideString parent;
  WideString name;
};

// Copies `original` with its subtree into `target` and names the copy `name`; the copy's
// offset. The copy is not linked into any index yet.
unsigned copyAs(Metadata::Item& original, IDataStore* target, const WideString& name) {
  unsigned copy = original.clone(target);
  Record::Entity(target, copy).name(name.value(), Record::wideBytes(name.value()));
  return copy;
}

}  // namespace

IContainer::~IContainer() = default;

SharedPtr<IContainer> ContainerImpl::parent() {
  Lock lock(store());
  // A top-level container's parent is the root, which wrapContainer refuses.
  return Api::wrapContainer(store(), logic()->parent());
}

WideString ContainerImpl::base() const {
  Lock lock(store());
  return logic()->base();
}

// Under the lock, unlike the other queries of the container itself: the answer comes from the
// store's shared index, which other threads change.
bool ContainerImpl::empty() const {
  Lock lock(store());
  return logic()->items() == 0;
}

IContainer::tType ContainerImpl::type() const {
  Lock lock(store());
  return logic()->type();
}

bool ContainerImpl::destroy(WideString name) {
  Lock lock(store());
  return logic()->remove(name.value());
}

bool ContainerImpl::rename(WideString name) {
  return Api::rename(*logic(), name, false);
}

// Creators check the name with find(), the exact name in this container's index, while the
// queries accept a dotted path through lookup(): a new child is always a direct one.
SharedPtr<IContainer> ContainerImpl::create(tType type, WideString name,
                                            metadata::ISchema* schema) {
  Lock lock(store());
  if (!Api::nameable(name) || logic()->find(name.value()) != kAbsent) return {};
  Api::Pending<Structural::Container> opened(
      Api::createChild<Structural::Container>(*logic(), type, name.value()));
  if (opened.get() == nullptr) return {};
  if (schema != nullptr) opened->inherit(schema);
  switch (type) {
    case kGroup:
      return Api::makeHandle<GroupImpl, IContainer>(opened);
    case kLink:
      return Api::makeHandle<LinkImpl, IContainer>(opened);
    case kNode:
      // Clients written against earlier versions rely on a created node coming back as a
      // plain container; its node view is reached by looking it up with container(name).
      return Api::makeHandle<ContainerImpl, IContainer>(opened);
  }
  // An unknown kind is written and linked as asked, but gets no handle.
  return {};
}

SharedPtr<metadata::IPrimitive> ContainerImpl::create(WideString name, metadata::tValue type) {
  Lock lock(store());
  if (!Api::nameable(name) || !Api::storable(type) || logic()->find(name.value()) != kAbsent)
    return {};
  Api::Pending<Design::Primitive> opened(
      Api::createChild<Design::Primitive>(*logic(), type, name.value()));
  if (opened.get() == nullptr) return {};
  return Api::makeHandle<metadata::DesignPrimitiveImpl, metadata::IPrimitive>(opened);
}

SharedPtr<metadata::ITable> ContainerImpl::create(WideString name, metadata::ISchema* schema) {
  Lock lock(store());
  if (!Api::nameable(name) || logic()->find(name.value()) != kAbsent) return {};
  Api::Pending<Design::Table> opened(Api::createChild<Design::Table>(*logic(), name.value()));
  if (opened.get() == nullptr) return {};
  if (schema != nullptr) opened->inherit(schema);
  return Api::makeHandle<metadata::DesignTableImpl, metadata::ITable>(opened);
}

bool ContainerImpl::has(WideString name) {
  Lock lock(store());
  return logic()->lookup(name.value()) != kAbsent;
}

SharedPtr<IContainer> ContainerImpl::container(WideString name) {
  Lock lock(store());
  if (name.value() == nullptr) return Api::wrapContainer(store(), logic()->offset());
  return Api::wrapContainer(store(), logic()->lookup(name.value()));
}

SharedPtr<metadata::IProperty> ContainerImpl::property(WideString name) {
  Lock lock(store());
  return Api::wrapProperty(store(), logic()->lookup(name.value()));
}

SharedPtr<metadata::IPropertyFilter> ContainerImpl::properties() {
  Lock lock(store());
  return SharedPtr<metadata::IPropertyFilter>(new DesignFilter(store(), logic()->offset()));
}

SharedPtr<IContainerFilter> ContainerImpl::containers() {
  Lock lock(store());
  return SharedPtr<IContainerFilter>(new ContainerFilter(store(), logic()->offset()));
}

bool ContainerImpl::validates(metadata::ISchema* schema, bool quick) {
  Lock lock(store());
  return Api::conforms(*logic(), logic()->base(), schema, quick);
}

bool ContainerImpl::validates(WideString name, metadata::ISchema* schema, bool quick) {
  Lock lock(store());
  unsigned offset = logic()->lookup(name.value());
  if (offset == kAbsent) return false;
  // Validation reads the members from the store, so the child's own index is not needed.
  switch (Record::peek(store(), offset)) {
    case Record::kTable: {
      Design::Table table(store(), offset, true);
      return Api::conforms(table, table.base(), schema, quick);
    }
    case Record::kContainer: {
      Structural::Container container(store(), offset, true);
      return Api::conforms(container, container.base(), schema, quick);
    }
    default:
      return false;
  }
}

// Only this container's store is locked: the source is read as it stands.
bool ContainerImpl::copy(SharedPtr<IContainer> source) {
  auto* original = dynamic_cast<ContainerImpl*>(source.get());
  if (original == nullptr) return false;
  Lock lock(store());
  Structural::Container* from = original->logic();
  for (unsigned i = 0; i < from->items(); ++i) {
    Design::Logic child(from->store(), from->at(i), true);
    if (!child) return false;
    adopt(child->tag(), child.operator->());  // a name taken here keeps its child
  }
  return true;
}

bool ContainerImpl::clone(SharedPtr<IContainer> source) {
  Lock lock(store());
  auto* original = dynamic_cast<ContainerImpl*>(source.get());
  return original != nullptr && adopt(source->tag(), original->logic());
}

bool ContainerImpl::clone(SharedPtr<metadata::IProperty> source) {
  Lock lock(store());
  auto* original = dynamic_cast<metadata::PropertyImpl*>(source.get());
  return original != nullptr && adopt(source->tag(), original->logic());
}

bool ContainerImpl::clone(WideString from, WideString to, bool absolute) {
  if (from.value() == nullptr) return false;
  Destination destination(to);
  Lock lock(store());
  unsigned source =
      absolute ? Schema::Finder(store(), 0, from.value()).offset() : logic()->lookup(from.value());
  if (source == kAbsent) return false;
  if (!destination.dotted) return cloneInto(*logic(), source, destination.name);
  // The parent path is below this container, whether or not the source was absolute.
  unsigned parent = logic()->lookup(destination.parent.string());
  if (parent == kAbsent || Record::peek(store(), parent) != Record::kContainer) return false;
  Structural::Container into(store(), parent, false);
  return cloneInto(into, source, destination.name);
}

// The target's lock is taken before this container's own: the opposite of the order follow()
// uses for a link's store and the store it resolves in.
bool ContainerImpl::clone(IDataStore* target, WideString path) {
  if (target == nullptr) return false;
  // Without a ".", the whole path names both the parent and the copy.
  Destination destination(path);
  const WideString& parentPath = destination.dotted ? destination.parent : path;
  if (!Api::nameable(destination.name)) return false;
  Lock targetLock(target);
  unsigned parent = Schema::Finder(target, 0, parentPath.string()).offset();
  if (parent == kAbsent || Record::peek(target, parent) != Record::kContainer) return false;
  Structural::Container into(target, parent, false);
  // Refused before anything is written: a copy the parent cannot index would be lost there.
  if (into.find(destination.name.value()) != kAbsent) return false;
  Lock ownLock(store());
  Structural::Container self(store(), logic()->offset(), true);
  return into.add(copyAs(self, target, destination.name));
}

bool ContainerImpl::adopt(const WideString& name, Metadata::Item* original) {
  if (logic()->lookup(name.value()) != kAbsent) return false;
  return logic()->add(original->clone(store()));
}

bool ContainerImpl::cloneInto(Structural::Container& into, unsigned source,
                              const WideString& name) {
  if (!Api::nameable(name) || into.find(name.value()) != kAbsent) return false;
  Design::Logic original(store(), source, true);
  if (!original) return false;
  return into.add(copyAs(*original.operator->(), store(), name));
}

}  // namespace kestrine::platform::data::structure
