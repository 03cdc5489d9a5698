#include "ProcessResources.h"

#include "OpenDescriptors.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

namespace Bench {

namespace {

// The parent pid in /proc/<pid>/stat, -1 when the process has gone meanwhile. The command name
// before it may hold blanks and parentheses, so the fields are counted from the last ')'.
long parentOf(const char* pid) {
  std::ifstream stat(std::string("/proc/") + pid + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return -1;
  const std::string::size_type end = line.rfind(')');
  if (end == std::string::npos || end + 4 >= line.size()) return -1;
  // ") S 1234 ...": the state, then the parent.
  return std::strtol(line.c_str() + end + 4, nullptr, 10);
}

// Running and zombie processes whose parent is this process.
long countChildren() {
  DIR* proc = opendir("/proc");
  if (proc == nullptr) throw std::runtime_error("cannot list /proc");
  const long self = getpid();
  long children = 0;
  while (const dirent* entry = readdir(proc)) {
    if (std::isdigit(static_cast<unsigned char>(entry->d_name[0])) && parentOf(entry->d_name) == self) ++children;
  }
  closedir(proc);
  return children;
}

long countDescriptors() {
  const std::string open = openDescriptors();
  if (open.empty() || open == "unknown") throw std::runtime_error("cannot list /proc/self/fd");
  return std::count(open.begin(), open.end(), ' ') + 1;
}

}  // namespace

ProcessResources ProcessResources::sample() {
  ProcessResources resources;
  resources.descriptors = countDescriptors();
  resources.children = countChildren();
  std::ifstream status("/proc/self/status");
  std::string word;
  bool threadsRead = false;
  bool residentRead = false;
  while (status >> word) {
    if (word == "Threads:") threadsRead = static_cast<bool>(status >> resources.threads);
    if (word == "VmRSS:") residentRead = static_cast<bool>(status >> resources.residentKb);
  }
  if (!threadsRead || !residentRead) throw std::runtime_error("no Threads or VmRSS in /proc/self/status");
  return resources;
}

}  // namespace Bench
