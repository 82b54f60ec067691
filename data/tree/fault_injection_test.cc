// Store faults in the middle of composite operations. Each scenario is run with a fault at
// every store operation in turn, once failing just that operation and once failing every
// later one as well (so that destructors fail while the first fault unwinds): the fault must
// reach the caller as the store's exception, no lock may stay held, nothing may leak (the
// sanitizer build), and the same store must serve the next operation.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "data/testing/faulty_store.h"
#include "data/testing/schema_chain.h"
#include "data/testing/subtree.h"
#include "data/tree/root.h"

namespace kestrine::platform::data::Metadata {
namespace {

using core::storage::datastore::MemoryDataStore;
using testing::FaultyStore;
using testing::Subtree;
using Scenario = std::function<void(FaultyStore&)>;

void injectEveryFault(const Scenario& operation) {
  for (bool sticky : {false, true}) {
    unsigned k = 0;
    for (bool threw = true; threw; ++k) {
      FaultyStore store;
      { Root(&store, L"root").add(Subtree(&store, L"g").group); }
      store.failAfter(k, sticky);
      threw = false;
      try {
        operation(store);
      } catch (const core::Exception&) {
        threw = true;
      }
      store.disarm();
      EXPECT_EQ(threw, store.fired()) << "fault " << k << " was swallowed";
      EXPECT_EQ(store.locksHeld, 0);
      Root root(&store, 0);
      Design::Primitive after(&store, metadata::kInt8, L"after");
      EXPECT_TRUE(root.add(after.offset()));
      EXPECT_TRUE(root.rename(L"after", L"renamed"));
    }
    EXPECT_GT(k, 10u);
  }
}

// Catches add, remove, rename, hide, show and clear leaving a lock held or a leak behind
// when the store fails half-way.
TEST(FaultInjection, CompositeOperations) {
  injectEveryFault([](FaultyStore& store) { Root(&store, 0).add(Subtree(&store, L"h").group); });
  injectEveryFault([](FaultyStore& store) { Root(&store, 0).remove(L"g"); });
  injectEveryFault([](FaultyStore& store) {
    Root root(&store, 0);
    root.rename(L"g", L"h");
    root.hide(root.find(L"h"));
    Design::Primitive(&store, root.lookup(L"h.t.p1")).show();
    Design::Table(&store, root.lookup(L"h.t"), false).clear();
  });
}

// Catches a clone or an inherit that keeps the other store's lock, or leaks its half-made
// copy, when one store fails.
TEST(FaultInjection, CloningIntoAndInheritingFromAFaultyStore) {
  MemoryDataStore other;
  unsigned group = Subtree(&other, L"c").group;
  injectEveryFault([&](FaultyStore& store) {
    Root(&store, 0).add(Structural::Container(&other, group, true).clone(&store));
  });
  injectEveryFault([&](FaultyStore& store) {  // the schema store's lock is released
    Root definitions(&store, 0);
    testing::SchemaChain chain({{L"s", &definitions}});
    Structural::Container(&other, structure::IContainer::kNode, L"c").inherit(&chain);
  });
}

// Catches a destructor that swallows its own store failure, or throws a second one while
// the first unwinds (which would terminate the process).
TEST(FaultInjection, ADestructorFailsOnlyWhenNothingElseIsUnwinding) {
  FaultyStore store;
  auto* container = new Structural::Container(&store, structure::IContainer::kNode, L"c");
  container->localize(L"x", L"en");
  store.failAfter(0, true);
  EXPECT_THROW(delete container, core::Exception);  // and still freed
  store.disarm();
  EXPECT_THROW(
      {
        Design::Primitive item(&store, metadata::kInt8, L"p");
        item.localize(L"x", L"en");
        store.failAfter(0, true);
        throw std::runtime_error("first");
      },
      std::runtime_error);
}

}  // namespace
}  // namespace kestrine::platform::data::Metadata
