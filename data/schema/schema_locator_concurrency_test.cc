// One locator shared by threads that resolve schemas while other threads push, use and pop
// stores of their own: no crash, no lost or torn cache entry, one layout per path, and (under
// ThreadSanitizer) no data race.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "data/schema/schema_locator_impl.h"
#include "data/schema/schema_test_support.h"

namespace kestrine::platform::data::Schema {
namespace {

using core::string::WideString;

constexpr int kResolvers = 8;
constexpr int kChurners = 2;
constexpr int kRounds = 150;
constexpr int kSimple = 16;

std::wstring simple(int i) {
  return L"s" + std::to_wstring(i);
}

// "point", "pair" and kSimple tables of one int32.
void fill(SchemaStore& store) {
  store.pointAndPair();
  for (int i = 0; i < kSimple; ++i)
    store.primitive(store.table(simple(i).c_str()), L"m", metadata::kInt32);
}

// Catches a race on the cache (two layouts for one path, a torn entry) and an eviction
// that takes other stores' layouts with it.
TEST(SchemaLocatorConcurrencyTest, ResolveWhileOtherStoresComeAndGo) {
  SchemaStore shared;
  fill(shared);
  SchemaLocatorImpl locator;
  locator.push(shared.store());

  std::atomic<bool> go{false};
  std::atomic<int> failures{0};
  std::vector<const Layout*> pairs(kResolvers, nullptr);
  std::vector<std::thread> threads;

  for (int t = 0; t < kResolvers; ++t) {
    threads.emplace_back([&, t] {
      while (!go.load())
        std::this_thread::yield();
      for (int round = 0; round < kRounds; ++round) {
        auto chain = locator.schema(WideString(L"pair;missing;point"));
        if (!chain || chain->links() != 2 || chain->layout(0)->fields() != 5 ||
            chain->layout(0)->stride() != 32 || chain->layout(1)->stride() != 14)
          ++failures;
        else if (pairs[t] == nullptr)
          pairs[t] = chain->layout(0);
        else if (pairs[t] != chain->layout(0))
          ++failures;
        auto one = locator.schema(WideString(simple((round + t) % kSimple).c_str()));
        if (!one || one->layout()->stride() != 4 || one->validate(one->definition(0)) != 1)
          ++failures;
      }
    });
  }
  // Each churner owns its stores: it resolves from a store only between pushing and popping
  // it, and destroys the store only after the pop, as the locator's contract demands.
  for (int t = 0; t < kChurners; ++t) {
    threads.emplace_back([&, t] {
      while (!go.load())
        std::this_thread::yield();
      for (int round = 0; round < kRounds / 3; ++round) {
        SchemaStore own;
        const std::wstring name = L"own" + std::to_wstring(t) + L"_" + std::to_wstring(round);
        own.primitive(own.table(name.c_str()), L"v", metadata::kDouble, 2);
        locator.push(own.store());
        auto schema = locator.schema(WideString(name.c_str()));
        if (!schema || schema->layout()->stride() != 16) ++failures;
        schema.reset();
        if (!locator.pop(own.store())) ++failures;
        if (locator.schema(WideString(name.c_str()))) ++failures;
      }
    });
  }
  go = true;
  for (std::thread& thread : threads)
    thread.join();

  EXPECT_EQ(0, failures.load());
  // The threads raced to build "pair" first; every one of them got the layout that stayed.
  const Layout* cached = locator.schema(WideString(L"pair"))->layout(0);
  for (const Layout* layout : pairs)
    EXPECT_EQ(cached, layout);
  EXPECT_TRUE(locator.pop(shared.store()));
}

}  // namespace
}  // namespace kestrine::platform::data::Schema
