#include <gtest/gtest.h>

#include <cstdint>

#include "data/api/api_test_support.h"

namespace kestrine::platform::data::api_test {
namespace {

using structure::IContainerFrontEnd;
using Names = std::vector<std::string>;

// A subtree with every kind of member, localized names and values:
//   src (group) { n: double[2] m, t: table { c: int32[1], inner: table { d: uint8[3] } },
//                 box (node) { s: string "hi" }, link (link, target "src.box") }
SharedPtr<IContainer> populate(core::storage::datastore::IDataStore* store) {
  auto src = IContainerFrontEnd::toplevel(store, L"src");
  const double n[2] = {1.25, -2.5};
  auto number = src->create(L"n", metadata::kDouble);
  number->set(n, 0, 2);
  number->container()->describe(L"en-us", L"A number");
  auto table = src->create(L"t", static_cast<metadata::ISchema*>(nullptr));
  const std::int32_t c = 42;
  table->create(L"c", metadata::kInt32, units::Meter)->set(&c, 0, 1);
  table->defaults(units::Second, metadata::kDouble);
  const std::uint8_t d[3] = {1, 2, 3};
  table->create(L"inner", nullptr)->create(L"d", metadata::kUInt8, units::tUnit(0))->set(d, 0, 3);
  auto box = src->create(IContainer::kNode, L"box", nullptr);
  box->create(L"s", metadata::kString)->set(L"hi", 0, 3);
  box->describe(L"en-us", L"A box");
  auto link = src->create(IContainer::kLink, L"link", nullptr);
  structure::ILink::to(link.get())->target(L"src.box");
  return IContainerFrontEnd::toplevel(store, L"src");
}

// The rendering of a subtree with its own top line dropped, so that copies under other names
// compare equal.
std::string below(const SharedPtr<IContainer>& container) {
  std::string text = render(container);
  return text.substr(text.find('\n') + 1);
}

class CloneTest : public ::testing::Test {
 protected:
  // Every call must touch the store under its lock only.
  void TearDown() override { EXPECT_EQ(store_.unguarded(), 0u); }

