#include "FakeImplementer.h"
#include "FakeInterceptor.h"
#include "FrameworkTest.h"

#include <Framework/OperatorTransaction.h>
#include <PymMwSpiLogTrace.h>
#include <PymOamSpiManagedObject.h>
#include <QivOamSpiInterceptorRepository.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

using Framework::OperatorTransaction;
using Strings = std::vector<std::string>;

namespace {

const char* const kLdapClass = "ManagedElement,SystemFunctions,SecM,UserManagement,LdapAuthenticationMethod,Ldap";
const char* const kUserManagementClass = "ManagedElement,SystemFunctions,SecM,UserManagement";
const char* const kLdapImplementerPath =
    "/ManagedElement/SystemFunctions/SecM/UserManagement/LdapAuthenticationMethod/Ldap";
const char* const kUserManagement = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1";

}  // namespace

// Interceptors in front of the router: registered through the repository's table, reached by
// public-table and operator writes, carrying on through the extended table.
class Interception : public FrameworkTest {
 protected:
  void SetUp() override {
    FrameworkTest::SetUp();
    repository = lookup<QivOamSpiInterceptorRepository_1>("QivOamSpiExtCmRouterService",
                                                           "QivOamSpiInterceptorRepository", "1");
    extended = lookup<QivOamSpiManagedObject_3>("QivOamSpiExtCmRouterService", "QivOamSpiManagedObject", "3");
    router = lookup<PymOamSpiManagedObject_3>("PymOamSpiCmRouterService", "PymOamSpiManagedObject", "3");
    ASSERT_NE(nullptr, repository);
    ASSERT_NE(nullptr, extended);
    ASSERT_NE(nullptr, router);
    baseDnValue.theString = "dc=written";
    nodeTypeValue.theString = "mirrored";
  }

  // The fake, registered for className.
  void intercept(const char* className) {
    ASSERT_EQ(PymOk, repository->registerClass(className, interceptor.table(), &interceptor));
  }

  // An implementer for the Ldap class, as the access-management component is.
  void implementLdap() {
    ASSERT_EQ(PymOk, portal3()->registerComponent(implementer.descriptor()));
    ASSERT_EQ(PymOk, framework->objectImplementers().registerClass("LdapComponent", kLdapImplementerPath));
  }

  // The interceptor's action: writes nodeType of the Ldap object, then carries the call on.
  FakeInterceptor::Action mirrorThenCarryOn() {
    return [this](const FakeInterceptor::Call& call) {
      const PymReturnT mirrored = extended->setMoAttribute(call.txHandle, LDAP_DN, "nodeType", &nodeType);
      if (mirrored != PymOk) return mirrored;
      return extended->setMoAttribute(call.txHandle, call.dn, call.attributeName, call.value);
    };
  }

  std::size_t pending(unsigned long txHandle) const { return framework->cmRouter().pendingWriteCount(txHandle); }

  QivOamSpiInterceptorRepository_1* repository = nullptr;
  QivOamSpiManagedObject_3* extended = nullptr;
  // The public table other components write through.
  PymOamSpiManagedObject_3* router = nullptr;
  FakeInterceptor interceptor;
  FakeImplementer implementer{0, "LdapComponent"};
  PymMoAttributeValue_3 baseDnValue{};
  PymMoAttributeValue_3 nodeTypeValue{};
  const PymMoAttributeValueContainer_3 baseDn{PymMoValueType_String, 1, &baseDnValue};
  const PymMoAttributeValueContainer_3 nodeType{PymMoValueType_String, 1, &nodeTypeValue};
};

TEST_F(Interception, TheRepositoryKeepsOneInterceptorPerClass) {
  FakeInterceptor other;
  EXPECT_EQ(PymOk, repository->registerClass(kLdapClass, interceptor.table(), &interceptor));
  EXPECT_EQ(PymOk, repository->registerClass(kLdapClass, interceptor.table(), &interceptor));
  EXPECT_EQ(PymAlreadyExist, repository->registerClass(kLdapClass, other.table(), &other));
  EXPECT_EQ(PymAlreadyExist, repository->registerClass(kLdapClass, interceptor.table(), &other));
  EXPECT_EQ(PymOk, repository->registerClass(kUserManagementClass, other.table(), &other));
  EXPECT_EQ((Strings{kUserManagementClass, kLdapClass}), framework->interceptors().classes());
  EXPECT_EQ(PymOk, repository->deregisterClass(kLdapClass));
  EXPECT_EQ(PymNotExist, repository->deregisterClass(kLdapClass));
  EXPECT_EQ(Strings{kUserManagementClass}, framework->interceptors().classes());
}

