#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "data/api/api_test_support.h"

// The object model shared between threads, run under ThreadSanitizer in CI: schemas resolved
// through one locator while other stores come and go, and one store's containers changed
// through separate handles. Each thread checks what it did; the final state must be exactly
// what the operations imply.
namespace kestrine::platform::data::api_test {
namespace {

using metadata::ISchemaLocator;

std::wstring wide(const std::string& text) {
  return std::wstring(text.begin(), text.end());
}

// Catches a race on the locator's cache (two layouts for one path, a torn entry), and a pop
// that evicts the layouts of other stores with its own. Eight threads resolve (single paths
// and chains) and build containers from the schemas in stores of their own, while two threads
// each push a store of their own, use its schema, and pop it again. A store is popped only by
// the thread that uses its schemas, after it is done.
TEST(ThreadSafety, LocatorResolvesWhileOtherStoresComeAndGo) {
  // Four schema stores, each defining "schemas.sK" with K + 1 double members sKm0 ...
  const int kStores = 4;
  MemoryDataStore schemas[kStores], racing;
  auto locator = ISchemaLocator::make(nullptr);
  std::vector<const metadata::IStructLayout*> layouts;
  for (int k = 0; k < kStores; ++k) {
    std::string name = "s" + std::to_string(k);
    auto table = defineSchema(&schemas[k], wide(name).c_str());
    for (int m = 0; m <= k; ++m)
      table->create(wide(name + "m" + std::to_string(m)).c_str(), metadata::kDouble, units::Meter);
    locator->push(&schemas[k]);
    // A layout is built from its table without the store's lock, so the shared schemas are
    // built before the threads start; from then on resolving them reads only the cache, and
    // inheriting reads their tables under their stores' locks. Only "schemas.race", in a store
    // of its own, is left for the threads to build at once.
    layouts.push_back(locator->resolve(wide("schemas." + name).c_str())->layout());
    ASSERT_EQ(layouts.back()->fields(), unsigned(k + 1));
  }
  defineSchema(&racing, L"race")->create(L"m", metadata::kInt8, units::tUnit(0));
  locator->push(&racing);

  const int kRounds = 40;
  std::atomic<int> failures{0};
  std::vector<const metadata::IStructLayout*> raced(8);
  std::vector<std::unique_ptr<InterceptingStore>> targets;
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    targets.emplace_back(new InterceptingStore);
    threads.emplace_back([&, t, target = targets.back().get()] {
      raced[t] = locator->resolve(L"schemas.race")->layout();
      auto top = IContainerFrontEnd::toplevel(target, L"built");
      for (int i = 0; i < kRounds; ++i) {
        int k = (t + i) % kStores;
        int j = (k + 1) % kStores;
        std::string path = "schemas.s" + std::to_string(k);
        auto single = locator->resolve(wide(path).c_str());
        auto chain = locator->resolve(wide(path + ";schemas.s" + std::to_string(j)).c_str());
        if (!single || single->layout() != layouts[k]) ++failures;
        auto built =
            top->create(IContainer::kGroup, wide("c" + std::to_string(i)).c_str(), chain.get());
        if (!built || walk(*built->properties()).size() != unsigned(k + j + 2) ||
            !built->validates(single.get(), true))
          ++failures;
      }
    });
  }
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRounds; ++i) {
        MemoryDataStore own;
        std::string name = "o" + std::to_string(t) + "_" + std::to_string(i);
        defineSchema(&own, wide(name).c_str())->create(L"v", metadata::kInt32, units::tUnit(0));
        locator->push(&own);
        auto schema = locator->resolve(wide("schemas." + name).c_str());
        if (!schema || schema->layout()->fields() != 1) ++failures;
        schema.reset();
        if (!locator->pop(&own)) ++failures;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(failures.load(), 0);

  for (auto& target : targets) {
    auto top = IContainerFrontEnd::toplevel(target.get(), L"built");
    EXPECT_EQ(walk(*top->containers()).size(), unsigned(kRounds));
    EXPECT_EQ(target->unguarded(), 0u);
  }
  for (int t = 0; t < 2; ++t)
    EXPECT_FALSE(locator->resolve(wide("schemas.o" + std::to_string(t) + "_0").c_str()));
  // Every thread got the layout that stayed cached.
  for (const metadata::IStructLayout* layout : raced)
    EXPECT_EQ(layout, locator->resolve(L"schemas.race")->layout());
}

// Catches children lost, listed twice or leaked, and calls that touch records without the
// store's lock, when four threads change one shared container, each through handles of its
// own: every thread creates children under names of its own, renames some, destroys others.
TEST(ThreadSafety, SeparateHandlesOnOneStore) {
  InterceptingStore store;
  IContainerFrontEnd::toplevel(&store, L"shared");
  const int kThreads = 4, kChildren = 60;
  std::atomic<int> failures{0};
  std::vector<std::set<std::string>> expected(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      auto shared = IContainerFrontEnd::toplevel(&store, L"shared");
      for (int i = 0; i < kChildren; ++i) {
        std::string name = "t" + std::to_string(t) + "_" + std::to_string(i);
        {
          auto child = shared->create(IContainer::kGroup, wide(name).c_str(), nullptr);
          if (!child) {
            ++failures;
            continue;
          }
          const std::int32_t value = t * 1000 + i;
          if (!child->create(L"v", metadata::kInt32)->set(&value, 0, 1)) ++failures;
          if (i % 3 == 1) {
            name += "r";
            if (!child->rename(wide(name).c_str())) ++failures;
          }
        }
        if (i % 3 == 2) {
          if (!shared->destroy(wide(name).c_str())) ++failures;
          continue;
        }
        if (!IContainerFrontEnd::find(&store, wide("shared." + name).c_str())) ++failures;
        expected[t].insert(name);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(failures.load(), 0);

  std::set<std::string> all;
  for (const auto& names : expected)
    all.insert(names.begin(), names.end());
  auto shared = IContainerFrontEnd::toplevel(&store, L"shared");
  std::vector<std::string> found = walk(*shared->containers());
  EXPECT_EQ(std::set<std::string>(found.begin(), found.end()), all);
  EXPECT_EQ(found.size(), all.size());  // no child listed twice
  for (const std::string& name : found) {
    auto property = shared->property(wide(name + ".v").c_str());
    IPrimitive* value = IPrimitive::to(property.get());
    std::int32_t stored = -1;
    ASSERT_NE(value, nullptr);
    ASSERT_EQ(value->get(&stored, 0, 1), 1u);
    EXPECT_EQ(stored,
              std::stoi(name.substr(1)) * 1000 + std::stoi(name.substr(name.find('_') + 1)));
  }
  // The root, its list, "shared" and its list, and three records per child (the group, its
  // list and its value): nothing leaked by the removals, nothing lost by the additions.
  EXPECT_EQ(store.records(), 4 + 3 * all.size());
  EXPECT_EQ(store.unguarded(), 0u);
}

}  // namespace
}  // namespace kestrine::platform::data::api_test
