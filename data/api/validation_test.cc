#include <gtest/gtest.h>

#include "data/api/api_test_support.h"

namespace kestrine::platform::data::api_test {
namespace {

using metadata::ISchema;
using metadata::ISchemaLocator;
using structure::IContainerFrontEnd;

// Two schema stores, each pushed to one locator: "schemas.point" (x, y: double) in the first,
// "schemas.label" (text: string) in the second.
class ValidationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto point = defineSchema(&points_, L"point");
    point->create(L"x", metadata::kDouble, units::Meter);
    point->create(L"y", metadata::kDouble, units::Meter);
    defineSchema(&labels_, L"label")->create(L"text", metadata::kString, units::tUnit(0));
    locator_->push(&labels_);
  }

  // Every call must touch the store under its lock only (the locator reads schema stores
  // without theirs).
  void TearDown() override { EXPECT_EQ(store_.unguarded(), 0u); }

  MemoryDataStore points_, labels_;
  GuardedStore store_;
  SharedPtr<ISchemaLocator> locator_ = ISchemaLocator::make(&points_);
  SharedPtr<IContainer> top_ = IContainerFrontEnd::toplevel(&store_, L"top");
};

// A schema chain resolved from two stores: the container inherits the members of both, hidden
// and name-locked until a value is set on them.
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

TEST_F(ValidationTest, QuickValidationTrustsTheBaseOnly) {
  auto point = locator_->resolve(L"schemas.point");
  auto label = locator_->resolve(L"schemas.label");
  auto shape = top_->create(IContainer::kNode, L"shape", point.get());
  EXPECT_TRUE(shape->validates(point.get(), true));
  EXPECT_FALSE(shape->validates(label.get(), true));
  EXPECT_FALSE(shape->validates(label.get(), false));  // no "text" member
  EXPECT_FALSE(shape->validates(nullptr, false));
}

TEST_F(ValidationTest, FullValidationComparesMembers) {
  auto point = locator_->resolve(L"schemas.point");
  auto built = top_->create(IContainer::kGroup, L"built", nullptr);
  built->create(L"x", metadata::kDouble);
  built->create(L"extra", metadata::kInt8);
  EXPECT_FALSE(built->validates(point.get(), false));  // no y yet
  built->create(L"y", metadata::kDouble);
  EXPECT_FALSE(built->validates(point.get(), true));  // not made from it: quick says no
  EXPECT_TRUE(built->validates(point.get(), false));

  auto wrong = top_->create(IContainer::kGroup, L"wrong", nullptr);
  wrong->create(L"x", metadata::kDouble);
  wrong->create(L"y", metadata::kScalar);
  EXPECT_FALSE(wrong->validates(point.get(), false));
}

TEST_F(ValidationTest, NamedChildrenAndTables) {
  auto point = locator_->resolve(L"schemas.point");
  auto table = top_->create(L"t", point.get());
  EXPECT_EQ(utf8(table->base()), "schemas.point");
  EXPECT_EQ(table->items(), 2u);
  EXPECT_TRUE(table->validates(point.get()));
  auto label = locator_->resolve(L"schemas.label");
  EXPECT_FALSE(table->validates(label.get()));
  table->create(L"text", metadata::kString, units::tUnit(0));
  EXPECT_TRUE(table->validates(label.get()));  // built by hand, checked member by member

  top_->create(IContainer::kGroup, L"c", point.get());
  top_->create(L"p", metadata::kDouble);
  EXPECT_TRUE(top_->validates(L"t", point.get(), true));
  EXPECT_TRUE(top_->validates(L"c", point.get(), true));
  EXPECT_FALSE(top_->validates(L"p", point.get(), false));
  EXPECT_FALSE(top_->validates(L"missing", point.get(), false));
  auto nested = table->create(L"nested", point.get());
  EXPECT_TRUE(top_->validates(L"t.nested", point.get(), true));
}

// A schema the locator did not make has nothing to inherit and validates nothing.
class ForeignSchema : public ISchema {
 public:
  WideString path() const override { return L"schemas.point"; }
  metadata::IStructLayout* layout() override { return nullptr; }
};

TEST_F(ValidationTest, ForeignSchemasValidateNothing) {
  ForeignSchema foreign;
  auto shape = top_->create(IContainer::kGroup, L"shape", &foreign);
  ASSERT_TRUE(shape);
  EXPECT_TRUE(shape->empty());
  EXPECT_FALSE(shape->validates(&foreign, false));
  EXPECT_FALSE(top_->create(L"t", &foreign)->validates(&foreign));
}

// After pop, the layouts of the popped store are gone from the cache: the store may be
// destroyed, and the same path resolves from whichever store defines it now.
TEST_F(ValidationTest, PopEvictsTheStoresLayouts) {
  auto other = std::make_unique<MemoryDataStore>();
  defineSchema(other.get(), L"size")->create(L"w", metadata::kDouble, units::tUnit(0));
  locator_->push(other.get());
  EXPECT_EQ(locator_->resolve(L"schemas.size")->layout()->fields(), 1u);
  ASSERT_TRUE(locator_->pop(other.get()));
  EXPECT_FALSE(locator_->pop(other.get()));
  other.reset();
  EXPECT_FALSE(locator_->resolve(L"schemas.size"));

  MemoryDataStore replacement;
  auto size = defineSchema(&replacement, L"size");
  size->create(L"w", metadata::kDouble, units::tUnit(0));
  size->create(L"h", metadata::kDouble, units::tUnit(0));
  locator_->push(&replacement);
  auto schema = locator_->resolve(L"schemas.size");
  ASSERT_TRUE(schema);
  EXPECT_EQ(schema->layout()->fields(), 2u);
  auto box = top_->create(IContainer::kGroup, L"box", schema.get());
  EXPECT_TRUE(box->has(L"h"));
  // The other stores' layouts stay cached and valid.
  EXPECT_EQ(locator_->resolve(L"schemas.point")->layout()->fields(), 2u);
  schema.reset();
  locator_->pop(&replacement);  // before the store goes
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
