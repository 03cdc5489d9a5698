#include "FakeComponent.h"
#include "FrameworkTest.h"

#include <PymOamSpiRegisterObjectImplementer.h>

#include <gtest/gtest.h>

namespace {

const char* const kLdapClass = "/ManagedElement/SystemFunctions/SecM/UserManagement/LdapAuthenticationMethod/Ldap";
const char* const kMethodClass = "/ManagedElement/SystemFunctions/SecM/UserManagement/LdapAuthenticationMethod";

std::string describe(const Framework::ImplementerCall& call) {
  return "v" + std::to_string(call.version) + " " + call.operation + " " + call.componentName + " " + call.classPath +
         " " + std::to_string(call.result);
}

}  // namespace

class RegisterObjectImplementerTables : public FrameworkTest {
 protected:
  void SetUp() override {
    FrameworkTest::SetUp();
    v2 = lookup<PymOamSpiRegisterObjectImplementer_2>("PymOamSpiObjectImplementerService",
                                                      "PymOamSpiRegisterObjectImplementer", "2");
    v3 = lookup<PymOamSpiRegisterObjectImplementer_3>("PymOamSpiObjectImplementerService",
                                                      "PymOamSpiRegisterObjectImplementer", "3");
    ASSERT_NE(nullptr, v2);
    ASSERT_NE(nullptr, v3);
    ASSERT_EQ(PymOk, portal3()->registerComponent(component.descriptor()));
  }

  std::vector<std::string> calls() const {
    std::vector<std::string> result;
    for (const auto& call : framework->objectImplementers().calls()) result.push_back(describe(call));
    return result;
  }

  FakeComponent component{0, "LdapComponent"};
  PymOamSpiRegisterObjectImplementer_2* v2 = nullptr;
  PymOamSpiRegisterObjectImplementer_3* v3 = nullptr;
};

TEST_F(RegisterObjectImplementerTables, Version3FindsTheComponentsTables) {
  EXPECT_EQ(PymOk, v3->registerClass("LdapComponent", kLdapClass));
  const auto implementer = framework->objectImplementers().implementer(kLdapClass);
  ASSERT_TRUE(implementer.has_value());
  EXPECT_EQ("LdapComponent", implementer->componentName);
  EXPECT_EQ(reinterpret_cast<const PymOamSpiManagedObject_3*>(component.managedObject()), implementer->managedObject);
  EXPECT_EQ(reinterpret_cast<const PymOamSpiTransactionalResource_2*>(component.transactionalResource()),
            implementer->transactionalResource);
  EXPECT_FALSE(framework->objectImplementers().implementer(kMethodClass).has_value());
}

TEST_F(RegisterObjectImplementerTables, RegisteringTwiceAlreadyExists) {
  EXPECT_EQ(PymOk, v3->registerClass("LdapComponent", kLdapClass));
  EXPECT_EQ(PymAlreadyExist, v3->registerClass("LdapComponent", kLdapClass));
  EXPECT_EQ(PymOk, v3->registerClass("LdapComponent", kMethodClass));
  EXPECT_EQ((std::vector<std::string>{"v3 register LdapComponent " + std::string(kLdapClass) + " 0",
                                      "v3 register LdapComponent " + std::string(kLdapClass) + " -3",
                                      "v3 register LdapComponent " + std::string(kMethodClass) + " 0"}),
            calls());
}

TEST_F(RegisterObjectImplementerTables, UnregisteringWhatIsNotRegisteredDoesNotExist) {
  EXPECT_EQ(PymNotExist, v3->unregisterClass("LdapComponent", kLdapClass));
  EXPECT_EQ(PymOk, v3->registerClass("LdapComponent", kLdapClass));
  EXPECT_EQ(PymNotExist, v3->unregisterClass("OtherComponent", kLdapClass));
  EXPECT_EQ(PymOk, v3->unregisterClass("LdapComponent", kLdapClass));
  EXPECT_EQ(PymNotExist, v3->unregisterClass("LdapComponent", kLdapClass));
  EXPECT_FALSE(framework->objectImplementers().implementer(kLdapClass).has_value());
  EXPECT_EQ("v3 unregister OtherComponent " + std::string(kLdapClass) + " -2", calls().at(2));
}

