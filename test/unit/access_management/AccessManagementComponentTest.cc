#include "AccessManagementComponent.h"

#include "DescriptorIdentities.h"
#include "FrameworkTestBase.h"

#include <Qiv/Portal.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer runtime's own count; malloc statistics do not see its allocator.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#else
#include <malloc.h>
#endif

using namespace QivAccessManagement;
using namespace DescriptorIdentities;

namespace {

long allocatedBytes() {
#if defined(__SANITIZE_ADDRESS__)
  return static_cast<long>(__sanitizer_get_current_allocated_bytes());
#else
  return static_cast<long>(mallinfo2().uordblks);
#endif
}

}  // namespace

// A component object of its own (not the process's singleton) on the framework stand-in.
class AccessManagementComponentTest : public FrameworkTestBase {
 protected:
  explicit AccessManagementComponentTest(const std::string& model = "ldap20.xml") : FrameworkTestBase(model) {}

  Framework::InterfacePortal& portal() { return framework().portal(); }

  void initialize(const char* config = nullptr) { ASSERT_EQ(0, component.lib_init(framework().accessor(), config)); }

  // Only the given implementers of name/version remain offered.
  void replaceImplementers(const std::string& frameworkComponent, const std::string& name, const std::string& version,
                           const std::vector<PymMgmtSpiInterface_1*>& implementers) {
    ASSERT_TRUE(portal().removeInterface(frameworkComponent, name, version));
    for (PymMgmtSpiInterface_1* implementer : implementers) ASSERT_TRUE(portal().addInterface(implementer));
  }

  AccessManagementComponent component;
};

TEST_F(AccessManagementComponentTest, DescriptorNamesTheComponentItsInterfacesAndDependenciesInOrder) {
  initialize();
  ASSERT_EQ(std::vector<PymMgmtSpiComponent_2*>{const_cast<PymMgmtSpiComponent_2*>(&component.getDescriptor())},
            portal().components());
  const PymMgmtSpiComponent_2& descriptor = component.getDescriptor();
  EXPECT_EQ("QivAccessManagementComponent / PymMgmtSpiComponent / 2", identity(&descriptor.base));
  EXPECT_EQ(offeredInterfaces(), identities(descriptor.interfaceArray));
  EXPECT_EQ(requiredDependencies(), identities(descriptor.dependencyArray));
  EXPECT_EQ(&Qiv::Portal::COMP_ID, descriptor.dependencyArray[0]);
  EXPECT_EQ(optionalDependencies(), identities(descriptor.optionalDependencyArray));
  EXPECT_NE(nullptr, descriptor.start);
  EXPECT_NE(nullptr, descriptor.stop);
}

TEST_F(AccessManagementComponentTest, WithoutVersion3PortalNothingIsRegisteredOrInitialized) {
  portal().offerPortal("3", false);
  EXPECT_EQ(-1, component.lib_init(framework().accessor(), "<c/>"));
  EXPECT_EQ(0u, portal().registerComponentCalls());
  EXPECT_TRUE(portal().components().empty());
  EXPECT_FALSE(component.isInitialized());
}

TEST_F(AccessManagementComponentTest, NullAccessorIsRefused) {
  EXPECT_EQ(-1, component.lib_init(nullptr, nullptr));
  EXPECT_FALSE(component.isInitialized());
  EXPECT_EQ(0u, portal().registerComponentCalls());
}

TEST_F(AccessManagementComponentTest, RefusedDescriptorGivesThePortalsCodeAndNoInitialize) {
  portal().answerNextRegisterComponent(-5);
  EXPECT_EQ(-5, component.lib_init(framework().accessor(), "<c/>"));
  EXPECT_FALSE(component.isInitialized());
  EXPECT_EQ(nullptr, component.getConfig());
}

TEST_F(AccessManagementComponentTest, SecondInitializeFailsWhileTheDescriptorStaysRegistered) {
  initialize();
  EXPECT_EQ(-1, component.lib_init(framework().accessor(), nullptr));
  EXPECT_EQ(1u, log().count(3, "Component already initialized!"));
  EXPECT_EQ(1u, portal().components().size());
  EXPECT_TRUE(component.isInitialized());
}

