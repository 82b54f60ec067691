// Built against the shared library with the two umbrella headers only, as a client is: if an
// operation of the object model were not exported (or needed an internal header), this would
// not compile or link.
#include <gtest/gtest.h>

#include <kestrine/platform/core.h>
#include <kestrine/platform/data.h>

#include <cstdint>
#include <memory>

namespace {

using namespace kestrine::platform;
using core::memory::SharedPtr;
using core::storage::datastore::MemoryDataStore;
using data::metadata::IPrimitive;
using data::metadata::ISchemaLocator;
using data::metadata::IStringArray;
using data::metadata::ITable;
using data::structure::IContainer;
using data::structure::IContainerFrontEnd;
using data::structure::IGroup;
using data::structure::ILink;
using data::structure::INode;

// Catches an operation of the object model that is not exported from the shared library.
TEST(ExportedSurface, EveryFamilyIsReachable) {
  MemoryDataStore schemas, store;
  auto point = IContainerFrontEnd::toplevel(&schemas, L"schemas")->create(L"point", nullptr);
  point->create(L"x", data::metadata::kDouble, data::units::Meter);
  auto locator = ISchemaLocator::make(&schemas);
  auto schema = locator->resolve(L"schemas.point");
  ASSERT_TRUE(schema);

  ASSERT_EQ(IContainerFrontEnd::version(), 1u);
  auto top = IContainerFrontEnd::toplevel(&store, L"top");
  auto group = top->create(IContainer::kGroup, L"g", schema.get());
  auto link = top->create(IContainer::kLink, L"l", nullptr);
  top->create(IContainer::kNode, L"n", nullptr);
  ASSERT_NE(IGroup::to(group.get()), nullptr);
  ASSERT_NE(ILink::to(link.get()), nullptr);
  EXPECT_NE(INode::to(top->container(L"n").get()), nullptr);
  ILink::to(link.get())->target(L"top.g");
  EXPECT_TRUE(ILink::to(link.get())->follow(nullptr)->validates(schema.get(), true));
  EXPECT_TRUE(IContainerFrontEnd::find(&store, L"top.g"));
  EXPECT_FALSE(IContainerFrontEnd::find(&store, L"top.g.x"));  // a property

  auto text = group->create(L"names", data::metadata::kString);
  std::unique_ptr<IStringArray> names(IStringArray::to(L"a\0b", 4));
  ASSERT_TRUE(names->write(text.get()));
  auto table = group->create(L"t", static_cast<data::metadata::ISchema*>(nullptr));
  table->defaults(data::units::Meter, data::metadata::kDouble);
  const double value = 1.0;
  ASSERT_TRUE(table->create(L"len", data::units::group::Length)->set(&value, 0, 1));
  auto member = table->properties()->current();
  ASSERT_NE(IPrimitive::to(member.get()), nullptr);
  EXPECT_NE(ITable::to(member->parent().get()), nullptr);
  EXPECT_EQ(top->containers()->current()->tag(), core::string::WideString(L"g"));
}

}  // namespace
