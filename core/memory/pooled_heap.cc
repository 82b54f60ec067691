#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>

#include "kestrine/platform/core/memory.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define KPL_POISON(address, size) ASAN_POISON_MEMORY_REGION(address, size)
#define KPL_UNPOISON(address, size) ASAN_UNPOISON_MEMORY_REGION(address, size)
#else
#define KPL_POISON(address, size) ((void)(address), (void)(size))
#define KPL_UNPOISON(address, size) ((void)(address), (void)(size))
#endif

// Design. Every pooled block is one block of the system allocator, never a slice of a larger
// chunk. Carving blocks from chunks would save the allocator's per-block header, but a chunk
// could then only go back to the system once every block in it were free, so trim() could
// release next to nothing after fragmentation, and the sanitizers would see one opaque chunk
// instead of separate blocks. With whole blocks, trim() always gives back everything that is
// cached, and AddressSanitizer still tracks each block; the cached ones are poisoned below so
// that a use after free through the pool is caught as well.
//
// A free block is a node of intrusive lists (FreeBlock below): it links to the next block of
// its chain, and a chain's first block also links to the next chain and knows its length.
// Blocks of the 8- and 16-byte classes are therefore 24 bytes underneath, which costs
// nothing with glibc, whose smallest block holds 24 bytes anyway.
//
// Each thread keeps one list per size class. malloc and free touch only that list; when it is
// empty, malloc takes a whole chain of blocks from the shared pool (or makes a fresh chain),
// and when it grows past two chains, free hands one chain back. Chains move under the class's
// mutex in O(1), so the lock is taken once per chain, not once per block. A thread's lists go
// back to the shared pool when the thread ends.
namespace kestrine::platform::core::memory {

namespace {

constexpr unsigned kClassCount = 13;
constexpr std::size_t kClassSizes[kClassCount] = {8,   16,  32,   48,   64,   96,   128,
                                                  256, 512, 1024, 2048, 4096, 16384};
constexpr std::size_t kLargest = 16384;
// A chain carries about 32 KiB, between 4 and 64 blocks: small blocks move in large numbers,
// large ones a few at a time. A thread caches fewer than two chains per class, so at most
// about 64 KiB (128 KiB for the largest class).
constexpr std::size_t kChainBytes = 32 * 1024;
// The shared pool keeps at most this many bytes per class; beyond it returned chains go back
// to the system, so a burst of frees does not pin its memory for the life of the process.
constexpr std::size_t kSharedLimitBytes = 4 * 1024 * 1024;

constexpr std::size_t chainLength(unsigned index) {
  std::size_t blocks = kChainBytes / kClassSizes[index];
  return blocks < 4 ? 4 : blocks > 64 ? 64 : blocks;
}

// A block while it sits in the pool.
struct FreeBlock {
  FreeBlock* next;       // the next block of the chain
  FreeBlock* nextChain;  // first block of a chain: the next chain of the shared stack
  std::size_t length;    // first block of a chain: the chain's number of blocks
};

// What the system allocator is asked for: room for the free-block header at least.
constexpr std::size_t blockBytes(unsigned index) {
  return kClassSizes[index] < sizeof(FreeBlock) ? sizeof(FreeBlock) : kClassSizes[index];
}

// The class of a request of 1..kLargest bytes (0 is served as 8).
unsigned classOf(std::size_t size) {
  if (size <= 64) return size <= 8 ? 0 : size <= 16 ? 1 : size <= 32 ? 2 : size <= 48 ? 3 : 4;
  if (size <= 128) return size <= 96 ? 5 : 6;
  if (size <= 4096) {
    // 256 is class 7 and each doubling one more: the bit width of (size - 1) tells which.
    unsigned width = 64 - __builtin_clzll(size - 1);
    return width - 1;
  }
  return 12;
}

// A block moving into the pool: only its header stays addressable.
FreeBlock* cached(void* block, unsigned index) {
  KPL_UNPOISON(block, sizeof(FreeBlock));
  KPL_POISON(static_cast<char*>(block) + sizeof(FreeBlock), blockBytes(index) - sizeof(FreeBlock));
  return static_cast<FreeBlock*>(block);
}

// Releases a chain's blocks to the system; returns the bytes released.
std::size_t releaseChain(FreeBlock* head, unsigned index) {
  std::size_t released = 0;
  while (head != nullptr) {
    FreeBlock* next = head->next;
    KPL_UNPOISON(head, blockBytes(index));
    std::free(head);
    released += kClassSizes[index];
    head = next;
  }
  return released;
}

// Chains of free blocks shared by all threads: one stack of chains per class.
class SharedPool {
 public:
  // Pushes a chain (its length set in its head); frees it instead when the class is full.
  void put(unsigned index, FreeBlock* chain) {
    {
      Class& cls = classes_[index];
      std::lock_guard<std::mutex> guard(cls.mutex);
      if ((cls.blocks + chain->length) * kClassSizes[index] <= kSharedLimitBytes) {
        chain->nextChain = cls.chains;
        cls.chains = chain;
        cls.blocks += chain->length;
        return;
      }
    }
    releaseChain(chain, index);
  }

  // Pops a chain; null when the class has none.
  FreeBlock* take(unsigned index) {
    Class& cls = classes_[index];
    std::lock_guard<std::mutex> guard(cls.mutex);
    FreeBlock* chain = cls.chains;
    if (chain == nullptr) return nullptr;
    cls.chains = chain->nextChain;
    cls.blocks -= chain->length;
    return chain;
  }

  // Detaches every chain of a class.
  FreeBlock* takeAll(unsigned index) {
    Class& cls = classes_[index];
    std::lock_guard<std::mutex> guard(cls.mutex);
    FreeBlock* chains = cls.chains;
    cls.chains = nullptr;
    cls.blocks = 0;
    return chains;
  }

