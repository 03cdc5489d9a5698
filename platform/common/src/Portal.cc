#include <Qiv/LoggingWrapper.h>
#include <Qiv/Portal.h>

namespace Qiv {

const PymMgmtSpiInterface_1 Portal::COMP_ID = {"QivMgmtSpiPortalService", "QivMgmtSpiInterfacePortal", "1"};

Portal& Portal::instance() {
  static Portal portal;
  return portal;
}

Portal::Portal() : _portal(nullptr) {}

void Portal::setAccessor(PymMgmtSpiInterfacePortalAccessor* accessor) {
  PymMgmtSpiInterfacePortal_3* portal = nullptr;
  if (accessor != nullptr && accessor->getPortal != nullptr) {
    portal = static_cast<PymMgmtSpiInterfacePortal_3*>(accessor->getPortal("3"));
  }
  _portal.store(portal);
  // Interfaces cached from the previous framework are no longer valid.
  LoggingWrapper::reset();
}

PymMgmtSpiInterfacePortal_3* Portal::getPortal() const { return _portal.load(); }

PymReturnT Portal::getInterface(const PymMgmtSpiInterface_1& id, PymMgmtSpiInterface_1** result) const {
  PymMgmtSpiInterfacePortal_3* portal = _portal.load();
  if (portal == nullptr || portal->getInterface == nullptr) return PymNotExist;
  return portal->getInterface(id.componentName, id.interfaceName, id.interfaceVersion, result);
}

}  // namespace Qiv
