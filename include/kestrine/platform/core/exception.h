#ifndef KESTRINE_PLATFORM_CORE_EXCEPTION_H_
#define KESTRINE_PLATFORM_CORE_EXCEPTION_H_

#include <exception>
#include <string>

#include "kestrine/platform/core/export.h"

namespace kestrine::platform::core {

// The one exception type of the core services: a real fault (I/O, a full disk, a record
// that does not exist, malformed XML). The data layer lets it pass through unchanged.
class KPL_CORE_API Exception : public std::exception {
 public:
  explicit Exception(std::string message);
  ~Exception() override;

  const char* what() const noexcept override;

 private:
  std::string message_;
};

}  // namespace kestrine::platform::core

#endif  // KESTRINE_PLATFORM_CORE_EXCEPTION_H_
