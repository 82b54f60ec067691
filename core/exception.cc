#include "kestrine/platform/core/exception.h"

#include <utility>

namespace kestrine::platform::core {

Exception::Exception(std::string message) : message_(std::move(message)) {}

Exception::~Exception() = default;

const char* Exception::what() const noexcept { return message_.c_str(); }

}  // namespace kestrine::platform::core
