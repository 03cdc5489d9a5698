#include "StartedComponent.h"

#include "AccessManagementComponent.h"

#include <stdexcept>
#include <string>

namespace Bench {

namespace {

QivAccessManagement::AccessManagementComponent& component() {
  return QivAccessManagement::AccessManagementComponent::instance();
}

}  // namespace

StartedComponent::StartedComponent(Framework::ManagementFramework& framework, const char* config) {
  const PymReturnT initialised = component().lib_init(framework.accessor(), config);
  if (initialised != 0) throw std::runtime_error("lib_init failed (" + std::to_string(initialised) + ")");
  const PymReturnT started = component().start(PymStateChangeStartup);
  // start also answers 0 when it chose not to run (another implementation, no LDAP objects).
  if (started != 0 || !component().isStarted()) {
    // Undoes whatever part of start ran; a no-op for a component that is not started.
    component().stop(PymStateChangeFailure);
    component().lib_term();
    throw std::runtime_error("start failed (" + std::to_string(started) + ")");
  }
}

StartedComponent::~StartedComponent() {
  component().stop(PymStateChangeShutdown);
  component().lib_term();
}

}  // namespace Bench
