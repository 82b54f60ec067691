#include <gtest/gtest.h>

#include "data/api/api_test_support.h"

namespace kestrine::platform::data::api_test {
namespace {

using structure::ILink;

// "top.b" (a node holding the int32 "p") and the link "top.link", with no target yet.
class LinkTest : public ApiTest {
 protected:
  void SetUp() override {
    top_->create(IContainer::kNode, L"b", nullptr)->create(L"p", metadata::kInt32);
    top_->create(IContainer::kLink, L"link", nullptr);
    handle_ = top_->container(L"link");
    link_ = ILink::to(handle_.get());
    ASSERT_NE(link_, nullptr);
  }

  SharedPtr<IContainer> handle_;
  ILink* link_ = nullptr;
};

// Catches a target kept in the handle instead of the record, and a follow that resolves
// relative to the link or ends on a property.
TEST_F(LinkTest, TargetIsStoredAndFollowedFromTheRoot) {
  EXPECT_TRUE(link_->target().empty());
  EXPECT_FALSE(link_->follow(nullptr));  // no target yet
  link_->target(L"top.b");
  auto other = top_->container(L"link");
  EXPECT_EQ(utf8(ILink::to(other.get())->target()), "top.b");
  auto target = link_->follow(nullptr);
  ASSERT_TRUE(target);
  EXPECT_EQ(utf8(target->path()), "top.b");
  EXPECT_TRUE(target->has(L"p"));
  // Followed containers come back without a kind view.
  EXPECT_EQ(target->type(), IContainer::kNode);
  EXPECT_EQ(structure::INode::to(target.get()), nullptr);

  for (const wchar_t* path : {L"top.b.p", L"top.missing", L"b"}) {
    link_->target(path);
    EXPECT_FALSE(link_->follow(nullptr));
  }
  link_->target(WideString());
  EXPECT_TRUE(link_->target().empty());
}

// Catches a follow into another store that falls back on the link's own, prepares a fresh
// store, or takes the link's own store's lock without re-entering it.
TEST_F(LinkTest, FollowIntoAnotherStoreNeverLooksInItsOwn) {
  link_->target(L"top.b");
  InterceptingStore other;
  EXPECT_FALSE(link_->follow(&other));
  EXPECT_EQ(other.used(), 0u);
  IContainerFrontEnd::toplevel(&other, L"top")->create(IContainer::kGroup, L"b", nullptr);
  auto target = link_->follow(&other);
  ASSERT_TRUE(target);
  EXPECT_EQ(target->store(), &other);
  EXPECT_EQ(target->type(), IContainer::kGroup);
  EXPECT_FALSE(target->has(L"p"));
  EXPECT_EQ(link_->follow(&store_)->store(), &store_);
  EXPECT_EQ(other.unguarded(), 0u);
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
