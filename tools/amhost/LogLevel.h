#ifndef AMHOST_LOG_LEVEL_H
#define AMHOST_LOG_LEVEL_H

#include <Framework/LogCapture.h>

#include <string>

namespace Amhost {

// The host's one log setting: lines at or below the level are printed to standard error.
class LogLevel {
 public:
  // A whole number from -1 (nothing printed) to 9.
  static bool parse(const std::string& text, int& level);
  // The level the framework records at: the component writes at least its info lines, and
  // traces when they are asked for.
  static int recordLevel(int level);
  static void apply(Framework::LogCapture& log, int level);
};

}  // namespace Amhost

#endif
