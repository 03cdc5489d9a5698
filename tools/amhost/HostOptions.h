#ifndef AMHOST_HOST_OPTIONS_H
#define AMHOST_HOST_OPTIONS_H

#include "CommandWords.h"

#include <string>
#include <vector>

namespace Amhost {

// What the program was started with: its options and the commands given after them.
class HostOptions {
 public:
  // Reads argv; false with error set for a usage error. help is set by --help alone.
  static bool parse(int argc, const char* const* argv, HostOptions& options, std::string& error);
  // The text --help and the help command print.
  static const char* usage();

  std::string modelFile;
  std::string componentConfigFile;  // empty: the host's default text
  std::string library;              // set by amhost to the one that came with it
  std::string cryptoKey;            // empty: the framework's demo key
  std::string psoClearPath;         // empty: a node without the security framework
  int logLevel = 4;
  bool help = false;
  // From the command line; none means: read them from standard input.
  std::vector<CommandWords::Command> commands;
};

}  // namespace Amhost

#endif
