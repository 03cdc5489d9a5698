#include "AccessManagementComponent.h"

#include "AmEntryPoints.h"
#include "LdapModel.h"
#include "MoAttributeValueCopy.h"
#include "QiveaSearchArguments.h"
#include "TextEquals.h"

#include <Qiv/LoggingWrapper.h>
#include <Qiv/QivException.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>

namespace QivAccessManagement {

namespace {

const char* orNull(const char* text) { return text != nullptr ? text : "null"; }


const char REGISTER_OBJECT_IMPLEMENTER[] = "PymOamSpiRegisterObjectImplementer";
const char CM_ROUTER_SERVICE[] = "PymOamSpiCmRouterService";
const char MANAGED_OBJECT[] = "PymOamSpiManagedObject";
const char TRANSACTION_SERVICE[] = "PymOamSpiTransactionService";
// readComponentConfiguration's answer for an invalid port or TLS mode.
const int INVALID_COMPONENT_FILE_VALUE = -9;

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
      _previousUseTlsSet(false),
      _previousBaseDnSet(false),
      _configurationChanged(false),
      _moRefsChanged(false),
      _resubscribed(false),
      _applyOnCommit(false),
      _builtInLdap(&_ldapTlsWrapper),
      _amLdap(&_builtInLdap),
      _secUaiWrapper("libsec_acs_api.so.1"),
      _attributeWriter(_configurationRunnable),
      _configurationThreadUnjoined(false),
      _config(nullptr),
      _eventConsumerStarted(false),
      _initialized(false) {
  _accessManagement = {{LdapModel::COMPONENT_NAME, ACCESS_MANAGEMENT_INTERFACE_NAME, "2"}, am_getRoles_2, am_freeRoles_2};
  _managedObject1 = {{LdapModel::COMPONENT_NAME, MANAGED_OBJECT, "1"},
                     am_setMoAttribute_1,
                     am_getMoAttribute_1,
                     am_newMoIterator_1,
                     am_nextMo_1,
                     am_createMo_1,
                     am_deleteMo_1,
                     am_action_1};
  _managedObject3 = {{LdapModel::COMPONENT_NAME, MANAGED_OBJECT, "3"},
                     am_setMoAttribute_3,
                     am_getMoAttribute_3,
                     am_getMoAttributes_3,
                     am_newMoIterator_3,
                     am_nextMo_3,
                     am_createMo_3,
                     am_deleteMo_3,
                     am_action_3,
                     am_finalizeMoIterator_3,
                     am_existsMo_3,
                     am_countMoChildren_3};
  _transactionalResource = {{LdapModel::COMPONENT_NAME, "PymOamSpiTransactionalResource", "2"},
                            am_join_2,
                            am_prepare_2,
                            am_commit_2,
                            am_abort_2,
                            am_finish_2,
                            am_validate_2};

  _interfaces = {&_accessManagement.base, &_managedObject1.base, &_managedObject3.base,
                 &_transactionalResource.base};
  for (PymMgmtSpiInterface_1* dependency :
       {&TRACE_ID, &LOG_ID, &THREAD_CONTEXT_ID, &CM_ROUTER_V1_ID, &EXT_CM_ROUTER_ID, &CM_ROUTER_V3_ID,
        &CM_ROUTER_V3_1_ID, &TRANSACTION_MASTER_ID, &TRANSACTION_ID})
    _dependencies.push_back(dependency);
  _optionalDependencies = {&REGISTER_OBJECT_IMPLEMENTER_V2_ID, &REGISTER_OBJECT_IMPLEMENTER_V3_ID};
  _configurationRunnable.setOperatorMessages(this);
}

AccessManagementComponent::~AccessManagementComponent() {
  releaseAttributeValueContainerMaps(_moLockHolder);
  delete[] _config;
}

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