TEST_F(AccessManagementComponentTest, InitializeKeepsItsOwnCopyOfTheConfiguration) {
  char config[] = "<QivAccessManagementComponent/>";
  initialize(config);
  config[1] = 'X';
  ASSERT_NE(nullptr, component.getConfig());
  EXPECT_STREQ("<QivAccessManagementComponent/>", component.getConfig());

  EXPECT_EQ(0, component.terminate());
  EXPECT_FALSE(component.isInitialized());
  EXPECT_EQ(nullptr, component.getConfig());
  EXPECT_EQ(0, component.initialize(nullptr));
  EXPECT_EQ(nullptr, component.getConfig());
}

TEST_F(AccessManagementComponentTest, TerminateUnregistersOnceAndKeepsTheObject) {
  initialize("<c/>");
  EXPECT_EQ(0, component.lib_term());
  EXPECT_TRUE(portal().components().empty());
  EXPECT_EQ(1u, portal().unregisterComponentCalls());
  EXPECT_FALSE(component.isInitialized());
  // Without a portal only terminate runs.
  EXPECT_EQ(0, component.lib_term());
  EXPECT_EQ(1u, portal().unregisterComponentCalls());
}

TEST_F(AccessManagementComponentTest, CryptoIdentityGoesThroughTheNotWantedRule) {
  PymMgmtSpiInterface_1 ft = {"FtCryptoComponent", "PymMwSpiCrypto", "1"};
  PymMgmtSpiInterface_1 other = {"ZCryptoComponent", "PymMwSpiCrypto", "1"};
  replaceImplementers("PymMwSpiCryptoService", "PymMwSpiCrypto", "1", {&ft, &other});
  initialize();

  EXPECT_EQ(&other, component.getInterface(AccessManagementComponent::CRYPTO_ID));
  // The same name in another string is an ordinary look-up: the first implementer answers.
  const PymMgmtSpiInterface_1 equalName = {nullptr, "PymMwSpiCrypto", "1"};
  ASSERT_NE(equalName.interfaceName, AccessManagementComponent::CRYPTO_INTERFACE_NAME);
  EXPECT_EQ(&ft, component.getInterface(equalName));
}

TEST_F(AccessManagementComponentTest, NotWantedCryptoIsUsedWhenItIsTheOnlyOne) {
  PymMgmtSpiInterface_1 ft = {"FtCryptoComponent", "PymMwSpiCrypto", "1"};
  replaceImplementers("PymMwSpiCryptoService", "PymMwSpiCrypto", "1", {&ft});
  initialize();
  EXPECT_EQ(&ft, component.getInterface(AccessManagementComponent::CRYPTO_ID));
}

TEST_F(AccessManagementComponentTest, RegistrationUtilityIsUsedOnlyWhenNothingElseImplementsTheInterface) {
  PymMgmtSpiInterface_1 utility = {"RegisterObjectImplementerUtilMgmtComponent", "PymOamSpiRegisterObjectImplementer", "3"};
  PymMgmtSpiInterface_1 b = {"B", "PymOamSpiRegisterObjectImplementer", "3"};
  PymMgmtSpiInterface_1 a = {"A", "PymOamSpiRegisterObjectImplementer", "3"};
  replaceImplementers("PymOamSpiObjectImplementerService", "PymOamSpiRegisterObjectImplementer", "3", {&utility});
  initialize();
  const PymMgmtSpiInterface_1 v3 = {nullptr, "PymOamSpiRegisterObjectImplementer", "3"};
  EXPECT_EQ(&utility, component.getInterface(v3));

  ASSERT_TRUE(portal().addInterface(&b));
  ASSERT_TRUE(portal().addInterface(&a));
  EXPECT_EQ(&a, component.getInterface(v3));
}

TEST_F(AccessManagementComponentTest, RegistrationInterfaceVersion2IsChosenTheSameWay) {
  PymMgmtSpiInterface_1 utility = {"RegisterObjectImplementerUtilMgmtComponent", "PymOamSpiRegisterObjectImplementer", "2"};
  ASSERT_TRUE(portal().addInterface(&utility));
  initialize();
  const PymMgmtSpiInterface_1 v2 = {nullptr, "PymOamSpiRegisterObjectImplementer", "2"};
  PymMgmtSpiInterface_1* chosen = component.getInterface(v2);
  ASSERT_NE(nullptr, chosen);
  EXPECT_STREQ("PymOamSpiObjectImplementerService", chosen->componentName);
}

