#ifndef FRAMEWORK_TESTS_FAKE_COMPONENT_H
#define FRAMEWORK_TESTS_FAKE_COMPONENT_H

#include <PymMgmtSpiComponent.h>
#include <PymOamSpiManagedObject.h>
#include <PymOamSpiTransaction.h>

#include <deque>
#include <string>
#include <vector>

// A component as a library registers it: a descriptor offering, under the component's name,
// "PymOamSpiManagedObject" "3" and "PymOamSpiTransactionalResource" "2" (unless told not to),
// with start and stop that append "start <name> <reason>" / "stop <name> <reason>" to events().
// A slot (0..3) gives each live fake its own C start and stop functions.
class FakeComponent {
 public:
  FakeComponent(int slot, const std::string& name, bool offersImplementerTables = true);
  FakeComponent(const FakeComponent&) = delete;
  FakeComponent& operator=(const FakeComponent&) = delete;

  PymMgmtSpiComponent_2* descriptor();
  PymMgmtSpiInterface_1* managedObject();
  PymMgmtSpiInterface_1* transactionalResource();
  // Identity strings must outlive the component (literals or null).
  void addDependency(const char* componentName, const char* interfaceName, const char* interfaceVersion);
  void answerStart(PymReturnT code);

  static std::vector<std::string>& events();

 private:
  int _slot;
  std::string _name;
  PymOamSpiManagedObject_3 _managedObject;
  PymOamSpiTransactionalResource_2 _resource;
  std::vector<PymMgmtSpiInterface_1*> _interfaces;
  std::deque<PymMgmtSpiInterface_1> _dependencyIdentities;
  std::vector<PymMgmtSpiInterface_1*> _dependencies;
  PymMgmtSpiComponent_2 _descriptor;
};

#endif
