#include <gtest/gtest.h>

#include "data/api/api_test_support.h"

namespace kestrine::platform::data::api_test {
namespace {

using structure::IContainerFrontEnd;
using structure::IGroup;
using structure::ILink;
using structure::INode;

class LinkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto a = IContainerFrontEnd::toplevel(&store_, L"a");
    a->create(IContainer::kNode, L"b", nullptr)->create(L"p", metadata::kInt32);
    a->create(IContainer::kLink, L"link", nullptr);
    linkHandle_ = a->container(L"link");
    link_ = ILink::to(linkHandle_.get());
    ASSERT_NE(link_, nullptr);
  }

  // Every call must touch the store under its lock only.
  void TearDown() override { EXPECT_EQ(store_.unguarded(), 0u); }

  GuardedStore store_;
  SharedPtr<IContainer> linkHandle_;
  ILink* link_ = nullptr;
};

TEST_F(LinkTest, ConversionsTestTheKind) {
  EXPECT_EQ(link_->container(), linkHandle_.get());
  EXPECT_EQ(INode::to(linkHandle_.get()), nullptr);
  EXPECT_EQ(IGroup::to(linkHandle_.get()), nullptr);
  EXPECT_EQ(ILink::to(nullptr), nullptr);
  EXPECT_EQ(INode::to(nullptr), nullptr);
  EXPECT_EQ(IGroup::to(nullptr), nullptr);
  auto node = IContainerFrontEnd::find(&store_, L"a")->container(L"b");
  EXPECT_NE(INode::to(node.get()), nullptr);
  EXPECT_EQ(ILink::to(node.get()), nullptr);
  // A view is the same object: it lives exactly as long as the caller's handle.
  EXPECT_EQ(INode::to(node.get())->container(), node.get());
}

TEST_F(LinkTest, TargetRoundTripsAndClears) {
  EXPECT_TRUE(link_->target().empty());
  link_->target(L"a.b");
  EXPECT_EQ(utf8(link_->target()), "a.b");
  // Another handle on the link sees the target set through this one.
  auto other = IContainerFrontEnd::find(&store_, L"a")->container(L"link");
  EXPECT_EQ(utf8(ILink::to(other.get())->target()), "a.b");
  link_->target(WideString());
  EXPECT_TRUE(link_->target().empty());
}

TEST_F(LinkTest, FollowResolvesFromTheRootOfItsOwnStore) {
  EXPECT_FALSE(link_->follow(nullptr));  // no target yet
  link_->target(L"a.b");
  auto target = link_->follow(nullptr);
  ASSERT_TRUE(target);
  EXPECT_EQ(utf8(target->path()), "a.b");
  EXPECT_TRUE(target->has(L"p"));
  // Followed containers come back without a kind view.
  EXPECT_EQ(target->type(), IContainer::kNode);
  EXPECT_EQ(INode::to(target.get()), nullptr);
}

TEST_F(LinkTest, FollowIntoAnotherStoreNeverLooksInItsOwn) {
  link_->target(L"a.b");
  GuardedStore other;
  EXPECT_FALSE(link_->follow(&other));  // a fresh store holds nothing, and stays fresh
  EXPECT_EQ(other.used(), 0u);
  IContainerFrontEnd::toplevel(&other, L"a")->create(IContainer::kGroup, L"b", nullptr);
  auto target = link_->follow(&other);
  ASSERT_TRUE(target);
  EXPECT_EQ(target->store(), &other);
  EXPECT_EQ(target->type(), IContainer::kGroup);
  EXPECT_FALSE(target->has(L"p"));
  // The link's own store given explicitly takes its lock a second time on this thread.
  EXPECT_EQ(link_->follow(&store_)->store(), &store_);
  EXPECT_EQ(other.unguarded(), 0u);
}

TEST_F(LinkTest, FollowRefusesPropertiesAndMissingPaths) {
  link_->target(L"a.b.p");
  EXPECT_FALSE(link_->follow(nullptr));
  link_->target(L"a.missing");
  EXPECT_FALSE(link_->follow(nullptr));
  link_->target(L"b");  // relative paths are not resolved from the link
  EXPECT_FALSE(link_->follow(nullptr));
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
