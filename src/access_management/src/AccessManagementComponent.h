#ifndef QIV_ACCESS_MANAGEMENT_ACCESS_MANAGEMENT_COMPONENT_H
#define QIV_ACCESS_MANAGEMENT_ACCESS_MANAGEMENT_COMPONENT_H

#include "LdapConfiguration.h"
#include "PymComponent.h"

#include <PymMwSpiAccessManagement.h>
#include <PymOamSpiManagedObject.h>
#include <PymOamSpiTransaction.h>

#include <string>
#include <vector>

namespace QivAccessManagement {

// The component behind every entry point: its descriptor, offered tables and dependencies,
// how it finds framework services, and its lifecycle. One instance per process
// (PymComponent<AccessManagementComponent>::instance()).
class AccessManagementComponent : public Qiv::PymComponent<AccessManagementComponent> {
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
  PymReturnT start(PymStateChangeReason reason);
  PymReturnT stop(PymStateChangeReason reason);

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
  OIVersion _oiVersion;
  PymMwSpiAccessManagement_2 _accessManagement;
  PymOamSpiManagedObject_1 _managedObject1;
  PymOamSpiManagedObject_3 _managedObject3;
  PymOamSpiTransactionalResource_2 _transactionalResource;
  bool _started;
  char* _config;
  bool _initialized;
};

}  // namespace QivAccessManagement

#endif
