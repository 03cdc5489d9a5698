#ifndef TEST_TEMPORARY_DIRECTORY_H
#define TEST_TEMPORARY_DIRECTORY_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

// A directory of a test's own under TMPDIR (or /tmp), removed with everything in it when the
// object goes, also when the test failed.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/qiv-test-XXXXXX";
    if (::mkdtemp(&pattern[0]) == nullptr) throw std::runtime_error("cannot create a directory like " + pattern);
    _path = pattern;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return _path; }

  // Writes content to name in the directory and answers the file's path.
  std::string write(const std::string& name, const std::string& content) const {
    const std::string file = _path + "/" + name;
    std::ofstream out(file, std::ios::trunc);
    out << content;
    if (!out.flush()) throw std::runtime_error("cannot write " + file);
    return file;
  }

 private:
  std::string _path;
};

#endif
