#include "FrameworkTest.h"

const char* const FrameworkTest::LDAP_DN =
    "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1";

std::string FrameworkTest::modelPath(const std::string& fileName) {
  return std::string(QIV_FIXTURES_DIR) + "/models/" + fileName;
}

void FrameworkTest::SetUp() { restart("ldap20.xml"); }

void FrameworkTest::TearDown() { framework.reset(); }

void FrameworkTest::restart(const std::string& modelFile) {
  framework.reset();
  Framework::ManagementFramework::Options options;
  options.modelFile = modelPath(modelFile);
  options.echoLevel = -1;
  framework = std::make_unique<Framework::ManagementFramework>(options);
}

PymMgmtSpiInterfacePortal_3* FrameworkTest::portal3() const {
  return static_cast<PymMgmtSpiInterfacePortal_3*>(framework->accessor()->getPortal("3"));
}
