#ifndef FRAMEWORK_LOG_CAPTURE_H
#define FRAMEWORK_LOG_CAPTURE_H

#include <PymSpiTypes.h>

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace Framework {

// One line that reached the framework's log or trace (traces have level 8).
struct LogRecord {
  int level;
  std::string method;
  std::string text;
};

// The framework's log and trace: records every line it is given, and echoes lines at or below
// the echo level to standard error. Thread-safe.
class LogCapture {
 public:
  LogCapture();

  // Highest level the platform writes (what "PymMwSpiLog" getLevel answers); above 7 enables
  // traces. Default 6.
  void setLevel(int level);
  int getLevel() const;

  // Lines at or below this level are also printed to standard error; -1 prints none. Default 4.
  void setEchoLevel(int level);

  void record(int level, const std::string& method, const std::string& text);

  std::vector<LogRecord> records() const;
  // Records with exactly this level and text.
  std::size_t count(int level, const std::string& text) const;
  bool contains(int level, const std::string& text) const;
  // Records of exactly this level.
  std::size_t countAtLevel(int level) const;
  // Records at any level whose text contains fragment.
  std::size_t countContaining(const std::string& fragment) const;
  void clear();

  // The "PymMwSpiLog" "1" and "PymMwSpiTrace" "1" tables; they write to the current
  // framework's log.
  static std::vector<PymMgmtSpiInterface_1*> interfaces();

 private:
  template <class Predicate>
  std::size_t countIf(Predicate predicate) const;

  mutable std::mutex _mutex;
  int _level;
  int _echoLevel;
  std::vector<LogRecord> _records;
};

}  // namespace Framework

#endif
