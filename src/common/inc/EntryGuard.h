#ifndef QIV_ENTRY_GUARD_H
#define QIV_ENTRY_GUARD_H

#include <Poco/Exception.h>
#include <PymSpiTypes.h>
#include <Qiv/LoggingWrapper.h>

#include <exception>

// What the library exports; everything else stays hidden.
#define QIV_VISIBLE __attribute__((visibility("default")))
#define QIV_EXPORT extern "C" QIV_VISIBLE

namespace Qiv {

// Runs one C entry point's body: no exception may reach a C caller, so one that escapes is
// logged under the entry's name and answered with -1.
template <class Call>
PymReturnT guarded(const char* entry, Call call) {
  try {
    return call();
  } catch (const Poco::Exception& e) {
    // what() is only the exception's name; the text says what went wrong.
    Qiv::LoggingWrapper::log_printf(entry, 3, "Caught exception: %s", e.displayText().c_str());
  } catch (const std::exception& e) {
    Qiv::LoggingWrapper::log_printf(entry, 3, "Caught exception: %s", e.what());
  } catch (...) {
    Qiv::LoggingWrapper::log_printf(entry, 3, "Caught unknown exception");
  }
  return -1;
}

}  // namespace Qiv

#endif
