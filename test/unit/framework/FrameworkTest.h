#ifndef FRAMEWORK_TESTS_FRAMEWORK_TEST_H
#define FRAMEWORK_TESTS_FRAMEWORK_TEST_H

#include <Framework/ManagementFramework.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

// Runs each test with a live framework over a fixture model (ldap20.xml unless the test
// restarts it with another) and finds interfaces the way a component does: accessor, portal
// version 3, getInterface.
class FrameworkTest : public ::testing::Test {
 public:
  static const char* const LDAP_DN;

  static std::string modelPath(const std::string& fileName);

 protected:
  void SetUp() override;
  void TearDown() override;
  void restart(const std::string& modelFile);

  PymMgmtSpiInterfacePortal_3* portal3() const;
  template <class T>
  T* lookup(const char* componentName, const char* interfaceName, const char* interfaceVersion) const {
    PymMgmtSpiInterface_1* found = nullptr;
    PymMgmtSpiInterfacePortal_3* portal = portal3();
    if (portal == nullptr || portal->getInterface(componentName, interfaceName, interfaceVersion, &found) != PymOk) {
      return nullptr;
    }
    return reinterpret_cast<T*>(found);
  }

  std::unique_ptr<Framework::ManagementFramework> framework;
};

#endif
