#include "AccessManagementComponent.h"

#include "LdapModel.h"

#include <Qiv/LoggingWrapper.h>
#include <Qiv/QivException.h>

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
      _transaction(nullptr),
      _objectImplementerV2(nullptr),
      _objectImplementerV3(nullptr),
      _threadContext(nullptr),
      _cmRouter(nullptr),
      _transactionMaster(nullptr),
      _started(false),
      _moLockHolder(0),
      _config(nullptr),
      _eventConsumerStarted(false),
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
  if (_started) {
    QIV_LOG(4, "%s is already started.", LdapModel::COMPONENT_NAME);
    return 0;
  }
  const PymReturnT result = startUp();
  QIV_TRACE(" << ");
  return result;
}

PymReturnT AccessManagementComponent::startUp() {
  if (!_initialized) {
    QIV_LOG(3, "Component not initialized!");
    return -1;
  }
  // Another access-management implementation takes precedence: step aside.
  if (getInterface(ACCESS_MANAGEMENT_V1_ID) != nullptr) {
    QIV_LOG(5, "Interface %s v.%s implemented - %s will not be used", ACCESS_MANAGEMENT_INTERFACE_NAME, "1",
            LdapModel::COMPONENT_NAME);
    return 0;
  }
  const PymReturnT found = findFrameworkServices();
  if (found != 0) return found;

  std::string methodDn;
  for (const char* classPath : {LdapModel::LDAP_AUTHENTICATION_METHOD_CLASS, LdapModel::LDAP_CLASS, LdapModel::FILTER_CLASS}) {
    const std::string dn = _configurationRunnable.getDnValue(classPath);
    if (dn.empty()) {
      QIV_LOG(4, "Could not find any instance of ('%s'), will not try to register as object implementer!", classPath);
      _started = true;
      return 0;
    }
    if (methodDn.empty()) methodDn = dn;
  }
  const bool orbelinFilterExists = !_configurationRunnable.getDnValue(LdapModel::ORBELIN_FILTER_CLASS).empty();

  PymReturnT result = unregisterAsObjectImplementer();
  if (result != 0) return result;
  std::vector<std::string> classPaths = {LdapModel::LDAP_AUTHENTICATION_METHOD_CLASS_PATH, LdapModel::LDAP_CLASS_PATH,
                                         LdapModel::FILTER_CLASS_PATH};
  if (orbelinFilterExists) classPaths.push_back(LdapModel::ORBELIN_FILTER_CLASS_PATH);
  result = registerAsObjectImplementer(classPaths);
  if (result != 0) {
    unregisterAsObjectImplementer();
    return result;
  }

  _configurationRunnable.init(_portalV1, methodDn, _config);
  if (_configurationRunnable.getUseQivAuthorization() && setenv("LDAPNOINIT", "true", 1) != 0)
    QIV_TRACE("Unable to set environment variable LDAPNOINT");
  if (_configurationRunnable.isTlsDnExists()) {
    QIV_TRACE("Tls DN exists , subscribing to the events on Tls DN");
    _eventConsumer.start(LdapModel::TLS_SUBSCRIPTION_PATTERN, &AccessManagementComponent::onTlsMoChange, this);
    _eventConsumerStarted = true;
  }
  // What was done above stays until the next start clears the registration.
  try {
    if (_configurationRunnable.readComponentConfiguration() != 0) {
      QIV_LOG(3, "Failed to parse the AccessManagementComponent configuration file.");
      return -1;
    }
  } catch (const Qiv::QivException& e) {
    QIV_LOG(3, "Failed to parse the AccessManagementComponent configuration file.");
    QIV_LOG(3, "%s", e.what());
    return -1;
  }

  const uint16_t waitSeconds = _configurationRunnable.getInitConfigTimeoutValue();
  if (waitSeconds != 0) {
    _configurationRunnable.setStartUpCondition(&_startUpCondition, &_startUpMutex);
    // Locked before the thread starts, so that its signal cannot come before the wait.
    _startUpMutex.lock();
  } else {
    _configurationRunnable.setStartUpCondition(nullptr, nullptr);
  }
  _started = true;
  QIV_TRACE("Start read/set initial configuration thread");
  _configurationThread.start(_configurationRunnable);
  if (waitSeconds == 0) return 0;
  return waitForInitialConfiguration(waitSeconds);
}

