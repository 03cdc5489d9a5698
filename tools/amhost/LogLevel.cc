#include "LogLevel.h"

#include <algorithm>

namespace Amhost {

bool LogLevel::parse(const std::string& text, int& level) {
  if (text == "-1") {
    level = -1;
    return true;
  }
  if (text.size() != 1 || text[0] < '0' || text[0] > '9') return false;
  level = text[0] - '0';
  return true;
}

int LogLevel::recordLevel(int level) { return std::max(level, 6); }

void LogLevel::apply(Framework::LogCapture& log, int level) {
  log.setLevel(recordLevel(level));
  log.setEchoLevel(level);
}

}  // namespace Amhost
