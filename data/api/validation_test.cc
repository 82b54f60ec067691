#include <gtest/gtest.h>

#include "data/api/api_test_support.h"

namespace kestrine::platform::data::api_test {
namespace {

using metadata::ISchemaLocator;

// Two schema stores, each pushed to one locator: "schemas.point" (x, y: double) in the first,
// "schemas.label" (text: string) in the second.
class ValidationTest : public ApiTest {
 protected:
  void SetUp() override {
    auto point = defineSchema(&points_, L"point");
    point->create(L"x", metadata::kDouble, units::Meter);
    point->create(L"y", metadata::kDouble, units::Meter);
    defineSchema(&labels_, L"label")->create(L"text", metadata::kString, units::tUnit(0));
    locator_->push(&labels_);
  }

  MemoryDataStore points_, labels_;
  SharedPtr<ISchemaLocator> locator_ = ISchemaLocator::make(&points_);
};

// Catches a chain inherited from one store only, members left visible or removable, and a
// set that does not show them: the container inherits the members of every store's
// layout, hidden and name-locked until a value is set on them.
TEST_F(ValidationTest, ContainerInheritsTheChainOfSeveralStores) {
  auto schema = locator_->resolve(L"schemas.point;schemas.label");
  ASSERT_TRUE(schema);
  EXPECT_EQ(utf8(schema->path()), "schemas.point");
  auto shape = top_->create(IContainer::kGroup, L"shape", schema.get());
  ASSERT_TRUE(shape);
  EXPECT_EQ(utf8(shape->base()), "schemas.point;schemas.label");
  EXPECT_TRUE(shape->has(L"x"));
  EXPECT_TRUE(shape->has(L"text"));
  EXPECT_FALSE(shape->destroy(L"x"));  // inherited: name-locked
  auto property = shape->property(L"x");
  IPrimitive* x = IPrimitive::to(property.get());
  ASSERT_NE(x, nullptr);
  EXPECT_EQ(x->units(), units::Meter);
  EXPECT_EQ(x->container()->flags() & 0x06, 0x06);
  const double value = 3.5;
  ASSERT_TRUE(x->set(&value, 0, 1));
  EXPECT_EQ(x->container()->flags() & 0x06, 0x02);  // shown, still name-locked
  // The copies live in the container's store; the schema stores are unchanged by them.
  EXPECT_EQ(shape->property(L"x")->store(), &store_);
}

// A schema the locator did not make: it has nothing to inherit and validates nothing.
struct ForeignSchema : metadata::ISchema {
  WideString path() const override { return L"schemas.point"; }
  metadata::IStructLayout* layout() override { return nullptr; }
};

// Catches a quick check that compares members, a full one that trusts the base alone or
// ignores a member's type, a table built by hand that is not compared member by member, a
// named validation that finds the wrong child or takes a primitive, and a schema of another
// implementation taken for the locator's own.
TEST_F(ValidationTest, ValidatesByBaseThenByMembers) {
  auto point = locator_->resolve(L"schemas.point");
  auto label = locator_->resolve(L"schemas.label");
  top_->create(IContainer::kNode, L"made", point.get());
  auto built = top_->create(IContainer::kGroup, L"built", nullptr);
  built->create(L"x", metadata::kDouble);
  built->create(L"extra", metadata::kInt8);
  auto wrong = top_->create(IContainer::kGroup, L"wrong", nullptr);
  wrong->create(L"x", metadata::kDouble);
  wrong->create(L"y", metadata::kScalar);
  auto table = top_->create(L"t", point.get());
  top_->create(L"p", metadata::kDouble);
  EXPECT_TRUE(top_->validates(L"made", point.get(), true));
  EXPECT_FALSE(top_->validates(L"made", label.get(), true));
  EXPECT_FALSE(top_->validates(L"made", label.get(), false));  // no "text" member
  EXPECT_FALSE(built->validates(point.get(), false));          // no y yet
  built->create(L"y", metadata::kDouble);
  EXPECT_FALSE(built->validates(point.get(), true));  // not made from it: quick says no
  EXPECT_TRUE(built->validates(point.get(), false));
  EXPECT_FALSE(built->validates(nullptr, false));
  ForeignSchema foreign;
  EXPECT_FALSE(built->validates(&foreign, false));
  EXPECT_TRUE(top_->create(IContainer::kGroup, L"foreign", &foreign)->empty());
  EXPECT_FALSE(wrong->validates(point.get(), false));

  EXPECT_EQ(utf8(table->base()), "schemas.point");
  EXPECT_EQ(table->items(), 2u);
  EXPECT_TRUE(table->validates(point.get()));
  EXPECT_FALSE(table->validates(label.get()));
  table->create(L"text", metadata::kString, units::tUnit(0));
  EXPECT_TRUE(table->validates(label.get()));
  table->create(L"nested", point.get());
  EXPECT_TRUE(top_->validates(L"t", point.get(), true));
  EXPECT_TRUE(top_->validates(L"t.nested", point.get(), true));
  EXPECT_FALSE(top_->validates(L"p", point.get(), false));
  EXPECT_FALSE(top_->validates(L"missing", point.get(), false));
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
