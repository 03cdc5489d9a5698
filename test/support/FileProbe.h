#ifndef TEST_FILE_PROBE_H
#define TEST_FILE_PROBE_H

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <string>

// What a test reads of a file the component wrote: its bytes and its status.
class FileProbe {
 public:
  // The whole file; empty when it cannot be read.
  static std::string text(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }

  // The file's status; a failure to read it fails the test.
  static struct stat status(const std::string& path) {
    struct stat result = {};
    EXPECT_EQ(0, ::stat(path.c_str(), &result)) << path;
    return result;
  }

  // The permission bits, set-user-id, set-group-id and sticky bit included.
  static mode_t mode(const std::string& path) { return status(path).st_mode & 07777; }
};

#endif
