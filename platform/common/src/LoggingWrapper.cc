#include <PymMwSpiLogTrace.h>
#include <Qiv/LoggingWrapper.h>
#include <Qiv/Portal.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>

#include "StringFormat.h"

namespace Qiv {

namespace {

const PymMgmtSpiInterface_1 LOG_ID = {nullptr, "PymMwSpiLog", "1"};
const PymMgmtSpiInterface_1 TRACE_ID = {nullptr, "PymMwSpiTrace", nullptr};

// Levels written to standard error while there is no framework log.
const int STDERR_MAX_LEVEL = PymLogWarning;

struct Interfaces {
  PymMwSpiLog_1* log;
  PymMwSpiTrace_1* trace;
};

// Look-ups and reset() serialise on the mutex; the hot path only reads the atomics. reset()
// leaves the pointers in place so that a concurrent reader never sees a half-forgotten pair;
// the next look-up replaces them.
std::mutex lookupMutex;
std::atomic<bool> resolved(false);
std::atomic<PymMwSpiLog_1*> cachedLog(nullptr);
std::atomic<PymMwSpiTrace_1*> cachedTrace(nullptr);

Interfaces interfaces() {
  if (!resolved.load(std::memory_order_acquire)) {
    std::lock_guard<std::mutex> lock(lookupMutex);
    if (!resolved.load(std::memory_order_relaxed)) {
      const Portal& portal = Portal::instance();
      cachedLog.store(portal.getInterface<PymMwSpiLog_1>(LOG_ID), std::memory_order_relaxed);
      cachedTrace.store(portal.getInterface<PymMwSpiTrace_1>(TRACE_ID), std::memory_order_relaxed);
      resolved.store(true, std::memory_order_release);
    }
  }
  return Interfaces{cachedLog.load(std::memory_order_relaxed), cachedTrace.load(std::memory_order_relaxed)};
}

bool enabled(const Interfaces& found, int level) {
  if (level >= LoggingWrapper::TRACE) return found.trace != nullptr && found.trace->isEnabled();
  if (found.log == nullptr) return level <= STDERR_MAX_LEVEL;
  return level <= found.log->getLevel();
}

void write(const Interfaces& found, const char* method, int level, const std::string& text) {
  if (level >= LoggingWrapper::TRACE) {
    found.trace->trace(method, text.c_str());
  } else if (found.log != nullptr) {
    found.log->log(level, method, text.c_str());
  } else {
    std::fprintf(stderr, "%d %s: %s\n", level, method, text.c_str());
  }
}

}  // namespace

void LoggingWrapper::log_printf(const char* method, int level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  vlog_printf(method, level, format, args);
  va_end(args);
}

void LoggingWrapper::vlog_printf(const char* method, int level, const char* format, va_list args) {
  try {
    const Interfaces found = interfaces();
    if (!enabled(found, level)) return;
    write(found, method != nullptr ? method : "", level, vformat(format, args));
  } catch (...) {
    // Logging must never take its caller down; a line lost for lack of memory is acceptable.
  }
}

bool LoggingWrapper::isEnabled(int level) {
  try {
    return enabled(interfaces(), level);
  } catch (...) {
    return false;
  }
}

void LoggingWrapper::reset() {
  std::lock_guard<std::mutex> lock(lookupMutex);
  resolved.store(false, std::memory_order_release);
}

}  // namespace Qiv
