#include "AttributeValue.h"
#include "LoadedComponentTest.h"

#include <Framework/OperatorTransaction.h>
#include <PymOamSpiManagedObject.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

using Framework::OperatorTransaction;
using Strings = std::vector<std::string>;

namespace {

const char USER_MANAGEMENT_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1";
const char LDAP_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1";
const char FILTER_DN[] =
    "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1,Filter=1";
const char ORBELIN_FILTER_DN[] =
    "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1,OrbelinFilter=1";
const Strings INTERCEPTED_CLASSES = {
    "ManagedElement,SystemFunctions,SecM,UserManagement",
    "ManagedElement,SystemFunctions,SecM,UserManagement,LdapAuthenticationMethod,Ldap",
    "ManagedElement,SystemFunctions,SecM,UserManagement,LdapAuthenticationMethod,Ldap,OrbelinFilter"};
const char CONFLICT_TEXT[] = "LDAP MO synchronization failure! Trying to set synchronized attributes to conflicting values.";

std::string componentFile(const std::string& timeoutSeconds) {
  return "<QivAccessManagementComponent><ldapInitConfigTimeout>" + timeoutSeconds +
         "</ldapInitConfigTimeout></QivAccessManagementComponent>";
}

}  // namespace

// The built library started on the framework stand-in, whose router hands writes of the three
// mirrored classes to the component's interceptors: operators write through transactions,
// other components through the router's public tables.
class AttributeSyncTest : public LoadedComponentTest {
 protected:
  explicit AttributeSyncTest(const std::string& model = "ldap20.xml") : LoadedComponentTest(model) {}

  void start(const std::string& timeoutSeconds = "10") {
    initialize(componentFile(timeoutSeconds));
    ASSERT_EQ(0, descriptor->start(PymStateChangeStartup));
  }

  // The router's table for other components, found as they find it.
  PymOamSpiManagedObject_3_1* publicTable() {
    auto* portal = static_cast<PymMgmtSpiInterfacePortal_3*>(framework().accessor()->getPortal("3"));
    PymMgmtSpiInterface_1* found = nullptr;
    EXPECT_EQ(PymOk, portal->getInterface("PymOamSpiCmRouterService", "PymOamSpiManagedObject", "3_1", &found));
    return reinterpret_cast<PymOamSpiManagedObject_3_1*>(found);
  }

  Strings stored(const std::string& dn, const std::string& attribute) {
    return framework().model().stringValues(dn, attribute);
  }

  std::size_t pending(unsigned long txHandle) { return framework().cmRouter().pendingWriteCount(txHandle); }

  // filterType and profileFilter of the Ldap object in one request through the public table.
  PymReturnT writeFilterPair(unsigned long txHandle, int32_t filterTypeValue, int32_t profileFilterValue) {
    const AttributeValue type = AttributeValue::enumeration(filterTypeValue);
    const AttributeValue profile = AttributeValue::enumeration(profileFilterValue);
    PymMoNamedAttributeValueContainer_3 filterType{"filterType", *type.get()};
    PymMoNamedAttributeValueContainer_3 profileFilter{"profileFilter", *profile.get()};
    PymMoNamedAttributeValueContainer_3* list[] = {&filterType, &profileFilter, nullptr};
    return publicTable()->setMoAttributes(txHandle, LDAP_DN, list);
  }
};

TEST_F(AttributeSyncTest, StartRegistersTheThreeInterceptorsAndStopWithdrawsThem) {
  start();
  EXPECT_EQ(INTERCEPTED_CLASSES, framework().interceptors().classes());
  EXPECT_EQ(0u, log().countContaining("Failed to register as interceptor"));
  ASSERT_EQ(0, descriptor->stop(PymStateChangeShutdown));
  EXPECT_TRUE(framework().interceptors().classes().empty());
}

TEST_F(AttributeSyncTest, WithoutTheRepositoryEveryRegistrationFailureIsLoggedAndStartGoesOn) {
  ASSERT_TRUE(framework().portal().removeInterface("QivOamSpiExtCmRouterService", "QivOamSpiInterceptorRepository", "1"));
  start();
  EXPECT_EQ(1u, log().count(3, "Failed to register as interceptor for Ldap MOC."));
  EXPECT_EQ(1u, log().count(3, "Failed to register as interceptor for UserManagement MOC."));
  EXPECT_EQ(1u, log().count(3, "Failed to register as interceptor for OrbelinFilter MOC."));
  EXPECT_EQ(3u, log().countContaining("Failed to register as interceptor"));
  EXPECT_EQ(0, descriptor->stop(PymStateChangeShutdown));
}

TEST_F(AttributeSyncTest, AStartThatFailsLateKeepsItsInterceptorsAndTheNextStartRegistersThemAgain) {
  initialize(componentFile("-1"));
  ASSERT_EQ(-1, descriptor->start(PymStateChangeStartup));
  EXPECT_EQ(INTERCEPTED_CLASSES, framework().interceptors().classes());
  ASSERT_EQ(-1, descriptor->start(PymStateChangeStartup));
  EXPECT_EQ(INTERCEPTED_CLASSES, framework().interceptors().classes());
  EXPECT_EQ(0u, log().countContaining("Failed to register as interceptor"));
}

