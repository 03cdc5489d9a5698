#ifndef AMHOST_COMMAND_SYNTAX_H
#define AMHOST_COMMAND_SYNTAX_H

#include "CommandWords.h"

#include <string>

namespace Amhost {

// The host's commands by name with the number of words each takes.
class CommandSyntax {
 public:
  // Whether command (not empty) is a known command with the right number of words and, for
  // log-level, a valid level; false with error set to what a person should be told.
  static bool check(const CommandWords::Command& command, std::string& error);
};

}  // namespace Amhost

#endif
