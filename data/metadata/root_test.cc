#include "data/metadata/root.h"

#include <gtest/gtest.h>

#include "data/design/primitive.h"
#include "data/testing/store_bytes.h"
#include "data/testing/subtree.h"

namespace kestrine::platform::data::Metadata {
namespace {

using core::storage::datastore::MemoryDataStore;
using testing::bytes;
using testing::snapshot;
using testing::u32;

TEST(Root, ANewRootIsCountedWhileOpenAndLeftAt44BytesWithCount0) {
  MemoryDataStore store;
  {
    Root root(&store, L"root");
    EXPECT_EQ(root.offset(), 0u);
    EXPECT_EQ(u32(bytes(store, 0), 5), 1u);
    EXPECT_EQ(std::wstring(root.tag()), L"root");
  }
  std::string record = bytes(store, 0);
  ASSERT_EQ(record.size(), 44u);
  EXPECT_EQ(u32(record, 5), 0u);
  EXPECT_EQ(u32(record, 14), IDataStore::BADOFF);
}

TEST(Root, OpenedTwiceItIsReferencedWhateverItsChildren) {
  MemoryDataStore store;
  Root first(&store, L"root");
  {
    Root second(&store, 0u);
    EXPECT_EQ(u32(bytes(store, 0), 5), 2u);
    EXPECT_FALSE(first.unreferenced());
    EXPECT_FALSE(second.unreferenced());
  }
  EXPECT_EQ(u32(bytes(store, 0), 5), 1u);
  EXPECT_TRUE(first.unreferenced());
}

TEST(Root, ClearFreesChildrenListAndNamesButKeepsTheRoot) {
  MemoryDataStore store;
  {
    Root root(&store, L"root");
    root.add(testing::buildSubtree(&store, L"g").container);
    root.localize(L"Wurzel", L"de");
  }
  ASSERT_EQ(store.records(), 1 + 1 + 1 + testing::Subtree::kRecords);
  Root root(&store, 0u);
  root.clear();
  EXPECT_EQ(store.records(), 1u);
  std::string record = bytes(store, 0);
  EXPECT_EQ(u32(record, 14), IDataStore::BADOFF);
  EXPECT_EQ(u32(record, 9), IDataStore::BADOFF);
  EXPECT_EQ(u32(record, 5), 1u);
  EXPECT_EQ(root.items(), 0u);
  EXPECT_EQ(root.locales(), 0u);
  EXPECT_EQ(std::wstring(Root(&store, 0u).tag()), L"root");
}

TEST(Root, IsNeverCloned) {
  MemoryDataStore store, target;
  Root root(&store, L"root");
  auto before = snapshot(store);
  EXPECT_EQ(root.clone(&target), IDataStore::BADOFF);
  EXPECT_EQ(root.clone(&store), IDataStore::BADOFF);
  EXPECT_EQ(snapshot(store), before);
  EXPECT_EQ(target.used(), 0u);
}

}  // namespace
}  // namespace kestrine::platform::data::Metadata
