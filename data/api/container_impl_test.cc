#include <gtest/gtest.h>

#include "data/api/api_test_support.h"
#include "data/api/container_impl.h"
#include "data/api/node_impl.h"

namespace kestrine::platform::data::api_test {
namespace {

using structure::IContainerFrontEnd;

class ContainerTest : public ::testing::Test {
 protected:
  // Every call must touch the store under its lock only.
  void TearDown() override { EXPECT_EQ(store_.unguarded(), 0u); }

  GuardedStore store_;
  SharedPtr<IContainer> top_ = IContainerFrontEnd::toplevel(&store_, L"top");
};

// A taken name refuses every kind of child, and the refusal writes nothing.
TEST_F(ContainerTest, CreateRefusesATakenNameWhateverTheKind) {
  ASSERT_TRUE(top_->create(L"taken", metadata::kInt32));
  unsigned records = store_.records();
  EXPECT_FALSE(top_->create(IContainer::kGroup, L"taken", nullptr));
  EXPECT_FALSE(top_->create(L"taken", metadata::kDouble));
  EXPECT_FALSE(top_->create(L"taken", static_cast<metadata::ISchema*>(nullptr)));
  EXPECT_EQ(store_.records(), records);
}

TEST_F(ContainerTest, CreateRefusesNoNameAndNoType) {
  unsigned records = store_.records();
  EXPECT_FALSE(top_->create(IContainer::kGroup, WideString(), nullptr));
  EXPECT_FALSE(top_->create(WideString(), metadata::kInt32));
  EXPECT_FALSE(top_->create(L"none", metadata::kNone));
  EXPECT_FALSE(top_->create(L"past", static_cast<metadata::tValue>(25)));
  EXPECT_EQ(store_.records(), records);
  EXPECT_TRUE(top_->empty());
}

// A node comes back from create() as a plain container, from container(name) as a node.
TEST_F(ContainerTest, CreatedNodeHasNoNodeViewButLookedUpNodeHas) {
  auto created = top_->create(IContainer::kNode, L"n", nullptr);
  ASSERT_TRUE(created);
  EXPECT_EQ(created->type(), IContainer::kNode);
  EXPECT_EQ(structure::INode::to(created.get()), nullptr);
  auto looked = top_->container(L"n");
  structure::INode* node = structure::INode::to(looked.get());
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->container(), looked.get());
}

TEST_F(ContainerTest, CreatedGroupAndLinkHaveTheirViews) {
  auto group = top_->create(IContainer::kGroup, L"g", nullptr);
  auto link = top_->create(IContainer::kLink, L"l", nullptr);
  EXPECT_NE(structure::IGroup::to(group.get()), nullptr);
  EXPECT_NE(structure::ILink::to(link.get()), nullptr);
  EXPECT_EQ(structure::ILink::to(group.get()), nullptr);
  EXPECT_EQ(structure::IGroup::to(link.get()), nullptr);
}

// An unknown kind is written and linked, but no handle comes back.
TEST_F(ContainerTest, UnknownKindCreatesTheRecordButNoHandle) {
  unsigned records = store_.records();
  EXPECT_FALSE(top_->create(static_cast<IContainer::tType>(7), L"odd", nullptr));
  EXPECT_TRUE(top_->has(L"odd"));
  EXPECT_GT(store_.records(), records);
  EXPECT_FALSE(top_->container(L"odd"));  // no kind object exists for it either
}

TEST_F(ContainerTest, EmptyNameGivesTheContainerItselfByKind) {
  auto group = top_->create(IContainer::kGroup, L"g", nullptr);
  auto again = group->container(WideString());
  ASSERT_TRUE(again);
  EXPECT_NE(again.get(), group.get());
  EXPECT_EQ(utf8(again->path()), "top.g");
  EXPECT_NE(structure::IGroup::to(again.get()), nullptr);
  // The top-level container is a group too, and its fresh handle carries the view.
  EXPECT_NE(structure::IGroup::to(top_->container(WideString()).get()), nullptr);
}

TEST_F(ContainerTest, ParentOfNestedContainerButNotOfTopLevel) {
  auto a = top_->create(IContainer::kLink, L"a", nullptr);
  auto b = top_->container(L"a")->create(IContainer::kNode, L"b", nullptr);
  auto parent = b->parent();
  ASSERT_TRUE(parent);
  EXPECT_EQ(utf8(parent->tag()), "a");
  EXPECT_NE(structure::ILink::to(parent.get()), nullptr);
  EXPECT_FALSE(top_->parent());
}

TEST_F(ContainerTest, RenameWithinParentButNotAtTopLevel) {
  EXPECT_FALSE(top_->rename(L"other"));
  EXPECT_EQ(utf8(top_->tag()), "top");

  auto child = top_->create(IContainer::kGroup, L"old", nullptr);
  top_->create(L"busy", metadata::kInt8);
  EXPECT_FALSE(child->rename(L"busy"));
  ASSERT_TRUE(child->rename(L"new"));
  EXPECT_EQ(utf8(child->tag()), "new");
  EXPECT_EQ(utf8(child->path()), "top.new");
  // The rename went through a parent opened for it: a fresh handle on the parent knows the
  // new name only.
  auto parent = top_->container(WideString());
  EXPECT_TRUE(parent->has(L"new"));
  EXPECT_FALSE(parent->has(L"old"));
  // A second rename through the same handle starts from the current name.
  EXPECT_TRUE(child->rename(L"newer"));
  EXPECT_EQ(utf8(top_->container(WideString())->container(L"newer")->tag()), "newer");
}

TEST_F(ContainerTest, QueriesTellContainersFromProperties) {
  auto box = top_->create(IContainer::kGroup, L"box", nullptr);
  top_->create(L"value", metadata::kDouble);
  EXPECT_TRUE(top_->has(L"box"));
  EXPECT_TRUE(top_->has(L"value"));
  EXPECT_FALSE(top_->has(L"missing"));
  EXPECT_FALSE(top_->property(L"box"));
  EXPECT_FALSE(top_->container(L"value"));
  EXPECT_TRUE(top_->property(L"value"));
  EXPECT_TRUE(top_->container(L"box"));
}

TEST_F(ContainerTest, QueriesFollowDottedPathsCreatorsDoNot) {
  auto box = top_->create(IContainer::kGroup, L"box", nullptr);
  box->create(L"inner", metadata::kInt16);
  EXPECT_TRUE(top_->has(L"box.inner"));
  EXPECT_TRUE(top_->property(L"box.inner"));
  // "box.inner" is not a direct child name, so the creator takes it as a new name.
  EXPECT_TRUE(top_->create(L"box.inner", metadata::kInt16));
}

TEST_F(ContainerTest, DestroyRemovesChildAndSubtree) {
  auto box = top_->create(IContainer::kGroup, L"box", nullptr);
  box->create(L"v", metadata::kInt32)->set("\1\0\0\0", 0, 1);
  unsigned records = store_.records();
  EXPECT_FALSE(top_->destroy(L"missing"));
  EXPECT_FALSE(top_->destroy(L"box"));  // still open through `box`
  box.reset();
  EXPECT_TRUE(top_->destroy(L"box"));
  EXPECT_FALSE(top_->has(L"box"));
  // box, its children list and v are freed; top keeps its (now empty) children list.
  EXPECT_EQ(store_.records(), records - 3);
}

TEST_F(ContainerTest, EmptyTellsWhetherTheIndexHasChildren) {
  EXPECT_TRUE(top_->empty());
  top_->create(L"v", metadata::kBool);
  EXPECT_FALSE(top_->empty());
  EXPECT_TRUE(top_->destroy(L"v"));
  EXPECT_TRUE(top_->empty());
}

TEST_F(ContainerTest, DescriptionsAreStoredWhenTheHandleGoes) {
  auto box = top_->create(IContainer::kGroup, L"box", nullptr);
  EXPECT_EQ(box->locales(), 0u);
  EXPECT_EQ(box->describe(L"en-us", L"A box"), 0u);
  EXPECT_EQ(box->describe(L"fr-fr", L"Une boîte"), 1u);
  EXPECT_EQ(box->describe(WideString(), L"nowhere"), 0xFFFFFFFFu);
  box.reset();

  auto reopened = top_->container(L"box");
  EXPECT_EQ(reopened->locales(), 2u);
  EXPECT_EQ(utf8(reopened->locale(1)), "fr-fr");
  EXPECT_EQ(utf8(reopened->localize(L"fr-fr")), "Une boîte");
  EXPECT_TRUE(reopened->localize(L"de-de").empty());
  EXPECT_TRUE(reopened->localize(WideString()).empty());
  EXPECT_TRUE(reopened->locale(7).empty());
  // Replacing a text keeps its position; an empty text removes the description.
  EXPECT_EQ(reopened->describe(L"en-us", L"The box"), 0u);
  EXPECT_EQ(reopened->describe(L"fr-fr", WideString()), 1u);
  reopened.reset();
  auto last = top_->container(L"box");
  EXPECT_EQ(last->locales(), 1u);
  EXPECT_EQ(utf8(last->localize(L"en-us")), "The box");
}

// Two handles opened on one empty container: the children list that the first one creates
// must not be overwritten by the second one's first child.
TEST_F(ContainerTest, SecondHandleDoesNotLoseTheFirstHandlesChildren) {
  auto other = IContainerFrontEnd::toplevel(&store_, L"top");
  ASSERT_TRUE(top_->create(L"first", metadata::kInt32));
  ASSERT_TRUE(other->create(L"second", metadata::kInt32));
  EXPECT_FALSE(other->create(L"first", metadata::kInt32));
  auto fresh = IContainerFrontEnd::toplevel(&store_, L"top");
  EXPECT_TRUE(fresh->has(L"first"));
  EXPECT_TRUE(fresh->has(L"second"));
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
