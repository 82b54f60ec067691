#include "data/design/container.h"

#include <gtest/gtest.h>

#include "data/design/primitive.h"
#include "data/metadata/root.h"
#include "data/record/entity.h"
#include "data/testing/faulty_store.h"
#include "data/testing/schema_chain.h"
#include "data/testing/store_bytes.h"
#include "data/testing/subtree.h"

namespace kestrine::platform::data::Structural {
namespace {

using core::storage::datastore::MemoryDataStore;
using structure::IContainer;
using testing::bytes;
using testing::SchemaChain;
using testing::snapshot;
using testing::u32;

TEST(ContainerRecord, TypeAndInfoAreStoredAndReloaded) {
  MemoryDataStore store;
  Container link(&store, IContainer::kLink, L"l");
  EXPECT_EQ(bytes(store, link.offset())[18], 2);
  link.info(L"a.b");
  Container reopened(&store, link.offset(), false);
  EXPECT_EQ(reopened.type(), IContainer::kLink);
  EXPECT_EQ(std::wstring(reopened.info()), L"a.b");
  EXPECT_EQ(std::wstring(reopened.tag()), L"l");

  link.info(nullptr);
  EXPECT_EQ(link.info(), nullptr);
  EXPECT_EQ(u32(bytes(store, link.offset()), 27), 0u);
  EXPECT_EQ(Container(&store, link.offset(), true).info(), nullptr);
}

TEST(ContainerRecord, AShallowContainerIndexesNoChildren) {
  MemoryDataStore store;
  Container group(&store, testing::buildSubtree(&store, L"g").container, false);
  EXPECT_EQ(group.items(), 1u);
  Container shallow(&store, group.offset(), true);
  EXPECT_EQ(shallow.items(), 0u);
  EXPECT_EQ(shallow.find(L"t"), IDataStore::BADOFF);
  EXPECT_EQ(shallow.at(0), group.find(L"t"));  // the list itself is there
}

TEST(ContainerRecord, EquivalentComparesNameTypeAndBase) {
  MemoryDataStore store, schemas;
  Metadata::Root definitions(&schemas, L"schemas");
  Container node(&store, IContainer::kNode, L"c"), group(&store, IContainer::kGroup, L"c");
  Container other(&store, IContainer::kNode, L"c"), based(&store, IContainer::kNode, L"c");
  other.info(L"different info");
  SchemaChain chain({{L"s", &definitions}});
  based.inherit(&chain);
  EXPECT_FALSE(node.equivalent(group));
  EXPECT_TRUE(node.equivalent(other));
  EXPECT_FALSE(node.equivalent(based));
}

TEST(ContainerRecord, TheObjectHoldsOneCountAndChildrenCountToo) {
  MemoryDataStore store;
  testing::Subtree tree = testing::buildSubtree(&store, L"g");
  Container group(&store, tree.container, false);
  EXPECT_EQ(u32(bytes(store, tree.container), 5), 1u);
  EXPECT_TRUE(group.unreferenced());
  {
    Container again(&store, tree.container, true);
    EXPECT_FALSE(group.unreferenced());
  }
  Design::Primitive held(&store, tree.first);
  EXPECT_FALSE(group.unreferenced());
}

TEST(ContainerRecord, CloneKeepsTypeInfoAndBase) {
  MemoryDataStore store, target;
  Container link(&store, IContainer::kLink, L"l");
  link.info(L"x.y");
  unsigned copy = link.clone(&target);
  EXPECT_EQ(u32(bytes(target, copy), 5), 0u);
  Container copied(&target, copy, false);
  EXPECT_TRUE(copied.equivalent(link));
  EXPECT_EQ(std::wstring(copied.info()), L"x.y");
}

TEST(ContainerRecord, ClearKeepsTypeNameBaseAndInfo) {
  MemoryDataStore store;
  testing::Subtree tree = testing::buildSubtree(&store, L"g");
  Container group(&store, tree.container, false);
  group.info(L"kept");
  group.clear();
  EXPECT_EQ(store.records(), 1u);
  Container reopened(&store, tree.container, false);
  EXPECT_EQ(reopened.items(), 0u);
  EXPECT_EQ(reopened.type(), IContainer::kGroup);
  EXPECT_EQ(std::wstring(reopened.info()), L"kept");
  EXPECT_EQ(u32(bytes(store, tree.container), 9), IDataStore::BADOFF);
}

// Two schema tables in a store that counts its locks: "a" with members x and y, "b" with z.
struct Schemas {
  testing::FaultyStore store;
  Container a{&store, IContainer::kNode, L"a"}, b{&store, IContainer::kNode, L"b"};
  Schemas() {
    Design::Primitive x(&store, metadata::kInt32, L"x"), y(&store, metadata::kDouble, L"y");
    Design::Primitive z(&store, metadata::kBool, L"z");
    a.add(x.offset());
    a.add(y.offset());
    b.add(z.offset());
  }
};

TEST(ContainerInherit, CopiesEachLayoutsChildrenInOrderUnderItsStoresLock) {
  Schemas schemas;
  MemoryDataStore store;
  Container container(&store, IContainer::kNode, L"c");
  SchemaChain chain({{L"a", &schemas.a}, {L"b", &schemas.b}});
  EXPECT_EQ(container.inherit(&chain), 1u);
  EXPECT_EQ(std::wstring(container.base()), L"a;b");
  ASSERT_EQ(container.items(), 3u);
  const wchar_t* names[] = {L"x", L"y", L"z"};
  for (unsigned i = 0; i < 3; ++i) {
    Record::Entity child(&store, container.at(i));
    EXPECT_EQ(child.name().wstring(), names[i]);
    EXPECT_EQ(child.flags(), Record::kNameLocked | Record::kHidden);
  }
  EXPECT_EQ(schemas.store.locksTaken(), 2);
  EXPECT_EQ(schemas.store.locksHeld(), 0);
  EXPECT_EQ(std::wstring(Container(&store, container.offset(), true).base()), L"a;b");
}

TEST(ContainerInherit, ReleasesTheSchemaStoresLockWhenCopyingFails) {
  Schemas schemas;
  MemoryDataStore store;
  Container container(&store, IContainer::kNode, L"c");
  SchemaChain chain({{L"a", &schemas.a}});
  schemas.store.failAfter(3);
  EXPECT_THROW(container.inherit(&chain), core::Exception);
  EXPECT_EQ(schemas.store.locksTaken(), 1);
  EXPECT_EQ(schemas.store.locksHeld(), 0);
}

TEST(ContainerInherit, ASchemaThatIsNotAChainChangesNothing) {
  MemoryDataStore store;
  Container container(&store, IContainer::kNode, L"c");
  testing::OpaqueSchema opaque;
  auto before = snapshot(store);
  EXPECT_EQ(container.inherit(&opaque), 1u);
  EXPECT_EQ(snapshot(store), before);
  EXPECT_EQ(container.base(), nullptr);
}

TEST(ContainerHeap, DeletingAHeapContainerDropsItsCount) {
  MemoryDataStore store;
  Container* container = new Container(&store, IContainer::kGroup, L"c");
  unsigned offset = container->offset();
  delete container;
  EXPECT_EQ(u32(bytes(store, offset), 5), 0u);
}

}  // namespace
}  // namespace kestrine::platform::data::Structural
