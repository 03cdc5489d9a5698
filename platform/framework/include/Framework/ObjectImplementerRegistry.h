#ifndef FRAMEWORK_OBJECT_IMPLEMENTER_REGISTRY_H
#define FRAMEWORK_OBJECT_IMPLEMENTER_REGISTRY_H

#include <Framework/InterfacePortal.h>
#include <Framework/ScriptedAnswers.h>
#include <PymOamSpiManagedObject.h>
#include <PymOamSpiTransaction.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Framework {

// The component that implements a class of the model, and the tables the router calls for it.
struct ObjectImplementer {
  std::string componentName;
  const PymOamSpiManagedObject_3* managedObject;
  const PymOamSpiTransactionalResource_2* transactionalResource;
};

// One registerClass or unregisterClass call, as the registry answered it.
struct ImplementerCall {
  int version;            // 2 or 3
  std::string operation;  // "register" or "unregister"
  std::string componentName;
  std::string classPath;
  PymReturnT result;
};

// Object implementers by slash-form class path ("/ManagedElement/SystemFunctions"), as components
// register them through the version-2 or version-3 table. Thread-safe.
class ObjectImplementerRegistry {
 public:
  explicit ObjectImplementerRegistry(const InterfacePortal& portal);

  // Version 3. PymNotExist when the component offers no "PymOamSpiManagedObject" "3" or
  // "PymOamSpiTransactionalResource" "2"; PymAlreadyExist for a registered class path;
  // PymInvalidParameter for null arguments or a path not starting with "/".
  PymReturnT registerClass(const char* componentName, const char* classPath);
  // Version 2: the component is the one named by managedObject's identity.
  PymReturnT registerClass(const PymMgmtSpiInterface_1* managedObject,
                           const PymMgmtSpiInterface_1* transactionalResource, const char* classPath);
  // PymNotExist unless that component registered the class path.
  PymReturnT unregisterClass(int version, const char* componentName, const char* classPath);

  // The implementer of a class path, for routing.
  std::optional<ObjectImplementer> implementer(const std::string& classPath) const;
  std::vector<ImplementerCall> calls() const;
  void clearCalls();
  // Test hooks: the next register (unregister) call answers code and changes nothing (queued,
  // one per call).
  void answerNextRegister(PymReturnT code);
  void answerNextUnregister(PymReturnT code);

  // The "PymOamSpiRegisterObjectImplementer" "2" and "3" tables; they use the current
  // framework's registry.
  static std::vector<PymMgmtSpiInterface_1*> interfaces();

 private:
  // Registers the tables for classPath unless a queued answer, invalid arguments, a missing
  // table or an existing registration decide otherwise; records the call.
  PymReturnT add(int version, bool argumentsValid, const char* componentName, const char* classPath,
                 const PymOamSpiManagedObject_3* managedObject, const PymOamSpiTransactionalResource_2* resource);
  // The queued answer for the next call of that kind, if any; under the lock.
  PymReturnT record(int version, const char* operation, const std::string& componentName,
                    const std::string& classPath, PymReturnT result);

  const InterfacePortal& _portal;
  mutable std::mutex _mutex;
  std::map<std::string, ObjectImplementer> _implementers;
  std::vector<ImplementerCall> _calls;
  ScriptedAnswers _registerAnswers;
  ScriptedAnswers _unregisterAnswers;
};

}  // namespace Framework

#endif
