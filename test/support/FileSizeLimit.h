#ifndef TEST_FILE_SIZE_LIMIT_H
#define TEST_FILE_SIZE_LIMIT_H

#include <csignal>

#include <sys/resource.h>

// While it lives, files larger than bytes cannot be written by this process or its children; a
// write beyond fails instead of ending the process. Only the soft limit drops, so the old one
// comes back. (Not in a forked copy: the copy starts threads, which ThreadSanitizer does not
// follow after a fork of a process with threads.)
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : _handler(std::signal(SIGXFSZ, SIG_IGN)) {
    _set = ::getrlimit(RLIMIT_FSIZE, &_previous) == 0;
    rlimit limit = _previous;
    limit.rlim_cur = bytes;
    _set = _set && ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &_previous);
    std::signal(SIGXFSZ, _handler);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  bool isSet() const { return _set; }

 private:
  void (*_handler)(int);
  rlimit _previous = {};
  bool _set = false;
};

#endif