  _ldapAttrSync.init(_configurationRunnable);
  _userManagementAttrSync.init(_configurationRunnable);
  _orbelinFilterAttrSync.init(_configurationRunnable);
  _configurationRunnable.init(_portalV1, methodDn, _config);
  if (_configurationRunnable.getUseQivAuthorization() && setenv("LDAPNOINIT", "true", 1) != 0)
    QIV_TRACE("Unable to set environment variable LDAPNOINT");
  if (_configurationRunnable.isTlsDnExists()) {
    QIV_TRACE("Tls DN exists , subscribing to the events on Tls DN");
    _eventConsumer.start(LdapModel::TLS_SUBSCRIPTION_PATTERN, &AccessManagementComponent::onTlsMoChange, this);
    _eventConsumerStarted = true;
  }
  // What was done above stays until the next start clears the registration. An invalid port or
  // TLS mode (-9) only marks the record: the initial read decides whether it matters.
  try {
    const int read = _configurationRunnable.readComponentConfiguration(_config);
    if (read != 0 && read != INVALID_COMPONENT_FILE_VALUE) {
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
  // A thread that an earlier stop gave up on may have ended since: collect it before reuse.
  if (_configurationThreadUnjoined && !_configurationThread.isRunning()) joinConfigurationThread();
  try {
    _configurationThread.start(_configurationRunnable);
    _configurationThreadUnjoined = true;
  } catch (...) {
    // A thread an earlier stop could not join still runs: nothing will signal, so nothing may
    // stay locked or look started.
    if (waitSeconds != 0) _startUpMutex.unlock();
    _started = false;
    throw;
  }
  if (waitSeconds == 0) return 0;
  return waitForInitialConfiguration(waitSeconds);
}

PymReturnT AccessManagementComponent::findFrameworkServices() {
  _transaction = reinterpret_cast<PymOamSpiTransaction_2*>(getInterface(TRANSACTION_ID));
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
  _ldapAttrSync.deregisterInterceptor();
  _userManagementAttrSync.deregisterInterceptor();
  _orbelinFilterAttrSync.deregisterInterceptor();
  unregisterAsObjectImplementer();
  if (_configurationRunnable.getUseQivAuthorization() && unsetenv("LDAPNOINIT") != 0)
    QIV_TRACE("Unable to unset environment variable LDAPNOINT");
  {
    Poco::FastMutex::ScopedLock lock(_transactionMutex);
    _applyOnCommit = false;
  }
  try {
    _configurationRunnable.stop();
    if (_configurationThread.isRunning()) {
      QIV_TRACE("Read and set initial configuration thread is still running ...");
      if (_configurationThread.tryJoin(10000)) {
        _configurationThreadUnjoined = false;
        QIV_TRACE("successfully stopped Read and set initial configuration thread");
      } else {
        QIV_LOG(4, "%s failed to join its Read and set initial configuration thread!", LdapModel::COMPONENT_NAME);
      }
    } else if (_configurationThreadUnjoined) {
      // Ended on its own: collect it so that the next start can use the thread again.
      joinConfigurationThread();
    }
  } catch (const Poco::SystemException& e) {
    QIV_LOG(3, "Thread: %s", e.displayText().c_str());
  }
  Poco::FastMutex::ScopedLock lock(_transactionMutex);
  _started = false;
  releaseMoLock();
  return 0;
}

void AccessManagementComponent::joinConfigurationThread() {
  _configurationThread.join();
  _configurationThreadUnjoined = false;
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
  if (textEquals(name, "LDAP") || textEquals(name, "default")) return true;
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
      if (!textEquals((*attribute)->name, LdapModel::CIPHER_FILTER) || value.type != PymMoValueType_String ||
          value.nrOfValues == 0 || value.values == nullptr)
        continue;
      _configurationRunnable.cipherReconfiguration(value.values[0].theString != nullptr ? value.values[0].theString : "");
    }
  }
  QIV_TRACE(" << ");
}

PymReturnT AccessManagementComponent::setMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                                     const PymMoAttributeValueContainer_3* value) {
  QIV_TRACE(" >> txHandle: %lu, dn: %s, attr: %s", txHandle, orNull(dn), orNull(attributeName));
  if (txHandle == 0 || dn == nullptr || attributeName == nullptr) return PymInvalidParameter;
  Poco::FastMutex::ScopedLock lock(_transactionMutex);
  if (!validTransactionHandle(txHandle)) return PymFailure;
  if (_moLockHolder == 0) {
    // The first write of this transaction: it edits a copy of the thread's current record.
    _moLockHolder = txHandle;
    _editedConfiguration = _configurationRunnable.getLdapConfiguration();
    _previousReferences = {_configurationRunnable.getNodeCredentialMoRef(),
                           _configurationRunnable.getTrustCategoryMoRef()};
    _editedReferences = _previousReferences;
    _previousUseTlsSet = _configurationRunnable.isUseTlsSet();
    _previousBaseDnSet = _configurationRunnable.isBaseDnSet();
  }
  switch (_attributeWriter.write(_editedConfiguration, _editedReferences, dn, attributeName, value)) {
    case LdapAttributeWriter::REFUSED:
      QIV_LOG(4, "%s", _attributeWriter.refusal().c_str());
      addMessage(_attributeWriter.refusal());
      return PymFailure;
    case LdapAttributeWriter::UNREADABLE:
      QIV_LOG(4, "Can not read attribute value for attribute: %s", attributeName);
      return PymFailure;
    case LdapAttributeWriter::WRITTEN:
      _configurationChanged = true;
      break;
    case LdapAttributeWriter::NOT_HELD:
      break;
  }
  _moRefsChanged = _editedReferences.nodeCredential != _configurationRunnable.getNodeCredentialMoRef() ||
                   _editedReferences.trustCategory != _configurationRunnable.getTrustCategoryMoRef();
  const PymMoAttributeValueContainer_3 none = {PymMoValueType_String, 0, nullptr};
  PymMoAttributeValueContainer_3*& kept = _writtenValues[{dn, attributeName}];
  MoAttributeValueCopy::release(kept);
  kept = MoAttributeValueCopy::copy(value != nullptr ? *value : none);
  QIV_TRACE(" << ");
  return 0;
}