TEST_F(Interception, TheRepositoryRefusesWhatItCannotKeep) {
  EXPECT_EQ(PymInvalidParameter, repository->registerClass(nullptr, interceptor.table(), &interceptor));
  EXPECT_EQ(PymInvalidParameter, repository->registerClass("", interceptor.table(), &interceptor));
  EXPECT_EQ(PymInvalidParameter, repository->registerClass(kLdapClass, nullptr, &interceptor));
  EXPECT_EQ(PymInvalidParameter, repository->deregisterClass(nullptr));
  EXPECT_TRUE(framework->interceptors().classes().empty());
}

TEST_F(Interception, EveryPublicTableHandsTheCallersArgumentsToTheInterceptor) {
  intercept(kLdapClass);
  interceptor.onCall([](const FakeInterceptor::Call&) { return -7; });
  const unsigned long tx = framework->transactions().begin();
  for (const char* version : {"1", "3", "3_1"}) {
    SCOPED_TRACE(version);
    auto* table = lookup<PymOamSpiManagedObject_3>("PymOamSpiCmRouterService", "PymOamSpiManagedObject", version);
    ASSERT_NE(nullptr, table);
    // Version 1 begins with the same setMoAttribute.
    EXPECT_EQ(-7, table->setMoAttribute(tx, LDAP_DN, "baseDn", &baseDn));
    const FakeInterceptor::Call call = interceptor.calls().back();
    EXPECT_EQ("setMoAttribute", call.operation);
    EXPECT_EQ(&interceptor, call.context);
    EXPECT_EQ(tx, call.txHandle);
    EXPECT_EQ(tx, call.currentTransaction);
    EXPECT_EQ(LDAP_DN, call.dn);
    EXPECT_STREQ("baseDn", call.attributeName);
    EXPECT_EQ(&baseDn, call.value);
  }
  EXPECT_EQ(3u, interceptor.calls().size());
  EXPECT_EQ(0u, pending(tx));
  framework->transactions().abort(tx);
}

TEST_F(Interception, SetMoAttributesHandsTheCallersListToTheInterceptor) {
  intercept(kLdapClass);
  interceptor.onCall([](const FakeInterceptor::Call&) { return -4; });
  auto* table = lookup<PymOamSpiManagedObject_3_1>("PymOamSpiCmRouterService", "PymOamSpiManagedObject", "3_1");
  ASSERT_NE(nullptr, table);
  PymMoNamedAttributeValueContainer_3 named{"baseDn", baseDn};
  PymMoNamedAttributeValueContainer_3* list[] = {&named, nullptr};
  const unsigned long tx = framework->transactions().begin();
  EXPECT_EQ(-4, table->setMoAttributes(tx, LDAP_DN, list));
  ASSERT_EQ(1u, interceptor.calls().size());
  EXPECT_EQ("setMoAttributes", interceptor.calls()[0].operation);
  EXPECT_EQ(list, interceptor.calls()[0].attributes);
  EXPECT_EQ(0u, pending(tx));
  framework->transactions().abort(tx);
}

TEST_F(Interception, TheExtendedTableIsNeverIntercepted) {
  intercept(kLdapClass);
  const unsigned long tx = framework->transactions().begin();
  EXPECT_EQ(PymOk, extended->setMoAttribute(tx, LDAP_DN, "baseDn", &baseDn));
  PymMoNamedAttributeValueContainer_3 named{"nodeType", nodeType};
  PymMoNamedAttributeValueContainer_3* list[] = {&named, nullptr};
  EXPECT_EQ(PymOk, extended->setMoAttributes(tx, LDAP_DN, list));
  EXPECT_TRUE(interceptor.calls().empty());
  EXPECT_EQ(2u, pending(tx));
  framework->transactions().abort(tx);
}

TEST_F(Interception, WhatTheInterceptorCarriesOnIsCommitted) {
  intercept(kLdapClass);
  interceptor.onCall(mirrorThenCarryOn());
  const unsigned long tx = framework->transactions().begin();
  ASSERT_EQ(PymOk, router->setMoAttribute(tx, LDAP_DN, "baseDn", &baseDn));
  EXPECT_EQ(1u, interceptor.calls().size());
  ASSERT_EQ(PymOk, framework->transactions().commit(tx));
  EXPECT_EQ(Strings{"dc=written"}, framework->model().stringValues(LDAP_DN, "baseDn"));
  EXPECT_EQ(Strings{"mirrored"}, framework->model().stringValues(LDAP_DN, "nodeType"));
}

TEST_F(Interception, OnlyTheRegisteredClassIsIntercepted) {
  intercept(kUserManagementClass);
  const unsigned long tx = framework->transactions().begin();
  EXPECT_EQ(PymOk, router->setMoAttribute(tx, LDAP_DN, "baseDn", &baseDn));
  EXPECT_TRUE(interceptor.calls().empty());
  EXPECT_EQ(1u, pending(tx));
  framework->transactions().abort(tx);
}

