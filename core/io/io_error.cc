#include "core/io/io_error.h"

#include <cerrno>
#include <cstring>

#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::io {

void throwIOError(const char* operation, const std::string& path, int error) {
  char text[256];
  // The GNU strerror_r: thread-safe, returns the message (not always in `text`).
  const char* message = strerror_r(error, text, sizeof(text));
  // Said plainly: the system's "No space left on device" leaves users looking for a device.
  const bool full = error == ENOSPC || error == EDQUOT;
  throw Exception(std::string(operation) + " " + path + ": " + (full ? "disk full (" : "") +
                  message + (full ? ")" : ""));
}

void throwNotOpen(const char* operation, const std::string& what) {
  throw Exception(std::string(operation) + " " + what + ", which is not open");
}

}  // namespace kestrine::platform::core::io
