#ifndef QIV_PYM_COMPONENT_H
#define QIV_PYM_COMPONENT_H

#include "EntryGuard.h"

#include <PymMgmtSpiPortal.h>
#include <Qiv/Portal.h>

#include <cstring>
#include <vector>

namespace Qiv {

// The frame of a framework component: the process-wide instance of T, its descriptor, and the
// library entry (lib_init/lib_term) that registers the descriptor with the portal. T derives
// from PymComponent<T>, fills the three lists in its constructor and provides
// initialize(config), terminate(), start(reason) and stop(reason). Entry and lifecycle calls
// come from the framework's control thread.
template <class T>
class PymComponent {
 public:
  // The one T, built on first use under the runtime's one-time initialisation guard and
  // destroyed at library unload.
  static T& instance() {
    static T component;
    return component;
  }

  // Stores the accessor and both portals, registers the descriptor and initializes this T. Returns
  // -1 without a version-3 portal, the portal's code when it refuses the descriptor, otherwise
  // what T::initialize returns.
  PymReturnT lib_init(PymMgmtSpiInterfacePortalAccessor* accessor, const char* config) {
    _accessor = accessor;
    if (accessor == nullptr || accessor->getPortal == nullptr) return -1;
    _portal = static_cast<PymMgmtSpiInterfacePortal_3*>(accessor->getPortal("3"));
    _portalV1 = static_cast<QivMgmtSpiInterfacePortal_1*>(accessor->getPortal("1"));
    if (_portal == nullptr) return -1;

    _interfaceArray = nullTerminated(_interfaces);
    _dependencyArray = nullTerminated(_dependencies);
    _optionalDependencyArray = nullTerminated(_optionalDependencies);
    _descriptor.interfaceArray = _interfaceArray.data();
    _descriptor.dependencyArray = _dependencyArray.data();
    _descriptor.optionalDependencyArray = _optionalDependencyArray.data();

    const PymReturnT result = _portal->registerComponent(&_descriptor);
    if (result != 0) return result;
    return static_cast<T&>(*this).initialize(config);
  }

  // Terminates this T and unregisters the descriptor; the object itself lives on.
  PymReturnT lib_term() {
    const PymReturnT terminated = static_cast<T&>(*this).terminate();
    if (_portal == nullptr) return terminated;
    const PymReturnT result = _portal->unregisterComponent(&_descriptor);
    _portal = nullptr;
    return result;
  }

  const PymMgmtSpiComponent_2& getDescriptor() const { return _descriptor; }

 protected:
  explicit PymComponent(const char* componentName)
      : _accessor(nullptr), _portal(nullptr), _portalV1(nullptr), _descriptor() {
    _descriptor.base.componentName = componentName;
    _descriptor.base.interfaceName = "PymMgmtSpiComponent";
    _descriptor.base.interfaceVersion = "2";
    _descriptor.start = &startTrampoline;
    _descriptor.stop = &stopTrampoline;
    // The platform portal is always the first dependency, except for the portal itself.
    if (std::strcmp(componentName, Portal::COMP_ID.componentName) != 0)
      _dependencies.push_back(const_cast<PymMgmtSpiInterface_1*>(&Portal::COMP_ID));
  }
  ~PymComponent() = default;
  PymComponent(const PymComponent&) = delete;
  PymComponent& operator=(const PymComponent&) = delete;

  PymMgmtSpiInterfacePortalAccessor* _accessor;
  PymMgmtSpiInterfacePortal_3* _portal;
  QivMgmtSpiInterfacePortal_1* _portalV1;
  PymMgmtSpiComponent_2 _descriptor;
  std::vector<PymMgmtSpiInterface_1*> _interfaces;
  std::vector<PymMgmtSpiInterface_1*> _dependencies;
  std::vector<PymMgmtSpiInterface_1*> _optionalDependencies;

 private:
  // The framework calls these through the descriptor: nothing may throw across them.
  static PymReturnT startTrampoline(PymStateChangeReason reason) {
    return guarded("start", [reason] { return instance().start(reason); });
  }
  static PymReturnT stopTrampoline(PymStateChangeReason reason) {
    return guarded("stop", [reason] { return instance().stop(reason); });
  }

  static std::vector<PymMgmtSpiInterface_1*> nullTerminated(const std::vector<PymMgmtSpiInterface_1*>& list) {
    std::vector<PymMgmtSpiInterface_1*> array(list);
    array.push_back(nullptr);
    return array;
  }

  // What the descriptor's arrays point at.
  std::vector<PymMgmtSpiInterface_1*> _interfaceArray;
  std::vector<PymMgmtSpiInterface_1*> _dependencyArray;
  std::vector<PymMgmtSpiInterface_1*> _optionalDependencyArray;
};

}  // namespace Qiv

#endif
