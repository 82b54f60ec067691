#include <gtest/gtest.h>

#include "data/api/api_test_support.h"

namespace kestrine::platform::data::api_test {
namespace {

using structure::IContainerFrontEnd;
using Names = std::vector<std::string>;

class FilterTest : public ::testing::Test {
 protected:
  SharedPtr<IContainer> group(const wchar_t* name) {
    return top_->create(IContainer::kGroup, name, nullptr);
  }
  SharedPtr<ITable> table(const wchar_t* name) {
    return top_->create(name, static_cast<metadata::ISchema*>(nullptr));
  }

  // Every call must touch the store under its lock only.
  void TearDown() override { EXPECT_EQ(store_.unguarded(), 0u); }

  GuardedStore store_;
  SharedPtr<IContainer> top_ = IContainerFrontEnd::toplevel(&store_, L"top");
};

TEST_F(FilterTest, EmptyContainerAndTableGiveCursorsPastTheEnd) {
  auto containers = top_->containers();
  auto properties = top_->properties();
  auto members = table(L"t")->properties();
  EXPECT_FALSE(containers->current());
  EXPECT_FALSE(containers->next());
  EXPECT_FALSE(containers->prev());
  EXPECT_FALSE(properties->current());
  EXPECT_FALSE(properties->next());
  EXPECT_FALSE(properties->prev());
  EXPECT_FALSE(members->current());
  EXPECT_FALSE(members->next());
  EXPECT_FALSE(members->prev());
}

// Children property, container, property: each filter stops only on its own family.
TEST_F(FilterTest, FiltersStopOnlyOnTheirFamily) {
  top_->create(L"p1", metadata::kInt8);
  group(L"c");
  top_->create(L"p2", metadata::kInt8);

  auto containers = top_->containers();
  ASSERT_TRUE(containers->current());
  EXPECT_EQ(utf8(containers->current()->tag()), "c");
  EXPECT_NE(structure::IGroup::to(containers->current().get()), nullptr);
  EXPECT_FALSE(containers->next());
  EXPECT_FALSE(containers->current());  // a failed next() leaves the cursor past the end
  EXPECT_TRUE(containers->prev());
  EXPECT_EQ(utf8(containers->current()->tag()), "c");

  auto properties = top_->properties();
  EXPECT_EQ(utf8(properties->current()->tag()), "p1");
  EXPECT_TRUE(properties->next());
  EXPECT_EQ(utf8(properties->current()->tag()), "p2");
  EXPECT_FALSE(properties->next());
  EXPECT_FALSE(properties->current());
}

// A failed prev() leaves the cursor where it stood.
TEST_F(FilterTest, PrevBeforeTheFirstStays) {
  top_->create(L"p", metadata::kInt8);
  group(L"a");
  group(L"b");
  auto containers = top_->containers();
  EXPECT_FALSE(containers->prev());
  EXPECT_EQ(utf8(containers->current()->tag()), "a");
  EXPECT_TRUE(containers->next());
  EXPECT_TRUE(containers->prev());
  EXPECT_EQ(utf8(containers->current()->tag()), "a");
  EXPECT_FALSE(containers->prev());
  EXPECT_EQ(utf8(containers->current()->tag()), "a");

  auto t = table(L"t");
  t->create(L"x", metadata::kInt8, units::tUnit(0));
  auto members = t->properties();
  EXPECT_FALSE(members->prev());
  EXPECT_EQ(utf8(members->current()->tag()), "x");
}

TEST_F(FilterTest, PropertiesComeBackByKind) {
  table(L"t");
  top_->create(L"p", metadata::kDouble);
  auto properties = top_->properties();
  EXPECT_NE(ITable::to(properties->current().get()), nullptr);
  ASSERT_TRUE(properties->next());
  EXPECT_NE(IPrimitive::to(properties->current().get()), nullptr);
}

// The container filters walk the children as they were when made: a child added later is
// never visited, and a child removed since is skipped (its record is gone).
TEST_F(FilterTest, ContainerFiltersWalkASnapshot) {
  for (const wchar_t* name : {L"a", L"b", L"c"})
    group(name);
  for (const wchar_t* name : {L"x", L"y", L"z"})
    top_->create(name, metadata::kInt8);
  auto containers = top_->containers();
  auto properties = top_->properties();
  group(L"d");
  top_->create(L"w", metadata::kInt8);
  ASSERT_TRUE(top_->destroy(L"b"));
  ASSERT_TRUE(top_->destroy(L"y"));
  EXPECT_EQ(walk(*containers), (Names{"a", "c"}));
  EXPECT_EQ(walk(*properties), (Names{"x", "z"}));
  EXPECT_EQ(walk(*top_->containers()), (Names{"a", "c", "d"}));
}

// The table filter reads the live list, over as many positions as the table had members.
TEST_F(FilterTest, TableFilterReadsTheLiveListWithinItsCount) {
  auto t = table(L"t");
  for (const wchar_t* name : {L"x", L"y", L"z"})
    t->create(name, metadata::kInt8, units::tUnit(0));
  auto before = t->properties();
  t->create(L"w", metadata::kInt8, units::tUnit(0));
  auto added = t->properties();
  EXPECT_EQ(walk(*added), (Names{"x", "y", "z", "w"}));
  ASSERT_TRUE(t->destroy(L"y"));
  // Three positions: x, then z and w moved down into reach.
  EXPECT_EQ(walk(*before), (Names{"x", "z", "w"}));
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
