#include "FakeComponent.h"
#include "FrameworkTest.h"

#include <Framework/InterfacePortal.h>
#include <PymMgmtSpiThreadContext.h>
#include <PymMwSpiAccessManagement.h>
#include <PymOamSpiRegisterObjectImplementer.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <tuple>

namespace {

// Competing implementations of one interface, as tests add them.
PymMwSpiAccessManagement_1 accessManagementA = {{"ComponentA", "PymMwSpiAccessManagement", "1"}, nullptr, nullptr};
PymMwSpiAccessManagement_1 accessManagementB = {{"ComponentB", "PymMwSpiAccessManagement", "1"}, nullptr, nullptr};
PymMwSpiAccessManagement_2 accessManagementB2 = {{"ComponentB", "PymMwSpiAccessManagement", "2"}, nullptr, nullptr};

}  // namespace

class PortalTables : public FrameworkTest {
 protected:
  void SetUp() override {
    FrameworkTest::SetUp();
    FakeComponent::events().clear();
    portal = portal3();
    ASSERT_NE(nullptr, portal);
  }

  PymMgmtSpiInterface_1* find(const char* componentName, const char* interfaceName, const char* version) {
    PymMgmtSpiInterface_1* found = nullptr;
    return portal->getInterface(componentName, interfaceName, version, &found) == PymOk ? found : nullptr;
  }

  PymMgmtSpiInterfacePortal_3* portal = nullptr;
};

TEST_F(PortalTables, AccessorHandsOutVersionsThreeAndOne) {
  PymMgmtSpiInterfacePortalAccessor* accessor = framework->accessor();
  auto* v3 = static_cast<PymMgmtSpiInterfacePortal_3*>(accessor->getPortal("3"));
  auto* v1 = static_cast<QivMgmtSpiInterfacePortal_1*>(accessor->getPortal("1"));
  ASSERT_NE(nullptr, v3);
  ASSERT_NE(nullptr, v1);
  EXPECT_STREQ("PymMgmtSpiInterfacePortal", v3->base.interfaceName);
  EXPECT_STREQ("3", v3->base.interfaceVersion);
  EXPECT_STREQ("QivMgmtSpiInterfacePortal", v1->base.interfaceName);
  EXPECT_EQ(nullptr, accessor->getPortal("2"));
  EXPECT_EQ(nullptr, accessor->getPortal(nullptr));
  PymMgmtSpiInterface_1* found = nullptr;
  ASSERT_EQ(PymOk, v1->getInterface(nullptr, "PymOamSpiTransaction", "2", &found));
  EXPECT_STREQ("PymOamSpiTransactionService", found->componentName);
}

TEST_F(PortalTables, AVersionCanBeWithheld) {
  framework->portal().offerPortal("3", false);
  EXPECT_EQ(nullptr, framework->accessor()->getPortal("3"));
  EXPECT_NE(nullptr, framework->accessor()->getPortal("1"));
  framework->portal().offerPortal("1", false);
  EXPECT_EQ(nullptr, framework->accessor()->getPortal("1"));
  framework->portal().offerPortal("3", true);
  EXPECT_EQ(portal, framework->accessor()->getPortal("3"));
}

TEST_F(PortalTables, TheFrameworkOffersItsServices) {
  const std::vector<std::tuple<const char*, const char*, const char*>> services = {
      {"QivMgmtSpiPortalService", "QivMgmtSpiInterfacePortal", "1"},
      {"PymOamSpiCmRouterService", "PymOamSpiManagedObject", "1"},
      {"PymOamSpiCmRouterService", "PymOamSpiManagedObject", "3"},
      {"PymOamSpiCmRouterService", "PymOamSpiManagedObject", "3_1"},
      {"QivOamSpiExtCmRouterService", "QivOamSpiManagedObject", "3"},
      {"PymOamSpiTransactionService", "PymOamSpiTransaction", "2"},
      {"PymOamSpiTransactionService", "PymOamSpiTransactionMaster", "2"},
      {"PymOamSpiObjectImplementerService", "PymOamSpiRegisterObjectImplementer", "2"},
      {"PymOamSpiObjectImplementerService", "PymOamSpiRegisterObjectImplementer", "3"},
      {"PymMgmtSpiThreadContextService", "PymMgmtSpiThreadContext", "2"},
      {"PymMwSpiLogService", "PymMwSpiLog", "1"},
      {"PymMwSpiLogService", "PymMwSpiTrace", "1"},
      {"PymMwSpiCryptoService", "PymMwSpiCrypto", "1"},
  };
  for (const auto& service : services) {
    PymMgmtSpiInterface_1* found = find(std::get<0>(service), std::get<1>(service), std::get<2>(service));
    ASSERT_NE(nullptr, found) << std::get<1>(service) << " " << std::get<2>(service);
    EXPECT_STREQ(std::get<0>(service), found->componentName);
    EXPECT_STREQ(std::get<1>(service), found->interfaceName);
    EXPECT_STREQ(std::get<2>(service), found->interfaceVersion);
  }
}

