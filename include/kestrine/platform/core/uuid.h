#ifndef KESTRINE_PLATFORM_CORE_UUID_H_
#define KESTRINE_PLATFORM_CORE_UUID_H_

#include <string>

#include "kestrine/platform/core/export.h"

namespace kestrine::platform::core {

// A 128-bit universally unique identifier (libuuid underneath).
class KPL_CORE_API KPLUUID {
 public:
  // A fresh random identifier.
  KPLUUID();
  // The all-zero identifier.
  static KPLUUID nil();
  // Parses the 36-character textual form; false (and `out` untouched) when malformed.
  static bool parse(const char* text, KPLUUID& out);

  // Lower-case textual form, 36 characters.
  std::string toString() const;
  bool isNil() const;
  const unsigned char* bytes() const { return bytes_; }

  bool operator==(const KPLUUID& other) const;
  bool operator!=(const KPLUUID& other) const { return !(*this == other); }

 private:
  struct NilTag {};
  explicit KPLUUID(NilTag);

  unsigned char bytes_[16];
};

}  // namespace kestrine::platform::core

#endif  // KESTRINE_PLATFORM_CORE_UUID_H_
