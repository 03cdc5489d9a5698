#ifndef TEST_DIRECTORY_ENTRIES_H
#define TEST_DIRECTORY_ENTRIES_H

#include <Poco/DirectoryIterator.h>

#include <set>
#include <string>

// The names in directory but "." and "..": the task or descriptor ids under /proc/self, say.
inline std::set<std::string> directoryEntries(const std::string& directory) {
  std::set<std::string> names;
  for (Poco::DirectoryIterator it(directory), end; it != end; ++it) names.insert(it.name());
  return names;
}

#endif
