#ifndef KPL_CORE_IO_IO_ERROR_H_
#define KPL_CORE_IO_IO_ERROR_H_

#include <string>

namespace kestrine::platform::core::io {

// Throws core::Exception "<operation> <path>: <system message for error>", for example
// "cannot write /dev/full: No space left on device".
[[noreturn]] void throwIOError(const char* operation, const std::string& path, int error);

// Throws core::Exception for a read or write on a source or sink that is not open.
[[noreturn]] void throwNotOpen(const char* operation, const std::string& what);

}  // namespace kestrine::platform::core::io

#endif  // KPL_CORE_IO_IO_ERROR_H_
