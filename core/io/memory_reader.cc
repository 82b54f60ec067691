#include <algorithm>
#include <cstring>
#include <utility>

#include "core/io/io_error.h"
#include "kestrine/platform/core/io.h"

namespace kestrine::platform::core::io {

MemoryReader::MemoryReader(std::string bytes) : bytes_(std::move(bytes)) {}

bool MemoryReader::open() {
  position_ = 0;
  open_ = true;
  return true;
}

unsigned MemoryReader::read(void* buffer, unsigned size) {
  if (!open_) throwNotOpen("read from", "a memory reader");
  std::size_t count = std::min<std::size_t>(size, bytes_.size() - position_);
  if (count != 0) std::memcpy(buffer, bytes_.data() + position_, count);
  position_ += count;
  return static_cast<unsigned>(count);
}

void MemoryReader::close() {
  open_ = false;
}

}  // namespace kestrine::platform::core::io
