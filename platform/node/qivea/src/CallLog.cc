#include "CallLog.h"

#include "Files.h"
#include "OpenDescriptors.h"

#include <cstdio>
#include <ctime>

#include <unistd.h>

namespace Qivea {

namespace {

const unsigned PRIVATE_DIRECTORY_MODE = 0700;
const unsigned PRIVATE_FILE_MODE = 0600;

std::string callName() {
  timespec now;
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  char name[64];
  std::snprintf(name, sizeof name, "%010lld%09ld-%d", static_cast<long long>(now.tv_sec), now.tv_nsec,
                static_cast<int>(::getpid()));
  return name;
}

}  // namespace

void CallLog::record(const std::vector<std::string>& args) const {
  const std::string name = callName();
  // Asked for by creating the directory; taken before this program opens anything itself.
  const std::string descriptors = _home.file("descriptors");
  if (exists(descriptors)) writeFileAtomically(descriptors + "/" + name, openDescriptors() + "\n", PRIVATE_FILE_MODE);
  std::string content;
  for (const std::string& arg : args) {
    content += arg;
    content += '\0';
  }
  const std::string directory = _home.file("calls");
  makeDirectories(directory, PRIVATE_DIRECTORY_MODE);
  writeFileAtomically(directory + "/" + name, content, PRIVATE_FILE_MODE);
}

}  // namespace Qivea
