#ifndef KPL_DATA_TREE_POOLED_BUFFER_H_
#define KPL_DATA_TREE_POOLED_BUFFER_H_

#include <cstring>

#include "kestrine/platform/core/memory.h"

namespace kestrine::platform::data::Metadata {

// A zero-filled scratch buffer from the pooled heap, returned there on every path.
class PooledBuffer {
 public:
  explicit PooledBuffer(unsigned size)
      : size_(size), data_(static_cast<unsigned char*>(core::memory::PooledHeap::malloc(size))) {
    std::memset(data_, 0, size);
  }
  ~PooledBuffer() { core::memory::PooledHeap::free(data_, size_); }
  PooledBuffer(const PooledBuffer&) = delete;
  PooledBuffer& operator=(const PooledBuffer&) = delete;

  unsigned char* data() { return data_; }
  unsigned size() const { return size_; }

 private:
  unsigned size_;
  unsigned char* data_;
};

}  // namespace kestrine::platform::data::Metadata

#endif  // KPL_DATA_TREE_POOLED_BUFFER_H_
