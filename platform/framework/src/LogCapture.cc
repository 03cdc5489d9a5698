#include <Framework/LogCapture.h>

#include <Framework/CString.h>
#include <Framework/ManagementFramework.h>
#include <PymMwSpiLogTrace.h>

#include <algorithm>
#include <iostream>

namespace Framework {

namespace {

LogCapture* currentLog() {
  ManagementFramework* framework = ManagementFramework::current();
  return framework == nullptr ? nullptr : &framework->log();
}

void logLine(int level, const char* method, const char* text) {
  if (LogCapture* log = currentLog()) log->record(level, CString::orEmpty(method), CString::orEmpty(text));
}

// Without a framework nothing is written.
int logLevel() {
  LogCapture* log = currentLog();
  return log == nullptr ? 0 : log->getLevel();
}

void traceLine(const char* method, const char* text) { logLine(PymLogTrace, method, text); }

bool traceEnabled() { return logLevel() > PymLogDebug; }

PymMwSpiLog_1 logTable = {{"PymMwSpiLogService", "PymMwSpiLog", "1"}, logLine, logLevel};
PymMwSpiTrace_1 traceTable = {{"PymMwSpiLogService", "PymMwSpiTrace", "1"}, traceLine, traceEnabled};

}  // namespace

LogCapture::LogCapture() : _level(PymLogInfo), _echoLevel(PymLogWarning) {}

void LogCapture::setLevel(int level) {
  std::lock_guard<std::mutex> lock(_mutex);
  _level = level;
}

int LogCapture::getLevel() const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _level;
}

void LogCapture::setEchoLevel(int level) {
  std::lock_guard<std::mutex> lock(_mutex);
  _echoLevel = level;
}

void LogCapture::record(int level, const std::string& method, const std::string& text) {
  std::lock_guard<std::mutex> lock(_mutex);
  _records.push_back(LogRecord{level, method, text});
  // Echoed under the lock so that lines from several threads do not interleave.
  if (level <= _echoLevel) std::cerr << "[framework " << level << "] " << method << ": " << text << std::endl;
}

std::vector<LogRecord> LogCapture::records() const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _records;
}

std::size_t LogCapture::count(int level, const std::string& text) const {
  return countIf([&](const LogRecord& record) { return record.level == level && record.text == text; });
}

bool LogCapture::contains(int level, const std::string& text) const { return count(level, text) != 0; }

std::size_t LogCapture::countAtLevel(int level) const {
  return countIf([&](const LogRecord& record) { return record.level == level; });
}

std::size_t LogCapture::countContaining(const std::string& fragment) const {
  return countIf([&](const LogRecord& record) { return record.text.find(fragment) != std::string::npos; });
}

template <class Predicate>
std::size_t LogCapture::countIf(Predicate predicate) const {
  std::lock_guard<std::mutex> lock(_mutex);
  return static_cast<std::size_t>(std::count_if(_records.begin(), _records.end(), predicate));
}

void LogCapture::clear() {
  std::lock_guard<std::mutex> lock(_mutex);
  _records.clear();
}

std::vector<PymMgmtSpiInterface_1*> LogCapture::interfaces() { return {&logTable.base, &traceTable.base}; }

}  // namespace Framework
