#ifndef KESTRINE_PLATFORM_DATA_STRUCTURE_CONTAINER_H_
#define KESTRINE_PLATFORM_DATA_STRUCTURE_CONTAINER_H_

#include <functional>
#include <string>

#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/memory.h"
#include "kestrine/platform/core/string.h"
#include "kestrine/platform/data/export.h"
#include "kestrine/platform/data/metadata/filter.h"
#include "kestrine/platform/data/metadata/primitive.h"
#include "kestrine/platform/data/metadata/property.h"
#include "kestrine/platform/data/metadata/schema.h"
#include "kestrine/platform/data/metadata/table.h"
#include "kestrine/platform/data/metadata/value.h"

namespace kestrine::platform::data::structure {

class IContainerFilter;

// A node, group or link of the hierarchy, holding child containers and properties. Every
// operation but store() takes the store's lock for its whole length and releases it on
// every exit, exceptions included; handles may be shared between threads, and every handle
// sees the store as it is now: what was changed through another handle, thread or process
// is seen by the next call. Failures are results (an empty handle, false, an empty string);
// only the store's exceptions pass through. Destroying a handle never changes the store.
class KPL_DATA_API IContainer {
 public:
  enum tType : std::uint32_t { kNode = 0, kGroup = 1, kLink = 2 };

  virtual ~IContainer();
  virtual core::string::WideString tag() const = 0;
  // The names from below the root down to this one, joined by ".".
  virtual core::string::WideString path() const = 0;
  virtual core::storage::datastore::IDataStore* store() const = 0;
  // The containing container; empty for a top-level container.
  virtual core::memory::SharedPtr<IContainer> parent() = 0;
  // The schema paths the container was made from, joined by ";"; empty when none.
  virtual core::string::WideString base() const = 0;
  // True when the container has no child.
  virtual bool empty() const = 0;
  virtual tType type() const = 0;
  // Removes the named child with everything below it; false when there is none, or it is
  // still open elsewhere, or name-locked (inherited and still hidden).
  virtual bool destroy(core::string::WideString name) = 0;
  // Renames this container within its parent container; false for a top-level container
  // or when the name is taken.
  virtual bool rename(core::string::WideString name) = 0;
  // A child container of `type`, with the schema's members inherited when one is given;
  // empty when the name is taken or the type is not a container type.
  virtual core::memory::SharedPtr<IContainer> create(tType type, core::string::WideString name,
                                                     metadata::ISchema* schema) = 0;
  // A primitive property; empty when the name is taken.
  virtual core::memory::SharedPtr<metadata::IPrimitive> create(core::string::WideString name,
                                                               metadata::tValue type) = 0;
  // A table property, laid out from the schema when one is given; empty when the name is taken.
  virtual core::memory::SharedPtr<metadata::ITable> create(core::string::WideString name,
                                                           metadata::ISchema* schema) = 0;
  // True when a child, container or property, has that name or dotted path.
  virtual bool has(core::string::WideString name) = 0;
  // The child container of that name or path; with an empty name, this container again.
  virtual core::memory::SharedPtr<IContainer> container(core::string::WideString name) = 0;
  // The child property of that name or path; empty for a container or nothing.
  virtual core::memory::SharedPtr<metadata::IProperty> property(core::string::WideString name) = 0;
  // Cursors over the child properties and child containers as they are now.
  virtual core::memory::SharedPtr<metadata::IPropertyFilter> properties() = 0;
  virtual core::memory::SharedPtr<IContainerFilter> containers() = 0;
  // True when the container was made from `schema`; otherwise, unless `quick`, when it
  // conforms to it member by member.
  virtual bool validates(metadata::ISchema* schema, bool quick) = 0;
  // The same for the named child table or container.
  virtual bool validates(core::string::WideString name, metadata::ISchema* schema, bool quick) = 0;
  // Copies every child of `source` whose name is free here; false at a child of an
  // unexpected kind (what was copied before it stays).
  virtual bool copy(core::memory::SharedPtr<IContainer> source) = 0;
  // Copies `source` (from any store) with its subtree as a child of this one; false when
  // the name is taken.
  virtual bool clone(core::memory::SharedPtr<IContainer> source) = 0;
  virtual bool clone(core::memory::SharedPtr<metadata::IProperty> source) = 0;
  // Copies the member at `from` (from the root when `absolute`, else below this container)
  // to `to` below this container (a dotted `to` names a parent path and a new name); false,
  // changing nothing, when either is not found or the new name is taken.
  virtual bool clone(core::string::WideString from, core::string::WideString to, bool absolute) = 0;
  // Copies this container with its subtree into `store`, at the dotted `path` (parent path
  // and new name); false when the parent path names nothing there.
  virtual bool clone(core::storage::datastore::IDataStore* store,
                     core::string::WideString path) = 0;
  // Localized descriptions, as for properties.
  virtual unsigned locales() = 0;
  virtual core::string::WideString locale(unsigned int index) = 0;
  virtual unsigned describe(core::string::WideString locale, core::string::WideString text) = 0;
  virtual core::string::WideString localize(core::string::WideString locale) = 0;
  // The flag bits, as for properties: 0x01 optional, 0x02 name locked, 0x04 hidden.
  virtual unsigned char flags() const = 0;
};

// A cursor over the child containers of a container, as they were when it was made. It
// starts on the first (or past the end when there is none); next() past the last leaves it
// past the end, prev() before the first leaves it where it was.
class KPL_DATA_API IContainerFilter {
 public:
  virtual ~IContainerFilter();
  virtual bool next() = 0;
  virtual bool prev() = 0;
  virtual core::memory::SharedPtr<IContainer> current() = 0;
};

// The kind views. A conversion gives the view of a container of that kind, valid as long as
// the caller's handle to it; null for null, another kind, or a container handle made
// without a kind view (those of toplevel, find, follow and create of a node).
class KPL_DATA_API INode {
 public:
  virtual ~INode();
  virtual IContainer* container() const = 0;
  static INode* to(IContainer* container);
};

class KPL_DATA_API IGroup {
 public:
  virtual ~IGroup();
  virtual IContainer* container() const = 0;
  static IGroup* to(IContainer* container);
};

// A link's target is an absolute path from the root, kept as the container's info text.
class KPL_DATA_API ILink {
 public:
  virtual ~ILink();
  virtual IContainer* container() const = 0;
  // The target container, in `store` when given (taking that store's lock after the
  // link's own), else in the link's own store; empty when it names no container.
  virtual core::memory::SharedPtr<IContainer> follow(
      core::storage::datastore::IDataStore* store) = 0;
  virtual core::string::WideString target() = 0;
  virtual void target(core::string::WideString path) = 0;
  static ILink* to(IContainer* container);
};

// The door to a datastore's object model. Each call holds one library-wide mutex and then
// the store's lock.
class KPL_DATA_API IContainerFrontEnd {
 public:
  IContainerFrontEnd() = delete;

