#include "data/api/handles.h"

#include "data/api/container_impl.h"
#include "data/api/design_primitive_impl.h"
#include "data/api/design_table_impl.h"
#include "data/api/group_impl.h"
#include "data/api/link_impl.h"
#include "data/api/node_impl.h"
#include "data/record/base.h"
#include "data/tree/container.h"
#include "data/tree/finder.h"
#include "data/tree/primitive.h"
#include "data/tree/table.h"

namespace kestrine::platform::data::Api {

using structure::IContainer;

namespace {

bool holds(IDataStore* store, unsigned offset, Record::tType kind) {
  return offset != IDataStore::BADOFF && Record::peek(store, offset) == kind;
}

}  // namespace

SharedPtr<IContainer> wrapContainer(IDataStore* store, unsigned offset) {
  if (!holds(store, offset, Record::kContainer)) return {};
  Pending<Structural::Container> opened(new Structural::Container(store, offset, false));
  switch (opened->type()) {
    case IContainer::kNode:
      return makeHandle<structure::NodeImpl, IContainer>(opened);
    case IContainer::kGroup:
      return makeHandle<structure::GroupImpl, IContainer>(opened);
    case IContainer::kLink:
      return makeHandle<structure::LinkImpl, IContainer>(opened);
  }
  return {};
}

SharedPtr<IContainer> openContainer(IDataStore* store, unsigned offset) {
  if (!holds(store, offset, Record::kContainer)) return {};
  Pending<Structural::Container> opened(new Structural::Container(store, offset, false));
  return makeHandle<structure::ContainerImpl, IContainer>(opened);
}

SharedPtr<IContainer> resolveContainer(IDataStore* store, const wchar_t* path) {
  if (path == nullptr) return {};
  return openContainer(store, Schema::Finder(store, 0, path).offset());
}

SharedPtr<metadata::IProperty> wrapProperty(IDataStore* store, unsigned offset) {
  if (offset == IDataStore::BADOFF) return {};
  switch (Record::peek(store, offset)) {
    case Record::kPrimitive: {
      Pending<Design::Primitive> opened(new Design::Primitive(store, offset));
      return makeHandle<metadata::DesignPrimitiveImpl, metadata::IProperty>(opened);
    }
    case Record::kTable: {
      Pending<Design::Table> opened(new Design::Table(store, offset, false));
      return makeHandle<metadata::DesignTableImpl, metadata::IProperty>(opened);
    }
    default:
      return {};
  }
}

}  // namespace kestrine::platform::data::Api