TEST_F(AttributeSyncTest, AnOperatorsFilterTypeAlsoWritesProfileFilter) {
  start();
  OperatorTransaction transaction(framework());
  ASSERT_EQ(0, transaction.setText(LDAP_DN, "filterType", {"FLEXIBLE"}));
  // The component answers reads of its own class from what the transaction wrote to it.
  EXPECT_EQ(Strings{"FLEXIBLE"}, transaction.getText(LDAP_DN, "profileFilter"));
  // A flexible filter is valid only with its filter and type.
  ASSERT_EQ(0, transaction.setText(FILTER_DN, "filter", {"(memberOf=cn=operators)"}));
  ASSERT_EQ(0, transaction.setText(FILTER_DN, "type", {"group"}));
  ASSERT_EQ(0, transaction.commit());
  EXPECT_EQ(Strings{"FLEXIBLE"}, stored(LDAP_DN, "filterType"));
  EXPECT_EQ(Strings{"FLEXIBLE"}, stored(LDAP_DN, "profileFilter"));
}

TEST_F(AttributeSyncTest, AnOperatorsProfileFilterAlsoWritesFilterType) {
  start();
  OperatorTransaction transaction(framework());
  ASSERT_EQ(0, transaction.setText(LDAP_DN, "profileFilter", {"ORBELIN"}));
  ASSERT_EQ(0, transaction.commit());
  EXPECT_EQ(Strings{"ORBELIN"}, stored(LDAP_DN, "filterType"));
  EXPECT_EQ(Strings{"ORBELIN"}, stored(LDAP_DN, "profileFilter"));
}

TEST_F(AttributeSyncTest, AnOperatorsTargetTypeReachesTheComponentAsNodeType) {
  start();
  OperatorTransaction transaction(framework());
  ASSERT_EQ(0, transaction.setText(USER_MANAGEMENT_DN, "targetType", {"epg", "sgsn"}));
  // The component answers reads of its own class from what the transaction wrote to it.
  EXPECT_EQ((Strings{"epg", "sgsn"}), transaction.getText(LDAP_DN, "nodeType"));
  ASSERT_EQ(0, transaction.commit());
  EXPECT_EQ((Strings{"epg", "sgsn"}), stored(USER_MANAGEMENT_DN, "targetType"));
  EXPECT_EQ((Strings{"epg", "sgsn"}), stored(LDAP_DN, "nodeType"));
}

TEST_F(AttributeSyncTest, RoleAliasesBaseDnIsMirroredBothWays) {
  start();
  OperatorTransaction toFilter(framework());
  ASSERT_EQ(0, toFilter.setText(LDAP_DN, "roleAliasesBaseDn", {"ou=aliases,dc=one"}));
  ASSERT_EQ(0, toFilter.commit());
  EXPECT_EQ(Strings{"ou=aliases,dc=one"}, stored(ORBELIN_FILTER_DN, "roleAliasesBaseDn"));
  OperatorTransaction toLdap(framework());
  ASSERT_EQ(0, toLdap.setText(ORBELIN_FILTER_DN, "roleAliasesBaseDn", {"ou=aliases,dc=two"}));
  ASSERT_EQ(0, toLdap.commit());
  EXPECT_EQ(Strings{"ou=aliases,dc=two"}, stored(LDAP_DN, "roleAliasesBaseDn"));
}

TEST_F(AttributeSyncTest, AFilterTypeOutsideTheTableIsRefusedAndNothingIsWritten) {
  start();
  OperatorTransaction transaction(framework());
  const AttributeValue four = AttributeValue::enumeration(4);
  EXPECT_EQ(-1, publicTable()->v3.setMoAttribute(transaction.handle(), LDAP_DN, "filterType", four.get()));
  EXPECT_EQ(1u, log().count(3, "Attribute filterType has an invalid value."));
  EXPECT_EQ(0u, pending(transaction.handle()));
}

TEST_F(AttributeSyncTest, AnAgreeingPairInOneRequestIsWritten) {
  start();
  OperatorTransaction transaction(framework());
  EXPECT_EQ(0, writeFilterPair(transaction.handle(), 2, 1));
  // It went through the Ldap interceptor.
  EXPECT_EQ(1u, log().count(8, std::string(" >> dn: ") + LDAP_DN));
  EXPECT_EQ(Strings{"ORBELIN"}, transaction.getText(LDAP_DN, "filterType"));
  EXPECT_EQ(Strings{"ORBELIN"}, transaction.getText(LDAP_DN, "profileFilter"));
  EXPECT_EQ(0u, log().count(3, CONFLICT_TEXT));
}

TEST_F(AttributeSyncTest, AConflictingPairIsRefusedAndTheOperatorIsTold) {
  start();
  OperatorTransaction transaction(framework());
  EXPECT_EQ(-1, writeFilterPair(transaction.handle(), 2, 2));
  EXPECT_EQ(1u, log().count(3, CONFLICT_TEXT));
  EXPECT_EQ(Strings{std::string("@qivnbi@") + CONFLICT_TEXT}, transaction.operatorMessages());
  EXPECT_EQ(0u, pending(transaction.handle()));
}

class AttributeSyncBefore20Test : public AttributeSyncTest {
 protected:
  AttributeSyncBefore20Test() : AttributeSyncTest("pre20.xml") {}
};

TEST_F(AttributeSyncBefore20Test, WritesPassUnchangedBeforeTheLdap20AttributesExist) {
  start();
  OperatorTransaction transaction(framework());
  ASSERT_EQ(0, transaction.setText(LDAP_DN, "filterType", {"ORBELIN"}));
  ASSERT_EQ(0, transaction.setText(USER_MANAGEMENT_DN, "targetType", {"epg"}));
  // Only the two writes themselves: no partner was written.
  EXPECT_EQ(2u, pending(transaction.handle()));
  ASSERT_EQ(0, transaction.commit());
  EXPECT_EQ(Strings{"ORBELIN"}, stored(LDAP_DN, "filterType"));
  EXPECT_TRUE(stored(LDAP_DN, "nodeType").empty());
}