TEST_F(AccessManagementComponentTest, OtherRegistrationVersionsAreOrdinaryLookUps) {
  PymMgmtSpiInterface_1 first = {"RegisterObjectImplementerUtilMgmtComponent", "PymOamSpiRegisterObjectImplementer", "4"};
  PymMgmtSpiInterface_1 second = {"A", "PymOamSpiRegisterObjectImplementer", "4"};
  ASSERT_TRUE(portal().addInterface(&first));
  ASSERT_TRUE(portal().addInterface(&second));
  initialize();
  const PymMgmtSpiInterface_1 v4 = {nullptr, "PymOamSpiRegisterObjectImplementer", "4"};
  EXPECT_EQ(&first, component.getInterface(v4));
}

TEST_F(AccessManagementComponentTest, SelectionWithoutAnyImplementerIsNull) {
  initialize();
  EXPECT_EQ(nullptr, component.getInterface("PymMwSpiNothing", "1", {"A"}));
  const PymMgmtSpiInterface_1 crypto2 = {nullptr, "PymOamSpiRegisterObjectImplementer", "3"};
  ASSERT_TRUE(portal().removeInterface("PymOamSpiObjectImplementerService", "PymOamSpiRegisterObjectImplementer", "3"));
  EXPECT_EQ(nullptr, component.getInterface(crypto2));
  EXPECT_EQ(1u, log().count(4, "Failed (-2) to get interface PymOamSpiRegisterObjectImplementer v.3 implemented by null"));
}

TEST_F(AccessManagementComponentTest, ImplementerArrayIsReleasedWhetherOrNotAnInterfaceIsFound) {
  initialize();
  const auto select = [&] { return component.getInterface("PymOamSpiRegisterObjectImplementer", "3", {"X"}); };
  ASSERT_NE(nullptr, select());  // warms up what the first call allocates for good
  const long before = allocatedBytes();
  for (int i = 0; i < 1000; ++i) {
    ASSERT_NE(nullptr, select());
    // A portal that reports a failure and still hands out an array.
    portal().answerNextGetImplementations(PymFailure);
    ASSERT_EQ(nullptr, select());
  }
  // 2000 arrays of two pointers each would be at least 32000 bytes.
  EXPECT_LT(allocatedBytes() - before, 4096);
}

TEST_F(AccessManagementComponentTest, FailedLookUpOfCompetingAccessManagementIsSilent) {
  initialize();
  EXPECT_EQ(nullptr, component.getInterface(AccessManagementComponent::ACCESS_MANAGEMENT_V1_ID));
  EXPECT_EQ(0u, log().countAtLevel(3) + log().countAtLevel(4));
  EXPECT_EQ(1u, log().count(8, " >> Try to get interface PymMwSpiAccessManagement v.1 implemented by null"));

  PymMgmtSpiInterface_1 competitor = {"OtherAccessManagement", "PymMwSpiAccessManagement", "1"};
  ASSERT_TRUE(portal().addInterface(&competitor));
  EXPECT_EQ(&competitor, component.getInterface(AccessManagementComponent::ACCESS_MANAGEMENT_V1_ID));
}

TEST_F(AccessManagementComponentTest, FailedLookUpIsAWarningWithTheFrameworksCode) {
  initialize();
  const PymMgmtSpiInterface_1 missing = {"Nobody", "PymMwSpiNothing", "7"};
  EXPECT_EQ(nullptr, component.getInterface(missing));
  EXPECT_EQ(1u, log().count(4, "Failed (-2) to get interface PymMwSpiNothing v.7 implemented by Nobody"));
  EXPECT_EQ(1u, log().count(8, " >> Try to get interface PymMwSpiNothing v.7 implemented by Nobody"));
  EXPECT_EQ(1u, log().count(8, " << "));

  // Only the component's own literal silences the access-management look-up.
  const PymMgmtSpiInterface_1 equalName = {nullptr, "PymMwSpiAccessManagement", "1"};
  EXPECT_EQ(nullptr, component.getInterface(equalName));
  EXPECT_EQ(1u, log().count(4, "Failed (-2) to get interface PymMwSpiAccessManagement v.1 implemented by null"));
}

TEST_F(AccessManagementComponentTest, DependencyLookUpFindsTheFrameworkServices) {
  initialize();
  for (PymMgmtSpiInterface_1** dependency = component.getDescriptor().dependencyArray; *dependency != nullptr; ++dependency)
    EXPECT_NE(nullptr, component.getInterface(**dependency)) << identity(*dependency);
  EXPECT_EQ(0u, log().countAtLevel(4));
}

TEST_F(AccessManagementComponentTest, LookUpBeforeLibInitFindsNothing) {
  const PymMgmtSpiInterface_1 log = {nullptr, "PymMwSpiLog", "1"};
  EXPECT_EQ(nullptr, component.getInterface(log));
  EXPECT_EQ(nullptr, component.getInterface("PymMwSpiLog", "1", {}));
}