TEST_F(PortalTables, NullComponentOrVersionMatchesAnyAndTheFirstRegisteredWins) {
  ASSERT_TRUE(framework->portal().addInterface(&accessManagementB2.base));
  ASSERT_TRUE(framework->portal().addInterface(&accessManagementA.base));
  ASSERT_TRUE(framework->portal().addInterface(&accessManagementB.base));
  EXPECT_EQ(&accessManagementA.base, find(nullptr, "PymMwSpiAccessManagement", "1"));
  EXPECT_EQ(&accessManagementB.base, find("ComponentB", "PymMwSpiAccessManagement", "1"));
  EXPECT_EQ(&accessManagementB2.base, find(nullptr, "PymMwSpiAccessManagement", nullptr));
  EXPECT_EQ(&accessManagementA.base, find("ComponentA", "PymMwSpiAccessManagement", nullptr));
  EXPECT_EQ(nullptr, find("ComponentA", "PymMwSpiAccessManagement", "2"));
}

TEST_F(PortalTables, NoMatchLeavesTheResultUntouched) {
  PymMgmtSpiInterface_1 untouched = {"x", "y", "z"};
  PymMgmtSpiInterface_1* found = &untouched;
  EXPECT_EQ(PymNotExist, portal->getInterface(nullptr, "PymMwSpiAccessManagement", "1", &found));
  EXPECT_EQ(&untouched, found);
  EXPECT_EQ(PymInvalidParameter, portal->getInterface(nullptr, nullptr, "1", &found));
  EXPECT_EQ(PymInvalidParameter, portal->getInterface(nullptr, "PymOamSpiTransaction", "2", nullptr));
}

TEST_F(PortalTables, GetImplementationsGivesAMallocedNullTerminatedArray) {
  ASSERT_TRUE(framework->portal().addInterface(&accessManagementA.base));
  ASSERT_TRUE(framework->portal().addInterface(&accessManagementB.base));
  ASSERT_TRUE(framework->portal().addInterface(&accessManagementB2.base));
  PymMgmtSpiInterface_1** implementations = nullptr;
  ASSERT_EQ(PymOk, portal->getImplementations("PymMwSpiAccessManagement", "1", &implementations));
  ASSERT_NE(nullptr, implementations);
  EXPECT_EQ(&accessManagementA.base, implementations[0]);
  EXPECT_EQ(&accessManagementB.base, implementations[1]);
  EXPECT_EQ(nullptr, implementations[2]);
  std::free(implementations);
  ASSERT_EQ(PymOk, portal->getImplementations("PymMwSpiAccessManagement", nullptr, &implementations));
  EXPECT_EQ(&accessManagementB2.base, implementations[2]);
  EXPECT_EQ(nullptr, implementations[3]);
  std::free(implementations);
  implementations = nullptr;
  EXPECT_EQ(PymNotExist, portal->getImplementations("PymMwSpiAccessManagement", "3", &implementations));
  EXPECT_EQ(nullptr, implementations);
}

TEST_F(PortalTables, SeveralObjectImplementerRegistrarsCanCompete) {
  PymOamSpiRegisterObjectImplementer_3 other = {{"OtherService", "PymOamSpiRegisterObjectImplementer", "3"},
                                                nullptr, nullptr};
  ASSERT_TRUE(framework->portal().addInterface(&other.base));
  PymMgmtSpiInterface_1** implementations = nullptr;
  ASSERT_EQ(PymOk, portal->getImplementations("PymOamSpiRegisterObjectImplementer", "3", &implementations));
  EXPECT_STREQ("PymOamSpiObjectImplementerService", implementations[0]->componentName);
  EXPECT_EQ(&other.base, implementations[1]);
  EXPECT_EQ(nullptr, implementations[2]);
  std::free(implementations);
}

