#ifndef QIV_ACCESS_MANAGEMENT_ACCESS_MANAGEMENT_COMPONENT_H
#define QIV_ACCESS_MANAGEMENT_ACCESS_MANAGEMENT_COMPONENT_H

#include "AmLdap.h"
#include "AmLdapAttrSync.h"
#include "AmOrbelinFilterAttrSync.h"
#include "AmUserManagementAttrSync.h"
#include "CmEventConsumer.h"
#include "ConfigurationRunnable.h"
#include "IAmLdap.h"
#include "LdapAttributeWriter.h"
#include "LdapConfiguration.h"
#include "LdapTlsWrapper.h"
#include "OperatorMessages.h"
#include "PymComponent.h"
#include "SecUaiWrapper.h"

#include <PymMgmtSpiThreadContext.h>
#include <PymMwSpiAccessManagement.h>
#include <PymOamSpiManagedObject.h>
#include <PymOamSpiRegisterObjectImplementer.h>
#include <PymOamSpiTransaction.h>
#include <Poco/Condition.h>
#include <Poco/Mutex.h>
#include <Poco/Thread.h>

#include <atomic>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace QivAccessManagement {

// The component behind every entry point: its descriptor, offered tables and dependencies,
// how it finds framework services, and its lifecycle. One instance per process
// (PymComponent<AccessManagementComponent>::instance()).
class AccessManagementComponent : public Qiv::PymComponent<AccessManagementComponent>, public OperatorMessages {
 public:
  // Interface names compared by address (see getInterface).
  static const char ACCESS_MANAGEMENT_INTERFACE_NAME[];
  static const char CRYPTO_INTERFACE_NAME[];
  // Look-up only: a competing access-management implementation, and the crypto service.
  static const PymMgmtSpiInterface_1 ACCESS_MANAGEMENT_V1_ID;
  static const PymMgmtSpiInterface_1 CRYPTO_ID;

  AccessManagementComponent();
  ~AccessManagementComponent();

  // Keeps a copy of config (may be null). -1 with "Component already initialized!" when called
  // twice without terminate().
  PymReturnT initialize(const char* config);
  // Drops the copy of config; does not stop the component.
  PymReturnT terminate();
  // Finds the framework services, registers as object implementer for the LDAP classes, starts
  // the configuration thread and waits for it as long as the component file says. 0 also when
  // another access-management implementation exists (then nothing starts) or the model has no
  // LDAP objects (then only the component runs); -1 or the framework's code on failure.
  // Framework control thread.
  PymReturnT start(PymStateChangeReason reason);
  // Undoes start and joins the configuration thread (at most 10 s). Framework control thread.
  PymReturnT stop(PymStateChangeReason reason);

  // Hands text, marked "@qivnbi@", to the operator whose request is served; -1 when stopped.
  // Every operator text of the component, the configuration thread's included, comes here.
  PymReturnT addMessage(const std::string& text) override;
  // "LDAP" and "default"; anything else is logged.
  bool isValidMethod(const char* name);
  // True when no transaction holds the LDAP objects or handle does; otherwise tells the operator.
  bool validTransactionHandle(unsigned long handle);
  // Registers for each class path in order; a refusal undoes all and gives its code.
  PymReturnT registerAsObjectImplementer(const std::vector<std::string>& classPaths);
  // Unregisters every class path registered; -1 while some stay registered.
  PymReturnT unregisterAsObjectImplementer();
  // The Tls MO changed: a new cipher filter reconfigures LDAP. The event router's thread.
  void onTlsMoChange(const PymOamSpiCmEvent_Notification_1& notification);