PymReturnT AccessManagementComponent::getMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                                     PymMoAttributeValueContainer** value) {
  QIV_TRACE(" >> txHandle: %lu, dn: %s, attr: %s", txHandle, orNull(dn), orNull(attributeName));
  QIV_TRACE(" << ");
  return 0;
}

PymReturnT AccessManagementComponent::getMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                                     PymMoAttributeValueResult_3* result) {
  QIV_TRACE(" >> txHandle: %lu, dn: %s, attr: %s", txHandle, orNull(dn), orNull(attributeName));
  if (dn == nullptr || attributeName == nullptr || result == nullptr) return PymInvalidParameter;
  Poco::FastMutex::ScopedLock lock(_transactionMutex);
  const auto written = _writtenValues.find({dn, attributeName});
  if (txHandle == 0 || txHandle != _moLockHolder || written == _writtenValues.end()) return PymNotExist;
  result->container = MoAttributeValueCopy::copy(*written->second);
  result->release = am_releaseGetMoAttribute;
  return 0;
}

PymReturnT AccessManagementComponent::getMoAttributes(unsigned long txHandle, const char* dn,
                                                      const char** attributeNames,
                                                      PymMoAttributeValuesResult_3* result) {
  QIV_TRACE(" >> txHandle: %lu, dn: %s", txHandle, orNull(dn));
  if (dn == nullptr || attributeNames == nullptr || result == nullptr) return PymInvalidParameter;
  Poco::FastMutex::ScopedLock lock(_transactionMutex);
  if (txHandle == 0 || txHandle != _moLockHolder) return PymNotExist;
  std::vector<const PymMoAttributeValueContainer_3*> found;
  for (const char** name = attributeNames; *name != nullptr; ++name) {
    const auto written = _writtenValues.find({dn, *name});
    if (written == _writtenValues.end()) return PymNotExist;
    found.push_back(written->second);
  }
  auto** containers = static_cast<PymMoAttributeValueContainer_3**>(
      std::calloc(found.size() + 1, sizeof(PymMoAttributeValueContainer_3*)));
  if (containers == nullptr) return PymFailure;
  try {
    for (std::size_t i = 0; i < found.size(); ++i) containers[i] = MoAttributeValueCopy::copy(*found[i]);
  } catch (const std::bad_alloc&) {
    MoAttributeValueCopy::releaseAll(containers);
    return PymFailure;
  }
  result->containers = containers;
  result->release = am_releaseGetMoAttributes;
  return 0;
}

