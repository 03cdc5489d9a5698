// The library's C entry points. Nothing may throw across them.
#include "AccessManagementComponent.h"

#include <Qiv/LoggingWrapper.h>

#include <exception>

#define QIV_EXPORT extern "C" __attribute__((visibility("default")))

using QivAccessManagement::AccessManagementComponent;

namespace {

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

}  // namespace

QIV_EXPORT PymReturnT pymLCMinit(PymMgmtSpiInterfacePortalAccessor* accessor, const char* config) {
  return guarded("pymLCMinit", [&] { return AccessManagementComponent::instance().lib_init(accessor, config); });
}

QIV_EXPORT PymReturnT pymLCMterminate() {
  return guarded("pymLCMterminate", [] { return AccessManagementComponent::instance().lib_term(); });
}
