#include "LoadedComponent.h"

#include <stdexcept>

namespace Bench {

namespace {

const char METHOD[] = "LDAP";

void require(PymReturnT result, const char* call) {
  if (result != 0) throw std::runtime_error(std::string(call) + " failed (" + std::to_string(result) + ")");
}

}  // namespace

LoadedComponent::LoadedComponent(Framework::ManagementFramework& framework, const std::string& libraryPath)
    : _framework(framework), _library(libraryPath), _descriptor(nullptr), _accessManagement(nullptr) {}

LoadedComponent::~LoadedComponent() {
  if (_descriptor == nullptr) return;
  // A no-op for a component that is not started.
  _descriptor->stop(PymStateChangeShutdown);
  _library.terminate();
}

void LoadedComponent::initialize(const char* config) {
  require(_library.init(_framework.accessor(), config), "pymLCMinit");
  if (_framework.portal().components().empty()) throw std::runtime_error("pymLCMinit registered no component");
  _descriptor = _framework.portal().components().front();
  // The offered tables in the descriptor's order: access management first.
  _accessManagement = reinterpret_cast<const PymMwSpiAccessManagement_2*>(_descriptor->interfaceArray[0]);
}

void LoadedComponent::start() { require(_descriptor->start(PymStateChangeStartup), "start"); }

void LoadedComponent::stop() { require(_descriptor->stop(PymStateChangeShutdown), "stop"); }

void LoadedComponent::terminate() {
  require(_library.terminate(), "pymLCMterminate");
  _descriptor = nullptr;
  _accessManagement = nullptr;
}

std::vector<std::string> LoadedComponent::roles(const char* user) const {
  std::vector<std::string> names;
  require(answer(user, names), "getRoles");
  return names;
}

int LoadedComponent::answer(const char* user, std::vector<std::string>& names) const {
  const char** roles = nullptr;
  const int code = _accessManagement->getRoles(METHOD, user, &roles);
  if (code != 0) return code;
  names.clear();
  for (const char** role = roles; role != nullptr && *role != nullptr; ++role) names.emplace_back(*role);
  require(_accessManagement->freeRoles(METHOD, roles), "freeRoles");
  return 0;
}

}  // namespace Bench
