#ifndef KPL_TOOLS_KMETA_COMMANDS_H_
#define KPL_TOOLS_KMETA_COMMANDS_H_

#include "options.h"
#include "session.h"

namespace kmeta {

// One command of the tool: what it accepts and what runs it.
struct Command {
  const char* name;
  // The Option bits it takes.
  unsigned options;
  unsigned minOperands;
  unsigned maxOperands;
  // Opens `session` itself (after checking its input documents, so that a bad document never
  // touches a store) and answers the exit status. Throws Failure or core::Exception.
  int (*run)(const Options& options, Session& session);
};

// The command `options` names. Throws UsageError for an unknown command, an option it does
// not take, or too few or too many operands.
const Command& findCommand(const Options& options);

}  // namespace kmeta

#endif  // KPL_TOOLS_KMETA_COMMANDS_H_
