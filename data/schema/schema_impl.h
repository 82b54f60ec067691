#ifndef KPL_DATA_SCHEMA_SCHEMA_IMPL_H_
#define KPL_DATA_SCHEMA_SCHEMA_IMPL_H_

#include <vector>

#include "data/schema/layout.h"
#include "data/tree/definition_chain.h"
#include "data/tree/set.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace kestrine::platform::data::Schema {

// A schema as the locator resolves it: the chain of layouts that the paths of one URI name,
// in URI order, and whether any of them has a member at all.
//
// The layouts are not owned: they belong to the locator's cache. A schema must therefore not
// outlive its locator, nor a pop() of a store that defines one of its layouts. One schema
// object is used by one thread at a time.
class SchemaImpl : public metadata::ISchema, public Metadata::DefinitionChain {
 public:
  // An empty chain (which validates nothing).
  SchemaImpl();
  ~SchemaImpl() override;

  // The ";"-separated segments of a schema URI, every one kept: "a;;b" gives "a", "", "b" and
  // "a;" gives "a", "". Null is treated as "".
  static std::vector<core::string::WideString> split(const wchar_t* uri);

  // The path of the first layout; empty for an empty chain.
  core::string::WideString path() const override;
  // The first layout; null for an empty chain.
  metadata::IStructLayout* layout() override;

  unsigned links() const override;
  // Path and definition of layout `link` (unchecked: below links()).
  const wchar_t* path(unsigned link) const override;
  Metadata::Set* definition(unsigned link) const override;
  // Layout `link` (unchecked: below links()).
  Layout* layout(unsigned link) const { return layouts_[link]; }

  // Appends a layout to the chain; the schema stops being empty when its definition has a
  // member. The caller keeps the layout alive as long as the schema.
  void append(Layout* layout);
  // True while no layout of the chain has a member.
  bool empty() const { return empty_; }

  // 1 when `set` (a table or container) conforms to every layout of the chain in turn, each
  // compared by the schema comparator; 0 on the first mismatch, and always 0 for an empty
  // schema. Store failures pass through.
  unsigned validate(Metadata::Set* set);
  // 1 when the path of every layout of the chain is one of the ";"-separated `paths` (always
  // for a chain without layouts), else 0. Tells whether an item whose base is `paths` was
  // made from this schema, without looking at the item.
  unsigned prevalidate(const wchar_t* paths);

 private:
  std::vector<Layout*> layouts_;
  bool empty_;
};

}  // namespace kestrine::platform::data::Schema

#endif  // KPL_DATA_SCHEMA_SCHEMA_IMPL_H_
