#include <gtest/gtest.h>

#include "data/api/api_test_support.h"
#include "data/api/container_impl.h"
#include "data/tree/container.h"
#include "data/tree/primitive.h"
#include "data/tree/root.h"

namespace kestrine::platform::data::api_test {
namespace {

// Catches a fresh store given its root, version or "default" group twice, and a second
// request for one name that makes a second container.
TEST(ContainerFrontEnd, FreshStoreGetsRootVersionAndOneContainerPerName) {
  EXPECT_EQ(IContainerFrontEnd::version(), 1u);
  MemoryDataStore store;
  auto first = IContainerFrontEnd::toplevel(&store, WideString());
  ASSERT_TRUE(first);
  EXPECT_EQ(store.version(), 1u);
  EXPECT_EQ(utf8(first->tag()), "default");
  EXPECT_EQ(utf8(first->path()), "default");
  // Top-level containers are always groups, handed out without a kind view or a parent.
  EXPECT_EQ(first->type(), IContainer::kGroup);
  EXPECT_EQ(structure::IGroup::to(first.get()), nullptr);
  EXPECT_NE(dynamic_cast<structure::ContainerImpl*>(first.get()), nullptr);
  EXPECT_FALSE(first->parent());
  unsigned records = store.records();
  EXPECT_EQ(utf8(IContainerFrontEnd::toplevel(&store, WideString())->tag()), "default");
  EXPECT_EQ(store.records(), records);

  auto a = IContainerFrontEnd::toplevel(&store, L"A");
  auto b = IContainerFrontEnd::toplevel(&store, L"A");
  ASSERT_TRUE(a && b);
  EXPECT_NE(a.get(), b.get());
  a->create(L"x", metadata::kInt32);
  EXPECT_TRUE(IContainerFrontEnd::toplevel(&store, L"A")->has(L"x"));
  EXPECT_EQ(Metadata::Root(&store, 0).items(), 2u);
}

// Catches an empty name that picks a property, and a property's name that makes a container:
// a root whose children are a property "value" and then a container "box", as a document
// parsed into the store can leave it.
TEST(ContainerFrontEnd, EmptyNamePicksTheFirstContainerAndPropertyNamesAreRefused) {
  MemoryDataStore store;
  {
    Metadata::Root root(&store, L"root");
    store.version(1);
    root.add(Design::Primitive(&store, metadata::kDouble, L"value").offset());
    root.add(Structural::Container(&store, IContainer::kNode, L"box").offset());
  }
  unsigned records = store.records();
  auto picked = IContainerFrontEnd::toplevel(&store, WideString());
  ASSERT_TRUE(picked);
  EXPECT_EQ(utf8(picked->tag()), "box");
  EXPECT_EQ(picked->type(), IContainer::kNode);
  EXPECT_FALSE(IContainerFrontEnd::toplevel(&store, L"value"));
  EXPECT_FALSE(IContainerFrontEnd::find(&store, L"value"));
  EXPECT_EQ(store.records(), records);
  EXPECT_EQ(Metadata::Root(&store, 0).items(), 2u);
}

// Catches a find that prepares a fresh store, creates a container, or ends on a property.
TEST(ContainerFrontEnd, FindNeverCreatesAndStopsAtProperties) {
  EXPECT_FALSE(IContainerFrontEnd::toplevel(nullptr, L"a"));
  EXPECT_FALSE(IContainerFrontEnd::find(nullptr, L"a"));
  MemoryDataStore store;
  EXPECT_FALSE(IContainerFrontEnd::find(&store, L"a"));
  EXPECT_FALSE(IContainerFrontEnd::find(&store, WideString()));
  EXPECT_EQ(store.used(), 0u);
  EXPECT_EQ(store.version(), 0u);
  IContainerFrontEnd::toplevel(&store, L"A")
      ->create(IContainer::kNode, L"B", nullptr)
      ->create(L"p", metadata::kString);
  auto found = IContainerFrontEnd::find(&store, L"A.B");
  ASSERT_TRUE(found);
  EXPECT_EQ(utf8(found->path()), "A.B");
  EXPECT_EQ(found->type(), IContainer::kNode);
  EXPECT_FALSE(IContainerFrontEnd::find(&store, L"A.B.p"));
  EXPECT_FALSE(IContainerFrontEnd::find(&store, L"A.C"));
  EXPECT_FALSE(IContainerFrontEnd::find(&store, L"A..B"));
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
