#include <gtest/gtest.h>

#include <cstdint>

#include "data/api/api_test_support.h"

namespace kestrine::platform::data::api_test {
namespace {

// A subtree with every kind of member, localized names and values:
//   src (group) { n: double[2] m, t: table { c: int32[1], inner: table { d: uint8[3] } },
//                 box (node) { s: string "hi" }, link (link, target "src.box") }
class CloneTest : public ApiTest {
 protected:
  CloneTest() {
    auto src = IContainerFrontEnd::toplevel(&store_, L"src");
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
    src_ = IContainerFrontEnd::toplevel(&store_, L"src");
  }

  SharedPtr<IContainer> src_;
};

// Catches a copy that misses records or shares them with the source, and one that
// overwrites a taken name.
TEST_F(CloneTest, CopyTakesEveryFreeNameInOrder) {
  unsigned records = store_.records();
  unsigned children = records - 5;  // all but the root, its list, src, src's list and top
  ASSERT_TRUE(top_->copy(src_));
  auto copied = top_->container(WideString());
  EXPECT_EQ(below(copied), below(src_));
  EXPECT_EQ(walk(*copied->properties()), (Names{"n", "t"}));
  // Every record below src is copied, and top gains its children list.
  EXPECT_EQ(store_.records(), records + children + 1);
  // Copies are independent: values changed in the copy leave the source as it was.
  const double zero[2] = {};
  IPrimitive::to(copied->property(L"n").get())->set(zero, 0, 2);
  EXPECT_NE(below(top_->container(WideString())), below(src_));

  auto taken = IContainerFrontEnd::toplevel(&store_, L"taken");
  taken->create(L"n", metadata::kInt8);
  taken->create(IContainer::kGroup, L"box", nullptr);
  ASSERT_TRUE(taken->copy(src_));
  copied = taken->container(WideString());
  EXPECT_EQ(IPrimitive::to(copied->property(L"n").get())->valuetype(), metadata::kInt8);
  EXPECT_EQ(copied->container(L"box")->type(), IContainer::kGroup);
  EXPECT_TRUE(copied->has(L"t.inner.d"));
  EXPECT_TRUE(copied->has(L"link"));
  records = store_.records();
  ASSERT_TRUE(taken->copy(src_));  // everything is taken now: nothing changes
  EXPECT_EQ(store_.records(), records);
}

// Catches a clone under another name, one over a taken name, or without localized names.
TEST_F(CloneTest, CloneHandlesKeepTheirNamesAndRefuseTakenOnes) {
  ASSERT_TRUE(top_->clone(src_->container(L"box")));
  ASSERT_TRUE(top_->clone(src_->property(L"t")));
  EXPECT_EQ(below(top_->container(L"box")), below(src_->container(L"box")));
  EXPECT_TRUE(top_->has(L"t.inner.d"));
  unsigned records = store_.records();
  EXPECT_FALSE(top_->clone(src_->container(L"box")));
  EXPECT_FALSE(top_->clone(src_->property(L"t")));
  EXPECT_FALSE(top_->clone(SharedPtr<IContainer>()));
  EXPECT_FALSE(top_->clone(SharedPtr<IProperty>()));
  EXPECT_EQ(store_.records(), records);
  EXPECT_EQ(utf8(top_->container(L"box")->localize(L"en-us")), "A box");
}

// Catches a path resolved from the wrong place: the source from the root only when
// absolute, the parent of `to` always below this container.
TEST_F(CloneTest, CloneByPathsWithinTheStore) {
  // No "." in `to`: the copy goes straight into this container and is known at once.
  ASSERT_TRUE(src_->clone(L"t.inner", L"again", false));
  EXPECT_TRUE(src_->has(L"again"));
  EXPECT_TRUE(src_->has(L"again.d"));
  EXPECT_EQ(utf8(src_->property(L"again")->path()), "src.again");
  ASSERT_TRUE(src_->clone(L"n", L"box.n2", false));
  EXPECT_TRUE(src_->container(L"box")->has(L"n2"));
  EXPECT_EQ(utf8(src_->property(L"box.n2")->path()), "src.box.n2");

  ASSERT_TRUE(top_->clone(L"src.box", L"mine", true));
  EXPECT_EQ(below(top_->container(L"mine")), below(src_->container(L"box")));
  EXPECT_FALSE(top_->clone(L"src.box", L"other", false));
  EXPECT_FALSE(top_->clone(L"src.n", L"src.box.n3", true));
  EXPECT_TRUE(top_->clone(L"src.n", L"mine.n3", true));
}

// Catches a refused clone that writes part of its copy first.
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

// Catches records missed or left behind across stores, and a refusal that writes anyway.
TEST_F(CloneTest, CloneIntoAnotherStoreAtAPath) {
  InterceptingStore other;
  EXPECT_FALSE(src_->clone(&other, L"a.b"));
  EXPECT_EQ(other.used(), 0u);
  IContainerFrontEnd::toplevel(&other, L"a")->create(L"taken", metadata::kInt8);
  unsigned before = other.records();
  EXPECT_FALSE(src_->clone(&other, L"missing.b"));
  EXPECT_FALSE(src_->clone(&other, L"a.taken"));
  EXPECT_FALSE(src_->clone(nullptr, L"a.b"));
  EXPECT_EQ(other.records(), before);

  ASSERT_TRUE(src_->clone(&other, L"a.b"));
  auto copy = IContainerFrontEnd::find(&other, L"a.b");
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->store(), &other);
  EXPECT_EQ(below(copy), below(src_));
  // src and everything below it arrive: all records but the root, its list and top.
  EXPECT_EQ(other.records(), before + store_.records() - 3);
  // The copied link keeps its absolute path, which names nothing in the other store.
  auto link = copy->container(L"link");
  EXPECT_EQ(utf8(structure::ILink::to(link.get())->target()), "src.box");
  EXPECT_FALSE(structure::ILink::to(link.get())->follow(nullptr));
  EXPECT_EQ(other.unguarded(), 0u);
}

// Catches a clone into itself that copies its own growing subtree, or a handle that does not
// see the new child.
TEST_F(CloneTest, CloneIntoItsOwnStore) {
  std::string before = below(src_);
  ASSERT_TRUE(src_->clone(&store_, L"src.again"));
  EXPECT_TRUE(src_->has(L"again"));
  EXPECT_EQ(below(src_->container(L"again")), before);
  // Without a ".", the path names the parent and the copy alike.
  ASSERT_TRUE(src_->clone(&store_, L"top"));
  auto copy = IContainerFrontEnd::find(&store_, L"top.top");
  ASSERT_TRUE(copy);
  EXPECT_EQ(below(copy), below(src_));
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
