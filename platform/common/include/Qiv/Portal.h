#ifndef QIV_PORTAL_H
#define QIV_PORTAL_H

#include <PymMgmtSpiPortal.h>

#include <atomic>

namespace Qiv {

// The platform's way to the framework's interface portal. The framework attaches its accessor
// before it loads components; components then find framework services through instance().
class Portal {
 public:
  // Identity of the platform portal; every component depends on it first.
  static const PymMgmtSpiInterface_1 COMP_ID;

  static Portal& instance();

  // Attaches (or, with null, detaches) the framework. Framework use only.
  void setAccessor(PymMgmtSpiInterfacePortalAccessor* accessor);

  // The version-3 portal, or null without a framework.
  PymMgmtSpiInterfacePortal_3* getPortal() const;

  // Looks id up; PymNotExist without a framework.
  PymReturnT getInterface(const PymMgmtSpiInterface_1& id, PymMgmtSpiInterface_1** result) const;

  // The interface as T, or null when the look-up failed.
  template <class T>
  T* getInterface(const PymMgmtSpiInterface_1& id) const {
    PymMgmtSpiInterface_1* result = nullptr;
    if (getInterface(id, &result) != PymOk) return nullptr;
    return reinterpret_cast<T*>(result);
  }

 private:
  Portal();
  std::atomic<PymMgmtSpiInterfacePortal_3*> _portal;
};

}  // namespace Qiv

#endif
