#include <Framework/InterfacePortal.h>

#include <Framework/ManagementFramework.h>
#include <PymMwSpiLogTrace.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace Framework {

namespace {

template <class Body>
PymReturnT withPortal(Body&& body) {
  return ManagementFramework::withCurrent([&](ManagementFramework& framework) { return body(framework.portal()); });
}

PymReturnT getInterface(const char* componentName, const char* interfaceName, const char* interfaceVersion,
                        PymMgmtSpiInterface_1** result) {
  return withPortal([&](InterfacePortal& portal) {
    return portal.getInterface(componentName, interfaceName, interfaceVersion, result);
  });
}

PymReturnT getImplementations(const char* interfaceName, const char* interfaceVersion,
                              PymMgmtSpiInterface_1*** result) {
  return withPortal(
      [&](InterfacePortal& portal) { return portal.getImplementations(interfaceName, interfaceVersion, result); });
}

PymReturnT registerComponent(PymMgmtSpiComponent_2* component) {
  return withPortal([&](InterfacePortal& portal) { return portal.registerComponent(component); });
}

PymReturnT unregisterComponent(PymMgmtSpiComponent_2* component) {
  return withPortal([&](InterfacePortal& portal) { return portal.unregisterComponent(component); });
}

void* getPortal(const char* version) {
  ManagementFramework* framework = ManagementFramework::current();
  return framework == nullptr ? nullptr : framework->portal().portal(version);
}

const char* const kPortalService = "PymMgmtSpiPortalService";

PymMgmtSpiInterfacePortalAccessor accessorTable = {
    {kPortalService, "PymMgmtSpiInterfacePortalAccessor", "1"}, getPortal};
PymMgmtSpiInterfacePortal_3 portal3Table = {{kPortalService, "PymMgmtSpiInterfacePortal", "3"},
                                            getInterface,
                                            getImplementations,
                                            registerComponent,
                                            unregisterComponent};
QivMgmtSpiInterfacePortal_1 portal1Table = {{"QivMgmtSpiPortalService", "QivMgmtSpiInterfacePortal", "1"},
                                            getInterface};

bool sameOrAny(const char* wanted, const char* offered) {
  return wanted == nullptr || std::strcmp(wanted, offered) == 0;
}

std::string orAny(const char* text) { return text == nullptr ? "(any)" : text; }

}  // namespace

InterfacePortal::InterfacePortal(LogCapture& log) : _log(log), _registerCalls(0), _unregisterCalls(0) {}

PymMgmtSpiInterfacePortalAccessor* InterfacePortal::accessor() { return &accessorTable; }

std::vector<PymMgmtSpiInterface_1*> InterfacePortal::interfaces() { return {&portal1Table.base}; }

PymReturnT InterfacePortal::getInterface(const char* componentName, const char* interfaceName,
                                         const char* interfaceVersion, PymMgmtSpiInterface_1** result) const {
  if (interfaceName == nullptr || result == nullptr) return PymInvalidParameter;
  std::lock_guard<std::mutex> lock(_mutex);
  if (interfaceVersion != nullptr) {
    const auto scripted = _interfaceAnswers.find({interfaceName, interfaceVersion});
    if (scripted != _interfaceAnswers.end()) {
      if (const std::optional<PymReturnT> answer = scripted->second.take()) return *answer;
    }
  }
  for (const Offer& offer : _offers) {
    if (matches(offer, componentName, interfaceName, interfaceVersion)) {
      *result = offer.table;
      return PymOk;
    }
  }
  return PymNotExist;
}

