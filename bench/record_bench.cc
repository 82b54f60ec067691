// Record objects on the memory datastore: the cost of creating, loading and updating one
// record, by the size of its value array.
//
//   build-core/bench/record_bench
//
// Create: a primitive record is built and its values set (two store writes, as the design
// layer does it); records are freed in untimed batches so the store stays small.
// Load: a record object is built from (store, offset), which reads the whole record.
// Update: load, change a field, write the whole record back.
// ChildList: a child-offset list grows by one entry per iteration, written at every change.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "data/record/offsets.h"
#include "data/record/primitive_record.h"
#include "kestrine/platform/core/datastore.h"

namespace {

using kestrine::platform::core::storage::datastore::MemoryDataStore;
namespace Record = kestrine::platform::data::Record;

const std::uint32_t kValueType = 12;

unsigned makePrimitive(MemoryDataStore& store, const std::string& values) {
  Record::Primitive primitive(&store, kValueType, L"temperature");
  primitive.arrays(Record::Primitive::kValues, values.data(), static_cast<unsigned>(values.size()));
  return primitive.offset();
}

void Create(benchmark::State& state) {
  MemoryDataStore store;
  const std::string values(state.range(0), 'v');
  std::vector<unsigned> made;
  made.reserve(1024);
  for (auto _ : state) {
    made.push_back(makePrimitive(store, values));
    if (made.size() == 1024) {
      state.PauseTiming();
      for (unsigned offset : made)
        store.free(offset);
      made.clear();
      state.ResumeTiming();
    }
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void Load(benchmark::State& state) {
  MemoryDataStore store;
  const unsigned offset = makePrimitive(store, std::string(state.range(0), 'v'));
  for (auto _ : state) {
    Record::Primitive primitive(&store, offset);
    benchmark::DoNotOptimize(primitive.valuetype());
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void Update(benchmark::State& state) {
  MemoryDataStore store;
  const unsigned offset = makePrimitive(store, std::string(state.range(0), 'v'));
  std::uint32_t units = 0;
  for (auto _ : state) {
    Record::Primitive primitive(&store, offset);
    primitive.units(++units);
    primitive.update(true);
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void ChildList(benchmark::State& state) {
  MemoryDataStore store;
  unsigned list = Record::Offsets(&store).offset();
  unsigned entries = 0;
  for (auto _ : state) {
    Record::Offsets offsets(&store, list);
    offsets.add(entries);
    // Restart at the benchmark's length, so every run measures lists of 0..n entries.
    if (++entries == static_cast<unsigned>(state.range(0))) {
      state.PauseTiming();
      store.free(list);
      list = Record::Offsets(&store).offset();
      entries = 0;
      state.ResumeTiming();
    }
  }
}

void ValueSizes(benchmark::internal::Benchmark* bench) {
  for (long size : {16, 256, 4096, 65536})
    bench->Arg(size);
}

BENCHMARK(Create)->Apply(ValueSizes);
BENCHMARK(Load)->Apply(ValueSizes);
BENCHMARK(Update)->Apply(ValueSizes);
BENCHMARK(ChildList)->Arg(16)->Arg(1024);

}  // namespace
