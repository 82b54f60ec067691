#include "data/schema/finder.h"

#include <gtest/gtest.h>

#include "data/design/container.h"
#include "data/design/primitive.h"
#include "data/design/table.h"
#include "data/metadata/root.h"

namespace kestrine::platform::data::Schema {
namespace {

using core::storage::datastore::IDataStore;
using core::storage::datastore::MemoryDataStore;

// root -> a (node) -> { b (table) -> c, x (primitive) }, and a root child named "".
// (Not a gtest fixture: the logic objects' destructors may throw, which a fixture's may not.)
struct Tree {
  MemoryDataStore store;
  Metadata::Root root{&store, L"root"};
  Structural::Container a{&store, structure::IContainer::kNode, L"a"};
  Design::Table b{&store, L"b"};
  Design::Primitive c{&store, metadata::kInt8, L"c"};
  Design::Primitive x{&store, metadata::kInt8, L"x"};
  Design::Primitive unnamed{&store, metadata::kInt8, L""};
  Tree() {
    root.add(a.offset());
    root.add(unnamed.offset());
    a.add(b.offset());
    a.add(x.offset());
    b.add(c.offset());
  }
  unsigned find(const wchar_t* path, unsigned from = 0) {
    return Finder(&store, from, path).offset();
  }
};

TEST(Finder, WalksDownThroughContainersAndTables) {
  Tree t;
  EXPECT_EQ(t.find(L"a"), t.a.offset());
  EXPECT_EQ(t.find(L"a.b"), t.b.offset());
  EXPECT_EQ(t.find(L"a.b.c"), t.c.offset());
  EXPECT_EQ(t.find(L"b.c", t.a.offset()), t.c.offset());
}

TEST(Finder, AFailedLookUpYieldsBadoff) {
  Tree t;
  EXPECT_EQ(t.find(L"nope"), IDataStore::BADOFF);
  EXPECT_EQ(t.find(L"a.nope"), IDataStore::BADOFF);
  EXPECT_EQ(t.find(L"nope.b"), IDataStore::BADOFF);
}

TEST(Finder, AStepThroughAPrimitiveBeforeTheLastSegmentFails) {
  Tree t;
  EXPECT_EQ(t.find(L"a.x.b.c"), IDataStore::BADOFF);
  EXPECT_EQ(t.find(L"p.q", t.x.offset()), IDataStore::BADOFF);
}

// The end test comes before the failure test: a last step that cannot look below a
// primitive leaves the primitive as the result.
TEST(Finder, ALastSegmentBelowAPrimitiveYieldsThePrimitive) {
  Tree t;
  EXPECT_EQ(t.find(L"anything", t.x.offset()), t.x.offset());
  EXPECT_EQ(t.find(L"a.x.b"), t.x.offset());
  EXPECT_EQ(t.find(L"", t.c.offset()), t.c.offset());
}

TEST(Finder, EveryEmptySegmentIsLookedUpAsAName) {
  Tree t;
  EXPECT_EQ(t.find(L"a..b"), IDataStore::BADOFF);
  EXPECT_EQ(t.find(L"a."), IDataStore::BADOFF);
  EXPECT_EQ(t.find(L""), t.unnamed.offset());
  EXPECT_EQ(t.find(nullptr), t.unnamed.offset());
  EXPECT_EQ(t.find(L".a"), t.unnamed.offset());  // "" names a primitive
}

TEST(Finder, AnOffsetThatHoldsNothingLeadsNowhere) {
  Tree t;
  EXPECT_EQ(t.find(L"a", 9999), IDataStore::BADOFF);
  EXPECT_EQ(t.find(L"a", IDataStore::BADOFF), IDataStore::BADOFF);
}

}  // namespace
}  // namespace kestrine::platform::data::Schema
