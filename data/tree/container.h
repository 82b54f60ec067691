#ifndef KPL_DATA_TREE_CONTAINER_H_
#define KPL_DATA_TREE_CONTAINER_H_

#include <cstddef>

#include "data/tree/set.h"
#include "kestrine/platform/data/metadata/schema.h"
#include "kestrine/platform/data/structure/container.h"

namespace kestrine::platform::data::Structural {

using Metadata::IDataStore;
using Metadata::WideString;

// The logic over one container record: a node, group or link holding child items, with a
// free "info" text (a link's target path) and the ";"-joined schema paths it inherited its
// children from ("base"). The object holds one reference count on the record from
// construction to destruction. Container objects live on the pooled heap.
class Container : public Metadata::Set {
 public:
  // Creates a new container record of `type` named `name`.
  Container(IDataStore* store, structure::IContainer::tType type, const wchar_t* name);
  // Opens the record at `offset`; the children are indexed unless `shallow`.
  Container(IDataStore* store, unsigned offset, bool shallow);
  ~Container() override;

  static void* operator new(std::size_t size);
  static void operator delete(void* block, std::size_t size);

  // inherit(ISchema*) below would hide the set's member-wise inherit.
  using Metadata::Set::inherit;

  structure::IContainer::tType type() const { return type_; }
  // The info text; null when empty. Null clears it.
  const wchar_t* info() const;
  void info(const wchar_t* text);
  // The inherited schema paths; null when none.
  const wchar_t* base() const;
  // Takes over the children of every layout of the schema's chain (cloned, added, hidden)
  // while holding the lock of the store that defines each layout, and appends their paths
  // to base. Answers 1.
  unsigned inherit(metadata::ISchema* schema);
  // Same name, type and base; info and children are not compared.
  bool equivalent(const Container& other) const;

  // True when this object holds the only reference count and every child is unreferenced.
  bool unreferenced() override;
  // Frees the localized names and the children; keeps type, name, base and info.
  void clear() override;
  // Copies the record, its children and localized names into `target`, count 0.
  unsigned clone(IDataStore* target) override;

 private:
  structure::IContainer::tType type_;
  WideString base_;
  WideString info_;
};

}  // namespace kestrine::platform::data::Structural

#endif  // KPL_DATA_TREE_CONTAINER_H_
