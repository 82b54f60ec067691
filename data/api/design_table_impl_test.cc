#include <gtest/gtest.h>

#include "data/api/api_test_support.h"

namespace kestrine::platform::data::api_test {
namespace {

using TableTest = ApiTest;

// Catches members listed out of order, and a creator that takes a name lookup() finds: a
// dotted name that reaches a member is taken (where a container would create a child under
// that very name).
TEST_F(TableTest, CreateRefusesNamesThatLookupFinds) {
  auto t = table(L"t");
  t->create(L"inner", nullptr)->create(L"y", metadata::kInt32, units::tUnit(0));
  t->create(L"x", metadata::kDouble, units::Meter);
  EXPECT_EQ(utf8(t->at(1)->tag()), "x");
  EXPECT_FALSE(t->at(2));
  EXPECT_EQ(IPrimitive::to(t->lookup(L"inner.y").get())->units(), units::tUnit(0));
  unsigned records = store_.records();
  EXPECT_FALSE(t->create(L"inner", metadata::kInt32, units::tUnit(0)));
  EXPECT_FALSE(t->create(L"inner.y", metadata::kInt32, units::tUnit(0)));
  EXPECT_FALSE(t->create(L"inner.y", nullptr));
  EXPECT_FALSE(t->create(L"bad", metadata::kNone, units::tUnit(0)));
  EXPECT_EQ(store_.records(), records);
  EXPECT_EQ(t->items(), 2u);
}

// Catches defaults that reach further than one level down, inherited defaults reported as
// the table's own, groups out of order, and a create by group that ignores the defaults in
// reach or writes when it refuses.
TEST_F(TableTest, DefaultsReachOneLevelDown) {
  auto outer = table(L"outer");
  EXPECT_EQ(outer->defaults(units::KiloMeter, metadata::kNone), 0u);
  EXPECT_EQ(outer->defaults(units::Pascal, metadata::kScalar), 1u);
  EXPECT_EQ(outer->defaults(units::MilliMeter, metadata::kScalar), 1u);
  ASSERT_EQ(outer->groups(), 2u);
  EXPECT_EQ(outer->group(0), units::group::Length);
  EXPECT_EQ(outer->group(1), units::group::Pressure);
  EXPECT_EQ(outer->group(2), units::tUnitGroup(0));

  auto child = outer->create(L"child", nullptr);
  auto grandchild = child->create(L"grandchild", nullptr);
  EXPECT_EQ(child->valuetype(units::group::Length), metadata::kScalar);
  EXPECT_EQ(child->units(units::group::Length), units::MilliMeter);
  EXPECT_EQ(grandchild->valuetype(units::group::Length), metadata::kNone);
  EXPECT_EQ(grandchild->units(units::group::Length), units::tUnit(0));
  EXPECT_EQ(child->groups(), 0u);

  auto pressure = child->create(L"p", units::group::Pressure);
  ASSERT_TRUE(pressure);
  EXPECT_EQ(pressure->valuetype(), metadata::kScalar);
  EXPECT_EQ(pressure->units(), units::Pascal);
  EXPECT_EQ(utf8(pressure->container()->path()), "top.outer.child.p");
  unsigned records = store_.records();
  EXPECT_FALSE(child->create(L"mass", units::group::Mass));
  EXPECT_FALSE(child->create(L"p", units::group::Pressure));
  EXPECT_FALSE(grandchild->create(L"m", units::group::Pressure));
  EXPECT_EQ(store_.records(), records);

  child->defaults(units::Meter, metadata::kDouble);
  EXPECT_EQ(child->units(units::group::Length), units::Meter);
  EXPECT_EQ(grandchild->units(units::group::Length), units::Meter);
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