PymReturnT AccessManagementComponent::newMoIterator(unsigned long txHandle, const char* dn, const char* className,
                                                    void** iterator) {
  QIV_TRACE(" >> txHandle: %lu, dn: %s, class: %s", txHandle, orNull(dn), orNull(className));
  QIV_TRACE(" << ");
  return 0;
}

PymReturnT AccessManagementComponent::newMoIterator(unsigned long txHandle, const char* dn, const char* className,
                                                    unsigned long long* iterator) {
  return newMoIterator(txHandle, dn, className, static_cast<void**>(nullptr));
}

PymReturnT AccessManagementComponent::nextMo(void* iterator, char** result) {
  QIV_TRACE(" >> ");
  QIV_TRACE(" << ");
  return 0;
}

PymReturnT AccessManagementComponent::nextMo(unsigned long long iterator, char** result) {
  return nextMo(static_cast<void*>(nullptr), result);
}

PymReturnT AccessManagementComponent::createMo(unsigned long txHandle, const char* parentDn, const char* className,
                                               const char* keyAttributeName, const char* keyAttributeValue) {
  QIV_TRACE(" >> txHandle: %lu, dn: %s, class: %s, attrname: %s, attrvalue: %s", txHandle, orNull(parentDn),
            orNull(className), orNull(keyAttributeName), orNull(keyAttributeValue));
  QIV_TRACE(" << ");
  return 0;
}

PymReturnT AccessManagementComponent::createMo(unsigned long txHandle, const char* parentDn, const char* className,
                                               const char* keyAttributeName, const char* keyAttributeValue,
                                               PymMoNamedAttributeValueContainer_3** initialAttributes) {
  return createMo(txHandle, parentDn, className, keyAttributeName, keyAttributeValue);
}

PymReturnT AccessManagementComponent::deleteMo(unsigned long txHandle, const char* dn) {
  QIV_TRACE(" >> txHandle: %lu, dn: %s", txHandle, orNull(dn));
  QIV_TRACE(" << ");
  return 0;
}

PymReturnT AccessManagementComponent::action(unsigned long txHandle, const char* dn, const char* name,
                                             PymMoAttributeValueContainer** parameters,
                                             PymMoAttributeValueContainer** result) {
  QIV_TRACE(" >> txHandle: %lu, dn: %s, name: %s", txHandle, orNull(dn), orNull(name));
  QIV_TRACE(" << ");
  return 0;
}

PymReturnT AccessManagementComponent::action(unsigned long txHandle, const char* dn, const char* name,
                                             PymMoNamedAttributeValueContainer_3** parameters,
                                             PymMoAttributeValueResult_3* result) {
  return action(txHandle, dn, name, static_cast<PymMoAttributeValueContainer**>(nullptr),
                static_cast<PymMoAttributeValueContainer**>(nullptr));
}

// The three below print the handle with "%d", unlike the others; the traces keep it so.
PymReturnT AccessManagementComponent::finalizeMoIterator(unsigned long long iterator) {
  QIV_TRACE(" >> txHandle: %d", static_cast<int>(iterator));
  QIV_TRACE(" << ");
  return 0;
}

PymReturnT AccessManagementComponent::existsMo(unsigned long txHandle, const char* dn, bool* result) {
  QIV_TRACE(" >> txHandle: %d, dn: %s", static_cast<int>(txHandle), orNull(dn));
  QIV_TRACE(" << ");
  return 0;
}

