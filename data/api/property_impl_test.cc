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

TEST_F(PropertyTest, PrimitiveForwardsToItsValues) {
  auto uuid = top_->create(L"id", metadata::kUUID);
  auto wide = top_->create(L"big", metadata::kInt64);
  EXPECT_EQ(uuid->stride(), 4u);
  EXPECT_EQ(wide->stride(), 8u);
  const std::int64_t values[3] = {1, -2, 3};
  ASSERT_TRUE(wide->set(values, 0, 3));
  EXPECT_EQ(wide->dimension(), 3u);
  EXPECT_EQ(wide->bytes(), 24u);
  std::int64_t back[2] = {};
  EXPECT_EQ(wide->get(back, 1, 2), 2u);
  EXPECT_EQ(back[1], 3);
  EXPECT_EQ(wide->uri(L"file:///x"), 1u);  // a URI stands for the values from now on
  EXPECT_FALSE(wide->set(values, 0, 1));
  EXPECT_EQ(utf8(wide->uri()), "file:///x");
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

}  // namespace
}  // namespace kestrine::platform::data::api_test
