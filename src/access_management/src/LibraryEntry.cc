// The library's C entry points. Nothing may throw across them.
#include "AccessManagementComponent.h"
#include "EntryGuard.h"

using QivAccessManagement::AccessManagementComponent;
using Qiv::guarded;

QIV_EXPORT PymReturnT pymLCMinit(PymMgmtSpiInterfacePortalAccessor* accessor, const char* config) {
  return guarded("pymLCMinit", [&] { return AccessManagementComponent::instance().lib_init(accessor, config); });
}

QIV_EXPORT PymReturnT pymLCMterminate() {
  return guarded("pymLCMterminate", [] { return AccessManagementComponent::instance().lib_term(); });
}