PymReturnT AccessManagementComponent::countMoChildren(unsigned long txHandle, const char* dn, const char* className,
                                                      unsigned long long* result) {
  QIV_TRACE(" >> txHandle: %d, dn: %s", static_cast<int>(txHandle), orNull(dn));
  QIV_TRACE(" << ");
  return 0;
}

PymReturnT AccessManagementComponent::join(unsigned long txHandle) {
  QIV_TRACE(" >> txHandle: %lu", txHandle);
  const PymReturnT result =
      _transactionMaster != nullptr ? _transactionMaster->registerParticipant(txHandle, &_transactionalResource) : -1;
  if (result != 0) QIV_LOG(3, "Failed to registerParticipant");
  QIV_TRACE(" << ");
  return result;
}

PymReturnT AccessManagementComponent::validate(unsigned long txHandle, bool* result) {
  QIV_TRACE(" >> txHandle: %lu", txHandle);
  if (result == nullptr) return PymInvalidParameter;
  Poco::FastMutex::ScopedLock lock(_transactionMutex);
  *result = true;
  if (txHandle != _moLockHolder) return 0;
  QIV_TRACE("Validating attributes...");
  *result = _configurationRunnable.validateConfiguration(&_editedConfiguration, true) == 0;
  QIV_TRACE(" << valid: %d", static_cast<int>(*result));
  return 0;
}

PymReturnT AccessManagementComponent::prepare(unsigned long txHandle) {
  QIV_TRACE(" >> txHandle: %lu", txHandle);
  Poco::FastMutex::ScopedLock lock(_transactionMutex);
  if (txHandle != _moLockHolder) return 0;
  if (_moRefsChanged) {
    QIV_TRACE("NodeCred MoRef or TrustCat MoRef updated");
    if (!resubscribe(_editedReferences)) return PymFailure;
    _resubscribed = true;
  }
  if (_configurationChanged && !_configurationRunnable.isUsingSecAaFramework()) {
    QIV_TRACE("Configuration updated - calling QIV EA (with --prepare flag)");
    const PymReturnT result = _configurationRunnable.prepareUpdateConfiguration(_editedConfiguration);
    if (result != 0) return result;
  } else {
    QIV_TRACE("Configuration not updated - not calling QIV EA");
  }
  _applyOnCommit = _configurationChanged;
  return 0;
}

PymReturnT AccessManagementComponent::commit(unsigned long txHandle) {
  QIV_TRACE(" >> txHandle: %lu", txHandle);
  Poco::FastMutex::ScopedLock lock(_transactionMutex);
  if (txHandle != _moLockHolder || !_applyOnCommit) {
    QIV_TRACE("Configuration not updated");
    return 0;
  }
  QIV_TRACE("Configuration updated - calling QIV EA");
  PymReturnT result = 0;
  if (_configurationRunnable.isUsingSecAaFramework()) {
    // Takes the record as the current one itself, before it registers.
    result = _configurationRunnable.updateConfigurationUsingSecAA(_editedConfiguration);
  } else {
    result = _configurationRunnable.updateConfiguration(_editedConfiguration);
    // The node runs what was applied: from now on it is the current record.
    if (result == 0) _configurationRunnable.ldapConfigurationUpdated(&_editedConfiguration);
  }
  _applyOnCommit = false;
  return result;
}

PymReturnT AccessManagementComponent::abort(unsigned long txHandle) {
  QIV_TRACE(" >> txHandle: %lu", txHandle);
  Poco::FastMutex::ScopedLock lock(_transactionMutex);
  if (txHandle != _moLockHolder) return 0;
  // Nothing of the transaction stays: the marks and a subscription it changed are given back.
  _configurationRunnable.setUseTlsSet(_previousUseTlsSet);
  _configurationRunnable.setBaseDnSet(_previousBaseDnSet);
  if (_resubscribed) resubscribe(_previousReferences);
  releaseMoLock();
  return 0;
}