PymReturnT AccessManagementComponent::findFrameworkServices() {
  const PymMgmtSpiInterface_1 transactionId = {"PymOamSpiTransactionService", "PymOamSpiTransaction", "2"};
  _transaction = reinterpret_cast<PymOamSpiTransaction_2*>(getInterface(transactionId));
  if (_transaction == nullptr) return -1;

  _objectImplementerV3 = reinterpret_cast<PymOamSpiRegisterObjectImplementer_3*>(getInterface(REGISTER_OBJECT_IMPLEMENTER_V3_ID));
  if (_objectImplementerV3 != nullptr) {
    setOIVersion(OI_V3);
  } else {
    _objectImplementerV2 =
        reinterpret_cast<PymOamSpiRegisterObjectImplementer_2*>(getInterface(REGISTER_OBJECT_IMPLEMENTER_V2_ID));
    if (_objectImplementerV2 == nullptr) return -1;
    setOIVersion(OI_V2);
  }

  PymMgmtSpiInterface_1* threadContext = getInterface(THREAD_CONTEXT_ID);
  if (threadContext == nullptr) return -1;
  _threadContext = reinterpret_cast<PymMgmtSpiThreadContext_2*>(threadContext);
  _configurationRunnable.addExternalInterface(threadContext);
  // The configuration thread decrypts the bind password with the framework's crypto service.
  _configurationRunnable.addExternalInterface(getInterface(CRYPTO_ID));

  PymMgmtSpiInterface_1* found = nullptr;
  PymReturnT result = _portal->getInterface(CM_ROUTER_SERVICE, MANAGED_OBJECT, "3", &found);
  if (result != 0) return result;
  _cmRouter = reinterpret_cast<PymOamSpiManagedObject_3*>(found);
  result = _portal->getInterface(TRANSACTION_SERVICE, "PymOamSpiTransactionMaster", "2", &found);
  if (result != 0) return result;
  _transactionMaster = reinterpret_cast<PymOamSpiTransactionMaster_2*>(found);
  return 0;
}

PymReturnT AccessManagementComponent::waitForInitialConfiguration(uint16_t seconds) {
  QIV_TRACE("Waiting for startup signal from configuration thread");
  const bool signalled = _startUpCondition.tryWait(_startUpMutex, static_cast<long>(seconds) * 1000);
  _startUpMutex.unlock();
  if (signalled) {
    QIV_TRACE("Signal received from configuration thread. Initial configuration has been read and set");
    return 0;
  }
  QIV_LOG(3, "Timeout when waiting for reading/setting of initial configuration. Aborting component start-up.");
  stop(PymStateChangeFailure);
  return -1;
}

PymReturnT AccessManagementComponent::stop(PymStateChangeReason reason) {
  QIV_TRACE(" >> Reason: %d", static_cast<int>(reason));
  if (!_started) {
    QIV_LOG(4, "%s is already stopped.", LdapModel::COMPONENT_NAME);
    return 0;
  }
  if (_eventConsumerStarted) {
    _eventConsumer.stop();
    _eventConsumerStarted = false;
  }
  unregisterAsObjectImplementer();
  if (_configurationRunnable.getUseQivAuthorization() && unsetenv("LDAPNOINIT") != 0)
    QIV_TRACE("Unable to unset environment variable LDAPNOINT");
  try {
    _configurationRunnable.stop();
    if (_configurationThread.isRunning()) {
      QIV_TRACE("Read and set initial configuration thread is still running ...");
      if (_configurationThread.tryJoin(10000)) {
        QIV_TRACE("successfully stopped Read and set initial configuration thread");
      } else {
        QIV_LOG(4, "%s failed to join its Read and set initial configuration thread!", LdapModel::COMPONENT_NAME);
      }
    } else {
      // Ended on its own: collect it so that the next start can use the thread again.
      _configurationThread.join();
    }
  } catch (const Poco::SystemException& e) {
    QIV_LOG(3, "Thread: %s", e.displayText().c_str());
  }
  _started = false;
  _moLockHolder = 0;
  return 0;
}

PymReturnT AccessManagementComponent::addMessage(const std::string& text) {
  if (!_started || _threadContext == nullptr) {
    QIV_LOG(4, "%s is not started!", LdapModel::COMPONENT_NAME);
    return -1;
  }
  const std::string message = "@qivnbi@" + text;
  const PymReturnT result = _threadContext->addMessage(PymThreadContextMessageOperator, message.c_str());
  if (result != 0) QIV_LOG(4, "Failed (%d) to add message!", result);
  return result;
}