TEST_F(RegisterObjectImplementerTables, Version3NeedsARegisteredComponentWithBothTables) {
  EXPECT_EQ(PymNotExist, v3->registerClass("UnknownComponent", kLdapClass));
  FakeComponent bare(1, "BareComponent", false);
  ASSERT_EQ(PymOk, portal3()->registerComponent(bare.descriptor()));
  EXPECT_EQ(PymNotExist, v3->registerClass("BareComponent", kLdapClass));
  EXPECT_EQ(PymOk, portal3()->unregisterComponent(bare.descriptor()));
  EXPECT_EQ(PymOk, portal3()->unregisterComponent(component.descriptor()));
  EXPECT_EQ(PymNotExist, v3->registerClass("LdapComponent", kLdapClass));
}

TEST_F(RegisterObjectImplementerTables, InvalidArguments) {
  EXPECT_EQ(PymInvalidParameter, v3->registerClass(nullptr, kLdapClass));
  EXPECT_EQ(PymInvalidParameter, v3->registerClass("LdapComponent", nullptr));
  EXPECT_EQ(PymInvalidParameter, v3->registerClass("LdapComponent", "ManagedElement,SystemFunctions"));
  EXPECT_EQ(PymInvalidParameter, v2->registerClass(nullptr, component.transactionalResource(), kLdapClass));
  EXPECT_EQ(PymInvalidParameter, v2->registerClass(component.managedObject(), nullptr, kLdapClass));
  EXPECT_EQ(PymInvalidParameter, v3->unregisterClass(nullptr, kLdapClass));
  EXPECT_EQ(6u, calls().size());
}

TEST_F(RegisterObjectImplementerTables, Version2TakesTheTablesGiven) {
  FakeComponent unregistered(1, "OldStyle");
  EXPECT_EQ(PymOk, v2->registerClass(unregistered.managedObject(), unregistered.transactionalResource(), kLdapClass));
  const auto implementer = framework->objectImplementers().implementer(kLdapClass);
  ASSERT_TRUE(implementer.has_value());
  EXPECT_EQ("OldStyle", implementer->componentName);
  EXPECT_EQ(reinterpret_cast<const PymOamSpiManagedObject_3*>(unregistered.managedObject()),
            implementer->managedObject);
  EXPECT_EQ(PymAlreadyExist, v3->registerClass("LdapComponent", kLdapClass));
  EXPECT_EQ(PymOk, v2->unregisterClass("OldStyle", kLdapClass));
  EXPECT_EQ((std::vector<std::string>{"v2 register OldStyle " + std::string(kLdapClass) + " 0",
                                      "v3 register LdapComponent " + std::string(kLdapClass) + " -3",
                                      "v2 unregister OldStyle " + std::string(kLdapClass) + " 0"}),
            calls());
}

TEST_F(RegisterObjectImplementerTables, HooksChooseTheNextAnswers) {
  framework->objectImplementers().answerNextRegister(-77);
  framework->objectImplementers().answerNextRegister(PymAlreadyExist);
  framework->objectImplementers().answerNextUnregister(-78);
  EXPECT_EQ(-77, v3->registerClass("LdapComponent", kLdapClass));
  EXPECT_EQ(PymAlreadyExist, v3->registerClass("LdapComponent", kLdapClass));
  EXPECT_FALSE(framework->objectImplementers().implementer(kLdapClass).has_value());
  EXPECT_EQ(PymOk, v3->registerClass("LdapComponent", kLdapClass));
  EXPECT_EQ(-78, v3->unregisterClass("LdapComponent", kLdapClass));
  EXPECT_TRUE(framework->objectImplementers().implementer(kLdapClass).has_value());
  EXPECT_EQ(PymOk, v3->unregisterClass("LdapComponent", kLdapClass));
  EXPECT_EQ("v3 register LdapComponent " + std::string(kLdapClass) + " -77", calls().at(0));
  EXPECT_EQ("v3 unregister LdapComponent " + std::string(kLdapClass) + " -78", calls().at(3));
  framework->objectImplementers().clearCalls();
  EXPECT_TRUE(calls().empty());
}

TEST_F(RegisterObjectImplementerTables, WithoutFrameworkItFails) {
  framework.reset();
  EXPECT_EQ(PymFailure, v3->registerClass("LdapComponent", kLdapClass));
  EXPECT_EQ(PymFailure, v2->unregisterClass("LdapComponent", kLdapClass));
}