  GuardedStore store_;
  SharedPtr<IContainer> src_ = populate(&store_);
  SharedPtr<IContainer> dst_ = IContainerFrontEnd::toplevel(&store_, L"dst");
};

TEST_F(CloneTest, CopyTakesEveryFreeNameInOrder) {
  unsigned records = store_.records();
  unsigned children = records - 5;  // all but the root, its list, src, src's list and dst
  ASSERT_TRUE(dst_->copy(src_));
  auto copied = dst_->container(WideString());
  EXPECT_EQ(below(copied), below(src_));
  EXPECT_EQ(walk(*copied->properties()), (Names{"n", "t"}));
  // Every record below src is copied, and dst gains its children list.
  EXPECT_EQ(store_.records(), records + children + 1);
  // Copies are independent: values changed in the copy leave the source as it was.
  const double zero[2] = {};
  IPrimitive::to(copied->property(L"n").get())->set(zero, 0, 2);
  EXPECT_NE(below(dst_->container(WideString())), below(src_));
}

TEST_F(CloneTest, CopySkipsNamesThatAreTaken) {
  dst_->create(L"n", metadata::kInt8);
  dst_->create(IContainer::kGroup, L"box", nullptr);
  ASSERT_TRUE(dst_->copy(src_));
  auto copied = dst_->container(WideString());
  EXPECT_EQ(IPrimitive::to(copied->property(L"n").get())->valuetype(), metadata::kInt8);
  EXPECT_EQ(copied->container(L"box")->type(), IContainer::kGroup);
  EXPECT_TRUE(copied->has(L"t.inner.d"));
  EXPECT_TRUE(copied->has(L"link"));

  unsigned records = store_.records();
  ASSERT_TRUE(dst_->copy(src_));  // everything is taken now: nothing changes
  EXPECT_EQ(store_.records(), records);
}

TEST_F(CloneTest, CloneHandlesKeepTheirNamesAndRefuseTakenOnes) {
  ASSERT_TRUE(dst_->clone(src_->container(L"box")));
  ASSERT_TRUE(dst_->clone(src_->property(L"t")));
  EXPECT_EQ(below(dst_->container(L"box")), below(src_->container(L"box")));
  EXPECT_TRUE(dst_->has(L"t.inner.d"));
  unsigned records = store_.records();
  EXPECT_FALSE(dst_->clone(src_->container(L"box")));
  EXPECT_FALSE(dst_->clone(src_->property(L"t")));
  EXPECT_FALSE(dst_->clone(SharedPtr<IContainer>()));
  EXPECT_FALSE(dst_->clone(SharedPtr<IProperty>()));
  EXPECT_EQ(store_.records(), records);
  // The clone's localized names came along.
  EXPECT_EQ(utf8(dst_->container(L"box")->localize(L"en-us")), "A box");
}

TEST_F(CloneTest, CloneByPathsWithinTheStore) {
  // No "." in `to`: the copy goes straight into this container and is known at once.
  ASSERT_TRUE(src_->clone(L"t.inner", L"again", false));
  EXPECT_TRUE(src_->has(L"again"));
  EXPECT_TRUE(src_->has(L"again.d"));
  EXPECT_EQ(utf8(src_->property(L"again")->path()), "src.again");
  // With a ".", the parent path is below this container.
  ASSERT_TRUE(src_->clone(L"n", L"box.n2", false));
  EXPECT_TRUE(src_->container(L"box")->has(L"n2"));
  EXPECT_EQ(utf8(src_->property(L"box.n2")->path()), "src.box.n2");
}

TEST_F(CloneTest, AbsoluteSourceButRelativeParent) {
  ASSERT_TRUE(dst_->clone(L"src.box", L"mine", true));
  EXPECT_EQ(below(dst_->container(L"mine")), below(src_->container(L"box")));
  // The same source path taken relatively from dst names nothing.
  EXPECT_FALSE(dst_->clone(L"src.box", L"other", false));
  // The parent part of `to` is looked for below dst, never from the root.
  EXPECT_FALSE(dst_->clone(L"src.n", L"src.box.n3", true));
  EXPECT_TRUE(dst_->clone(L"src.n", L"mine.n3", true));
}

TEST_F(CloneTest, CloneByPathsRefusesAndChangesNothing) {
  unsigned records = store_.records();
  EXPECT_FALSE(src_->clone(L"missing", L"x", false));
  EXPECT_FALSE(src_->clone(L"n", L"t", false));          // the name is taken
  EXPECT_FALSE(src_->clone(L"n", L"missing.x", false));  // no such parent
  EXPECT_FALSE(src_->clone(L"box", L"t.x", false));      // the parent is a table
  EXPECT_FALSE(src_->clone(L"n", L"box.s", false));      // taken in the parent
  EXPECT_FALSE(src_->clone(WideString(), L"x", false));
  EXPECT_FALSE(src_->clone(L"n", WideString(), false));
  EXPECT_EQ(store_.records(), records);
  EXPECT_FALSE(src_->has(L"x"));
}

TEST_F(CloneTest, CloneIntoAnotherStoreAtAPath) {
  GuardedStore other;
  IContainerFrontEnd::toplevel(&other, L"a");
  unsigned before = other.records();
  ASSERT_TRUE(src_->clone(&other, L"a.b"));
  auto copy = IContainerFrontEnd::find(&other, L"a.b");
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->store(), &other);
  EXPECT_EQ(below(copy), below(src_));
  // src and everything below it arrive (all records but the root, its list and dst), and a
  // gains its children list.
  unsigned subtree = store_.records() - 3;
  EXPECT_EQ(other.records(), before + subtree + 1);
  // The copied link keeps its absolute path, which names nothing in the other store.
  auto link = copy->container(L"link");
  EXPECT_EQ(utf8(structure::ILink::to(link.get())->target()), "src.box");
  EXPECT_FALSE(structure::ILink::to(link.get())->follow(nullptr));
  EXPECT_EQ(other.unguarded(), 0u);
}

TEST_F(CloneTest, CloneIntoAStoreRefusesMissingParentsAndTakenNames) {
  GuardedStore other;
  EXPECT_FALSE(src_->clone(&other, L"a.b"));
  EXPECT_EQ(other.used(), 0u);
  IContainerFrontEnd::toplevel(&other, L"a")->create(L"b", metadata::kInt8);
  unsigned records = other.records();
  EXPECT_FALSE(src_->clone(&other, L"missing.b"));
  EXPECT_FALSE(src_->clone(&other, L"a.b"));  // taken by a property
  EXPECT_FALSE(src_->clone(nullptr, L"a.b"));
  EXPECT_EQ(other.records(), records);
  EXPECT_EQ(other.unguarded(), 0u);
}

// Without a ".", the path names the parent and the copy alike.
TEST_F(CloneTest, CloneIntoAStoreWithoutADotNestsUnderTheSameName) {
  ASSERT_TRUE(src_->clone(&store_, L"dst"));
  auto copy = IContainerFrontEnd::find(&store_, L"dst.dst");
  ASSERT_TRUE(copy);
  EXPECT_EQ(below(copy), below(src_));
}

// A container cloned into itself: the copy holds the subtree as it was before, and the
// container's own handle knows the new child at once.
TEST_F(CloneTest, CloneIntoItself) {
  std::string before = below(src_);
  ASSERT_TRUE(src_->clone(&store_, L"src.again"));
  EXPECT_TRUE(src_->has(L"again"));
  EXPECT_EQ(below(src_->container(L"again")), before);
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
