#ifndef KPL_TOOLS_KMETA_FAILURE_H_
#define KPL_TOOLS_KMETA_FAILURE_H_

#include <stdexcept>
#include <string>

namespace kmeta {

// A command that cannot be done: the message is the one line kmeta prints after "kmeta: ".
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& message) : std::runtime_error(message) {}
};

// Arguments that do not make a command: the same exit status, told apart for the tests.
class UsageError : public Failure {
 public:
  explicit UsageError(const std::string& message) : Failure(message) {}
};

}  // namespace kmeta

#endif  // KPL_TOOLS_KMETA_FAILURE_H_
