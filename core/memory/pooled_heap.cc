#include <cstdlib>
#include <new>

#include "kestrine/platform/core/memory.h"

namespace kestrine::platform::core::memory {

// Placeholder until the pooled implementation lands: straight to the system allocator.
void* PooledHeap::malloc(std::size_t size) {
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void PooledHeap::free(void* pointer, std::size_t) { std::free(pointer); }

std::size_t PooledHeap::trim() { return 0; }

}  // namespace kestrine::platform::core::memory
