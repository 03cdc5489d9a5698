#include "QiveaHome.h"

#include "CommandFailure.h"
#include "Files.h"

#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

namespace Qivea {

namespace {

const unsigned PRIVATE_DIRECTORY_MODE = 0700;

}  // namespace

QiveaHome QiveaHome::fromEnvironment() {
  const char* configured = std::getenv("QIVEA_HOME");
  if (configured != nullptr && *configured != '\0') {
    makeDirectories(configured, PRIVATE_DIRECTORY_MODE);
    return QiveaHome(configured);
  }
  // A shared /tmp: refuse a default directory that someone else made (or a link to one).
  const std::string path = "/tmp/qivea-" + std::to_string(::getuid());
  makeDirectories(path, PRIVATE_DIRECTORY_MODE);
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != ::getuid()) {
    throw CommandFailure(CommandFailure::GENERAL, path + " is not a directory of this user; set QIVEA_HOME");
  }
  return QiveaHome(path);
}

}  // namespace Qivea
