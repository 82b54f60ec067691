// Store faults in the middle of metadata operations: each test fails every store operation
// of a scenario in turn and checks that the fault reaches the caller as the store's
// exception, that no lock stays held, that nothing leaks (the sanitizer build), and that
// the same store serves the next operation.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>

#include "data/design/container.h"
#include "data/design/primitive.h"
#include "data/design/table.h"
#include "data/metadata/root.h"
#include "data/testing/faulty_store.h"
#include "data/testing/schema_chain.h"
#include "data/testing/subtree.h"
#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::data::Metadata {
namespace {

using core::storage::datastore::MemoryDataStore;
using Design::Primitive;
using Design::Table;
using Structural::Container;
using testing::buildSubtree;
using testing::FaultyStore;

using Scenario = std::function<void(FaultyStore&)>;

// The store still takes a new child and finds it by its new name.
void expectWorking(FaultyStore& store) {
  Root root(&store, 0u);
  Primitive after(&store, metadata::kInt8, L"after fault");
  EXPECT_TRUE(root.add(after.offset()));
  EXPECT_TRUE(root.rename(L"after fault", L"renamed"));
  EXPECT_EQ(root.find(L"renamed"), after.offset());
}

// For k = 0, 1, ...: a fresh store prepared by `prepare` (with a root at 0) fails its k-th
// operation during `operation`, and with `sticky` every later one too, until the fault is
// caught. Returns the number of faults injected before `operation` ran through unharmed.
unsigned injectEveryFault(const Scenario& prepare, const Scenario& operation, bool sticky) {
  for (unsigned k = 0;; ++k) {
    FaultyStore store;
    prepare(store);
    store.failAfter(k, sticky);
    bool threw = false;
    try {
      operation(store);
    } catch (const core::Exception&) {
      threw = true;
    }
    store.disarm();
    if (!threw) {
      EXPECT_FALSE(store.fired()) << "a fault was swallowed at operation " << k;
      return k;
    }
    EXPECT_EQ(store.locksHeld(), 0) << "at operation " << k;
    expectWorking(store);
  }
}

void injectBoth(const Scenario& prepare, const Scenario& operation) {
  EXPECT_GT(injectEveryFault(prepare, operation, false), 10u);
  EXPECT_GT(injectEveryFault(prepare, operation, true), 10u);
}

void rootOnly(FaultyStore& store) {
  Root root(&store, L"root");
}

void rootWithSubtree(FaultyStore& store) {
  Root root(&store, L"root");
  root.add(buildSubtree(&store, L"g").container);
}

TEST(FaultInjection, BuildingAndAddingASubtree) {
  injectBoth(rootOnly, [](FaultyStore& store) {
    Root root(&store, 0u);
    root.add(buildSubtree(&store, L"g").container);
  });
}

TEST(FaultInjection, RemovingASubtree) {
  injectBoth(rootWithSubtree, [](FaultyStore& store) {
    Root root(&store, 0u);
    EXPECT_TRUE(root.remove(L"g"));
  });
}

TEST(FaultInjection, RenamingHidingAndShowing) {
  injectBoth(rootWithSubtree, [](FaultyStore& store) {
    Root root(&store, 0u);
    root.rename(L"g", L"h");
    root.hide(root.find(L"h"));
    Primitive first(&store, root.lookup(L"h.t.p1"));
    first.show();
  });
}

TEST(FaultInjection, ClearingATableWithDefaultsAndNames) {
  injectBoth(rootWithSubtree, [](FaultyStore& store) {
    Root root(&store, 0u);
    Table table(&store, root.lookup(L"g.t"), false);
    table.clear();
  });
}

TEST(FaultInjection, CloningASubtreeIntoAFaultyTarget) {
  MemoryDataStore source;
  unsigned group = buildSubtree(&source, L"g").container;
  injectBoth(rootOnly, [&](FaultyStore& target) {
    Container original(&source, group, true);
    unsigned copy = original.clone(&target);
    Root root(&target, 0u);
    root.add(copy);
  });
}

TEST(FaultInjection, InheritingFromAFaultySchemaStoreReleasesItsLock) {
  std::unique_ptr<MemoryDataStore> target;
  auto prepare = [&](FaultyStore& schemas) {
    rootWithSubtree(schemas);
    target.reset(new MemoryDataStore);
  };
  auto inherit = [&](FaultyStore& schemas) {
    Root definitions(&schemas, 0u);
    testing::SchemaChain chain({{L"a", &definitions}});
    Container container(target.get(), structure::IContainer::kNode, L"c");
    container.inherit(&chain);
  };
  injectBoth(prepare, inherit);
}

TEST(FaultInjection, AStoreFailureInADestructorReachesTheCaller) {
  FaultyStore store;
  unsigned offset = Primitive(&store, metadata::kInt8, L"p").offset();
  EXPECT_THROW(
      {
        Primitive item(&store, offset);
        item.localize(L"text", L"en");
        store.failAfter(0, true);
      },
      core::Exception);
  store.disarm();
  EXPECT_EQ(Primitive(&store, offset).locales(), 0u);
}

TEST(FaultInjection, ADestructorFailureDuringUnwindingLeavesTheFirstException) {
  FaultyStore store;
  unsigned offset = Primitive(&store, metadata::kInt8, L"p").offset();
  EXPECT_THROW(
      {
        Primitive item(&store, offset);
        item.localize(L"text", L"en");
        store.failAfter(0, true);
        throw std::runtime_error("first failure");
      },
      std::runtime_error);
  store.disarm();
}

TEST(FaultInjection, AHeapObjectWhoseDestructorThrowsIsStillFreed) {
  FaultyStore store;
  auto* container = new Container(&store, structure::IContainer::kNode, L"c");
  store.failAfter(0);
  EXPECT_THROW(delete container, core::Exception);
}

}  // namespace
}  // namespace kestrine::platform::data::Metadata
