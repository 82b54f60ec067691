// The cost of one operation on a set's name index as the set grows from a hundred to a
// million children: adding a child (the child's parent field is written and 4 bytes are
// appended to the children list, which is never read) and finding a child by name (the index
// alone). Both should stay flat; compare time_per_add and the find time across sizes.
#include <benchmark/benchmark.h>

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "data/record/primitive_record.h"
#include "data/tree/child_index.h"
#include "data/tree/root.h"
#include "kestrine/platform/core/datastore.h"

namespace {

using kestrine::platform::core::storage::datastore::MemoryDataStore;
using kestrine::platform::core::string::WideString;
using kestrine::platform::data::Metadata::Root;
namespace Record = kestrine::platform::data::Record;

// Names as people give them, alike but for a number at the end.
std::vector<WideString> itemNames(unsigned n) {
  std::vector<WideString> names;
  names.reserve(n);
  for (unsigned i = 1; i <= n; ++i)
    names.emplace_back(L"item_" + std::to_wstring(i));
  return names;
}

// A store with a root at 0 and one unattached primitive record per name.
struct Children {
  MemoryDataStore store;
  std::vector<unsigned> offsets;
  explicit Children(const std::vector<WideString>& names) {
    Root(&store, L"root");
    offsets.reserve(names.size());
    for (const WideString& name : names)
      offsets.push_back(Record::Primitive(&store, 12, name.string()).offset());
  }
};

// The same, with every child added to the root.
struct Built {
  std::vector<WideString> names;
  Children children;
  std::optional<Root> root;
  explicit Built(std::vector<WideString> list) : names(std::move(list)), children(names) {
    root.emplace(&children.store, 0u);
    for (unsigned offset : children.offsets)
      root->add(offset);
  }
  ~Built() { root.reset(); }
};

void setCounters(benchmark::State& state, unsigned perIteration, const char* name) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * perIteration);
  state.counters[name] = benchmark::Counter(
      static_cast<double>(perIteration),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_Add(benchmark::State& state) {
  unsigned n = static_cast<unsigned>(state.range(0));
  std::vector<WideString> names = itemNames(n);
  std::unique_ptr<Children> children;
  std::unique_ptr<Root> root;
  for (auto _ : state) {
    state.PauseTiming();
    root.reset();
    children.reset(new Children(names));
    root.reset(new Root(&children->store, 0u));
    state.ResumeTiming();
    for (unsigned offset : children->offsets)
      benchmark::DoNotOptimize(root->add(offset));
  }
  root.reset();
  setCounters(state, n, "time_per_add");
}

// One built set at a time, kept across the runs the framework makes for one size.
Built& built(unsigned n) {
  static std::unique_ptr<Built> cache;
  if (!cache || cache->names.size() != n) {
    cache.reset();
    cache.reset(new Built(itemNames(n)));
  }
  return *cache;
}

void BM_Find(benchmark::State& state) {
  unsigned n = static_cast<unsigned>(state.range(0));
  Built& set = built(n);
  // A stride coprime with n visits every name in an order unrelated to insertion.
  unsigned i = 0, stride = 7919;
  for (auto _ : state) {
    benchmark::DoNotOptimize(set.root->find(set.names[i].string()));
    i = (i + stride) % n;
  }
  if (set.root->find(set.names[0].string()) != set.children.offsets[0])
    state.SkipWithError("a child was not found");
  state.SetItemsProcessed(state.iterations());
}

// The same look-ups in a standard hash map of the same names, for the curve the memory
// hierarchy alone draws as the names outgrow the caches.
void BM_FindStdUnorderedMap(benchmark::State& state) {
  unsigned n = static_cast<unsigned>(state.range(0));
  std::vector<std::wstring> names;
  std::unordered_map<std::wstring, unsigned> map;
  for (const WideString& name : itemNames(n)) {
    names.push_back(name.wstring());
    map.emplace(names.back(), static_cast<unsigned>(names.size()));
  }
  unsigned i = 0, stride = 7919;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.find(names[i]));
    i = (i + stride) % n;
  }
  state.SetItemsProcessed(state.iterations());
}

// The memory a set's name index holds per child, names included; the time is that of filling
// it.
void BM_IndexBytesPerChild(benchmark::State& state) {
  unsigned n = static_cast<unsigned>(state.range(0));
  std::vector<WideString> names = itemNames(n);
  std::size_t bytes = 0;
  for (auto _ : state) {
    kestrine::platform::data::Metadata::ChildIndex index;
    for (unsigned i = 0; i < n; ++i)
      index.insert(names[i].string(), i);
    bytes = index.memory();
  }
  state.counters["bytes_per_child"] = static_cast<double>(bytes) / n;
}

BENCHMARK(BM_IndexBytesPerChild)->RangeMultiplier(10)->Range(100, 1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Add)->RangeMultiplier(10)->Range(100, 1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Find)->RangeMultiplier(10)->Range(100, 1000000);
BENCHMARK(BM_FindStdUnorderedMap)->RangeMultiplier(10)->Range(100, 1000000);

}  // namespace
