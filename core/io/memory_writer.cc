#include <algorithm>

#include "core/io/io_error.h"
#include "kestrine/platform/core/io.h"

namespace kestrine::platform::core::io {

bool MemoryWriter::open() {
  bytes_.clear();
  open_ = true;
  return true;
}

// The bytes grow by four times what they can hold rather than the string's two. Each growth
// copies what is held into fresh memory, and at tens of megabytes that copy, page faults
// included, takes as long as writing the document did; the pages of a large block are not
// taken until they are written, so the room held in reserve costs little.
void MemoryWriter::write(const void* data, unsigned size) {
  if (!open_) throwNotOpen("write to", "a memory writer");
  if (size == 0) return;
  if (bytes_.capacity() - bytes_.size() < size) {
    const std::size_t grown =
        bytes_.capacity() < bytes_.max_size() / 4 ? 4 * bytes_.capacity() : bytes_.max_size();
    bytes_.reserve(std::max(bytes_.size() + size, grown));
  }
  bytes_.append(static_cast<const char*>(data), size);
}

// The bytes stay readable after close.
void MemoryWriter::close() {
  open_ = false;
}

}  // namespace kestrine::platform::core::io
