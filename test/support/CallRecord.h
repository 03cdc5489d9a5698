#ifndef TEST_CALL_RECORD_H
#define TEST_CALL_RECORD_H

#include <string>
#include <vector>

// The stand-in programs record each call as its arguments, each ended by a NUL byte.
inline std::vector<std::string> parseCallRecord(const std::string& record) {
  std::vector<std::string> args;
  std::string::size_type start = 0;
  for (std::string::size_type end = record.find('\0'); end != std::string::npos; end = record.find('\0', start)) {
    args.push_back(record.substr(start, end - start));
    start = end + 1;
  }
  return args;
}

#endif