PymReturnT AccessManagementComponent::finish(unsigned long txHandle) {
  QIV_TRACE(" >> txHandle: %lu", txHandle);
  Poco::FastMutex::ScopedLock lock(_transactionMutex);
  releaseAttributeValueContainerMaps(txHandle);
  if (txHandle == _moLockHolder) releaseMoLock();
  return 0;
}

void AccessManagementComponent::releaseAttributeValueContainerMaps(unsigned long txHandle) {
  if (txHandle == 0 || txHandle != _moLockHolder) return;
  for (auto& written : _writtenValues) MoAttributeValueCopy::release(written.second);
  _writtenValues.clear();
}

void AccessManagementComponent::releaseMoLock() {
  releaseAttributeValueContainerMaps(_moLockHolder);
  _moLockHolder = 0;
  _configurationChanged = false;
  _moRefsChanged = false;
  _resubscribed = false;
  _applyOnCommit = false;
}

bool AccessManagementComponent::resubscribe(const LdapAttributeWriter::References& references) {
  const std::string nodeCredential = _configurationRunnable.getNodeCredentialMoRef();
  const std::string trustCategory = _configurationRunnable.getTrustCategoryMoRef();
  _configurationRunnable.setNodeCredentialMoRef(references.nodeCredential);
  _configurationRunnable.setTrustCategoryMoRef(references.trustCategory);
  if (!_configurationRunnable.isSecApiOpRunning()) {
    // Taken at the thread's next subscription.
    QIV_TRACE("SEC API is not available");
    return true;
  }
  if (!_configurationRunnable.requestResubscription()) {
    QIV_LOG(3, "subscribe failed with changed nodeCredential or trustCategory morefs");
    _configurationRunnable.setNodeCredentialMoRef(nodeCredential);
    _configurationRunnable.setTrustCategoryMoRef(trustCategory);
    return false;
  }
  QIV_TRACE("Notification received from _subscribeCompleteNotification for SecApi subscription completed");
  return true;
}

PymReturnT AccessManagementComponent::getRoles(const char* method, const char* userName, const char*** roles) {
  QIV_TRACE(" >> method: '%s' user: '%s'", orNull(method), orNull(userName));
  if (!_started) {
    QIV_LOG(3, "%s not properly initialized -> not possible to get user roles!", LdapModel::COMPONENT_NAME);
    return -1;
  }
  if (!isValidMethod(method)) return -1;
  if (_configurationRunnable.isRunning()) {
    QIV_LOG(4, "Not able to get user roles at this moment!");
    return 1;
  }
  const bool sec = _configurationRunnable.isUsingSecAaFramework();
  const bool initial = _configurationRunnable.isInitialConfigurationSet();
  if (!sec && !initial) {
    QIV_LOG(3, "No SEC available or initial LDAP configuration not set!");
    return -1;
  }
  LdapConfiguration config = _configurationRunnable.getLdapConfiguration();
  bool ldapEnabled = initial && config.administrativeState == UNLOCKED;
  if (!sec && !ldapEnabled) {
    QIV_LOG(4, "Authentication is not administratively unlocked");
    return -1;
  }
  if (ldapEnabled) {
    QIV_TRACE("Validating attributes...");
    LdapConfiguration copy = config;
    if (_configurationRunnable.validateConfiguration(&copy, false) != 0) {
      QIV_LOG(4, "LDAP configuration failed validation, disabling Legacy LDAP authentication!");
      ldapEnabled = false;
    }
  }
  const std::string user = userName != nullptr ? userName : "";
  std::string rolesText;
  PymReturnT result = 0;
  // Without the user-authorization library a query through it could only fail.
  if (sec && _secUaiWrapper.isUaiAvailable()) {
    QIV_TRACE("Using Service Module authorization function");
    std::vector<std::string> found;
    found.reserve(10);
    result = _secUaiWrapper.getRoles(user, found);
    for (const std::string& role : found) {
      if (&role != &found.front()) rolesText += ',';
      rolesText += role;
    }
  } else if (ldapEnabled && _configurationRunnable.getUseQivAuthorization()) {
    QIV_TRACE("Using QIV built in authorization function");
    IAmLdap* amLdap = _amLdap;
    if (amLdap == nullptr) {
      QIV_LOG(3, "No built-in LDAP authorization installed");
      return -1;
    }
    result = amLdap->authorizationLdap(&config, user, rolesText);
  } else if (ldapEnabled) {
    if (config.filterType == FILTER_TYPE_NOT_SET) {
      QIV_LOG(4, "%s (or the deprecated attribute %s) must be set to get roles.", LdapModel::PROFILE_FILTER,
              LdapModel::FILTER_TYPE);
      return -1;
    }
    // qivea splits its one argument at blanks: such a name would add options of its own choosing.
    if (!QiveaSearchArguments::isPassableUserName(user)) {
      QIV_LOG(4, "User name '%s' cannot be passed to qivea", QiveaSearchArguments::printableUserName(user).c_str());
      return -1;
    }
    const std::string arguments =
        QiveaSearchArguments::build(config, user, _configurationRunnable.getQiveaTlsModeSupport());
    QIV_TRACE("Using QIV EA authorization function");
    result = AmQivEaWrapper().authorizationLdap(arguments, rolesText, 30000, config.bindPassword);
  } else {
    QIV_LOG(4, "No authentication method is enabled/available");
    return -1;
  }
  QIV_TRACE("Got following roles '%s' for user '%s'", rolesText.c_str(), user.c_str());
  if (result != 0) {
    QIV_LOG(3, "getRoles failed (%d)", result);
    return result;
  }
  if (rolesText.empty()) {
    QIV_LOG(4, "User has no roles!");
    return -1;
  }
  try {
    allocRoles(rolesText, roles);
  } catch (const Qiv::QivException& e) {
    QIV_LOG(3, "Caught exception: %s", e.what());
    return -10;
  }
  return 0;
}

