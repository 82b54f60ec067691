#include "data/tree/finder.h"

#include <gtest/gtest.h>

#include "data/tree/container.h"
#include "data/tree/primitive.h"
#include "data/tree/root.h"
#include "data/tree/table.h"

namespace kestrine::platform::data::Schema {
namespace {

using core::storage::datastore::IDataStore;
using core::storage::datastore::MemoryDataStore;
const unsigned BAD = IDataStore::BADOFF;

// Catches a finder that skips empty segments, steps below a primitive, or gives up on a
// path that ends at one.
TEST(Finder, WalksDownByNameAndEndsBeforeItFails) {
  // root -> { a (node) -> { b (table) -> c, x (primitive) }, "" (primitive) }
  MemoryDataStore store;
  Metadata::Root root(&store, L"root");
  Structural::Container a(&store, structure::IContainer::kNode, L"a");
  Design::Table b(&store, L"b");
  Design::Primitive c(&store, metadata::kInt8, L"c"), x(&store, metadata::kInt8, L"x");
  Design::Primitive unnamed(&store, metadata::kInt8, L"");
  root.add(a.offset()), root.add(unnamed.offset()), a.add(b.offset()), a.add(x.offset());
  b.add(c.offset());
  auto find = [&](const wchar_t* path, unsigned from = 0) {
    return Finder(&store, from, path).offset();
  };
  EXPECT_EQ(find(L"a.b"), b.offset());
  EXPECT_EQ(find(L"b.c", a.offset()), c.offset());
  EXPECT_EQ(find(L"a.no"), BAD);
  EXPECT_EQ(find(L"no.b"), BAD);
  EXPECT_EQ(find(L"a.x.b.c"), BAD);       // a step below a primitive fails before the end
  EXPECT_EQ(find(L"a.x.b"), x.offset());  // ...but at the end leaves the primitive
  EXPECT_EQ(find(L"anything", x.offset()), x.offset());
  EXPECT_EQ(find(L"a..b"), BAD);  // every segment is a name, empty ones too
  EXPECT_EQ(find(L"a."), BAD);
  EXPECT_EQ(find(L""), unnamed.offset());
  EXPECT_EQ(find(L"a", 9999), BAD);
}

}  // namespace
}  // namespace kestrine::platform::data::Schema