PymReturnT InterfacePortal::getImplementations(const char* interfaceName, const char* interfaceVersion,
                                               PymMgmtSpiInterface_1*** result) const {
  if (interfaceName == nullptr || result == nullptr) return PymInvalidParameter;
  std::lock_guard<std::mutex> lock(_mutex);
  std::vector<PymMgmtSpiInterface_1*> found;
  for (const Offer& offer : _offers) {
    if (matches(offer, nullptr, interfaceName, interfaceVersion)) found.push_back(offer.table);
  }
  const std::optional<PymReturnT> scripted = _implementationsAnswers.take();
  if (!scripted && found.empty()) return PymNotExist;
  auto** array = static_cast<PymMgmtSpiInterface_1**>(std::calloc(found.size() + 1, sizeof(void*)));
  if (array == nullptr) throw std::bad_alloc();
  std::copy(found.begin(), found.end(), array);
  *result = array;
  return scripted ? *scripted : PymOk;
}

PymReturnT InterfacePortal::registerComponent(PymMgmtSpiComponent_2* component) {
  std::lock_guard<std::mutex> lock(_mutex);
  ++_registerCalls;
  if (const std::optional<PymReturnT> answer = _registerAnswers.take()) return *answer;
  if (component == nullptr || !complete(&component->base)) return PymInvalidParameter;
  // A component registering its descriptor again (a second pymLCMinit) stays registered once.
  if (std::find(_components.begin(), _components.end(), component) != _components.end()) return PymOk;
  std::vector<Offer> added;
  for (PymMgmtSpiInterface_1** table = component->interfaceArray; table != nullptr && *table != nullptr; ++table) {
    if (!complete(*table)) return PymInvalidParameter;
    const auto sameIdentity = [&](const Offer& offer) {
      return matches(offer, (*table)->componentName, (*table)->interfaceName, (*table)->interfaceVersion);
    };
    if (offered(**table) || std::any_of(added.begin(), added.end(), sameIdentity)) return PymAlreadyExist;
    added.push_back(Offer{*table, component});
  }
  _offers.insert(_offers.end(), added.begin(), added.end());
  _components.push_back(component);
  return PymOk;
}

PymReturnT InterfacePortal::unregisterComponent(PymMgmtSpiComponent_2* component) {
  std::lock_guard<std::mutex> lock(_mutex);
  ++_unregisterCalls;
  const auto found = std::find(_components.begin(), _components.end(), component);
  if (found == _components.end()) return PymNotExist;
  _components.erase(found);
  _offers.erase(std::remove_if(_offers.begin(), _offers.end(),
                               [&](const Offer& offer) { return offer.owner == component; }),
                _offers.end());
  return PymOk;
}

PymMgmtSpiInterface_1* InterfacePortal::componentInterface(const std::string& componentName,
                                                           const std::string& interfaceName,
                                                           const std::string& interfaceVersion) const {
  std::lock_guard<std::mutex> lock(_mutex);
  for (const Offer& offer : _offers) {
    if (offer.owner != nullptr &&
        matches(offer, componentName.c_str(), interfaceName.c_str(), interfaceVersion.c_str())) {
      return offer.table;
    }
  }
  return nullptr;
}

PymReturnT InterfacePortal::startComponents(PymStateChangeReason reason) {
  PymReturnT result = PymOk;
  for (PymMgmtSpiComponent_2* component : components()) {
    PymReturnT code = PymNotExist;
    if (dependenciesPresent(*component)) {
      code = component->start == nullptr ? PymOk : component->start(reason);
      if (code != PymOk) {
        _log.record(PymLogError, "startComponents",
                    std::string(component->base.componentName) + ": start failed (" + std::to_string(code) + ")");
      }
    }
    if (result == PymOk) result = code;
  }
  return result;
}

PymReturnT InterfacePortal::stopComponents(PymStateChangeReason reason) {
  PymReturnT result = PymOk;
  std::vector<PymMgmtSpiComponent_2*> registered = components();
  for (auto component = registered.rbegin(); component != registered.rend(); ++component) {
    const PymReturnT code = (*component)->stop == nullptr ? PymOk : (*component)->stop(reason);
    if (code != PymOk) {
      _log.record(PymLogError, "stopComponents",
                  std::string((*component)->base.componentName) + ": stop failed (" + std::to_string(code) + ")");
    }
    if (result == PymOk) result = code;
  }
  return result;
}