TEST_F(PortalTables, AnInterfaceCanBeRemoved) {
  EXPECT_TRUE(framework->portal().removeInterface("PymMgmtSpiThreadContextService", "PymMgmtSpiThreadContext", "2"));
  EXPECT_EQ(nullptr, find(nullptr, "PymMgmtSpiThreadContext", "2"));
  EXPECT_FALSE(framework->portal().removeInterface("PymMgmtSpiThreadContextService", "PymMgmtSpiThreadContext", "2"));
  EXPECT_FALSE(framework->portal().addInterface(&accessManagementA.base) &&
               framework->portal().addInterface(&accessManagementA.base));
}

TEST_F(PortalTables, RegisteredComponentsOfferTheirInterfaces) {
  FakeComponent component(0, "LdapComponent");
  EXPECT_EQ(nullptr, find("LdapComponent", "PymOamSpiManagedObject", "3"));
  ASSERT_EQ(PymOk, portal->registerComponent(component.descriptor()));
  EXPECT_EQ(component.managedObject(), find("LdapComponent", "PymOamSpiManagedObject", "3"));
  EXPECT_EQ(component.transactionalResource(), find(nullptr, "PymOamSpiTransactionalResource", "2"));
  EXPECT_EQ(std::vector<PymMgmtSpiComponent_2*>{component.descriptor()}, framework->portal().components());
  // Registering the same descriptor again keeps it registered once.
  EXPECT_EQ(PymOk, portal->registerComponent(component.descriptor()));
  EXPECT_EQ(std::vector<PymMgmtSpiComponent_2*>{component.descriptor()}, framework->portal().components());
  ASSERT_EQ(PymOk, portal->unregisterComponent(component.descriptor()));
  EXPECT_EQ(nullptr, find("LdapComponent", "PymOamSpiManagedObject", "3"));
  EXPECT_TRUE(framework->portal().components().empty());
  EXPECT_EQ(PymNotExist, portal->unregisterComponent(component.descriptor()));
  EXPECT_EQ(2u, framework->portal().registerComponentCalls());
  EXPECT_EQ(2u, framework->portal().unregisterComponentCalls());
}

TEST_F(PortalTables, RegistrationsAreRefusedWhenTheyClash) {
  EXPECT_EQ(PymInvalidParameter, portal->registerComponent(nullptr));
  EXPECT_EQ(PymNotExist, portal->unregisterComponent(nullptr));
  FakeComponent first(0, "Same");
  FakeComponent second(1, "Same");
  ASSERT_EQ(PymOk, portal->registerComponent(first.descriptor()));
  EXPECT_EQ(PymAlreadyExist, portal->registerComponent(second.descriptor()));
  EXPECT_EQ(std::vector<PymMgmtSpiComponent_2*>{first.descriptor()}, framework->portal().components());
  EXPECT_EQ(first.managedObject(), find("Same", "PymOamSpiManagedObject", "3"));
  PymMgmtSpiComponent_2 nameless{};
  nameless.base = {nullptr, "PymMgmtSpiComponent", "2"};
  EXPECT_EQ(PymInvalidParameter, portal->registerComponent(&nameless));
  EXPECT_EQ(1u, framework->portal().components().size());
}

TEST_F(PortalTables, RegisterComponentCanBeToldToRefuse) {
  FakeComponent component(0, "LdapComponent");
  framework->portal().answerNextRegisterComponent(-99);
  EXPECT_EQ(-99, portal->registerComponent(component.descriptor()));
  EXPECT_TRUE(framework->portal().components().empty());
  EXPECT_EQ(nullptr, find("LdapComponent", "PymOamSpiManagedObject", "3"));
  EXPECT_EQ(PymOk, portal->registerComponent(component.descriptor()));
  EXPECT_EQ(2u, framework->portal().registerComponentCalls());
}

