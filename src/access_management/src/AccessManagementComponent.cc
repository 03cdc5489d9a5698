#include "AccessManagementComponent.h"

#include "LdapModel.h"

#include <Qiv/LoggingWrapper.h>

#include <cstdlib>
#include <cstring>
#include <map>

namespace QivAccessManagement {

namespace {

const char* orNull(const char* text) { return text != nullptr ? text : "null"; }

bool equals(const char* text, const char* expected) { return text != nullptr && std::strcmp(text, expected) == 0; }

const char REGISTER_OBJECT_IMPLEMENTER[] = "PymOamSpiRegisterObjectImplementer";
const char CM_ROUTER_SERVICE[] = "PymOamSpiCmRouterService";
const char MANAGED_OBJECT[] = "PymOamSpiManagedObject";
const char TRANSACTION_SERVICE[] = "PymOamSpiTransactionService";

// Required dependencies after the platform portal, in descriptor order. The trace interface is
// wanted in any version.
PymMgmtSpiInterface_1 TRACE_ID = {nullptr, "PymMwSpiTrace", nullptr};
PymMgmtSpiInterface_1 LOG_ID = {nullptr, "PymMwSpiLog", "1"};
PymMgmtSpiInterface_1 THREAD_CONTEXT_ID = {"PymMgmtSpiThreadContextService", "PymMgmtSpiThreadContext", "2"};
PymMgmtSpiInterface_1 CM_ROUTER_V1_ID = {CM_ROUTER_SERVICE, MANAGED_OBJECT, "1"};
PymMgmtSpiInterface_1 EXT_CM_ROUTER_ID = {"QivOamSpiExtCmRouterService", "QivOamSpiManagedObject", "3"};
PymMgmtSpiInterface_1 CM_ROUTER_V3_ID = {CM_ROUTER_SERVICE, MANAGED_OBJECT, "3"};
PymMgmtSpiInterface_1 CM_ROUTER_V3_1_ID = {CM_ROUTER_SERVICE, MANAGED_OBJECT, "3_1"};
PymMgmtSpiInterface_1 TRANSACTION_MASTER_ID = {TRANSACTION_SERVICE, "PymOamSpiTransactionMaster", "2"};
PymMgmtSpiInterface_1 TRANSACTION_ID = {TRANSACTION_SERVICE, "PymOamSpiTransaction", "2"};

PymMgmtSpiInterface_1 REGISTER_OBJECT_IMPLEMENTER_V2_ID = {nullptr, REGISTER_OBJECT_IMPLEMENTER, "2"};
PymMgmtSpiInterface_1 REGISTER_OBJECT_IMPLEMENTER_V3_ID = {nullptr, REGISTER_OBJECT_IMPLEMENTER, "3"};

}  // namespace

const char AccessManagementComponent::ACCESS_MANAGEMENT_INTERFACE_NAME[] = "PymMwSpiAccessManagement";
const char AccessManagementComponent::CRYPTO_INTERFACE_NAME[] = "PymMwSpiCrypto";
const PymMgmtSpiInterface_1 AccessManagementComponent::ACCESS_MANAGEMENT_V1_ID = {
    nullptr, AccessManagementComponent::ACCESS_MANAGEMENT_INTERFACE_NAME, "1"};
const PymMgmtSpiInterface_1 AccessManagementComponent::CRYPTO_ID = {
    nullptr, AccessManagementComponent::CRYPTO_INTERFACE_NAME, "1"};

AccessManagementComponent::AccessManagementComponent()
    : Qiv::PymComponent<AccessManagementComponent>(LdapModel::COMPONENT_NAME),
      _oiVersion(OI_V3),
      _accessManagement(),
      _managedObject1(),
      _managedObject3(),
      _transactionalResource(),
      _started(false),
      _config(nullptr),
      _initialized(false) {
  _accessManagement.base = {LdapModel::COMPONENT_NAME, ACCESS_MANAGEMENT_INTERFACE_NAME, "2"};
  _managedObject1.base = {LdapModel::COMPONENT_NAME, MANAGED_OBJECT, "1"};
  _managedObject3.base = {LdapModel::COMPONENT_NAME, MANAGED_OBJECT, "3"};
  _transactionalResource.base = {LdapModel::COMPONENT_NAME, "PymOamSpiTransactionalResource", "2"};

  _interfaces = {&_accessManagement.base, &_managedObject1.base, &_managedObject3.base,
                 &_transactionalResource.base};
  for (PymMgmtSpiInterface_1* dependency :
       {&TRACE_ID, &LOG_ID, &THREAD_CONTEXT_ID, &CM_ROUTER_V1_ID, &EXT_CM_ROUTER_ID, &CM_ROUTER_V3_ID,
        &CM_ROUTER_V3_1_ID, &TRANSACTION_MASTER_ID, &TRANSACTION_ID})
    _dependencies.push_back(dependency);
  _optionalDependencies = {&REGISTER_OBJECT_IMPLEMENTER_V2_ID, &REGISTER_OBJECT_IMPLEMENTER_V3_ID};
}

AccessManagementComponent::~AccessManagementComponent() { delete[] _config; }

PymReturnT AccessManagementComponent::initialize(const char* config) {
  if (_initialized) {
    QIV_LOG(3, "Component already initialized!");
    return -1;
  }
  if (config != nullptr) {
    const std::size_t length = std::strlen(config);
    _config = new char[length + 1];
    std::memcpy(_config, config, length + 1);
  }
  _initialized = true;
  return 0;
}

PymReturnT AccessManagementComponent::terminate() {
  delete[] _config;
  _config = nullptr;
  _initialized = false;
  return 0;
}

PymReturnT AccessManagementComponent::start(PymStateChangeReason reason) {
  QIV_TRACE(" >> Reason: %d", static_cast<int>(reason));
  // The start-up sequence arrives together with the configuration thread.
  QIV_LOG(3, "%s cannot be started by this build", LdapModel::COMPONENT_NAME);
  return -1;
}

PymReturnT AccessManagementComponent::stop(PymStateChangeReason reason) {
  QIV_TRACE(" >> Reason: %d", static_cast<int>(reason));
  if (!_started) QIV_LOG(4, "%s is already stopped.", LdapModel::COMPONENT_NAME);
  return 0;
}

bool AccessManagementComponent::isStarted() const { return _started; }

bool AccessManagementComponent::isInitialized() const { return _initialized; }

const char* AccessManagementComponent::getConfig() const { return _config; }

OIVersion AccessManagementComponent::getOIVersion() const { return _oiVersion; }

void AccessManagementComponent::setOIVersion(OIVersion version) { _oiVersion = version; }

PymMgmtSpiInterface_1* AccessManagementComponent::getInterface(const PymMgmtSpiInterface_1& id) {
  QIV_TRACE(" >> Try to get interface %s v.%s implemented by %s", orNull(id.interfaceName),
            orNull(id.interfaceVersion), orNull(id.componentName));
  PymMgmtSpiInterface_1* result = nullptr;
  PymReturnT code = PymNotExist;
  if (equals(id.interfaceName, REGISTER_OBJECT_IMPLEMENTER) &&
      (equals(id.interfaceVersion, "3") || equals(id.interfaceVersion, "2"))) {
    result = getInterface(id.interfaceName, id.interfaceVersion, {"RegisterObjectImplementerUtilMgmtComponent"});
    if (result != nullptr) code = PymOk;
  } else if (id.interfaceName == CRYPTO_INTERFACE_NAME) {
    result = getInterface(CRYPTO_INTERFACE_NAME, "1", {"FtCryptoComponent"});
    if (result != nullptr) code = PymOk;
  } else if (_portal != nullptr) {
    code = _portal->getInterface(id.componentName, id.interfaceName, id.interfaceVersion, &result);
  }
  if (code != PymOk || result == nullptr) {
    result = nullptr;
    // The competing access-management implementation is normally absent: not worth a warning.
    if (id.interfaceName != ACCESS_MANAGEMENT_INTERFACE_NAME)
      QIV_LOG(4, "Failed (%i) to get interface %s v.%s implemented by %s", code, orNull(id.interfaceName),
              orNull(id.interfaceVersion), orNull(id.componentName));
  }
  QIV_TRACE(" << ");
  return result;
}

PymMgmtSpiInterface_1* AccessManagementComponent::getInterface(const std::string& name, const std::string& version,
                                                               const std::vector<std::string>& notWanted) {
  if (_portal == nullptr) return nullptr;
  PymMgmtSpiInterface_1** implementations = nullptr;
  const PymReturnT code = _portal->getImplementations(name.c_str(), version.c_str(), &implementations);
  PymMgmtSpiInterface_1* result = nullptr;
  if (code == PymOk && implementations != nullptr) {
    std::map<std::string, std::size_t> byComponent;
    for (std::size_t i = 0; implementations[i] != nullptr; ++i)
      byComponent[orNull(implementations[i]->componentName)] = i;
    for (const std::string& component : notWanted) {
      if (byComponent.size() < 2) break;
      byComponent.erase(component);
    }
    if (!byComponent.empty()) result = implementations[byComponent.begin()->second];
  }
  std::free(implementations);
  return result;
}

}  // namespace QivAccessManagement
