#include "core/io/io_error.h"
#include "kestrine/platform/core/io.h"

namespace kestrine::platform::core::io {

bool MemoryWriter::open() {
  bytes_.clear();
  open_ = true;
  return true;
}

void MemoryWriter::write(const void* data, unsigned size) {
  if (!open_) throwNotOpen("write to", "a memory writer");
  if (size != 0) bytes_.append(static_cast<const char*>(data), size);
}

// The bytes stay readable after close.
void MemoryWriter::close() {
  open_ = false;
}

}  // namespace kestrine::platform::core::io
