#include "BesideProgram.h"

#include <unistd.h>

#include <climits>

namespace Tools {

namespace {

// The directory of the running program; "." when /proc is not mounted.
std::string programDirectory() {
  char path[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0 || static_cast<size_t>(length) >= sizeof path) return ".";
  const std::string program(path, static_cast<size_t>(length));
  return program.substr(0, program.rfind('/'));
}

}  // namespace

std::string besideProgram(const std::string& path) {
  if (path.empty() || path[0] == '/') return path;
  static const std::string directory = programDirectory();
  return directory + "/" + path;
}

}  // namespace Tools