TEST_F(Interception, ADeregisteredInterceptorIsNotCalledAgain) {
  intercept(kLdapClass);
  interceptor.onCall([](const FakeInterceptor::Call&) { return PymFailure; });
  const unsigned long tx = framework->transactions().begin();
  EXPECT_EQ(PymFailure, router->setMoAttribute(tx, LDAP_DN, "baseDn", &baseDn));
  ASSERT_EQ(PymOk, repository->deregisterClass(kLdapClass));
  EXPECT_EQ(PymOk, router->setMoAttribute(tx, LDAP_DN, "baseDn", &baseDn));
  EXPECT_EQ(1u, interceptor.calls().size());
  EXPECT_EQ(1u, pending(tx));
  framework->transactions().abort(tx);
}

TEST_F(Interception, AnInterceptorWithoutTheOperationFailsTheWriteWithAnError) {
  interceptor.editableTable().setMoAttribute = nullptr;
  intercept(kLdapClass);
  const unsigned long tx = framework->transactions().begin();
  EXPECT_EQ(PymFailure, router->setMoAttribute(tx, LDAP_DN, "baseDn", &baseDn));
  EXPECT_TRUE(framework->log().contains(PymLogError, std::string("the interceptor of ") + kLdapClass +
                                                         " has no setMoAttribute"));
  EXPECT_EQ(0u, pending(tx));
  framework->transactions().abort(tx);
}

TEST_F(Interception, AnOperatorsWriteIsInterceptedAndWhatItCarriesOnReachesTheImplementer) {
  implementLdap();
  intercept(kUserManagementClass);
  interceptor.onCall(mirrorThenCarryOn());
  OperatorTransaction transaction(*framework);
  const unsigned long tx = transaction.handle();
  ASSERT_EQ(PymOk, transaction.setText(kUserManagement, "targetType", {"mirrored"}));
  ASSERT_EQ(1u, interceptor.calls().size());
  EXPECT_EQ(tx, interceptor.calls()[0].currentTransaction);
  EXPECT_EQ((Strings{"join " + std::to_string(tx), "setMoAttribute " + std::to_string(tx) + " nodeType"}),
            implementer.steps());
  EXPECT_EQ(PymOk, transaction.commit());
  EXPECT_EQ(Strings{"mirrored"}, framework->model().stringValues(kUserManagement, "targetType"));
  EXPECT_EQ(Strings{"mirrored"}, framework->model().stringValues(LDAP_DN, "nodeType"));
}

TEST_F(Interception, AnOperatorsWriteRefusedByTheInterceptorIsNotKept) {
  implementLdap();
  intercept(kLdapClass);
  interceptor.onCall([](const FakeInterceptor::Call&) { return PymFailure; });
  OperatorTransaction transaction(*framework);
  EXPECT_EQ(PymFailure, transaction.setText(LDAP_DN, "baseDn", {"dc=refused"}));
  EXPECT_EQ(0u, pending(transaction.handle()));
  EXPECT_TRUE(implementer.steps().empty());
}

TEST_F(Interception, AComponentsWriteCarriedOnStaysAComponentsWrite) {
  implementLdap();
  intercept(kLdapClass);
  interceptor.onCall(mirrorThenCarryOn());
  OperatorTransaction transaction(*framework);
  ASSERT_EQ(PymOk, router->setMoAttribute(transaction.handle(), LDAP_DN, "baseDn", &baseDn));
  EXPECT_EQ(1u, interceptor.calls().size());
  EXPECT_TRUE(implementer.steps().empty());
  EXPECT_EQ(2u, pending(transaction.handle()));
}

TEST_F(Interception, AfterAnOperatorsWriteTheThreadsOwnWritesAreAComponentsAgain) {
  implementLdap();
  intercept(kUserManagementClass);
  interceptor.onCall(mirrorThenCarryOn());
  OperatorTransaction transaction(*framework);
  ASSERT_EQ(PymOk, transaction.setText(kUserManagement, "targetType", {"mirrored"}));
  const std::size_t steps = implementer.steps().size();
  EXPECT_EQ(PymOk, extended->setMoAttribute(transaction.handle(), LDAP_DN, "baseDn", &baseDn));
  EXPECT_EQ(steps, implementer.steps().size());
}

