#include "data/schema/schema_locator_impl.h"

#include <gtest/gtest.h>

#include "data/record/entity.h"
#include "data/schema/schema_test_support.h"

namespace kestrine::platform::data::Schema {
namespace {

using core::memory::SharedPtr;
using core::string::WideString;

// A store defining tables `names`, each with one int32 member "m".
class Defining : public SchemaStore {
 public:
  Defining(std::initializer_list<const wchar_t*> names) {
    for (const wchar_t* name : names)
      primitive(table(name), L"m", metadata::kInt32);
  }
  unsigned references(const wchar_t* name) {
    return Record::Entity(store(), Metadata::Root(store(), 0u).find(name)).references();
  }
};

// The schema of `uri` as the layer sees it; empty when the locator gave none.
SharedPtr<SchemaImpl> resolve(SchemaLocatorImpl& locator, const wchar_t* uri) {
  return locator.schema(WideString(uri));
}

// Stores are declared before the locators that cache layouts from them: a layout drops its
// reference count in the store when the locator destroys it.
//
// Catches a chain that drops known paths, keeps unknown ones or reorders them, an empty
// segment left unlooked-up, and a store without a root that is searched anyway.
TEST(SchemaLocatorImplTest, ChainsHoldTheKnownPathsInOrder) {
  Defining defining{L"a", L"b", L""};
  Defining onlyB{L"b"};
  core::storage::datastore::MemoryDataStore fresh;
  SchemaLocatorImpl locator;
  EXPECT_FALSE(locator.resolve(WideString()));
  EXPECT_FALSE(resolve(locator, L"b"));
  locator.push(&fresh);  // no root yet: skipped
  locator.push(onlyB.store());
  EXPECT_FALSE(resolve(locator, L""));
  EXPECT_FALSE(resolve(locator, L"x;y;;"));
  SharedPtr<SchemaImpl> b = resolve(locator, L"a;b");
  ASSERT_TRUE(b);
  EXPECT_EQ(1u, b->links());
  EXPECT_EQ(WideString(L"b"), b->path());

  locator.push(defining.store());
  SharedPtr<SchemaImpl> chain = resolve(locator, L"b;;a");
  ASSERT_TRUE(chain);
  ASSERT_EQ(3u, chain->links());
  EXPECT_STREQ(L"b", chain->path(0));
  EXPECT_STREQ(L"", chain->path(1));
  EXPECT_STREQ(L"a", chain->path(2));
  EXPECT_EQ(b->layout(), chain->layout());  // "b" is cached already
}

// Catches a search that stops at a name that is not a table: it is passed over and the
// search goes on in the other stores, whatever their order. Schemas may sit below
// containers and tables ("lib.point").
TEST(SchemaLocatorImplTest, OnlyTablesAreSchemas) {
  Defining nested{};
  nested.primitive(nested.table(L"point", nested.container(L"lib")), L"x", metadata::kDouble);
  for (bool primitiveFirst : {true, false}) {
    Defining table{L"a"};
    SchemaStore primitive;
    primitive.primitive(0, L"a", metadata::kInt32);
    primitive.container(L"c");
    SchemaLocatorImpl locator;
    locator.push(primitiveFirst ? primitive.store() : table.store());
    locator.push(primitiveFirst ? table.store() : primitive.store());
    locator.push(nested.store());
    SharedPtr<SchemaImpl> a = locator.schema(WideString(L"a"));
    ASSERT_TRUE(a);
    EXPECT_EQ(table.store(), a->definition(0)->store());
    EXPECT_FALSE(locator.schema(WideString(L"c")));
    SharedPtr<SchemaImpl> point = locator.schema(WideString(L"lib.point"));
    ASSERT_TRUE(point);
    EXPECT_STREQ(L"lib.point", point->path(0));
    EXPECT_STREQ(L"x", point->layout()->get(0u)->name);
  }
}

// Catches a pop that keeps a popped store's layouts (which would outlive the store) or
// evicts another store's: the path is then built anew from another store, or not found.
TEST(SchemaLocatorImplTest, PopEvictsWhatTheStoreDefined) {
  Defining first{L"a", L"b"};
  Defining second{L"a"};
  Defining other{L"c"};
  SchemaLocatorImpl locator;
  EXPECT_FALSE(locator.pop(first.store()));
  EXPECT_FALSE(locator.pop(nullptr));
  locator.push(first.store());
  locator.push(first.store());
  locator.push(other.store());
  ASSERT_TRUE(resolve(locator, L"a;b"));
  const metadata::IStructLayout* kept = resolve(locator, L"c")->layout();
  const unsigned held = first.references(L"a");

  EXPECT_TRUE(locator.pop(first.store()));
  EXPECT_FALSE(locator.pop(first.store()));
  EXPECT_EQ(held - 1, first.references(L"a"));
  EXPECT_FALSE(resolve(locator, L"a"));
  EXPECT_EQ(kept, resolve(locator, L"c")->layout());

  locator.push(second.store());
  SharedPtr<SchemaImpl> rebuilt = resolve(locator, L"a;b");
  ASSERT_TRUE(rebuilt);
  EXPECT_EQ(1u, rebuilt->links());
  EXPECT_EQ(second.store(), rebuilt->definition(0)->store());
  EXPECT_TRUE(locator.pop(second.store()));
  EXPECT_FALSE(resolve(locator, L"a"));
}

// Catches a reset that drops the cache, and layouts not released with the locator: reset
// forgets the stores, not the layouts.
TEST(SchemaLocatorImplTest, ResetKeepsTheCache) {
  Defining defining{L"a", L"b"};
  const unsigned before = defining.references(L"a");
  {
    SchemaLocatorImpl locator;
    locator.push(defining.store());
    ASSERT_TRUE(locator.schema(WideString(L"a")));
    locator.reset();
    EXPECT_TRUE(locator.schema(WideString(L"a")));
    EXPECT_FALSE(locator.schema(WideString(L"b")));
    EXPECT_FALSE(locator.pop(defining.store()));
    EXPECT_EQ(before + 1, defining.references(L"a"));
  }
  EXPECT_EQ(before, defining.references(L"a"));
}

}  // namespace
}  // namespace kestrine::platform::data::Schema
