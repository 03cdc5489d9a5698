#ifndef NODE_OPEN_DESCRIPTORS_H
#define NODE_OPEN_DESCRIPTORS_H

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include <dirent.h>

// The descriptors this process has open, ascending and separated by single blanks ("0 1 2"), or
// "unknown" without /proc. The stand-ins report it for a test that checks what a caller lets a
// child inherit; the descriptor that reads the list is not on it.
inline std::string openDescriptors() {
  DIR* directory = ::opendir("/proc/self/fd");
  if (directory == nullptr) return "unknown";
  std::vector<int> open;
  while (const dirent* entry = ::readdir(directory)) {
    if (entry->d_name[0] != '.') open.push_back(std::atoi(entry->d_name));
  }
  open.erase(std::remove(open.begin(), open.end(), ::dirfd(directory)), open.end());
  ::closedir(directory);
  std::sort(open.begin(), open.end());
  std::string list;
  for (int fd : open) list += (list.empty() ? "" : " ") + std::to_string(fd);
  return list;
}

#endif
