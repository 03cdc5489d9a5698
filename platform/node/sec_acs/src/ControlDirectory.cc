#include "ControlDirectory.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace SecAcs {

namespace {

void split(const std::string& text, char separator, std::vector<std::string>& items) {
  std::string::size_type start = 0;
  for (std::string::size_type end = text.find(separator); end != std::string::npos;
       end = text.find(separator, start)) {
    items.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  items.push_back(text.substr(start));
}

}  // namespace

ControlDirectory::ControlDirectory() {
  const char* home = std::getenv("SEC_ACS_HOME");
  if (home != nullptr) _home = home;
}

bool ControlDirectory::findUser(const std::string& name, std::vector<std::string>& roles) const {
  if (_home.empty()) return false;
  std::ifstream users(path("users"));
  for (std::string line; std::getline(users, line);) {
    if (line.empty() || line[0] == '#') continue;
    const std::string::size_type colon = line.find(':');
    if (line.substr(0, colon) != name) continue;
    roles.clear();
    if (colon != std::string::npos && colon + 1 < line.size()) split(line.substr(colon + 1), ',', roles);
    return true;
  }
  return false;
}

bool ControlDirectory::scriptedFailure(const std::string& function, acs_status_t& status) const {
  bool hasIndex;
  unsigned index;
  return readFailure(function, status, hasIndex, index);
}

bool ControlDirectory::scriptedFailure(const std::string& function, unsigned index, acs_status_t& status) const {
  bool hasIndex;
  unsigned failingIndex;
  return readFailure(function, status, hasIndex, failingIndex) && (!hasIndex || failingIndex == index);
}

void ControlDirectory::recordCall(const std::vector<std::string>& fields) const {
  if (_home.empty()) return;
  std::string line;
  for (const std::string& field : fields) {
    if (!line.empty()) line += '\t';
    line += field;
  }
  line += '\n';
  // One write on an O_APPEND descriptor: lines of concurrent calls never interleave.
  const int fd = ::open(path("calls").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (fd == -1) return;
  const ssize_t written = ::write(fd, line.data(), line.size());
  static_cast<void>(written);
  ::close(fd);
}

bool ControlDirectory::readFailure(const std::string& function, acs_status_t& status, bool& hasIndex,
                                   unsigned& index) const {
  if (_home.empty()) return false;
  std::ifstream file(path("fail/" + function));
  if (!file) return false;
  std::string line;
  std::getline(file, line);
  std::istringstream words(line);
  if (!(words >> status)) {
    status = ACS_UAI_FAILURE;
    hasIndex = false;
    return true;
  }
  hasIndex = static_cast<bool>(words >> index);
  return status != ACS_UAI_SUCCESS;
}

std::string ControlDirectory::path(const std::string& name) const { return _home + "/" + name; }

}  // namespace SecAcs