TEST_F(Interception, WritesOfAnImplementerInsideAnOperatorsWriteAreItsOwn) {
  implementLdap();
  intercept(kUserManagementClass);
  interceptor.onCall(mirrorThenCarryOn());
  PymMoAttributeValue_3 flexible{};
  flexible.theEnum = 2;
  const PymMoAttributeValueContainer_3 profileFilter{PymMoValueType_Enum, 1, &flexible};
  PymReturnT ownWrite = PymFailure;
  implementer.at(FakeImplementer::SetMoAttribute, [&](unsigned long txHandle) {
    ownWrite = extended->setMoAttribute(txHandle, LDAP_DN, "profileFilter", &profileFilter);
  });
  OperatorTransaction transaction(*framework);
  const unsigned long tx = transaction.handle();
  ASSERT_EQ(PymOk, transaction.setText(kUserManagement, "targetType", {"mirrored"}));
  EXPECT_EQ(PymOk, ownWrite);
  // Only the mirrored nodeType reached it, not its own profileFilter.
  EXPECT_EQ((Strings{"join " + std::to_string(tx), "setMoAttribute " + std::to_string(tx) + " nodeType"}),
            implementer.steps());
  EXPECT_EQ(3u, pending(tx));
}

TEST_F(Interception, AListCarriedOnForAnOperatorReachesTheImplementer) {
  implementLdap();
  intercept(kUserManagementClass);
  PymMoNamedAttributeValueContainer_3 named{"nodeType", nodeType};
  PymMoNamedAttributeValueContainer_3* list[] = {&named, nullptr};
  interceptor.onCall([&](const FakeInterceptor::Call& call) {
    const PymReturnT mirrored = extended->setMoAttributes(call.txHandle, LDAP_DN, list);
    if (mirrored != PymOk) return mirrored;
    return extended->setMoAttribute(call.txHandle, call.dn, call.attributeName, call.value);
  });
  OperatorTransaction transaction(*framework);
  const unsigned long tx = transaction.handle();
  ASSERT_EQ(PymOk, transaction.setText(kUserManagement, "targetType", {"mirrored"}));
  EXPECT_EQ((Strings{"join " + std::to_string(tx), "setMoAttribute " + std::to_string(tx) + " nodeType"}),
            implementer.steps());
}

TEST_F(Interception, WritesInAnotherTransactionInsideAnOperatorsWriteAreAComponents) {
  implementLdap();
  intercept(kUserManagementClass);
  const unsigned long other = framework->transactions().begin();
  interceptor.onCall([&](const FakeInterceptor::Call& call) {
    const PymReturnT elsewhere = extended->setMoAttribute(other, LDAP_DN, "nodeType", &nodeType);
    if (elsewhere != PymOk) return elsewhere;
    return extended->setMoAttribute(call.txHandle, call.dn, call.attributeName, call.value);
  });
  OperatorTransaction transaction(*framework);
  ASSERT_EQ(PymOk, transaction.setText(kUserManagement, "targetType", {"mirrored"}));
  EXPECT_TRUE(implementer.steps().empty());
  EXPECT_EQ(1u, pending(other));
  framework->transactions().abort(other);
}

TEST_F(Interception, DeregisteringWaitsForACallUnderWayOnAnotherThread) {
  intercept(kLdapClass);
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  interceptor.onCall([released](const FakeInterceptor::Call&) {
    released.wait();
    return PymOk;
  });
  const unsigned long tx = framework->transactions().begin();
  std::future<PymReturnT> writer =
      std::async(std::launch::async, [&] { return router->setMoAttribute(tx, LDAP_DN, "baseDn", &baseDn); });
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (interceptor.calls().empty() && std::chrono::steady_clock::now() < patience)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  ASSERT_EQ(1u, interceptor.calls().size());
  std::future<PymReturnT> deregistered =
      std::async(std::launch::async, [&] { return repository->deregisterClass(kLdapClass); });
  EXPECT_EQ(std::future_status::timeout, deregistered.wait_for(std::chrono::milliseconds(200)));
  // No new call starts meanwhile.
  EXPECT_TRUE(framework->interceptors().classes().empty());
  release.set_value();
  EXPECT_EQ(PymOk, deregistered.get());
  EXPECT_EQ(PymOk, writer.get());
  framework->transactions().abort(tx);
}

TEST_F(Interception, AnInterceptorMayDeregisterItselfFromInsideACall) {
  intercept(kLdapClass);
  PymReturnT deregistered = PymFailure;
  interceptor.onCall([&](const FakeInterceptor::Call&) {
    deregistered = repository->deregisterClass(kLdapClass);
    return PymOk;
  });
  const unsigned long tx = framework->transactions().begin();
  EXPECT_EQ(PymOk, router->setMoAttribute(tx, LDAP_DN, "baseDn", &baseDn));
  EXPECT_EQ(PymOk, deregistered);
  EXPECT_TRUE(framework->interceptors().classes().empty());
  framework->transactions().abort(tx);
}
