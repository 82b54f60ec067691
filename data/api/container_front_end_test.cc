#include <gtest/gtest.h>

#include "data/api/api_test_support.h"
#include "data/api/container_impl.h"
#include "data/design/container.h"
#include "data/design/primitive.h"
#include "data/metadata/root.h"

namespace kestrine::platform::data::api_test {
namespace {

using structure::IContainerFrontEnd;

TEST(ContainerFrontEnd, VersionIsOne) {
  EXPECT_EQ(IContainerFrontEnd::version(), 1u);
}

// A fresh store gets its root and version once, and "default" is found again, not re-made.
TEST(ContainerFrontEnd, FreshStoreGetsRootVersionAndOneDefaultGroup) {
  MemoryDataStore store;
  auto first = IContainerFrontEnd::toplevel(&store, WideString());
  ASSERT_TRUE(first);
  EXPECT_EQ(store.version(), 1u);
  EXPECT_EQ(utf8(first->tag()), "default");
  EXPECT_EQ(first->type(), IContainer::kGroup);
  EXPECT_EQ(utf8(first->path()), "default");
  unsigned records = store.records();

  auto again = IContainerFrontEnd::toplevel(&store, WideString());
  ASSERT_TRUE(again);
  EXPECT_EQ(utf8(again->tag()), "default");
  EXPECT_EQ(store.records(), records);
}

TEST(ContainerFrontEnd, SameNewNameTwiceGivesOneContainer) {
  MemoryDataStore store;
  auto a = IContainerFrontEnd::toplevel(&store, L"A");
  auto b = IContainerFrontEnd::toplevel(&store, L"A");
  ASSERT_TRUE(a && b);
  EXPECT_NE(a.get(), b.get());
  EXPECT_EQ(Metadata::Root(&store, 0).items(), 1u);
  a->create(L"x", metadata::kInt32);
  EXPECT_TRUE(IContainerFrontEnd::toplevel(&store, L"A")->has(L"x"));
  EXPECT_EQ(Metadata::Root(&store, 0).items(), 1u);
}

// Top-level containers are always groups, and handed out without a kind view.
TEST(ContainerFrontEnd, TopLevelIsAPlainGroup) {
  MemoryDataStore store;
  auto top = IContainerFrontEnd::toplevel(&store, L"top");
  EXPECT_EQ(top->type(), IContainer::kGroup);
  EXPECT_EQ(structure::IGroup::to(top.get()), nullptr);
  EXPECT_NE(dynamic_cast<structure::ContainerImpl*>(top.get()), nullptr);
  EXPECT_FALSE(top->parent());
}

// A root whose children are a property "value" and then a container "box", as a document
// parsed into the store can leave it.
void rootWithPropertyThenContainer(MemoryDataStore& store) {
  Metadata::Root root(&store, L"root");
  store.version(1);
  Design::Primitive value(&store, metadata::kDouble, L"value");
  root.add(value.offset());
  Structural::Container box(&store, IContainer::kNode, L"box");
  root.add(box.offset());
}

TEST(ContainerFrontEnd, EmptyNamePicksFirstContainerAmongRootChildren) {
  MemoryDataStore store;
  rootWithPropertyThenContainer(store);
  auto picked = IContainerFrontEnd::toplevel(&store, WideString());
  ASSERT_TRUE(picked);
  EXPECT_EQ(utf8(picked->tag()), "box");
  EXPECT_EQ(picked->type(), IContainer::kNode);
}

TEST(ContainerFrontEnd, NameOfARootPropertyIsRefusedAndNothingIsCreated) {
  MemoryDataStore store;
  rootWithPropertyThenContainer(store);
  unsigned records = store.records();
  EXPECT_FALSE(IContainerFrontEnd::toplevel(&store, L"value"));
  EXPECT_FALSE(IContainerFrontEnd::find(&store, L"value"));
  EXPECT_EQ(store.records(), records);
  EXPECT_EQ(Metadata::Root(&store, 0).items(), 2u);
}

TEST(ContainerFrontEnd, FindNeverCreates) {
  MemoryDataStore store;
  EXPECT_FALSE(IContainerFrontEnd::find(&store, L"a"));
  EXPECT_FALSE(IContainerFrontEnd::find(&store, WideString()));
  EXPECT_EQ(store.used(), 0u);
  EXPECT_EQ(store.version(), 0u);
}

TEST(ContainerFrontEnd, FindWalksContainersAndStopsAtProperties) {
  MemoryDataStore store;
  auto a = IContainerFrontEnd::toplevel(&store, L"A");
  auto b = a->create(IContainer::kNode, L"B", nullptr);
  b->create(L"p", metadata::kString);
  auto found = IContainerFrontEnd::find(&store, L"A.B");
  ASSERT_TRUE(found);
  EXPECT_EQ(utf8(found->path()), "A.B");
  EXPECT_EQ(found->type(), IContainer::kNode);
  EXPECT_FALSE(IContainerFrontEnd::find(&store, L"A.B.p"));
  EXPECT_FALSE(IContainerFrontEnd::find(&store, L"A.C"));
  EXPECT_FALSE(IContainerFrontEnd::find(&store, L"A..B"));
}

TEST(ContainerFrontEnd, NullStoreGivesNothing) {
  EXPECT_FALSE(IContainerFrontEnd::toplevel(nullptr, L"a"));
  EXPECT_FALSE(IContainerFrontEnd::find(nullptr, L"a"));
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
