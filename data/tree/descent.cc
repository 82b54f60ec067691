#include "data/tree/descent.h"

#include <string>

#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::data::Metadata {

namespace {

thread_local unsigned tDepth = 0;

// A million levels: deeper than any tree that is not damaged.
constexpr unsigned long long kLoopLevels = 1ull << 20;

[[noreturn]] void loops(unsigned offset, const char* what) {
  throw core::Exception("damaged record at offset " + std::to_string(offset) + ": " + what);
}

}  // namespace

Descent::Descent(unsigned offset) {
  if (tDepth == kLimit)
    loops(offset, "the tree leads back to itself or is deeper than 10000 levels");
  ++tDepth;
}

Descent::~Descent() {
  --tDepth;
}

void Descent::check(unsigned offset, unsigned long long levels) {
  if (levels >= kLoopLevels) loops(offset, "the tree leads back to itself");
}

}  // namespace kestrine::platform::data::Metadata
