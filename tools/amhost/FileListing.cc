#include "FileListing.h"

#include <grp.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>
#include <system_error>
#include <vector>

namespace Amhost {

FileListing::FileListing(const std::string& root) : _root(root) {}

bool FileListing::print(std::ostream& out, std::ostream& err) const {
  // Path to its line, so that the lines come sorted by path.
  std::map<std::string, std::string> lines;
  std::error_code error;
  for (std::filesystem::recursive_directory_iterator entry(_root, error), end; !error && entry != end;
       entry.increment(error)) {
    struct stat status;
    if (::lstat(entry->path().c_str(), &status) != 0) continue;
    std::string relative = entry->path().lexically_relative(_root).string();
    if (S_ISDIR(status.st_mode)) relative += "/";
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(status.st_mode & 07777));
    lines[relative] = std::string(mode) + " " + groupName(status.st_gid) + " " + relative;
  }
  if (error) {
    err << "error: cannot list " << _root << ": " << error.message() << "\n";
    return false;
  }
  for (const auto& line : lines) out << line.second << "\n";
  return true;
}

std::string FileListing::groupName(unsigned gid) {
  std::vector<char> buffer(1024);
  group entry;
  group* found = nullptr;
  while (::getgrgid_r(gid, &entry, buffer.data(), buffer.size(), &found) == ERANGE) buffer.resize(buffer.size() * 2);
  return found != nullptr ? found->gr_name : std::to_string(gid);
}

}  // namespace Amhost