  // The format version this library writes into a new store: 1.
  static unsigned version();
  // The top-level container of that name, created as a group when there is none (a fresh
  // store first gets its root and version). An empty name means the first top-level
  // container, or a new one named "default". Empty when the name belongs to a property.
  static core::memory::SharedPtr<IContainer> toplevel(core::storage::datastore::IDataStore* store,
                                                      core::string::WideString name);
  // The container at a dotted path from the root; empty when there is none. Never creates.
  static core::memory::SharedPtr<IContainer> find(core::storage::datastore::IDataStore* store,
                                                  core::string::WideString path);

  // The primitive or table at a dotted path from the root, through containers and tables
  // (the first name may be a top-level table); empty when the path names a container or
  // nothing, a name below a primitive included. Never creates.
  static core::memory::SharedPtr<metadata::IProperty> property(
      core::storage::datastore::IDataStore* store, core::string::WideString path);

  // One child of the root, of a container or of a table: a container or a property.
  struct tChild {
    core::memory::SharedPtr<IContainer> container;
    core::memory::SharedPtr<metadata::IProperty> property;
  };
  // Calls `visit` with each child of the root (an empty path) or of the container or table
  // at the dotted `path`, in the order of its children list, as an export walks them (hidden
  // children included). The store's lock is held throughout, so the children are those of
  // one moment; `visit` may use them and the store. False, visiting nothing, when the path
  // names no root, container or table.
  static bool children(core::storage::datastore::IDataStore* store, core::string::WideString path,
                       const std::function<void(const tChild&)>& visit);

  // Walks the whole tree of `store` under its lock, loading every record it reaches (items,
  // children lists, localized names, values) as the object model reads them, and calls
  // `damaged` with the message of each record that fails ("damaged record at offset N:
  // ..."), without going below it. A record reached twice (listed twice, or in a cycle) is
  // damage too. Answers how many records failed; other exceptions pass through.
  static unsigned check(core::storage::datastore::IDataStore* store,
                        const std::function<void(const std::string&)>& damaged);
};

}  // namespace kestrine::platform::data::structure

#endif  // KESTRINE_PLATFORM_DATA_STRUCTURE_CONTAINER_H_
