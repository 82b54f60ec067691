#include <gtest/gtest.h>

#include "data/api/api_test_support.h"

namespace kestrine::platform::data::api_test {
namespace {

using structure::IContainerFrontEnd;

class TableTest : public ::testing::Test {
 protected:
  SharedPtr<ITable> table(const wchar_t* name) {
    return top_->create(name, static_cast<metadata::ISchema*>(nullptr));
  }

  // Every call must touch the store under its lock only.
  void TearDown() override { EXPECT_EQ(store_.unguarded(), 0u); }

  GuardedStore store_;
  SharedPtr<IContainer> top_ = IContainerFrontEnd::toplevel(&store_, L"top");
};

TEST_F(TableTest, MembersByNameIndexAndPath) {
  auto t = table(L"t");
  auto inner = t->create(L"inner", nullptr);
  t->create(L"x", metadata::kDouble, units::Meter);
  inner->create(L"y", metadata::kInt32, units::tUnit(0));
  EXPECT_EQ(t->items(), 2u);
  EXPECT_EQ(utf8(t->at(0)->tag()), "inner");
  EXPECT_EQ(utf8(t->at(1)->tag()), "x");
  EXPECT_FALSE(t->at(2));
  EXPECT_EQ(t->lookup(L"inner.y")->type(), IProperty::kPrimitive);
  EXPECT_FALSE(t->lookup(L"missing"));
  EXPECT_EQ(IPrimitive::to(t->lookup(L"x").get())->units(), units::Meter);
}

// Tables check new names with lookup(): a dotted name that reaches a member is taken, while
// a container would create a child under that very name.
TEST_F(TableTest, CreateRefusesNamesThatLookupFinds) {
  auto t = table(L"t");
  t->create(L"inner", nullptr)->create(L"y", metadata::kInt32, units::tUnit(0));
  unsigned records = store_.records();
  EXPECT_FALSE(t->create(L"inner", metadata::kInt32, units::tUnit(0)));
  EXPECT_FALSE(t->create(L"inner.y", metadata::kInt32, units::tUnit(0)));
  EXPECT_FALSE(t->create(L"inner.y", nullptr));
  EXPECT_FALSE(t->create(L"bad", metadata::kNone, units::tUnit(0)));
  EXPECT_EQ(store_.records(), records);
  EXPECT_EQ(t->items(), 1u);
}

TEST_F(TableTest, UnitIsSetOnlyWhenGiven) {
  auto t = table(L"t");
  EXPECT_EQ(t->create(L"plain", metadata::kScalar, units::tUnit(0))->units(), units::tUnit(0));
  EXPECT_EQ(t->create(L"long", metadata::kScalar, units::KiloMeter)->units(), units::KiloMeter);
}

TEST_F(TableTest, GroupsInAscendingOrder) {
  auto t = table(L"t");
  EXPECT_EQ(t->defaults(units::KiloMeter, metadata::kNone), 0u);
  EXPECT_EQ(t->defaults(units::Pascal, metadata::kScalar), 1u);
  EXPECT_EQ(t->defaults(units::Meter, metadata::kDouble), 1u);
  ASSERT_EQ(t->groups(), 2u);
  EXPECT_EQ(t->group(0), units::group::Length);
  EXPECT_EQ(t->group(1), units::group::Pressure);
  EXPECT_EQ(t->group(2), units::tUnitGroup(0));
}

// Defaults reach one level down: a member table answers with its holder's, but a table two
// levels below the holder does not.
TEST_F(TableTest, DefaultsAreInheritedFromTheParentTableOnly) {
  auto outer = table(L"outer");
  outer->defaults(units::MilliMeter, metadata::kScalar);
  auto child = outer->create(L"child", nullptr);
  auto grandchild = child->create(L"grandchild", nullptr);
  EXPECT_EQ(child->valuetype(units::group::Length), metadata::kScalar);
  EXPECT_EQ(child->units(units::group::Length), units::MilliMeter);
  EXPECT_EQ(grandchild->valuetype(units::group::Length), metadata::kNone);
  EXPECT_EQ(grandchild->units(units::group::Length), units::tUnit(0));
  EXPECT_EQ(child->groups(), 0u);  // inherited defaults are not the table's own

  child->defaults(units::Meter, metadata::kDouble);
  EXPECT_EQ(child->units(units::group::Length), units::Meter);
  EXPECT_EQ(grandchild->units(units::group::Length), units::Meter);
}

TEST_F(TableTest, CreateByGroupUsesTheInheritedDefaults) {
  auto outer = table(L"outer");
  outer->defaults(units::Kilogram, metadata::kDouble);
  auto child = outer->create(L"child", nullptr);
  auto mass = child->create(L"mass", units::group::Mass);
  ASSERT_TRUE(mass);
  EXPECT_EQ(mass->valuetype(), metadata::kDouble);
  EXPECT_EQ(mass->units(), units::Kilogram);
  EXPECT_EQ(utf8(mass->container()->path()), "top.outer.child.mass");

  unsigned records = store_.records();
  EXPECT_FALSE(child->create(L"length", units::group::Length));
  EXPECT_FALSE(child->create(L"mass", units::group::Mass));
  EXPECT_EQ(store_.records(), records);
  // Two levels below the defaults nothing is in reach.
  EXPECT_FALSE(child->create(L"deeper", nullptr)->create(L"m", units::group::Mass));
}

TEST_F(TableTest, DestroyMembers) {
  auto t = table(L"t");
  auto x = t->create(L"x", metadata::kInt8, units::tUnit(0));
  EXPECT_FALSE(t->destroy(L"missing"));
  EXPECT_FALSE(t->destroy(L"x"));  // open through `x`
  x.reset();
  EXPECT_TRUE(t->destroy(L"x"));
  EXPECT_EQ(t->items(), 0u);
  EXPECT_FALSE(t->lookup(L"x"));
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
