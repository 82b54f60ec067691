// The pooled heap against the system allocator, for the buffer sizes of record objects.
//
//   build-core/bench/pooled_heap_bench [--benchmark_filter=Pair]
//
// Pair: one allocation freed at once, the pattern of a record object on the stack.
// Churn: a window of 64 live blocks of mixed record sizes, the oldest freed as each new one is
// made, so the allocators also see blocks outliving their neighbours.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <new>
#include <random>
#include <vector>

#include "kestrine/platform/core/memory.h"

namespace {

using kestrine::platform::core::memory::PooledHeap;

struct SystemHeap {
  static void* malloc(std::size_t size) {
    void* block = std::malloc(size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
  }
  static void free(void* block, std::size_t) { std::free(block); }
};

template <class Heap>
void Pair(benchmark::State& state) {
  const std::size_t size = state.range(0);
  for (auto _ : state) {
    void* block = Heap::malloc(size);
    benchmark::DoNotOptimize(block);
    static_cast<char*>(block)[0] = 1;
    Heap::free(block, size);
  }
  state.SetItemsProcessed(state.iterations());
}

// Record sizes as a tree of small entities produces them: mostly under 128 bytes, a tail of
// large value arrays up to 16 KiB.
std::vector<std::size_t> recordSizes(unsigned seed) {
  std::mt19937 random(seed);
  std::vector<std::size_t> sizes(4096);
  for (std::size_t& size : sizes) {
    unsigned roll = random() % 100;
    size = roll < 70   ? 8 + random() % 120
           : roll < 95 ? 128 + random() % 1920
                       : 2048 + random() % 14337;
  }
  return sizes;
}

template <class Heap>
void Churn(benchmark::State& state) {
  const std::vector<std::size_t> sizes = recordSizes(state.thread_index() + 1);
  struct Live {
    void* block = nullptr;
    std::size_t size = 0;
  };
  std::vector<Live> window(64);
  std::size_t next = 0;
  for (auto _ : state) {
    Live& slot = window[next % window.size()];
    Heap::free(slot.block, slot.size);
    slot.size = sizes[next % sizes.size()];
    slot.block = Heap::malloc(slot.size);
    static_cast<char*>(slot.block)[0] = 1;
    ++next;
  }
  for (Live& slot : window)
    Heap::free(slot.block, slot.size);
  state.SetItemsProcessed(state.iterations());
}

void Sizes(benchmark::internal::Benchmark* bench) {
  for (long size : {8, 64, 128, 1024, 4096, 16384})
    bench->Arg(size);
}

BENCHMARK_TEMPLATE(Pair, PooledHeap)->Apply(Sizes)->Threads(1)->Threads(2)->Threads(8);
BENCHMARK_TEMPLATE(Pair, SystemHeap)->Apply(Sizes)->Threads(1)->Threads(2)->Threads(8);
BENCHMARK_TEMPLATE(Churn, PooledHeap)->Threads(1)->Threads(2)->Threads(8);
BENCHMARK_TEMPLATE(Churn, SystemHeap)->Threads(1)->Threads(2)->Threads(8);

}  // namespace