  // Role queries; framework request threads, concurrently with everything else.
  // 0 with *roles set; 1 while the configuration thread is busy; -1 for a refusal; -10 when the
  // answer cannot be built; another back end's code as it is.
  PymReturnT getRoles(const char* method, const char* userName, const char*** roles);
  // Gives back what getRoles handed out: 0, or -1 for an invalid method.
  PymReturnT freeRoles(const char* method, const char** roles);
  // The null-terminated malloc'ed array of the comma-separated roles; *result untouched when
  // there is no piece.
  void allocRoles(const std::string& roles, const char*** result);
  // Appends the pieces of text between separators; a trailing separator adds no empty piece.
  static void split(const std::string& text, char separator, std::vector<std::string>& pieces);
  // Puts another built-in directory lookup in place of the component's own; not owned.
  void setQivAuthorization(IAmLdap* amLdap);

  // Managed-object operations on the LDAP objects. Only attribute writes and the reads of values
  // a transaction wrote do anything; the objects are neither created nor deleted here. One
  // operation for both table versions where their layouts agree.
  PymReturnT setMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                            const PymMoAttributeValueContainer_3* value);
  PymReturnT getMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                            PymMoAttributeValueContainer** value);
  // What this transaction wrote and has not committed; -2 for anything else.
  PymReturnT getMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                            PymMoAttributeValueResult_3* result);
  // All of the named attributes written by this transaction, or -2.
  PymReturnT getMoAttributes(unsigned long txHandle, const char* dn, const char** attributeNames,
                             PymMoAttributeValuesResult_3* result);
  PymReturnT newMoIterator(unsigned long txHandle, const char* dn, const char* className, void** iterator);
  PymReturnT newMoIterator(unsigned long txHandle, const char* dn, const char* className, unsigned long long* iterator);
  PymReturnT nextMo(void* iterator, char** result);
  PymReturnT nextMo(unsigned long long iterator, char** result);
  PymReturnT createMo(unsigned long txHandle, const char* parentDn, const char* className, const char* keyAttributeName,
                      const char* keyAttributeValue);
  PymReturnT createMo(unsigned long txHandle, const char* parentDn, const char* className, const char* keyAttributeName,
                      const char* keyAttributeValue, PymMoNamedAttributeValueContainer_3** initialAttributes);
  PymReturnT deleteMo(unsigned long txHandle, const char* dn);
  PymReturnT action(unsigned long txHandle, const char* dn, const char* name, PymMoAttributeValueContainer** parameters,
                    PymMoAttributeValueContainer** result);
  PymReturnT action(unsigned long txHandle, const char* dn, const char* name,
                    PymMoNamedAttributeValueContainer_3** parameters, PymMoAttributeValueResult_3* result);
  PymReturnT finalizeMoIterator(unsigned long long iterator);
  PymReturnT existsMo(unsigned long txHandle, const char* dn, bool* result);
  PymReturnT countMoChildren(unsigned long txHandle, const char* dn, const char* className, unsigned long long* result);

  // The transactional resource. The transaction holding the MO lock is the only one whose
  // phases act; the others' are answered with 0.
  PymReturnT join(unsigned long txHandle);
  PymReturnT validate(unsigned long txHandle, bool* result);
  PymReturnT prepare(unsigned long txHandle);
  PymReturnT commit(unsigned long txHandle);
  PymReturnT abort(unsigned long txHandle);
  PymReturnT finish(unsigned long txHandle);
  // Frees the values the transaction wrote, as getMoAttribute kept them.
  void releaseAttributeValueContainerMaps(unsigned long txHandle);

  ConfigurationRunnable& getConfigurationRunnable();

  bool isStarted() const;
  bool isInitialized() const;
  // The configuration text initialize() kept, or null.
  const char* getConfig() const;

  OIVersion getOIVersion() const;
  void setOIVersion(OIVersion version);

  // The interface for a dependency identity, or null. Object-implementer registration and the
  // crypto identity (matched by the address of CRYPTO_INTERFACE_NAME) choose among several
  // implementers; every other failure except the competing access-management look-up (matched
  // by the address of ACCESS_MANAGEMENT_INTERFACE_NAME) is logged as a warning.
  PymMgmtSpiInterface_1* getInterface(const PymMgmtSpiInterface_1& id);

  // Of all implementers of name/version, the one whose component name sorts first once the
  // notWanted components are removed; a not-wanted one is kept while it is the only one left.
  // Null when there is none.
  PymMgmtSpiInterface_1* getInterface(const std::string& name, const std::string& version,
                                      const std::vector<std::string>& notWanted);

 private:
  // start after its first checks; every return leads to the exit trace.
  PymReturnT startUp();
  // Looks up the services start needs; 0, -1 or the portal's code.
  PymReturnT findFrameworkServices();
  // Collects the ended configuration thread, so that it can start again.
  void joinConfigurationThread();
  // Waits for the configuration thread's start-up signal; -1 (component stopped) on time-out.
  PymReturnT waitForInitialConfiguration(uint16_t seconds);
  // Frees a role array made by allocRoles (null: nothing).
  static void releaseRoles(const char** roles);
  // Ends the transaction holding the MO lock; under _transactionMutex.
  void releaseMoLock();
  // Hands the edited references to the configuration thread and has it subscribe with them;
  // false (references given back) when it could not.
  bool resubscribe(const LdapAttributeWriter::References& references);

  OIVersion _oiVersion;
  PymMwSpiAccessManagement_2 _accessManagement;
  PymOamSpiManagedObject_1 _managedObject1;
  PymOamSpiManagedObject_3 _managedObject3;
  PymOamSpiTransactionalResource_2 _transactionalResource;
  PymOamSpiTransaction_2* _transaction;
  PymOamSpiRegisterObjectImplementer_2* _objectImplementerV2;
  PymOamSpiRegisterObjectImplementer_3* _objectImplementerV3;
  PymMgmtSpiThreadContext_2* _threadContext;
  PymOamSpiManagedObject_3* _cmRouter;
  PymOamSpiTransactionMaster_2* _transactionMaster;
  std::atomic<bool> _started;
  // The transaction editing the LDAP objects (0: none) and what it has done so far; all under
  // _transactionMutex.
  unsigned long _moLockHolder;
  Poco::FastMutex _transactionMutex;
  LdapConfiguration _editedConfiguration;
  LdapAttributeWriter::References _editedReferences;
  LdapAttributeWriter::References _previousReferences;
  bool _previousUseTlsSet;
  bool _previousBaseDnSet;
  bool _configurationChanged;
  bool _moRefsChanged;
  bool _resubscribed;
  bool _applyOnCommit;  // prepare accepted the change: commit applies it
  std::map<std::pair<std::string, std::string>, PymMoAttributeValueContainer_3*> _writtenValues;
  // The built-in lookup over the component's own LDAP client, both owned; _amLdap points at it
  // unless setQivAuthorization put another lookup in its place.
  Ldap::LdapTlsWrapper _ldapTlsWrapper;
  AmLdap _builtInLdap;
  std::atomic<IAmLdap*> _amLdap;
  SecUaiWrapper _secUaiWrapper;
  Poco::Condition _startUpCondition;
  Poco::FastMutex _startUpMutex;
  ConfigurationRunnable _configurationRunnable;
  LdapAttributeWriter _attributeWriter;
  Poco::Thread _configurationThread;
  // Started and not joined yet: a thread may be joined only once per start.
  bool _configurationThreadUnjoined;
  std::vector<std::string> _registeredClassPaths;
  Poco::FastMutex _mutex;
  char* _config;
  Qiv::CmEventConsumer<AccessManagementComponent, 1> _eventConsumer;
  bool _eventConsumerStarted;
  bool _initialized;
  AmLdapAttrSync _ldapAttrSync;
  AmUserManagementAttrSync _userManagementAttrSync;
  AmOrbelinFilterAttrSync _orbelinFilterAttrSync;
};

}  // namespace QivAccessManagement

#endif
