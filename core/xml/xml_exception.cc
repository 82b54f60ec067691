#include <string>

#include "kestrine/platform/core/xml.h"

namespace kestrine::platform::core::xml {

XMLException::XMLException(const std::string& message, unsigned long line, unsigned long column)
    : Exception("XML error at line " + std::to_string(line) + ", column " + std::to_string(column) +
                ": " + message),
      line_(line),
      column_(column) {}

}  // namespace kestrine::platform::core::xml
