#include <gtest/gtest.h>

#include "data/api/api_test_support.h"

namespace kestrine::platform::data::api_test {
namespace {

class FilterTest : public ApiTest {
 protected:
  SharedPtr<IContainer> group(const wchar_t* name) {
    return top_->create(IContainer::kGroup, name, nullptr);
  }
};

// Catches a filter that stops on the other family, hands out a kind without its view, or
// moves on a failed step: a failed next() leaves the cursor past the end, a failed prev()
// leaves it where it stood.
TEST_F(FilterTest, CursorsStopOnTheirFamilyOnly) {
  auto containers = top_->containers();
  auto properties = top_->properties();
  auto t = table(L"t");
  auto members = t->properties();
  EXPECT_FALSE(containers->current() || containers->next() || containers->prev());
  EXPECT_FALSE(properties->current() || properties->next() || properties->prev());
  EXPECT_FALSE(members->current() || members->next() || members->prev());

  t->create(L"x", metadata::kInt8, units::tUnit(0));
  group(L"a");
  top_->create(L"p", metadata::kInt8);
  group(L"b");
  containers = top_->containers();
  EXPECT_FALSE(containers->prev());
  EXPECT_EQ(utf8(containers->current()->tag()), "a");
  EXPECT_NE(structure::IGroup::to(containers->current().get()), nullptr);
  EXPECT_TRUE(containers->next());
  EXPECT_TRUE(containers->prev());
  EXPECT_EQ(utf8(containers->current()->tag()), "a");
  EXPECT_TRUE(containers->next());
  EXPECT_FALSE(containers->next());
  EXPECT_FALSE(containers->current());
  EXPECT_TRUE(containers->prev());
  EXPECT_EQ(utf8(containers->current()->tag()), "b");

  properties = top_->properties();
  EXPECT_EQ(utf8(properties->current()->tag()), "t");
  EXPECT_NE(ITable::to(properties->current().get()), nullptr);
  EXPECT_TRUE(properties->next());
  EXPECT_EQ(utf8(properties->current()->tag()), "p");
  EXPECT_NE(IPrimitive::to(properties->current().get()), nullptr);
  EXPECT_FALSE(properties->next());
  EXPECT_FALSE(properties->current());
  members = t->properties();
  EXPECT_FALSE(members->prev());
  EXPECT_EQ(utf8(members->current()->tag()), "x");
}

// Catches a container filter that reads the live list: it walks the children as they were
// when made, never visiting a child added later and skipping one removed since.
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

// Catches a table filter that takes a snapshot: it reads the live list, over as many
// positions as the table had members when it was made.
TEST_F(FilterTest, TableFilterReadsTheLiveListWithinItsCount) {
  auto t = table(L"t");
  for (const wchar_t* name : {L"x", L"y", L"z"})
    t->create(name, metadata::kInt8, units::tUnit(0));
  auto before = t->properties();
  t->create(L"w", metadata::kInt8, units::tUnit(0));
  EXPECT_EQ(walk(*t->properties()), (Names{"x", "y", "z", "w"}));
  ASSERT_TRUE(t->destroy(L"y"));
  // Three positions: x, then z and w moved down into reach.
  EXPECT_EQ(walk(*before), (Names{"x", "z", "w"}));
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
