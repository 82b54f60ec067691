// Random record reads from the PostgreSQL store against the store file and the memory store,
// over 200,000 records of 100 bytes:
//   warm: a client that has read every record once, with the store lock held (as the data
//         layer reads) or without it (each read then asks the server whether others have
//         committed: one round trip);
//   cold: a client that has read nothing yet, under the lock, 64 reads: each one that falls
//         into a block of offsets not yet read costs a round trip.
// The PostgreSQL store lives on a scratch server that the benchmark starts.
//
//   postgres_datastore_bench --benchmark_counters_tabular=true
#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "core/storage/datastore_test_support.h"
#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/lmdb_datastore.h"
#include "kestrine/platform/core/postgres_datastore.h"

namespace {

using kestrine::platform::core::storage::datastore::IDataStore;
using kestrine::platform::core::storage::datastore::LmdbDataStore;
using kestrine::platform::core::storage::datastore::MemoryDataStore;
using kestrine::platform::core::storage::datastore::PostgresDataStore;
using kestrine::platform::core::storage::datastore::scratchPostgres;
using kestrine::platform::core::storage::datastore::TemporaryDirectory;

constexpr unsigned kRecords = 200000;
constexpr unsigned kSize = 100;
constexpr int kColdReads = 64;

enum Kind { kMemory, kFile, kPostgres };

void fill(IDataStore& store) {
  std::string record(kSize, 'r');
  for (unsigned i = 0; i < kRecords; ++i)
    store.create(record.data(), kSize);
  store.complete();
}

// A new client of the filled store file or PostgreSQL store.
std::unique_ptr<IDataStore> client(Kind kind) {
  static TemporaryDirectory directory;
  static bool filled[3] = {};
  auto open = [&]() -> std::unique_ptr<IDataStore> {
    if (kind == kFile) return std::make_unique<LmdbDataStore>(directory.directory() + "/store");
    return std::make_unique<PostgresDataStore>(scratchPostgres().uri("bench"));
  };
  if (!filled[kind]) fill(*open());
  filled[kind] = true;
  return open();
}

IDataStore& memoryStore() {
  static std::unique_ptr<MemoryDataStore> store = [] {
    auto made = std::make_unique<MemoryDataStore>();
    fill(*made);
    return made;
  }();
  return *store;
}

// Argument: 1 to read while holding the store lock.
template <Kind kind>
void BM_ReadWarm(benchmark::State& state) {
  std::unique_ptr<IDataStore> owned = kind == kMemory ? nullptr : client(kind);
  IDataStore& store = kind == kMemory ? memoryStore() : *owned;
  std::unique_ptr<IDataStore::ILock> lock(state.range(0) != 0 ? store.lock() : nullptr);
  std::vector<char> buffer(kSize);
  for (unsigned offset = 0; offset < kRecords; ++offset)
    store.read(offset, buffer.data(), kSize);
  std::mt19937 random(1);
  for (auto _ : state)
    benchmark::DoNotOptimize(store.read(random() % kRecords, buffer.data(), kSize));
  state.SetItemsProcessed(state.iterations());
}

template <Kind kind>
void BM_ReadCold(benchmark::State& state) {
  std::vector<char> buffer(kSize);
  std::mt19937 random(2);
  for (auto _ : state) {
    state.PauseTiming();
    std::unique_ptr<IDataStore> store = client(kind);
    std::unique_ptr<IDataStore::ILock> lock(store->lock());
    state.ResumeTiming();
    for (int i = 0; i < kColdReads; ++i)
      benchmark::DoNotOptimize(store->read(random() % kRecords, buffer.data(), kSize));
    state.PauseTiming();
    lock.reset();
    store.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kColdReads);
}

BENCHMARK_TEMPLATE(BM_ReadWarm, kMemory)->Arg(0)->Arg(1);
BENCHMARK_TEMPLATE(BM_ReadWarm, kFile)->Arg(0)->Arg(1);
BENCHMARK_TEMPLATE(BM_ReadWarm, kPostgres)->Arg(0)->Arg(1);
BENCHMARK_TEMPLATE(BM_ReadCold, kFile);
BENCHMARK_TEMPLATE(BM_ReadCold, kPostgres);

}  // namespace
