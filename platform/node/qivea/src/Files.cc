#include "Files.h"

#include "CommandFailure.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Qivea {

namespace {

CommandFailure systemFailure(const std::string& what, const std::string& path) {
  return CommandFailure(CommandFailure::GENERAL, what + " " + path + ": " + std::strerror(errno));
}

// Closes a descriptor on every path out of a scope.
class Descriptor {
 public:
  explicit Descriptor(int fd) : _fd(fd) {}
  ~Descriptor() {
    if (_fd >= 0) ::close(_fd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return _fd; }
  // Closes now, so that a failed close is seen.
  int close() {
    const int result = ::close(_fd);
    _fd = -1;
    return result;
  }

 private:
  int _fd;
};

}  // namespace

bool readFile(const std::string& path, std::string& text) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  std::ostringstream content;
  content << file.rdbuf();
  text = content.str();
  return true;
}

bool exists(const std::string& path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0;
}

void writeFileAtomically(const std::string& path, const std::string& content, unsigned mode) {
  const std::string::size_type slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const std::string temporary = directory + "/." + name + "." + std::to_string(::getpid());
  Descriptor file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
  if (file.get() < 0) throw systemFailure("cannot create", temporary);
  try {
    writeAll(file.get(), content);
    if (file.close() != 0) throw systemFailure("cannot write", temporary);
    if (::rename(temporary.c_str(), path.c_str()) != 0) throw systemFailure("cannot rename to", path);
  } catch (const CommandFailure&) {
    ::unlink(temporary.c_str());
    throw;
  }
}

void makeDirectories(const std::string& path, unsigned mode) {
  for (std::string::size_type slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    const std::string prefix = path.substr(0, slash);
    if (::mkdir(prefix.c_str(), mode) != 0 && errno != EEXIST) throw systemFailure("cannot create", prefix);
    if (slash == std::string::npos) return;
  }
}

void writeAll(int fd, const std::string& data) {
  std::string::size_type written = 0;
  while (written < data.size()) {
    const ssize_t result = ::write(fd, data.data() + written, data.size() - written);
    if (result < 0) {
      if (errno == EINTR) continue;
      throw CommandFailure(CommandFailure::GENERAL, std::string("cannot write: ") + std::strerror(errno));
    }
    written += static_cast<std::string::size_type>(result);
  }
}

}  // namespace Qivea
