#ifndef AMHOST_COMMAND_WORDS_H
#define AMHOST_COMMAND_WORDS_H

#include <string>
#include <vector>

namespace Amhost {

// The words of host commands: split from a line a person typed, or grouped from the program's
// arguments, and quoted back so that printed values read in again as the same words.
class CommandWords {
 public:
  using Command = std::vector<std::string>;

  // Words of one line, split at blanks and tabs. A word that begins with a double quote runs to
  // the closing one, with \" and \\ inside; nothing for an empty line or one starting with "#".
  // Throws std::invalid_argument for an unterminated quote.
  static Command fromLine(const std::string& line);
  // The arguments as commands, separated by ";" words; empty commands are dropped.
  static std::vector<Command> fromArguments(const std::vector<std::string>& arguments);
  // word as fromLine reads it back: quoted when empty or holding a blank, tab or leading quote.
  static std::string quote(const std::string& word);
};

}  // namespace Amhost

#endif
