#include <gtest/gtest.h>

#include <cstdint>

#include "data/api/api_test_support.h"

namespace kestrine::platform::data::api_test {
namespace {

using structure::IContainerFrontEnd;

class PropertyTest : public ::testing::Test {
 protected:
  // Every call must touch the store under its lock only.
  void TearDown() override { EXPECT_EQ(store_.unguarded(), 0u); }

  GuardedStore store_;
  SharedPtr<IContainer> top_ = IContainerFrontEnd::toplevel(&store_, L"top");
};

TEST_F(PropertyTest, TypeAndConversionsFollowTheRecordKind) {
  auto primitive = asProperty(top_->create(L"p", metadata::kInt32));
  auto table = asProperty(top_->create(L"t", static_cast<metadata::ISchema*>(nullptr)));
  EXPECT_EQ(primitive->type(), IProperty::kPrimitive);
  EXPECT_EQ(table->type(), IProperty::kTable);
  EXPECT_EQ(ITable::to(primitive.get()), nullptr);
  EXPECT_EQ(IPrimitive::to(table.get()), nullptr);
  EXPECT_EQ(IPrimitive::to(nullptr), nullptr);
  EXPECT_EQ(ITable::to(nullptr), nullptr);
  ASSERT_NE(IPrimitive::to(primitive.get()), nullptr);
  EXPECT_EQ(IPrimitive::to(primitive.get())->container(), primitive.get());
  EXPECT_EQ(IPrimitive::to(primitive.get())->valuetype(), metadata::kInt32);
  EXPECT_EQ(ITable::to(table.get())->container(), table.get());
}

// The handles that create() gives share one counter with every view taken from them.
TEST_F(PropertyTest, ViewsShareTheHandlesCounter) {
  SharedPtr<ITable> table = top_->create(L"t", static_cast<metadata::ISchema*>(nullptr));
  SharedPtr<IProperty> property = asProperty(table);
  EXPECT_EQ(table.uses(), 2u);
  table.reset();
  ASSERT_NE(ITable::to(property.get()), nullptr);
  EXPECT_EQ(ITable::to(property.get())->items(), 0u);
}

TEST_F(PropertyTest, ParentIsOnlyATable) {
  auto table = top_->create(L"t", static_cast<metadata::ISchema*>(nullptr));
  auto column = table->create(L"c", metadata::kDouble, units::tUnit(0));
  auto direct = top_->create(L"d", metadata::kDouble);
  EXPECT_FALSE(direct->container()->parent());
  EXPECT_FALSE(table->container()->parent());
  auto parent = column->container()->parent();
  ASSERT_TRUE(parent);
  EXPECT_EQ(utf8(parent->tag()), "t");
  EXPECT_EQ(parent->type(), IProperty::kTable);
}

TEST_F(PropertyTest, RenameInAContainerIsSeenByIt) {
  auto p = top_->create(L"old", metadata::kString);
  top_->create(L"other", metadata::kString);
  IProperty* property = p->container();
  EXPECT_FALSE(property->rename(L"other"));
  ASSERT_TRUE(property->rename(L"new"));
  EXPECT_EQ(utf8(property->tag()), "new");
  EXPECT_EQ(utf8(property->path()), "top.new");
  auto fresh = top_->container(WideString());
  EXPECT_TRUE(fresh->has(L"new"));
  EXPECT_FALSE(fresh->has(L"old"));
  EXPECT_TRUE(fresh->property(L"new"));
}

TEST_F(PropertyTest, RenameInATable) {
  auto table = top_->create(L"t", static_cast<metadata::ISchema*>(nullptr));
  auto column = table->create(L"a", metadata::kInt8, units::tUnit(0));
  ASSERT_TRUE(column->container()->rename(L"b"));
  EXPECT_EQ(utf8(column->container()->path()), "top.t.b");
  EXPECT_TRUE(top_->property(L"t.b"));
  EXPECT_FALSE(top_->property(L"t.a"));
}

TEST_F(PropertyTest, FlagsOnAndOff) {
  auto handle = top_->create(L"p", metadata::kBool);
  IProperty* p = handle->container();
  EXPECT_EQ(p->flags(), 0);
  p->on(0x01 | 0x40);
  EXPECT_EQ(p->flags(), 0x41);
  p->off(0x40);
  EXPECT_EQ(p->flags(), 0x01);
  // The flags are read from the store, so another handle sees them at once.
  EXPECT_EQ(top_->property(L"p")->flags(), 0x01);
}

TEST_F(PropertyTest, DescriptionsAreStoredWhenTheLastHandleGoes) {
  auto p = top_->create(L"p", metadata::kBool);
  EXPECT_EQ(p->container()->describe(L"en-us", L"Flag"), 0u);
  EXPECT_EQ(p->container()->locales(), 0u);  // not in the store until the handle goes
  p.reset();
  auto reopened = top_->property(L"p");
  EXPECT_EQ(reopened->locales(), 1u);
  EXPECT_EQ(utf8(reopened->locale(0)), "en-us");
  EXPECT_EQ(utf8(reopened->localize(L"en-us")), "Flag");
  EXPECT_TRUE(reopened->localize(L"fr-fr").empty());
}

TEST_F(PropertyTest, PrimitiveForwardsToItsValues) {
  auto uuid = top_->create(L"id", metadata::kUUID);
  auto wide = top_->create(L"big", metadata::kInt64);
  EXPECT_EQ(uuid->stride(), 4u);
  EXPECT_EQ(wide->stride(), 8u);
  EXPECT_EQ(wide->dimension(), 0u);

  const std::int64_t values[3] = {1, -2, 3};
  ASSERT_TRUE(wide->set(values, 0, 3));
  EXPECT_EQ(wide->dimension(), 3u);
  EXPECT_EQ(wide->bytes(), 24u);
  std::int64_t back[2] = {};
  EXPECT_EQ(wide->get(back, 1, 2), 2u);
  EXPECT_EQ(back[0], -2);
  EXPECT_EQ(back[1], 3);
  EXPECT_EQ(wide->get(back, 2, 2), 0u);  // no partial reads
  EXPECT_EQ(wide->reset(1), 1u);
  EXPECT_EQ(wide->dimension(), 1u);
  EXPECT_EQ(wide->units(), units::tUnit(0));
}

TEST_F(PropertyTest, SetShowsAHiddenPrimitiveOnlyWhenItWrites) {
  auto p = top_->create(L"p", metadata::kInt32);
  p->container()->on(0x04);
  const std::int32_t value = 7;
  EXPECT_FALSE(p->set(&value, 0, 0));
  EXPECT_EQ(p->container()->flags() & 0x04, 0x04);
  EXPECT_TRUE(p->set(&value, 0, 1));
  EXPECT_EQ(p->container()->flags() & 0x04, 0);
}

TEST_F(PropertyTest, UriStandsForTheValues) {
  auto p = top_->create(L"p", metadata::kDouble);
  const double value = 1.5;
  p->set(&value, 0, 1);
  EXPECT_EQ(p->uri(L"file:///x"), 1u);
  EXPECT_EQ(utf8(p->uri()), "file:///x");
  EXPECT_EQ(p->dimension(), 0u);
  EXPECT_FALSE(p->set(&value, 0, 1));
  EXPECT_EQ(p->uri(WideString()), 1u);
  EXPECT_TRUE(p->uri().empty());
  EXPECT_TRUE(p->set(&value, 0, 1));
}

TEST_F(PropertyTest, SchemaOnlyForStructsAndValueLocale) {
  auto number = top_->create(L"n", metadata::kDouble);
  auto packed = top_->create(L"s", metadata::kStruct);
  EXPECT_EQ(number->schema(L"point"), 0u);
  EXPECT_TRUE(number->schema().empty());
  EXPECT_EQ(packed->schema(L"point"), 1u);
  EXPECT_EQ(utf8(packed->schema()), "point");
  EXPECT_EQ(number->valuelocale(L"de-de"), 1u);
  EXPECT_EQ(utf8(number->valuelocale()), "de-de");
  number->valuelocale(WideString());
  EXPECT_TRUE(number->valuelocale().empty());
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
