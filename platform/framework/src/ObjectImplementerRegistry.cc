#include <Framework/ObjectImplementerRegistry.h>

#include <Framework/CString.h>
#include <Framework/ManagementFramework.h>
#include <PymOamSpiRegisterObjectImplementer.h>

namespace Framework {

namespace {

template <class Body>
PymReturnT withRegistry(Body&& body) {
  return ManagementFramework::withCurrent(
      [&](ManagementFramework& framework) { return body(framework.objectImplementers()); });
}

PymReturnT registerClass2(const PymMgmtSpiInterface_1* managedObject, const PymMgmtSpiInterface_1* transactionalResource,
                          const char* classPath) {
  return withRegistry([&](ObjectImplementerRegistry& registry) {
    return registry.registerClass(managedObject, transactionalResource, classPath);
  });
}

PymReturnT registerClass3(const char* componentName, const char* classPath) {
  return withRegistry(
      [&](ObjectImplementerRegistry& registry) { return registry.registerClass(componentName, classPath); });
}

template <int version>
PymReturnT unregisterClass(const char* componentName, const char* classPath) {
  return withRegistry(
      [&](ObjectImplementerRegistry& registry) { return registry.unregisterClass(version, componentName, classPath); });
}

const char* const kService = "PymOamSpiObjectImplementerService";

PymOamSpiRegisterObjectImplementer_2 registerObjectImplementer2Table = {
    {kService, "PymOamSpiRegisterObjectImplementer", "2"}, registerClass2, unregisterClass<2>};
PymOamSpiRegisterObjectImplementer_3 registerObjectImplementer3Table = {
    {kService, "PymOamSpiRegisterObjectImplementer", "3"}, registerClass3, unregisterClass<3>};

}  // namespace

ObjectImplementerRegistry::ObjectImplementerRegistry(const InterfacePortal& portal) : _portal(portal) {}

PymReturnT ObjectImplementerRegistry::registerClass(const char* componentName, const char* classPath) {
  const PymMgmtSpiInterface_1* managedObject = nullptr;
  const PymMgmtSpiInterface_1* resource = nullptr;
  if (componentName != nullptr) {
    managedObject = _portal.componentInterface(componentName, "PymOamSpiManagedObject", "3");
    resource = _portal.componentInterface(componentName, "PymOamSpiTransactionalResource", "2");
  }
  return add(3, componentName != nullptr && classPath != nullptr, componentName, classPath,
             reinterpret_cast<const PymOamSpiManagedObject_3*>(managedObject),
             reinterpret_cast<const PymOamSpiTransactionalResource_2*>(resource));
}

PymReturnT ObjectImplementerRegistry::registerClass(const PymMgmtSpiInterface_1* managedObject,
                                                    const PymMgmtSpiInterface_1* transactionalResource,
                                                    const char* classPath) {
  const char* componentName = managedObject == nullptr ? nullptr : managedObject->componentName;
  return add(2, componentName != nullptr && transactionalResource != nullptr && classPath != nullptr, componentName,
             classPath, reinterpret_cast<const PymOamSpiManagedObject_3*>(managedObject),
             reinterpret_cast<const PymOamSpiTransactionalResource_2*>(transactionalResource));
}

PymReturnT ObjectImplementerRegistry::unregisterClass(int version, const char* componentName, const char* classPath) {
  std::lock_guard<std::mutex> lock(_mutex);
  const std::string component = CString::orEmpty(componentName);
  const std::string path = CString::orEmpty(classPath);
  if (const std::optional<PymReturnT> answer = _unregisterAnswers.take()) {
    return record(version, "unregister", component, path, *answer);
  }
  if (componentName == nullptr || classPath == nullptr) {
    return record(version, "unregister", component, path, PymInvalidParameter);
  }
  const auto found = _implementers.find(path);
  if (found == _implementers.end() || found->second.componentName != component) {
    return record(version, "unregister", component, path, PymNotExist);
  }
  _implementers.erase(found);
  return record(version, "unregister", component, path, PymOk);
}

std::optional<ObjectImplementer> ObjectImplementerRegistry::implementer(const std::string& classPath) const {
  std::lock_guard<std::mutex> lock(_mutex);
  const auto found = _implementers.find(classPath);
  if (found == _implementers.end()) return std::nullopt;
  return found->second;
}

std::vector<ImplementerCall> ObjectImplementerRegistry::calls() const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _calls;
}

void ObjectImplementerRegistry::clearCalls() {
  std::lock_guard<std::mutex> lock(_mutex);
  _calls.clear();
}

void ObjectImplementerRegistry::answerNextRegister(PymReturnT code) {
  std::lock_guard<std::mutex> lock(_mutex);
  _registerAnswers.push(code);
}

void ObjectImplementerRegistry::answerNextUnregister(PymReturnT code) {
  std::lock_guard<std::mutex> lock(_mutex);
  _unregisterAnswers.push(code);
}

std::vector<PymMgmtSpiInterface_1*> ObjectImplementerRegistry::interfaces() {
  return {&registerObjectImplementer2Table.base, &registerObjectImplementer3Table.base};
}

PymReturnT ObjectImplementerRegistry::add(int version, bool argumentsValid, const char* componentName,
                                          const char* classPath, const PymOamSpiManagedObject_3* managedObject,
                                          const PymOamSpiTransactionalResource_2* resource) {
  std::lock_guard<std::mutex> lock(_mutex);
  const std::string component = CString::orEmpty(componentName);
  const std::string path = CString::orEmpty(classPath);
  if (const std::optional<PymReturnT> answer = _registerAnswers.take()) {
    return record(version, "register", component, path, *answer);
  }
  if (!argumentsValid || path.empty() || path[0] != '/') {
    return record(version, "register", component, path, PymInvalidParameter);
  }
  if (managedObject == nullptr || resource == nullptr) return record(version, "register", component, path, PymNotExist);
  if (_implementers.count(path) != 0) return record(version, "register", component, path, PymAlreadyExist);
  _implementers[path] = ObjectImplementer{component, managedObject, resource};
  return record(version, "register", component, path, PymOk);
}

PymReturnT ObjectImplementerRegistry::record(int version, const char* operation, const std::string& componentName,
                                             const std::string& classPath, PymReturnT result) {
  _calls.push_back(ImplementerCall{version, operation, componentName, classPath, result});
  return result;
}

}  // namespace Framework
