// The cost of one operation as a set widens from a hundred to a million siblings named as
// people name them, "item_1" ... "item_N", through the shared library on a memory store. Each
// figure should stay flat across sizes but for the memory hierarchy; compare the columns.
//
//   sibling_scale_bench [--benchmark_filter=...]
#include <benchmark/benchmark.h>
#include <kestrine/platform/core.h>
#include <kestrine/platform/data.h>

#include <unordered_map>
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

std::wstring item(long i) {
  return L"item_" + std::to_wstring(i);
}

// Visits every one of n names in an order unrelated to insertion (the stride is a prime that
// divides none of the sizes).
class Walk {
 public:
  explicit Walk(long n) : n_(n) {}
  long next() {
    i_ = (i_ + 7919) % n_;
    return i_ + 1;
  }

 private:
  long n_;
  long i_ = 0;
};

// A document whose root holds n top-level groups item_1 ... item_n, the first of which starts
// the chain item_1.a.b.c.d and also holds n int32 properties item_1 ... item_n.
std::string siblingDocument(long n) {
  std::string text = "<root name=\"root\" version=\"1\"><group name=\"item_1\">";
  text += "<group name=\"a\"><group name=\"b\"><group name=\"c\"><group name=\"d\"/>";
  text += "</group></group></group>";
  for (long i = 1; i <= n; ++i)
    text += "<int32 name=\"item_" + std::to_string(i) + "\">" + std::to_string(i) + "</int32>";
  text += "</group>";
  for (long i = 2; i <= n; ++i)
    text += "<group name=\"item_" + std::to_string(i) + "\"/>";
  return text + "</root>";
}

// The store of that document, built once per size and kept across the runs the framework
// makes for one size.
struct Siblings {
  explicit Siblings(long n) : n(n) {
    core::io::MemoryReader reader(siblingDocument(n));
    data::format::xml::IXMLFrontEnd::parse(&store, &reader, nullptr, nullptr, nullptr);
    group = IContainerFrontEnd::toplevel(&store, L"item_1");
  }
  long n;
  MemoryDataStore store;
  SharedPtr<IContainer> group;
};

Siblings& siblings(long n) {
  static std::unique_ptr<Siblings> built;
  if (!built || built->n != n) {
    built.reset();
    built = std::make_unique<Siblings>(n);
  }
  return *built;
}

void perItem(benchmark::State& state, long items) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * items);
}

// A new primitive in a group that already holds n (it grows by one per iteration).
void BM_CreateChild(benchmark::State& state) {
  Siblings& set = siblings(state.range(0));
  long i = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(set.group->create((L"new_" + std::to_wstring(++i)).c_str(),
                                               data::metadata::kDouble));
  perItem(state, 1);
}

// A handle to one of n properties, by name.
void BM_Property(benchmark::State& state) {
  Siblings& set = siblings(state.range(0));
  Walk walk(set.n);
  for (auto _ : state)
    benchmark::DoNotOptimize(set.group->property(item(walk.next()).c_str()));
  perItem(state, 1);
}

// has(): the name look-up through the interface, no record opened for a handle.
void BM_Has(benchmark::State& state) {
  Siblings& set = siblings(state.range(0));
  Walk walk(set.n);
  std::vector<WideString> names;
  for (long i = 1; i <= set.n; ++i)
    names.emplace_back(item(i).c_str());
  for (auto _ : state)
    benchmark::DoNotOptimize(set.group->has(names[walk.next() - 1]));
  perItem(state, 1);
}

// The same look-ups in a standard hash map of the same names: the curve that the memory
// hierarchy alone draws as the names outgrow the caches.
void BM_StdUnorderedMapFind(benchmark::State& state) {
  long n = state.range(0);
  std::unordered_map<std::wstring, unsigned> map;
  std::vector<std::wstring> names;
  for (long i = 1; i <= n; ++i) {
    names.push_back(item(i));
    map.emplace(names.back(), static_cast<unsigned>(i));
  }
  Walk walk(n);
  for (auto _ : state)
    benchmark::DoNotOptimize(map.find(names[walk.next() - 1]));
  perItem(state, 1);
}

// toplevel() of a new name beside n top-level groups (the root grows by one per iteration).
void BM_ToplevelCreate(benchmark::State& state) {
  Siblings& set = siblings(state.range(0));
  long i = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(
        IContainerFrontEnd::toplevel(&set.store, (L"top_" + std::to_wstring(++i)).c_str()));
  perItem(state, 1);
}

// toplevel() of one of n existing top-level groups.
void BM_ToplevelFind(benchmark::State& state) {
  Siblings& set = siblings(state.range(0));
  Walk walk(set.n);
  for (auto _ : state)
    benchmark::DoNotOptimize(IContainerFrontEnd::toplevel(&set.store, item(walk.next()).c_str()));
  perItem(state, 1);
}

// find() of a top-level group among n.
void BM_FindOneLevel(benchmark::State& state) {
  Siblings& set = siblings(state.range(0));
  Walk walk(set.n);
  for (auto _ : state)
    benchmark::DoNotOptimize(IContainerFrontEnd::find(&set.store, item(walk.next()).c_str()));
  perItem(state, 1);
}

// find() of item_1.a.b.c.d, whose first step is among n top-level groups.
void BM_FindFiveLevels(benchmark::State& state) {
  Siblings& set = siblings(state.range(0));
  for (auto _ : state)
    benchmark::DoNotOptimize(IContainerFrontEnd::find(&set.store, L"item_1.a.b.c.d"));
  perItem(state, 1);
}

// The document of n top-level groups and n int32 siblings in one of them, parsed into a fresh
// store; the figure is per sibling.
void BM_ParseSiblings(benchmark::State& state) {
  long n = state.range(0);
  std::string document = siblingDocument(n);
  for (auto _ : state) {
    state.PauseTiming();
    auto store = std::make_unique<MemoryDataStore>();
    core::io::MemoryReader reader(document);
    state.ResumeTiming();
    data::format::xml::IXMLFrontEnd::parse(store.get(), &reader, nullptr, nullptr, nullptr);
    state.PauseTiming();
    store.reset();
    state.ResumeTiming();
  }
  perItem(state, 2 * n);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (long n : {100L, 10000L, 100000L, 1000000L})
    benchmark->Arg(n);
}

BENCHMARK(BM_CreateChild)->Apply(sizes)->Iterations(2000);
BENCHMARK(BM_Property)->Apply(sizes);
BENCHMARK(BM_Has)->Apply(sizes);
BENCHMARK(BM_StdUnorderedMapFind)->Apply(sizes);
BENCHMARK(BM_ToplevelCreate)->Apply(sizes)->Iterations(2000);
BENCHMARK(BM_ToplevelFind)->Apply(sizes);
BENCHMARK(BM_FindOneLevel)->Apply(sizes);
BENCHMARK(BM_FindFiveLevels)->Apply(sizes);
BENCHMARK(BM_ParseSiblings)->Apply(sizes)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
