// Built against the shared library with the two umbrella headers only, as a client is: if a
// static operation of the object model were not exported (or needed an internal header), this
// would not compile or link. Virtual operations need no symbol of their own, and the static
// ones that kmeta and the catalogue example call fail their builds already; these are the rest.
#include <gtest/gtest.h>

#include <kestrine/platform/core.h>
#include <kestrine/platform/data.h>

#include <memory>

namespace {

using namespace kestrine::platform;
using core::storage::datastore::MemoryDataStore;
using data::metadata::IStringArray;
using data::structure::IContainer;
using data::structure::IContainerFrontEnd;
using data::structure::IGroup;
using data::structure::INode;

// Catches a static operation of the object model that is not exported from the shared library.
TEST(ExportedSurface, EveryStaticOperationIsReachable) {
  EXPECT_EQ(IContainerFrontEnd::version(), 1u);
  MemoryDataStore store;
  auto top = IContainerFrontEnd::toplevel(&store, L"top");
  top->create(IContainer::kGroup, L"g", nullptr);
  top->create(IContainer::kNode, L"n", nullptr);
  EXPECT_NE(IGroup::to(top->container(L"g").get()), nullptr);
  EXPECT_NE(INode::to(top->container(L"n").get()), nullptr);
  std::unique_ptr<IStringArray> names(IStringArray::to(L"a\0b", 4));
  EXPECT_TRUE(names->write(top->create(L"names", data::metadata::kString).get()));
}

}  // namespace
