#ifndef FRAMEWORK_INTERFACE_PORTAL_H
#define FRAMEWORK_INTERFACE_PORTAL_H

#include <Framework/LogCapture.h>
#include <Framework/ScriptedAnswers.h>
#include <PymMgmtSpiPortal.h>

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Framework {

// The interface portal: interface tables by (component, interface, version), the registered
// component descriptors, and the accessor handing out portals "3" and "1". Thread-safe; tables
// stay their owners', and start/stop run without the lock so that they may call back.
class InterfacePortal {
 public:
  explicit InterfacePortal(LogCapture& log);

  // What a component's pymLCMinit is handed.
  static PymMgmtSpiInterfacePortalAccessor* accessor();
  // The version-1 portal table, offered as { "QivMgmtSpiPortalService",
  // "QivMgmtSpiInterfacePortal", "1" }; it uses the current framework's portal.
  static std::vector<PymMgmtSpiInterface_1*> interfaces();

  // The portal operations. A null componentName or interfaceVersion matches any; the first
  // registered match wins; none: PymNotExist and *result untouched.
  PymReturnT getInterface(const char* componentName, const char* interfaceName, const char* interfaceVersion,
                          PymMgmtSpiInterface_1** result) const;
  // A malloc'ed null-terminated array the caller frees; PymNotExist when there is none.
  PymReturnT getImplementations(const char* interfaceName, const char* interfaceVersion,
                                PymMgmtSpiInterface_1*** result) const;
  // Offers every interface of the descriptor. A descriptor already registered stays registered
  // (PymOk); PymAlreadyExist when an interface identity is already offered; PymInvalidParameter
  // for null or an incomplete identity.
  PymReturnT registerComponent(PymMgmtSpiComponent_2* component);
  // Withdraws the descriptor and its interfaces; PymNotExist when it is not registered (or null).
  PymReturnT unregisterComponent(PymMgmtSpiComponent_2* component);

  // The interface of that exact identity among those of the registered descriptors, or null.
  PymMgmtSpiInterface_1* componentInterface(const std::string& componentName, const std::string& interfaceName,
                                            const std::string& interfaceVersion) const;

  // Calls start (stop) of every registered component in registration (reverse) order. A
  // component whose dependencies are not all offered is not started; each missing one is logged
  // as an error. PymOk, or the first failure (PymNotExist for a missing dependency).
  PymReturnT startComponents(PymStateChangeReason reason);
  PymReturnT stopComponents(PymStateChangeReason reason);

  // Test hooks.
  // Whether the accessor hands out portal version "1" or "3" (both offered at first).
  void offerPortal(const std::string& version, bool offered);
  // The next registerComponent answers code without registering (queued, one per call).
  void answerNextRegisterComponent(PymReturnT code);
  // The next getImplementations hands out its array as usual but answers code: a portal that
  // reports a failure and still allocates (queued, one per call).
  void answerNextGetImplementations(PymReturnT code);
  // The next getInterface for interfaceName/interfaceVersion, whichever component it names,
  // answers code and finds nothing, as a portal that fails the look-up (queued, one per call).
  void answerNextGetInterface(const std::string& interfaceName, const std::string& interfaceVersion, PymReturnT code);
  // Offers a table under its own identity; false when that identity is incomplete or offered.
  bool addInterface(PymMgmtSpiInterface_1* table);
  // Withdraws the table of that identity, whoever offered it; false when there is none.
  bool removeInterface(const std::string& componentName, const std::string& interfaceName,
                       const std::string& interfaceVersion);
  std::vector<PymMgmtSpiComponent_2*> components() const;
  unsigned registerComponentCalls() const;
  unsigned unregisterComponentCalls() const;

  // The table behind getPortal(version), or null when not offered.
  void* portal(const char* version) const;

 private:
  struct Offer {
    PymMgmtSpiInterface_1* table;
    const PymMgmtSpiComponent_2* owner;  // null for the framework's own and test tables
  };

  // Whether the table of offer matches; null arguments match any.
  static bool matches(const Offer& offer, const char* componentName, const char* interfaceName,
                      const char* interfaceVersion);
  static bool complete(const PymMgmtSpiInterface_1* identity);
  bool offered(const PymMgmtSpiInterface_1& identity) const;
  // Logs every dependency of component that is not offered; false when there is one.
  bool dependenciesPresent(const PymMgmtSpiComponent_2& component) const;

  LogCapture& _log;
  mutable std::mutex _mutex;
  std::vector<Offer> _offers;
  std::vector<PymMgmtSpiComponent_2*> _components;
  std::set<std::string> _withheldPortals;
  ScriptedAnswers _registerAnswers;
  mutable ScriptedAnswers _implementationsAnswers;
  // By interface name and version.
  mutable std::map<std::pair<std::string, std::string>, ScriptedAnswers> _interfaceAnswers;
  unsigned _registerCalls;
  unsigned _unregisterCalls;
};

}  // namespace Framework

#endif