PymReturnT AccessManagementComponent::freeRoles(const char* method, const char** roles) {
  QIV_TRACE(" >> method: %s", orNull(method));
  if (!isValidMethod(method)) return -1;
  releaseRoles(roles);
  return 0;
}

void AccessManagementComponent::releaseRoles(const char** roles) {
  if (roles == nullptr) return;
  for (const char** role = roles; *role != nullptr; ++role) std::free(const_cast<char*>(*role));
  std::free(roles);
}

void AccessManagementComponent::allocRoles(const std::string& roles, const char*** result) {
  std::vector<std::string> pieces;
  split(roles, ',', pieces);
  if (pieces.empty()) return;
  auto** array = static_cast<const char**>(std::malloc(sizeof(char*) * (pieces.size() + 1)));
  if (array == nullptr) throw Qiv::QivException("Cannot allocate %d roles", static_cast<int>(pieces.size()));
  std::size_t filled = 0;
  for (; filled < pieces.size(); ++filled) {
    const std::size_t size = pieces[filled].size() + 1;
    char* role = static_cast<char*>(std::malloc(size));
    if (role == nullptr) break;
    std::snprintf(role, size, "%s", pieces[filled].c_str());
    array[filled] = role;
  }
  array[filled] = nullptr;
  if (filled < pieces.size()) {
    releaseRoles(array);
    throw Qiv::QivException("Cannot allocate role %d", static_cast<int>(filled));
  }
  *result = array;
}

void AccessManagementComponent::split(const std::string& text, char separator, std::vector<std::string>& pieces) {
  std::istringstream stream(text);
  for (std::string piece; std::getline(stream, piece, separator);) pieces.push_back(piece);
}

void AccessManagementComponent::setQivAuthorization(IAmLdap* amLdap) { _amLdap = amLdap; }

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
  if (textEquals(id.interfaceName, REGISTER_OBJECT_IMPLEMENTER) &&
      (textEquals(id.interfaceVersion, "3") || textEquals(id.interfaceVersion, "2"))) {
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
