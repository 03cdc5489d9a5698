#ifndef QIV_ACCESS_MANAGEMENT_ENTRY_GUARD_H
#define QIV_ACCESS_MANAGEMENT_ENTRY_GUARD_H

#include <PymSpiTypes.h>
#include <Qiv/LoggingWrapper.h>

#include <exception>

// What the library exports; everything else stays hidden.
#define QIV_VISIBLE __attribute__((visibility("default")))
#define QIV_EXPORT extern "C" QIV_VISIBLE

namespace QivAccessManagement {

// Runs one C entry point's body: no exception may reach a C caller, so one that escapes is
// logged under the entry's name and answered with -1.
template <class Call>
PymReturnT guarded(const char* entry, Call call) {
  try {
    return call();
  } catch (const std::exception& e) {
    Qiv::LoggingWrapper::log_printf(entry, 3, "Caught exception: %s", e.what());
  } catch (...) {
    Qiv::LoggingWrapper::log_printf(entry, 3, "Caught unknown exception");
  }
  return -1;
}

}  // namespace QivAccessManagement

#endif
