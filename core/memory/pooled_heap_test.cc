#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "kestrine/platform/core/memory.h"

namespace kestrine::platform::core::memory {
namespace {

const std::size_t kSizes[] = {0,    1,    8,    9,    16,   17,    32,    33,    48,    49,   64,
                              65,   96,   97,   128,  129,  256,   257,   512,   513,   1024, 1025,
                              2048, 2049, 4096, 4097, 8192, 16383, 16384, 16385, 100000};

// Each live block is filled with a byte derived from its identity, and checked before it is
// freed: two blocks that overlap, or a block handed out twice, shows up as a mismatch.
unsigned char stamp(std::size_t id) {
  return static_cast<unsigned char>(id * 131 + 7);
}

bool holds(const void* block, std::size_t size, unsigned char value) {
  const unsigned char* bytes = static_cast<const unsigned char*>(block);
  for (std::size_t i = 0; i < size; ++i)
    if (bytes[i] != value) return false;
  return true;
}

struct Block {
  void* pointer;
  std::size_t size;
  unsigned char value;
};

// Catches: overlapping blocks, a block handed out twice, a size put in too small a class, and
// a freed block not reused within its class.
TEST(PooledHeap, LiveBlocksOfEverySizeAreDistinctAndKeepTheirBytes) {
  std::vector<Block> live;
  std::set<void*> seen;
  for (int round = 0; round < 40; ++round) {
    for (std::size_t size : kSizes) {
      void* pointer = PooledHeap::malloc(size);
      ASSERT_NE(pointer, nullptr);
      EXPECT_TRUE(seen.insert(pointer).second) << "block handed out twice, size " << size;
      unsigned char value = stamp(live.size());
      std::memset(pointer, value, size);
      live.push_back({pointer, size, value});
    }
  }
  for (const Block& block : live) {
    EXPECT_TRUE(holds(block.pointer, block.size, block.value)) << "size " << block.size;
    PooledHeap::free(block.pointer, block.size);
  }
  // 100 and 128 share a class: a freed block comes back without a trip to the system.
  void* first = PooledHeap::malloc(100);
  PooledHeap::free(first, 100);
  void* second = PooledHeap::malloc(128);
  EXPECT_EQ(first, second);
  PooledHeap::free(second, 128);
  PooledHeap::free(nullptr, 64);  // ignored
}

// Catches: trim() missing cached blocks (the thread's own or the shared pool's), releasing
// them twice, or caching blocks too large for any class.
TEST(PooledHeap, TrimReleasesWhatIsCachedAndOnlyOnce) {
  PooledHeap::trim();
  std::vector<void*> blocks;
  for (int i = 0; i < 300; ++i)
    blocks.push_back(PooledHeap::malloc(1000));
  for (void* block : blocks)
    PooledHeap::free(block, 1000);
  // At least the 300 blocks of the 1024 class, plus the rest of their fresh chains.
  std::size_t released = PooledHeap::trim();
  EXPECT_GE(released, 300u * 1024u);
  EXPECT_EQ(released % 1024, 0u);
  EXPECT_EQ(PooledHeap::trim(), 0u);
  // Blocks above the largest class are the system's own: nothing to cache.
  PooledHeap::free(PooledHeap::malloc(1 << 20), 1 << 20);
  EXPECT_EQ(PooledHeap::trim(), 0u);
  // The heap works as before after a trim.
  void* again = PooledHeap::malloc(1000);
  std::memset(again, 1, 1000);
  PooledHeap::free(again, 1000);
}

// Catches: blocks freed by another thread lost, or stranded in that thread's cache when it
// ends instead of going to the shared pool for the other threads.
TEST(PooledHeap, BlocksFreedOnAnotherThreadAreReused) {
  PooledHeap::trim();
  std::vector<void*> blocks(1000);
  for (void*& block : blocks)
    block = PooledHeap::malloc(48);
  std::thread([&] {
    for (void* block : blocks)
      PooledHeap::free(block, 48);
  }).join();
  // The freeing thread's cache went to the shared pool when it ended: this thread finds it.
  std::set<void*> freed(blocks.begin(), blocks.end());
  unsigned reused = 0;
  for (void*& block : blocks)
    reused += freed.count(block = PooledHeap::malloc(48));
  EXPECT_GT(reused, 0u);
  for (void* block : blocks)
    PooledHeap::free(block, 48);
}

// Catches: races in the caches and the shared pool. Eight threads allocate blocks of random
// sizes and pass about half of them to a neighbour, which checks and frees them: cross-thread
// frees, chain refills and drains all interleave.
TEST(PooledHeap, EightThreadsAllocatingAndFreeingAcrossThreadsKeepBlocksIntact) {
  const int kThreads = 8;
  const int kOperations = 20000;
  struct Mailbox {
    std::mutex mutex;
    std::vector<Block> blocks;
  };
  std::vector<Mailbox> mailboxes(kThreads);
  std::atomic<int> corrupt{0};

  auto checkAndFree = [&](const Block& block) {
    if (!holds(block.pointer, block.size, block.value)) ++corrupt;
    PooledHeap::free(block.pointer, block.size);
  };
  auto work = [&](int self) {
    std::mt19937 random(self);
    std::vector<Block> mine;
    for (int i = 0; i < kOperations; ++i) {
      std::size_t size = kSizes[random() % (sizeof(kSizes) / sizeof(kSizes[0]) - 1)];
      Block block{PooledHeap::malloc(size), size, stamp(random())};
      std::memset(block.pointer, block.value, size);
      if (random() % 2 == 0) {
        Mailbox& next = mailboxes[(self + 1) % kThreads];
        std::lock_guard<std::mutex> guard(next.mutex);
        next.blocks.push_back(block);
      } else {
        mine.push_back(block);
      }
      if (mine.size() > 64) {
        for (const Block& own : mine)
          checkAndFree(own);
        mine.clear();
      }
      if (i % 128 == 0) {
        std::vector<Block> received;
        {
          std::lock_guard<std::mutex> guard(mailboxes[self].mutex);
          received.swap(mailboxes[self].blocks);
        }
        for (const Block& other : received)
          checkAndFree(other);
      }
    }
    for (const Block& own : mine)
      checkAndFree(own);
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back(work, t);
  for (std::thread& thread : threads)
    thread.join();
  for (Mailbox& mailbox : mailboxes)
    for (const Block& block : mailbox.blocks)
      checkAndFree(block);
  EXPECT_EQ(corrupt.load(), 0);
  PooledHeap::trim();
}

#if defined(__SANITIZE_ADDRESS__)
// Catches: cached blocks, and the rounding past a requested size, left unpoisoned, so that a
// caller's use after free or overrun goes unseen although the system allocator never got the
// block back.
TEST(PooledHeapDeathTest, UseAfterFreeAndOverrunOfAPooledBlockAreCaught) {
  EXPECT_DEATH(
      {
        char* block = static_cast<char*>(PooledHeap::malloc(256));
        PooledHeap::free(block, 256);
        block[100] = 1;
      },
      "use-after-poison");
  EXPECT_DEATH(static_cast<char*>(PooledHeap::malloc(40))[44] = 1, "use-after-poison");
}
#endif

}  // namespace
}  // namespace kestrine::platform::core::memory
