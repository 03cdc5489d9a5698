#ifndef QIV_LOGGING_WRAPPER_H
#define QIV_LOGGING_WRAPPER_H

#include <cstdarg>

namespace Qiv {

// Formats log and trace lines and hands them to the framework's "PymMwSpiLog" "1" and
// "PymMwSpiTrace" interfaces, found through Qiv::Portal. Levels: 3 error, 4 warning, 5 notice,
// 6 info, 7 debug; TRACE (8) goes to the trace interface and is written only while the
// framework's level is above 7. Without a framework, errors and warnings go to standard error.
// Thread-safe.
class LoggingWrapper {
 public:
  static const int TRACE = 8;

  // Writes one line when isEnabled(level); method names the calling method.
  static void log_printf(const char* method, int level, const char* format, ...)
      __attribute__((format(printf, 3, 4)));
  static void vlog_printf(const char* method, int level, const char* format, va_list args);

  // True when a line of that level would be written now.
  static bool isEnabled(int level);

  // Forgets the framework interfaces found so far; called when the portal changes.
  static void reset();
};

}  // namespace Qiv

#define QIV_LOG(level, ...) ::Qiv::LoggingWrapper::log_printf(__FUNCTION__, (level), __VA_ARGS__)
#define QIV_TRACE(...) ::Qiv::LoggingWrapper::log_printf(__FUNCTION__, ::Qiv::LoggingWrapper::TRACE, __VA_ARGS__)

#endif
