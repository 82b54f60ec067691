// The object model as a client sees it (shared library, umbrella headers), on a memory store:
// opening a top-level container, finding a container by a 5-level path, creating properties,
// and looking properties up, in containers of 10 to 100,000 children.
#include <benchmark/benchmark.h>
#include <kestrine/platform/core.h>
#include <kestrine/platform/data.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using namespace kestrine::platform;
using core::memory::SharedPtr;
using core::storage::datastore::MemoryDataStore;
using core::string::WideString;
using data::structure::IContainer;
using data::structure::IContainerFrontEnd;

// Child names. Name indexes hash only the first quarter of a name (its length in bytes of
// 32-bit characters), so names must differ early to spread: "spread" names put the varying
// digits first (least significant first) ahead of a long common tail, while "prefixed" names
// share their start, as "p0", "p1" ... do, and fall into a few buckets.
WideString spread(long i, const char* tail) {
  std::string digits = std::to_string(i);
  std::string text(digits.rbegin(), digits.rend());
  text += tail;
  return WideString(std::wstring(text.begin(), text.end()));
}

WideString prefixed(long i) {
  std::string text = "p" + std::to_string(i);
  return WideString(std::wstring(text.begin(), text.end()));
}

// A store whose top-level container "top" holds `children` int32 properties and one
// container c0 that starts the chain c0.d1.d2.d3.
struct Catalogue {
  Catalogue(long children, bool spreadNames) {
    auto top = IContainerFrontEnd::toplevel(&store, L"top");
    SharedPtr<IContainer> level = top->create(IContainer::kGroup, L"c0", nullptr);
    for (const wchar_t* deeper : {L"d1", L"d2", L"d3"})
      level = level->create(IContainer::kGroup, deeper, nullptr);
    for (long i = 0; i < children; ++i) {
      names.push_back(spreadNames ? spread(i, "-measured-value") : prefixed(i));
      top->create(names.back(), data::metadata::kInt32);
    }
  }
  MemoryDataStore store;
  std::vector<WideString> names;
};

// Opening "top" indexes all its children.
void BM_Toplevel(benchmark::State& state) {
  Catalogue catalogue(state.range(0), true);
  for (auto _ : state)
    benchmark::DoNotOptimize(IContainerFrontEnd::toplevel(&catalogue.store, L"top"));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_Toplevel)->RangeMultiplier(10)->Range(10, 100000)->Complexity();

// The same with names that share their start: every insertion probes past the others.
void BM_ToplevelPrefixedNames(benchmark::State& state) {
  Catalogue catalogue(state.range(0), false);
  for (auto _ : state)
    benchmark::DoNotOptimize(IContainerFrontEnd::toplevel(&catalogue.store, L"top"));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_ToplevelPrefixedNames)->RangeMultiplier(10)->Range(10, 10000)->Complexity();

// "top.c0.d1.d2.d3": every container on the way is opened and indexed.
void BM_FindFiveLevels(benchmark::State& state) {
  Catalogue catalogue(state.range(0), true);
  for (auto _ : state)
    benchmark::DoNotOptimize(IContainerFrontEnd::find(&catalogue.store, L"top.c0.d1.d2.d3"));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_FindFiveLevels)->RangeMultiplier(10)->Range(10, 100000)->Complexity();

// A new primitive in a container that holds range(0) children to start with (it grows by one
// per iteration).
void BM_CreatePrimitive(benchmark::State& state) {
  Catalogue catalogue(state.range(0), true);
  auto top = IContainerFrontEnd::toplevel(&catalogue.store, L"top");
  long i = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(top->create(spread(i++, "-new-measurement"), data::metadata::kDouble));
}
BENCHMARK(BM_CreatePrimitive)->RangeMultiplier(10)->Range(10, 100000);

// A handle to a named property: its record is opened for the handle.
void BM_PropertyLookup(benchmark::State& state) {
  Catalogue catalogue(state.range(0), true);
  auto top = IContainerFrontEnd::toplevel(&catalogue.store, L"top");
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(top->property(catalogue.names[i]));
    if (++i == catalogue.names.size()) i = 0;
  }
}
BENCHMARK(BM_PropertyLookup)->RangeMultiplier(10)->Range(10, 100000);

// has(): the name index alone, no record is read.
void BM_Has(benchmark::State& state) {
  Catalogue catalogue(state.range(0), true);
  auto top = IContainerFrontEnd::toplevel(&catalogue.store, L"top");
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(top->has(catalogue.names[i]));
    if (++i == catalogue.names.size()) i = 0;
  }
}
BENCHMARK(BM_Has)->RangeMultiplier(10)->Range(10, 100000);

}  // namespace

BENCHMARK_MAIN();
