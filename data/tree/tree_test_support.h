#ifndef KPL_DATA_TREE_TREE_TEST_SUPPORT_H_
#define KPL_DATA_TREE_TREE_TEST_SUPPORT_H_

#include <utility>
#include <vector>

#include "data/tree/container.h"
#include "data/tree/definition_chain.h"
#include "data/tree/primitive.h"
#include "data/tree/table.h"
#include "kestrine/platform/data/metadata/schema.h"

// Helpers of the tests of the tree's items, sets and tables.
namespace kestrine::platform::data::testing {

// A schema made by hand, a chain of (path, defining set) pairs, standing in for the
// locator's schemas where only inheriting from a chain is under test.
class SchemaChain : public metadata::ISchema, public Metadata::DefinitionChain {
 public:
  using Links = std::vector<std::pair<const wchar_t*, Metadata::Set*>>;
  explicit SchemaChain(Links links) : links_(std::move(links)) {}

  core::string::WideString path() const override { return links_.at(0).first; }
  metadata::IStructLayout* layout() override { return nullptr; }
  unsigned links() const override { return static_cast<unsigned>(links_.size()); }
  const wchar_t* path(unsigned link) const override { return links_[link].first; }
  Metadata::Set* definition(unsigned link) const override { return links_[link].second; }

 private:
  Links links_;
};

// A group holding a table "t" holding primitives "p1" (int32 7, 8, 9) and "p2", with
// localized names on the group, the table and p1, and defaults on the table: ten records,
// built unattached in `store` with every object closed again (all counts 0).
struct Subtree {
  static const unsigned kRecords = 10;
  unsigned group, table, first, second;

  Subtree(core::storage::datastore::IDataStore* store, const wchar_t* name) {
    Structural::Container g(store, structure::IContainer::kGroup, name);
    Design::Table t(store, L"t");
    Design::Primitive p1(store, metadata::kInt32, L"p1"), p2(store, metadata::kDouble, L"p2");
    t.add(p1.offset());
    t.add(p2.offset());
    g.add(t.offset());
    g.localize(L"Gruppe", L"de");
    t.localize(L"Tabelle", L"de");
    p1.localize(L"eins", L"de");
    t.defaults(units::Meter, metadata::kDouble);
    const int values[] = {7, 8, 9};
    p1.set(reinterpret_cast<const char*>(values), 0, 3);
    group = g.offset(), table = t.offset(), first = p1.offset(), second = p2.offset();
  }
};

}  // namespace kestrine::platform::data::testing

#endif  // KPL_DATA_TREE_TREE_TEST_SUPPORT_H_