bool AccessManagementComponent::isValidMethod(const char* name) {
  if (equals(name, "LDAP") || equals(name, "default")) return true;
  QIV_LOG(4, "Method '%s' not supported", orNull(name));
  return false;
}

bool AccessManagementComponent::validTransactionHandle(unsigned long handle) {
  if (_moLockHolder == 0 || _moLockHolder == handle) return true;
  const char text[] = "MO locked for editing by an other user";
  QIV_LOG(4, "%s", text);
  addMessage(text);
  return false;
}

PymReturnT AccessManagementComponent::registerAsObjectImplementer(const std::vector<std::string>& classPaths) {
  for (const std::string& classPath : classPaths) {
    PymReturnT result = 0;
    if (_oiVersion == OI_V3) {
      QIV_TRACE("Registering (%s) with OI SPI V3", classPath.c_str());
      result = _objectImplementerV3->registerClass(LdapModel::COMPONENT_NAME, classPath.c_str());
    } else {
      QIV_TRACE("Registering (%s) with OI SPI V2", classPath.c_str());
      result = _objectImplementerV2->registerClass(&_managedObject3.base, &_transactionalResource.base, classPath.c_str());
    }
    if (result != 0) {
      QIV_LOG(4, "Failed (%d) to register as an object implementer for '%s'", result, classPath.c_str());
      unregisterAsObjectImplementer();
      return result;
    }
    QIV_TRACE("%s registered itself successfully as object implementer for '%s'", LdapModel::COMPONENT_NAME,
              classPath.c_str());
    _registeredClassPaths.push_back(classPath);
  }
  return 0;
}

PymReturnT AccessManagementComponent::unregisterAsObjectImplementer() {
  if (_registeredClassPaths.empty()) return 0;
  PymReturnT result = 0;
  std::vector<std::string> remaining;
  for (const std::string& classPath : _registeredClassPaths) {
    if (_oiVersion == OI_V3) {
      QIV_TRACE("Unregistering (%s) with OI SPI V3", LdapModel::COMPONENT_NAME);
      result = _objectImplementerV3->unregisterClass(LdapModel::COMPONENT_NAME, classPath.c_str());
    } else {
      QIV_TRACE("Unregistering (%s) with OI SPI V2", LdapModel::COMPONENT_NAME);
      result = _objectImplementerV2->unregisterClass(LdapModel::COMPONENT_NAME, classPath.c_str());
    }
    if (result == PymNotExist) {
      // Nothing is registered any more.
      QIV_LOG(4, "Failed (%d) to unregister as an object implementer for '%s' (-2, PymNotExist)", result,
              classPath.c_str());
    } else if (result != 0) {
      QIV_LOG(4, "Failed (%d) to unregister as an object implementer for '%s'", result, classPath.c_str());
      remaining.push_back(classPath);
    }
  }
  _registeredClassPaths = remaining;
  if (remaining.empty()) return result;
  for (const std::string& classPath : remaining)
    QIV_LOG(4, "%s still registered as object implementer for '%s'", LdapModel::COMPONENT_NAME, classPath.c_str());
  return -1;
}

void AccessManagementComponent::onTlsMoChange(const PymOamSpiCmEvent_Notification_1& notification) {
  QIV_TRACE(" >> ");
  Poco::FastMutex::ScopedLock lock(_mutex);
  for (PymOamSpiCmEvent_1** event = notification.events; event != nullptr && *event != nullptr; ++event) {
    if ((*event)->eventType != PymOamSpiCmEvent_AttributeValueChange) continue;
    for (PymMoNamedAttributeValueContainer_3** attribute = (*event)->attributes; attribute != nullptr && *attribute != nullptr;
         ++attribute) {
      const PymMoAttributeValueContainer_3& value = (*attribute)->value;
      if (!equals((*attribute)->name, LdapModel::CIPHER_FILTER) || value.type != PymMoValueType_String ||
          value.nrOfValues == 0 || value.values == nullptr)
        continue;
      _configurationRunnable.cipherReconfiguration(value.values[0].theString != nullptr ? value.values[0].theString : "");
    }
  }
  QIV_TRACE(" << ");
}

ConfigurationRunnable& AccessManagementComponent::getConfigurationRunnable() { return _configurationRunnable; }

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