 private:
  // One cache line per class, so that threads working on different classes do not contend.
  struct alignas(64) Class {
    std::mutex mutex;
    FreeBlock* chains = nullptr;
    std::size_t blocks = 0;
  };
  Class classes_[kClassCount];
};

// Never destroyed: threads may end (and drain into it) after static destructors have run.
// The pointer also keeps the cached blocks reachable, so a leak checker does not count them.
SharedPool& shared() {
  static SharedPool* pool = new SharedPool;
  return *pool;
}

// A thread's cache. Plain data, zero at thread start, so it needs no constructor and stays
// readable until the thread's storage goes away; the Drainer gives it back at thread exit.
struct ThreadCache {
  enum State : unsigned char { kFresh = 0, kActive, kGone };
  FreeBlock* heads[kClassCount];
  std::size_t counts[kClassCount];
  State state;
};

// Initial-exec: the cache is reached with one instruction instead of a call into the dynamic
// linker on every malloc and free. The cost is a little static TLS, which glibc sets aside
// for libraries like this one even when they are loaded with dlopen.
thread_local ThreadCache tCache __attribute__((tls_model("initial-exec")));

struct Drainer {
  // Called on first use: odr-using the variable makes the runtime register the destructor.
  void arm() {}
  ~Drainer() {
    for (unsigned index = 0; index < kClassCount; ++index) {
      if (tCache.heads[index] == nullptr) continue;
      tCache.heads[index]->length = tCache.counts[index];
      shared().put(index, tCache.heads[index]);
      tCache.heads[index] = nullptr;
      tCache.counts[index] = 0;
    }
    tCache.state = ThreadCache::kGone;
  }
};

thread_local Drainer tDrainer;

// The calling thread's cache, or null once the thread is past its thread-local destructors
// (a late call then works on the shared pool directly).
ThreadCache* threadCache() {
  ThreadCache* cache = &tCache;
  if (__builtin_expect(cache->state == ThreadCache::kActive, 1)) return cache;
  if (cache->state == ThreadCache::kGone) return nullptr;
  tDrainer.arm();
  cache->state = ThreadCache::kActive;
  return cache;
}

// A chain of fresh blocks, as long as the system gives. Throws bad_alloc when it gives none.
FreeBlock* freshChain(unsigned index) {
  FreeBlock* head = nullptr;
  std::size_t length = 0;
  for (; length < chainLength(index); ++length) {
    void* block = std::malloc(blockBytes(index));
    if (block == nullptr) break;
    FreeBlock* fresh = cached(block, index);
    fresh->next = head;
    head = fresh;
  }
  if (head == nullptr) throw std::bad_alloc();
  head->length = length;
  return head;
}

// The next chain for a thread: from the shared pool if it has one, otherwise fresh.
FreeBlock* refill(unsigned index) {
  FreeBlock* chain = shared().take(index);
  return chain != nullptr ? chain : freshChain(index);
}

void* handOut(FreeBlock* block, std::size_t size) {
  // Only the bytes asked for become addressable: under ASan a write past them is caught even
  // inside the class's rounding.
  KPL_UNPOISON(block, size == 0 ? 1 : size);
  return block;
}

}  // namespace

void* PooledHeap::malloc(std::size_t size) {
  if (size > kLargest) {
    void* block = std::malloc(size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
  }
  unsigned index = classOf(size);
  ThreadCache* cache = threadCache();
  if (__builtin_expect(cache == nullptr, 0)) {
    FreeBlock* chain = refill(index);
    if (chain->next != nullptr) {
      chain->next->length = chain->length - 1;
      shared().put(index, chain->next);
    }
    return handOut(chain, size);
  }
  FreeBlock* block = cache->heads[index];
  if (block == nullptr) {
    block = refill(index);
    cache->counts[index] = block->length;
  }
  cache->heads[index] = block->next;
  --cache->counts[index];
  return handOut(block, size);
}

void PooledHeap::free(void* pointer, std::size_t size) {
  if (pointer == nullptr) return;
  if (size > kLargest) {
    std::free(pointer);
    return;
  }
  unsigned index = classOf(size);
  FreeBlock* block = cached(pointer, index);
  ThreadCache* cache = threadCache();
  if (__builtin_expect(cache == nullptr, 0)) {
    block->next = nullptr;
    block->length = 1;
    shared().put(index, block);
    return;
  }
  block->next = cache->heads[index];
  cache->heads[index] = block;
  std::size_t length = chainLength(index);
  if (++cache->counts[index] < 2 * length) return;
  // Keep one chain's worth for this thread and hand the rest back as one chain.
  FreeBlock* tail = block;
  for (std::size_t i = 1; i < length; ++i)
    tail = tail->next;
  FreeBlock* surplus = tail->next;
  tail->next = nullptr;
  surplus->length = cache->counts[index] - length;
  cache->counts[index] = length;
  shared().put(index, surplus);
}

std::size_t PooledHeap::blockSize(std::size_t size) {
  return size > kLargest ? size : kClassSizes[classOf(size)];
}

std::size_t PooledHeap::trim() {
  std::size_t released = 0;
  ThreadCache* cache = threadCache();
  for (unsigned index = 0; index < kClassCount; ++index) {
    if (cache != nullptr) {
      released += releaseChain(cache->heads[index], index);
      cache->heads[index] = nullptr;
      cache->counts[index] = 0;
    }
    for (FreeBlock* chain = shared().takeAll(index); chain != nullptr;) {
      FreeBlock* next = chain->nextChain;
      released += releaseChain(chain, index);
      chain = next;
    }
  }
  return released;
}

}  // namespace kestrine::platform::core::memory
