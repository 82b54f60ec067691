#include "data/tree/container.h"

#include <gtest/gtest.h>

#include "core/storage/datastore_test_support.h"
#include "data/record/entity.h"
#include "data/tree/tree_test_support.h"

namespace kestrine::platform::data::Structural {
namespace {

using core::storage::datastore::InterceptingStore;
using core::storage::datastore::MemoryDataStore;
using structure::IContainer;

struct NotAChain : metadata::ISchema {
  core::string::WideString path() const override { return L"p"; }
  metadata::IStructLayout* layout() override { return nullptr; }
};

// Catches a schema that is no chain taken as one, layouts copied out of order or without
// the schema store's lock, and a lock left held (or a base written) when the store fails.
TEST(Container, InheritCopiesEachLayoutInOrderUnderTheSchemaStoresLock) {
  InterceptingStore schemas;
  Container a(&schemas, IContainer::kNode, L"a"), b(&schemas, IContainer::kNode, L"b");
  for (const wchar_t* name : {L"x", L"y"})
    a.add(Design::Primitive(&schemas, metadata::kInt32, name).offset());
  b.add(Design::Primitive(&schemas, metadata::kBool, L"z").offset());
  MemoryDataStore store;
  Container container(&store, IContainer::kNode, L"c");
  NotAChain opaque;
  EXPECT_EQ(container.inherit(&opaque), 1u);
  EXPECT_EQ(container.base(), nullptr);

  testing::SchemaChain chain({{L"a", &a}, {L"b", &b}});
  EXPECT_EQ(container.inherit(&chain), 1u);
  EXPECT_EQ(std::wstring(Container(&store, container.offset(), true).base()), L"a;b");
  for (unsigned i = 0; i < 3; ++i)
    EXPECT_EQ(Record::Entity(&store, container.at(i)).name().wstring(), std::wstring(1, L"xyz"[i]));
  EXPECT_EQ(schemas.locksTaken, 2);

  Container failing(&store, IContainer::kNode, L"f");
  schemas.failAfter(2);
  EXPECT_THROW(failing.inherit(&chain), core::Exception);
  EXPECT_EQ(schemas.locksHeld, 0);
  EXPECT_EQ(failing.base(), nullptr);
}

}  // namespace
}  // namespace kestrine::platform::data::Structural