TEST_F(AccessManagementComponentTest, OnlyLdapAndDefaultAreValidMethods) {
  EXPECT_TRUE(component.isValidMethod("LDAP"));
  EXPECT_TRUE(component.isValidMethod("default"));
  EXPECT_FALSE(component.isValidMethod("ldap"));
  EXPECT_EQ(1u, log().count(4, "Method 'ldap' not supported"));
  EXPECT_FALSE(component.isValidMethod(nullptr));
}

TEST_F(AccessManagementComponentTest, OperatorMessagesNeedAStartedComponent) {
  EXPECT_EQ(-1, component.addMessage("text"));
  EXPECT_EQ(1u, log().count(4, "QivAccessManagementComponent is not started!"));
  EXPECT_TRUE(operatorMessages().empty());
}

TEST_F(AccessManagementComponentTest, StartedComponentHandsOperatorMessagesToTheThreadContext) {
  initialize();
  ASSERT_EQ(0, component.start(PymStateChangeStartup));
  EXPECT_EQ(0, component.addMessage("LDAP is applied"));
  EXPECT_EQ(std::vector<std::string>{"@qivnbi@LDAP is applied"}, operatorMessages());
  // No transaction holds the LDAP objects yet.
  EXPECT_TRUE(component.validTransactionHandle(7));
  EXPECT_EQ(0, component.stop(PymStateChangeShutdown));
}

TEST_F(AccessManagementComponentTest, StartNeedsAnInitializedComponent) {
  EXPECT_EQ(-1, component.start(PymStateChangeStartup));
  EXPECT_EQ(1u, log().count(3, "Component not initialized!"));
  EXPECT_FALSE(component.isStarted());

  // terminate takes the initialisation back.
  initialize();
  ASSERT_EQ(0, component.terminate());
  EXPECT_EQ(-1, component.start(PymStateChangeStartup));
  EXPECT_EQ(2u, log().count(3, "Component not initialized!"));
  EXPECT_FALSE(component.isStarted());
  EXPECT_TRUE(framework().objectImplementers().calls().empty());
}

// Without an LdapAuthenticationMethod the component starts with its framework services but
// without configuration thread, so nothing else reaches the thread context.
class AccessManagementComponentWithoutMethodTest : public AccessManagementComponentTest {
 protected:
  AccessManagementComponentWithoutMethodTest() : AccessManagementComponentTest("no-ldap-auth-method.xml") {}
};

TEST_F(AccessManagementComponentWithoutMethodTest, RefusedOperatorMessageIsAWarningWithTheFrameworksCode) {
  initialize();
  ASSERT_EQ(0, component.start(PymStateChangeStartup));
  ASSERT_TRUE(component.isStarted());
  framework().threadContext().answerNextAddMessage(-7);
  EXPECT_EQ(-7, component.addMessage("LDAP is applied"));
  EXPECT_EQ(1u, log().count(4, "Failed (-7) to add message!"));
  EXPECT_TRUE(operatorMessages().empty());
  EXPECT_EQ(0, component.stop(PymStateChangeShutdown));
}

TEST_F(AccessManagementComponentTest, UnregisteringKeepsWhatTheFrameworkStillHolds) {
  initialize();
  ASSERT_EQ(0, component.start(PymStateChangeStartup));
  Framework::ObjectImplementerRegistry& registry = framework().objectImplementers();
  registry.answerNextUnregister(-2);
  registry.answerNextUnregister(-5);
  EXPECT_EQ(-1, component.unregisterAsObjectImplementer());
  const std::string ldapPath = "/ManagedElement/SystemFunctions/SecM/UserManagement/LdapAuthenticationMethod";
  EXPECT_EQ(1u, log().count(4, "Failed (-2) to unregister as an object implementer for '" + ldapPath +
                                   "' (-2, PymNotExist)"));
  EXPECT_EQ(1u, log().count(4, "Failed (-5) to unregister as an object implementer for '" + ldapPath + "/Ldap'"));
  EXPECT_EQ(1u, log().count(4, "QivAccessManagementComponent still registered as object implementer for '" + ldapPath +
                                   "/Ldap'"));
  // The one kept is tried again, and goes now.
  EXPECT_EQ(0, component.unregisterAsObjectImplementer());
  EXPECT_EQ(0, component.unregisterAsObjectImplementer());
  EXPECT_EQ(0, component.stop(PymStateChangeShutdown));
}