TEST_F(PortalTables, ALookUpCanBeToldToFailWithACodeOfItsOwn) {
  framework->portal().answerNextGetInterface("PymOamSpiTransactionMaster", "2", -7);
  PymMgmtSpiInterface_1 untouched = {"x", "y", "z"};
  PymMgmtSpiInterface_1* found = &untouched;
  // Another interface, or another version of it, is found as before.
  EXPECT_EQ(PymOk, portal->getInterface(nullptr, "PymOamSpiTransaction", "2", &found));
  EXPECT_STREQ("PymOamSpiTransaction", found->interfaceName);
  found = &untouched;
  EXPECT_EQ(PymNotExist, portal->getInterface(nullptr, "PymOamSpiTransactionMaster", "1", &found));
  EXPECT_EQ(-7, portal->getInterface("PymOamSpiTransactionService", "PymOamSpiTransactionMaster", "2", &found));
  EXPECT_EQ(&untouched, found);
  // One answer per call.
  EXPECT_EQ(PymOk, portal->getInterface("PymOamSpiTransactionService", "PymOamSpiTransactionMaster", "2", &found));
  EXPECT_STREQ("PymOamSpiTransactionMaster", found->interfaceName);
}

TEST_F(PortalTables, StartChecksDependenciesAndStopGoesInReverse) {
  FakeComponent ready(0, "Ready");
  ready.addDependency("QivMgmtSpiPortalService", "QivMgmtSpiInterfacePortal", "1");
  ready.addDependency(nullptr, "PymMwSpiLog", nullptr);
  FakeComponent waiting(1, "Waiting");
  waiting.addDependency(nullptr, "PymMwSpiAccessManagement", "1");
  waiting.addDependency("NoSuchService", "PymOamSpiTransaction", "2");
  ASSERT_EQ(PymOk, portal->registerComponent(ready.descriptor()));
  ASSERT_EQ(PymOk, portal->registerComponent(waiting.descriptor()));

  EXPECT_EQ(PymNotExist, framework->portal().startComponents(PymStateChangeStartup));
  EXPECT_EQ(std::vector<std::string>{"start Ready 0"}, FakeComponent::events());
  EXPECT_TRUE(framework->log().contains(
      3, "Waiting: missing dependency PymMwSpiAccessManagement version 1 of (any)"));
  EXPECT_TRUE(framework->log().contains(
      3, "Waiting: missing dependency PymOamSpiTransaction version 2 of NoSuchService"));

  ASSERT_TRUE(framework->portal().addInterface(&accessManagementA.base));
  FakeComponent::events().clear();
  EXPECT_EQ(PymNotExist, framework->portal().startComponents(PymStateChangeStartup));
  EXPECT_EQ(std::vector<std::string>{"start Ready 0"}, FakeComponent::events());

  EXPECT_EQ(PymOk, framework->portal().stopComponents(PymStateChangeShutdown));
  EXPECT_EQ((std::vector<std::string>{"start Ready 0", "stop Waiting 1", "stop Ready 1"}), FakeComponent::events());
}

TEST_F(PortalTables, AFailedStartIsReportedAndLogged) {
  FakeComponent failing(0, "Failing");
  failing.answerStart(-12);
  FakeComponent fine(1, "Fine");
  ASSERT_EQ(PymOk, portal->registerComponent(failing.descriptor()));
  ASSERT_EQ(PymOk, portal->registerComponent(fine.descriptor()));
  EXPECT_EQ(-12, framework->portal().startComponents(PymStateChangeStartup));
  EXPECT_EQ((std::vector<std::string>{"start Failing 0", "start Fine 0"}), FakeComponent::events());
  EXPECT_TRUE(framework->log().contains(3, "Failing: start failed (-12)"));
}

TEST_F(PortalTables, WithoutFrameworkLookUpsFail) {
  PymMgmtSpiInterfacePortalAccessor* accessor = framework->accessor();
  framework.reset();
  EXPECT_EQ(nullptr, accessor->getPortal("3"));
  PymMgmtSpiInterface_1* found = nullptr;
  EXPECT_EQ(PymFailure, portal->getInterface(nullptr, "PymOamSpiTransaction", "2", &found));
  EXPECT_EQ(nullptr, found);
}