void InterfacePortal::offerPortal(const std::string& version, bool offered) {
  std::lock_guard<std::mutex> lock(_mutex);
  if (offered) {
    _withheldPortals.erase(version);
  } else {
    _withheldPortals.insert(version);
  }
}

void InterfacePortal::answerNextRegisterComponent(PymReturnT code) {
  std::lock_guard<std::mutex> lock(_mutex);
  _registerAnswers.push(code);
}

void InterfacePortal::answerNextGetImplementations(PymReturnT code) {
  std::lock_guard<std::mutex> lock(_mutex);
  _implementationsAnswers.push(code);
}

void InterfacePortal::answerNextGetInterface(const std::string& interfaceName, const std::string& interfaceVersion,
                                             PymReturnT code) {
  std::lock_guard<std::mutex> lock(_mutex);
  _interfaceAnswers[{interfaceName, interfaceVersion}].push(code);
}

bool InterfacePortal::addInterface(PymMgmtSpiInterface_1* table) {
  std::lock_guard<std::mutex> lock(_mutex);
  if (!complete(table) || offered(*table)) return false;
  _offers.push_back(Offer{table, nullptr});
  return true;
}

bool InterfacePortal::removeInterface(const std::string& componentName, const std::string& interfaceName,
                                      const std::string& interfaceVersion) {
  std::lock_guard<std::mutex> lock(_mutex);
  const auto found = std::find_if(_offers.begin(), _offers.end(), [&](const Offer& offer) {
    return matches(offer, componentName.c_str(), interfaceName.c_str(), interfaceVersion.c_str());
  });
  if (found == _offers.end()) return false;
  _offers.erase(found);
  return true;
}

std::vector<PymMgmtSpiComponent_2*> InterfacePortal::components() const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _components;
}

unsigned InterfacePortal::registerComponentCalls() const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _registerCalls;
}

unsigned InterfacePortal::unregisterComponentCalls() const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _unregisterCalls;
}

void* InterfacePortal::portal(const char* version) const {
  if (version == nullptr) return nullptr;
  std::lock_guard<std::mutex> lock(_mutex);
  if (_withheldPortals.count(version) != 0) return nullptr;
  if (std::strcmp(version, "3") == 0) return &portal3Table;
  if (std::strcmp(version, "1") == 0) return &portal1Table;
  return nullptr;
}

bool InterfacePortal::matches(const Offer& offer, const char* componentName, const char* interfaceName,
                              const char* interfaceVersion) {
  const PymMgmtSpiInterface_1& identity = *offer.table;
  return sameOrAny(componentName, identity.componentName) && sameOrAny(interfaceName, identity.interfaceName) &&
         sameOrAny(interfaceVersion, identity.interfaceVersion);
}

bool InterfacePortal::complete(const PymMgmtSpiInterface_1* identity) {
  return identity != nullptr && identity->componentName != nullptr && identity->interfaceName != nullptr &&
         identity->interfaceVersion != nullptr;
}

bool InterfacePortal::offered(const PymMgmtSpiInterface_1& identity) const {
  return std::any_of(_offers.begin(), _offers.end(), [&](const Offer& offer) {
    return matches(offer, identity.componentName, identity.interfaceName, identity.interfaceVersion);
  });
}

bool InterfacePortal::dependenciesPresent(const PymMgmtSpiComponent_2& component) const {
  bool present = true;
  for (PymMgmtSpiInterface_1** dependency = component.dependencyArray; dependency != nullptr && *dependency != nullptr;
       ++dependency) {
    PymMgmtSpiInterface_1* found = nullptr;
    const PymMgmtSpiInterface_1& wanted = **dependency;
    if (getInterface(wanted.componentName, wanted.interfaceName, wanted.interfaceVersion, &found) != PymOk) {
      _log.record(PymLogError, "startComponents",
                  std::string(component.base.componentName) + ": missing dependency " + orAny(wanted.interfaceName) +
                      " version " + orAny(wanted.interfaceVersion) + " of " + orAny(wanted.componentName));
      present = false;
    }
  }
  return present;
}

}  // namespace Framework
