// Record create, read and write on the LMDB store against the memory store, at two record
// sizes, committing after every operation or after every thousand; and the file size that a
// bulk load leaves against the bytes of its records.
//
//   lmdb_datastore_bench --benchmark_counters_tabular=true
#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "core/storage/datastore_test_support.h"
#include "kestrine/platform/core/datastore.h"
#include "kestrine/platform/core/lmdb_datastore.h"

namespace {

using kestrine::platform::core::storage::datastore::IDataStore;
using kestrine::platform::core::storage::datastore::LmdbDataStore;
using kestrine::platform::core::storage::datastore::MemoryDataStore;
using kestrine::platform::core::storage::datastore::TemporaryDirectory;

constexpr unsigned kRecords = 10000;

// An LmdbDataStore on a new file in a directory of its own. Bases are destroyed in reverse
// order, so the store has closed its file by the time the directory is removed.
class ScratchLmdbDataStore : private TemporaryDirectory, public LmdbDataStore {
 public:
  ScratchLmdbDataStore() : LmdbDataStore(directory() + "/store") {}
};

void commit(IDataStore& store) {
  if (auto* lmdb = dynamic_cast<LmdbDataStore*>(&store)) lmdb->flush();
}

// Commits every `every` operations, counting the commit into the timing.
class Committer {
 public:
  Committer(IDataStore& store, long every) : store_(store), every_(every) {}
  void operator()() {
    if (++count_ % every_ == 0) commit(store_);
  }

 private:
  IDataStore& store_;
  long every_;
  long count_ = 0;
};

// A store holding kRecords committed records of `size` bytes at offsets 0 .. kRecords - 1.
template <class Store>
std::unique_ptr<Store> filled(unsigned size) {
  auto store = std::make_unique<Store>();
  std::string record(size, 'r');
  for (unsigned i = 0; i < kRecords; ++i)
    store->create(record.data(), size);
  commit(*store);
  return store;
}

// Arguments: record size, operations per commit.
template <class Store>
void BM_Create(benchmark::State& state) {
  auto store = std::make_unique<Store>();
  unsigned size = static_cast<unsigned>(state.range(0));
  std::string record(size, 'c');
  Committer committer(*store, state.range(1));
  for (auto _ : state) {
    benchmark::DoNotOptimize(store->create(record.data(), size));
    committer();
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * size);
}

// Arguments: record size, 1 to read while holding the store lock.
template <class Store>
void BM_Read(benchmark::State& state) {
  unsigned size = static_cast<unsigned>(state.range(0));
  auto store = filled<Store>(size);
  std::unique_ptr<IDataStore::ILock> lock(state.range(1) != 0 ? store->lock() : nullptr);
  std::vector<char> buffer(size);
  std::mt19937 random(1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(store->read(random() % kRecords, buffer.data(), 0xFFFFFFFF));
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * size);
}

// Arguments: record size, operations per commit.
template <class Store>
void BM_Write(benchmark::State& state) {
  unsigned size = static_cast<unsigned>(state.range(0));
  auto store = filled<Store>(size);
  std::string record(size, 'w');
  std::mt19937 random(2);
  Committer committer(*store, state.range(1));
  for (auto _ : state) {
    store->write(random() % kRecords, record.data(), size, true);
    committer();
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * size);
}

// One import-like transaction of 200000 records of 16 to 512 bytes; reports the file size
// against the sum of the record bytes.
void BM_LmdbBulkLoad(benchmark::State& state) {
  for (auto _ : state) {
    ScratchLmdbDataStore store;
    std::mt19937 random(3);
    std::string record(512, 'b');
    double recordBytes = 0;
    for (int i = 0; i < 200000; ++i) {
      unsigned size = 16 + random() % 497;
      store.create(record.data(), size);
      recordBytes += size;
    }
    store.complete();
    double fileBytes = static_cast<double>(std::filesystem::file_size(store.path()));
    state.counters["record_MB"] = recordBytes / 1e6;
    state.counters["file_MB"] = fileBytes / 1e6;
    state.counters["file_per_record_byte"] = fileBytes / recordBytes;
  }
}

void sizesAndCommits(benchmark::internal::Benchmark* bench) {
  for (long size : {16, 1024}) {
    for (long every : {1, 1000})
      bench->Args({size, every});
  }
}

void sizesAndLocks(benchmark::internal::Benchmark* bench) {
  for (long size : {16, 1024}) {
    for (long locked : {0, 1})
      bench->Args({size, locked});
  }
}

BENCHMARK_TEMPLATE(BM_Create, MemoryDataStore)->Apply(sizesAndCommits);
BENCHMARK_TEMPLATE(BM_Create, ScratchLmdbDataStore)->Apply(sizesAndCommits);
BENCHMARK_TEMPLATE(BM_Read, MemoryDataStore)->Apply(sizesAndLocks);
BENCHMARK_TEMPLATE(BM_Read, ScratchLmdbDataStore)->Apply(sizesAndLocks);
BENCHMARK_TEMPLATE(BM_Write, MemoryDataStore)->Apply(sizesAndCommits);
BENCHMARK_TEMPLATE(BM_Write, ScratchLmdbDataStore)->Apply(sizesAndCommits);
BENCHMARK(BM_LmdbBulkLoad)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
