#include "AccessManagementComponent.h"

#include "AcsConfigUpdateStandIn.h"
#include "AmEntryPoints.h"
#include "FrameworkTestBase.h"
#include "IAmLdap.h"
#include "LdapModel.h"
#include "MallocFailure.h"
#include "QiveaStandIn.h"
#include "ScopedEnvironmentVariable.h"
#include "SecAcsStandIn.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace QivAccessManagement;
using namespace QivAccessManagement::LdapModel;

namespace {

using Args = std::vector<std::string>;
using Strings = std::vector<std::string>;

const char METHOD_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";
const std::string FILTER_DN = std::string(LDAP_DN) + ",Filter=1";
const char FIXTURE_BIND_DN[] = "cn=admin,dc=example,dc=com";

const char NOT_STARTED_TEXT[] = "QivAccessManagementComponent not properly initialized -> not possible to get user roles!";
const char BUSY_TEXT[] = "Not able to get user roles at this moment!";
const char NO_SEC_TEXT[] = "No SEC available or initial LDAP configuration not set!";
const char NOT_UNLOCKED_TEXT[] = "Authentication is not administratively unlocked";
const char VALIDATION_TEXT[] = "LDAP configuration failed validation, disabling Legacy LDAP authentication!";
const char NO_METHOD_TEXT[] = "No authentication method is enabled/available";
const char NO_FILTER_TYPE_TEXT[] = "profileFilter (or the deprecated attribute filterType) must be set to get roles.";
const char NO_ROLES_TEXT[] = "User has no roles!";

// The start waits for the configuration thread, so a query sees what the thread made of the
// model. The built-in lookup is always named: the thread object keeps it from an earlier start.
std::string componentFile(bool builtIn = false) {
  return std::string("<QivAccessManagementComponent><ldapInitConfigTimeout>10</ldapInitConfigTimeout>") +
         "<useBuiltInAuthorization>" + (builtIn ? "true" : "false") +
         "</useBuiltInAuthorization></QivAccessManagementComponent>";
}

Args searchCall(const std::string& arguments) { return {"authorization", "ldap", "search", arguments}; }

// The texts of a null-terminated role array.
Strings texts(const char* const* roles) {
  Strings result;
  for (; *roles != nullptr; ++roles) result.push_back(*roles);
  return result;
}

// An array as getRoles hands it out, built here with malloc.
const char** mallocedRoles(const Strings& roles) {
  auto** array = static_cast<const char**>(std::malloc(sizeof(char*) * (roles.size() + 1)));
  for (std::size_t i = 0; i < roles.size(); ++i) array[i] = strdup(roles[i].c_str());
  array[roles.size()] = nullptr;
  return array;
}

// The built-in lookup's stand-in: keeps what each call got and answers what it was told.
class ScriptedAmLdap : public IAmLdap {
 public:
  int authorizationLdap(const LdapConfiguration* config, const std::string& user, std::string& roles) override {
    configs.push_back(*config);
    users.push_back(user);
    roles.clear();
    for (std::size_t i = 0; i < _reply.size(); ++i) roles += (i == 0 ? "" : ",") + _reply[i];
    return _result;
  }
  void setReply(std::vector<std::string> reply) override { _reply = std::move(reply); }
  void setReturn(PymReturnT result) override { _result = result; }
  bool verifyTlsMode(const TlsMode& mode) override { return !configs.empty() && configs.back().tlsMode == mode; }
  bool verifyServerPort(const unsigned short& port) override {
    return !configs.empty() && configs.back().serverPort == port;
  }
  bool verifyUseTls(const bool& useTls) override { return !configs.empty() && configs.back().useTls == useTls; }

  std::vector<LdapConfiguration> configs;
  Strings users;

 private:
  Strings _reply;
  PymReturnT _result = 0;
};

}  // namespace

// A component object of its own per test, started on the framework stand-in with the qivea
// stand-in answering. Not the process's singleton: the configuration thread object keeps values
// (the TLS-mode probe, the security framework's use) from one start to the next, and a query's
// arguments must not depend on what an earlier test left.
class RoleQueryTest : public FrameworkTestBase {
 protected:
  explicit RoleQueryTest(const std::string& model = "ldap20.xml") : FrameworkTestBase(model) {}

  // Built here, after every member of a derived fixture that must exist before it.
  void SetUp() override { component.reset(new AccessManagementComponent); }

  void TearDown() override {
    if (!component) return;
    component->stop(PymStateChangeShutdown);
    component->lib_term();
    component.reset();
  }

  PymReturnT start(const std::string& config = componentFile()) {
    const PymReturnT initialized = component->lib_init(framework().accessor(), config.c_str());
    if (initialized != 0) return initialized;
    return component->start(PymStateChangeStartup);
  }

  void set(const std::string& dn, const std::string& attribute, const Strings& values) {
    framework().model().setStringValues(dn, attribute, values);
  }

  void unlock() { set(METHOD_DN, "administrativeState", {"UNLOCKED"}); }

  void setBindPassword(const std::string& clearText) {
    framework().model().setStructValue(LDAP_DN, BIND_PASSWORD, {{PASSWORD_MEMBER, {framework().crypto().encrypt(clearText)}}});
  }

  // Hands the thread a record, as a committed transaction does.
  void handOver(const LdapConfiguration& config) {
    component->getConfigurationRunnable().ldapConfigurationUpdated(&config);
  }

  // The thread's record, UNLOCKED, handed back.
  void unlockCurrentRecord() {
    LdapConfiguration config = component->getConfigurationRunnable().getLdapConfiguration();
    config.administrativeState = UNLOCKED;
    handOver(config);
  }

  std::vector<Args> searchCalls() { return qivea.callsStartingWith("authorization"); }

  // getRoles for alice; roles starts as the marker.
  PymReturnT query(const char* method = "LDAP", const char* user = "alice") {
    roles = marker;
    return component->getRoles(method, user, &roles);
  }

  // The argument string of the only search run so far, which must be its one argument after
  // "authorization ldap search"; "" (with a failure) otherwise.
  std::string onlySearchArgument() {
    const std::vector<Args> calls = searchCalls();
    EXPECT_EQ(1u, calls.size());
    if (calls.size() != 1 || calls[0].empty()) return "";
    EXPECT_EQ(searchCall(calls[0].back()), calls[0]);
    return calls[0].back();
  }

  QiveaStandIn qivea{QIVEA_DIR};
  // A commit's password file goes here, not to the path in /tmp that other tests share.
  TemporaryDirectory temporary;
  ScopedEnvironmentVariable tmpdir{"TMPDIR", temporary.path()};
  std::unique_ptr<AccessManagementComponent> component;
  const char* markerTexts[2] = {"untouched", nullptr};
  // What the output holds before a query: a query that hands out nothing leaves it.
  const char** const marker = markerTexts;
  const char** roles = nullptr;
};

TEST_F(RoleQueryTest, NotStartedComponentRefusesWithAnErrorAndLeavesTheOutputAlone) {
  ASSERT_EQ(0, component->lib_init(framework().accessor(), componentFile().c_str()));
  qivea.setUsers("alice:admin\n");
  EXPECT_EQ(-1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(3, NOT_STARTED_TEXT));
  EXPECT_TRUE(searchCalls().empty());
}

TEST_F(RoleQueryTest, StoppedComponentRefusesAsNotInitialized) {
  unlock();
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_EQ(0, component->stop(PymStateChangeShutdown));
  EXPECT_EQ(-1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(3, NOT_STARTED_TEXT));
  EXPECT_TRUE(searchCalls().empty());
}

TEST_F(RoleQueryTest, NotStartedIsCheckedBeforeTheMethod) {
  ASSERT_EQ(0, component->lib_init(framework().accessor(), componentFile().c_str()));
  EXPECT_EQ(-1, query("X"));
  EXPECT_EQ(1u, log().count(3, NOT_STARTED_TEXT));
  EXPECT_EQ(0u, log().count(4, "Method 'X' not supported"));
}

TEST_F(RoleQueryTest, MethodOtherThanLdapOrDefaultIsRefused) {
  unlock();
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  for (const char* method : {"X", "ldap", ""}) {
    EXPECT_EQ(-1, query(method)) << method;
    EXPECT_EQ(marker, roles);
    EXPECT_EQ(1u, log().count(4, std::string("Method '") + method + "' not supported"));
  }
  EXPECT_EQ(-1, query(nullptr));
  EXPECT_EQ(marker, roles);
  EXPECT_TRUE(searchCalls().empty());
  EXPECT_EQ(0u, log().count(4, BUSY_TEXT));
}

TEST_F(RoleQueryTest, DefaultMethodIsServedLikeLdap) {
  unlock();
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_EQ(0, query("default"));
  EXPECT_EQ(Strings{"admin"}, texts(roles));
  EXPECT_EQ(0, component->freeRoles("default", roles));
}

TEST_F(RoleQueryTest, InvalidInitialConfigurationKeepsTheThreadBusyAndQueriesGetOne) {
  unlock();
  set(LDAP_DN, LDAP_IP_ADDRESS, {});
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_TRUE(component->getConfigurationRunnable().isRunning());
  EXPECT_EQ(1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(4, BUSY_TEXT));
  EXPECT_TRUE(searchCalls().empty());
}

TEST_F(RoleQueryTest, RefusedTlsModeProbeKeepsTheThreadBusyAndQueriesGetOne) {
  set(LDAP_DN, USE_TLS, {"true"});
  qivea.answer("authentication ldap", 1, "", "qivea: unknown option --tls-mode\n");
  ASSERT_EQ(0, start());
  EXPECT_EQ(1u, log().count(4, "Tls-mode is not supported"));
  EXPECT_EQ(1, query());
  EXPECT_EQ(1u, log().count(4, BUSY_TEXT));
  EXPECT_TRUE(searchCalls().empty());
}

TEST_F(RoleQueryTest, LockedConfigurationWithoutServiceModuleIsNotAdministrativelyUnlocked) {
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_TRUE(component->getConfigurationRunnable().isInitialConfigurationSet());
  ASSERT_FALSE(component->getConfigurationRunnable().isUsingSecAaFramework());
  EXPECT_EQ(-1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(4, NOT_UNLOCKED_TEXT));
  EXPECT_EQ(0u, log().count(3, NO_SEC_TEXT));
  EXPECT_TRUE(searchCalls().empty());
}

TEST_F(RoleQueryTest, ConfigurationFailingValidationDisablesLdapAndNothingIsAsked) {
  unlock();
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  LdapConfiguration config = component->getConfigurationRunnable().getLdapConfiguration();
  config.bindDn.clear();
  config.bindPassword = "secret";
  handOver(config);
  EXPECT_EQ(-1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(4, "Validation failed - if bindPassword is set bindDn must also be set"));
  EXPECT_EQ(1u, log().count(4, VALIDATION_TEXT));
  EXPECT_EQ(1u, log().count(4, NO_METHOD_TEXT));
  EXPECT_TRUE(searchCalls().empty());
  // Refusals reach the log only.
  EXPECT_TRUE(operatorMessages().empty());
}

TEST_F(RoleQueryTest, RecordHoldingALineFeedDisablesLdapAndNothingIsAsked) {
  unlock();
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  LdapConfiguration config = component->getConfigurationRunnable().getLdapConfiguration();
  config.roleAliasesBaseDn = "ou=aliases,dc=example,dc=com\n--uri=ldap://192.0.2.66";
  handOver(config);
  EXPECT_EQ(-1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(4, "Validation failed - roleAliasesBaseDn must not contain a control character"));
  EXPECT_EQ(1u, log().count(4, VALIDATION_TEXT));
  EXPECT_EQ(1u, log().count(4, NO_METHOD_TEXT));
  EXPECT_TRUE(searchCalls().empty());
  EXPECT_TRUE(operatorMessages().empty());
}

TEST_F(RoleQueryTest, FilterTypeNotSetFailsBeforeTheCommandRuns) {
  unlock();
  set(LDAP_DN, FILTER_TYPE, {});
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_EQ(FILTER_TYPE_NOT_SET, component->getConfigurationRunnable().getLdapConfiguration().filterType);
  EXPECT_EQ(-1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(4, NO_FILTER_TYPE_TEXT));
  EXPECT_TRUE(searchCalls().empty());
}

TEST_F(RoleQueryTest, SearchGetsUserFilterTypeAndBindDnAsOneArgument) {
  unlock();
  qivea.setUsers("alice:admin,operator\n");
  ASSERT_EQ(0, start());
  ASSERT_EQ(0, query());
  EXPECT_EQ((std::vector<Args>{searchCall(std::string(" --userId=alice --filterType=1 --bindDn=") + FIXTURE_BIND_DN)}),
            searchCalls());
  EXPECT_EQ((Strings{"admin", "operator"}), texts(roles));
  EXPECT_EQ(1u, log().count(8, " >> method: 'LDAP' user: 'alice'"));
  EXPECT_EQ(1u, log().count(8, "Using QIV EA authorization function"));
  EXPECT_EQ(1u, log().count(8, "Got following roles 'admin,operator' for user 'alice'"));
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryTest, EmptyOptionalValuesAreLeftOut) {
  unlock();
  set(LDAP_DN, BIND_DN, {});
  set(LDAP_DN, FILTER_TYPE, {"ORBELIN"});
  qivea.setUsers("bob:guest\n");
  ASSERT_EQ(0, start());
  roles = marker;
  ASSERT_EQ(0, component->getRoles("LDAP", "bob", &roles));
  EXPECT_EQ(" --userId=bob --filterType=2", onlySearchArgument());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryTest, FlexibleFilterTypeAddsFilterAndTypeRightAfterIt) {
  unlock();
  set(LDAP_DN, FILTER_TYPE, {"FLEXIBLE"});
  set(FILTER_DN, FILTER, {"(&(objectClass=person)(uid=%s))"});
  set(FILTER_DN, TYPE, {"orbelinRole"});
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_EQ(0, query());
  EXPECT_EQ(std::string(" --userId=alice --filterType=3 --filter=(&(objectClass=person)(uid=%s)) --type=orbelinRole") +
                " --bindDn=" + FIXTURE_BIND_DN,
            onlySearchArgument());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryTest, FilterAndTypeAreOnlyForTheFlexibleFilterType) {
  unlock();
  set(FILTER_DN, FILTER, {"(uid=%s)"});
  set(FILTER_DN, TYPE, {"orbelinRole"});
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_EQ(0, query());
  EXPECT_EQ(std::string(" --userId=alice --filterType=1 --bindDn=") + FIXTURE_BIND_DN, onlySearchArgument());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

// The rules reject a FLEXIBLE record lacking filter or type, so the search never runs with one.
TEST_F(RoleQueryTest, FlexibleWithOnlyOneOfFilterAndTypeRunsNoSearch) {
  unlock();
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  LdapConfiguration onlyFilter = component->getConfigurationRunnable().getLdapConfiguration();
  onlyFilter.filterType = FLEXIBLE;
  onlyFilter.filter = "(uid=%s)";
  onlyFilter.type.clear();
  LdapConfiguration onlyType = onlyFilter;
  onlyType.filter.clear();
  onlyType.type = "orbelinRole";
  for (const LdapConfiguration& config : {onlyFilter, onlyType}) {
    handOver(config);
    EXPECT_EQ(-1, query());
    EXPECT_EQ(marker, roles);
  }
  EXPECT_EQ(2u, log().count(4, "Validation failed - both filter and type attributes should be set if filterType=FLEXIBLE"));
  EXPECT_EQ(2u, log().count(4, VALIDATION_TEXT));
  EXPECT_EQ(2u, log().count(4, NO_METHOD_TEXT));
  EXPECT_TRUE(searchCalls().empty());
}

TEST_F(RoleQueryTest, NodeTypeIsAddedWhenTargetBasedAccessControlIsUnlocked) {
  unlock();
  set(LDAP_DN, NODE_TYPE, {"bsc", "rnc"});
  set(ORBELIN_FILTER_DN, TARGET_BASED_ACCESS_CONTROL, {"UNLOCKED"});
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_EQ(0, query());
  EXPECT_EQ(std::string(" --userId=alice --filterType=1 --nodeType=bsc:rnc --bindDn=") + FIXTURE_BIND_DN,
            onlySearchArgument());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryTest, NodeTypeIsLeftOutWhileTargetBasedAccessControlIsLocked) {
  unlock();
  set(LDAP_DN, NODE_TYPE, {"bsc", "rnc"});
  set(ORBELIN_FILTER_DN, TARGET_BASED_ACCESS_CONTROL, {"LOCKED"});
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_EQ("bsc:rnc", component->getConfigurationRunnable().getLdapConfiguration().nodeType);
  ASSERT_EQ(0, query());
  EXPECT_EQ(std::string(" --userId=alice --filterType=1 --bindDn=") + FIXTURE_BIND_DN, onlySearchArgument());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryTest, RoleAliasesBaseDnBindDnAndDecryptedPasswordFollowInThisOrder) {
  unlock();
  set(LDAP_DN, ROLE_ALIASES_BASE_DN, {"ou=aliases,dc=example,dc=com"});
  setBindPassword("s3cret");
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_EQ(0, query());
  EXPECT_EQ(std::string(" --userId=alice --filterType=1 --roleAliasesBaseDn=ou=aliases,dc=example,dc=com --bindDn=") +
                FIXTURE_BIND_DN + " --bindPassword=s3cret",
            onlySearchArgument());
  // The clear password goes to qivea only.
  EXPECT_EQ(0u, log().countContaining("s3cret"));
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

// The TLS-mode text needs qivea's yes to the probe, which only a LOCKED start with TLS asks;
// the record is unlocked afterwards, as a committed transaction would.
TEST_F(RoleQueryTest, EveryPartInItsOrderEndingWithTlsAndItsModeWhenQiveaTakesTheMode) {
  set(LDAP_DN, FILTER_TYPE, {"FLEXIBLE"});
  set(FILTER_DN, FILTER, {"(uid=%s)"});
  set(FILTER_DN, TYPE, {"orbelinRole"});
  set(LDAP_DN, NODE_TYPE, {"bsc"});
  set(ORBELIN_FILTER_DN, TARGET_BASED_ACCESS_CONTROL, {"UNLOCKED"});
  set(LDAP_DN, ROLE_ALIASES_BASE_DN, {"ou=aliases,dc=example,dc=com"});
  setBindPassword("s3cret");
  set(LDAP_DN, USE_TLS, {"true"});
  set(LDAP_DN, TLS_MODE, {"LDAPS"});
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_TRUE(component->getConfigurationRunnable().getQiveaTlsModeSupport());
  unlockCurrentRecord();
  ASSERT_EQ(0, query());
  EXPECT_EQ((std::vector<Args>{searchCall(
                std::string(" --userId=alice --filterType=3 --filter=(uid=%s) --type=orbelinRole --nodeType=bsc") +
                " --roleAliasesBaseDn=ou=aliases,dc=example,dc=com --bindDn=" + FIXTURE_BIND_DN +
                " --bindPassword=s3cret --useTls --tls-mode=LDAPS")}),
            searchCalls());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryTest, StartTlsHasNoModeTextEvenWhenQiveaTakesTheMode) {
  set(LDAP_DN, USE_TLS, {"true"});
  set(LDAP_DN, TLS_MODE, {"STARTTLS"});
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_TRUE(component->getConfigurationRunnable().getQiveaTlsModeSupport());
  unlockCurrentRecord();
  ASSERT_EQ(0, query());
  EXPECT_EQ(std::string(" --userId=alice --filterType=1 --bindDn=") + FIXTURE_BIND_DN + " --useTls",
            onlySearchArgument());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryTest, LdapsHasNoModeTextWhenQiveaWasNotProbed) {
  unlock();
  set(LDAP_DN, USE_TLS, {"true"});
  set(LDAP_DN, TLS_MODE, {"LDAPS"});
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_FALSE(component->getConfigurationRunnable().getQiveaTlsModeSupport());
  ASSERT_EQ(0, query());
  EXPECT_EQ(std::string(" --userId=alice --filterType=1 --bindDn=") + FIXTURE_BIND_DN + " --useTls",
            onlySearchArgument());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryTest, TlsModeAloneAddsNothingWithoutUseTls) {
  set(LDAP_DN, TLS_MODE, {"LDAPS"});
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  unlockCurrentRecord();
  ASSERT_EQ(0, query());
  EXPECT_EQ(std::string(" --userId=alice --filterType=1 --bindDn=") + FIXTURE_BIND_DN, onlySearchArgument());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryTest, UserWithoutRolesGetsMinusOneAndNoArray) {
  unlock();
  qivea.setUsers("alice:\n");
  ASSERT_EQ(0, start());
  EXPECT_EQ(-1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(4, NO_ROLES_TEXT));
  EXPECT_EQ(1u, searchCalls().size());
}

TEST_F(RoleQueryTest, RoleArrayThatCannotBeBuiltGivesMinusTenAndNoArray) {
  unlock();
  // A role of a length nothing else allocates in the query, so that only its copy fails.
  const std::string role(4098, 'r');
  qivea.setUsers("alice:" + role + "\n");
  ASSERT_EQ(0, start());
  MallocFailure::failNextOfSize(role.size() + 1);
  EXPECT_EQ(-10, query());
  EXPECT_TRUE(MallocFailure::hasFailed());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(3, "Caught exception: Cannot allocate role 0"));
}

TEST_F(RoleQueryTest, RestartDropsABindPasswordRemovedWhileStopped) {
  unlock();
  setBindPassword("S3cr3t-Pw!");
  ASSERT_EQ(0, start());
  ASSERT_EQ("S3cr3t-Pw!", component->getConfigurationRunnable().getLdapConfiguration().bindPassword);
  ASSERT_EQ(0, component->stop(PymStateChangeShutdown));
  framework().model().setStructValue(LDAP_DN, BIND_PASSWORD, {});
  ASSERT_EQ(0, component->start(PymStateChangeStartup));
  EXPECT_EQ("", component->getConfigurationRunnable().getLdapConfiguration().bindPassword);
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, query());
  EXPECT_EQ(std::string::npos, onlySearchArgument().find("--bindPassword="));
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryTest, CommandFailureCodeIsReturnedAsItIsAndNoRolesAreHandedOut) {
  unlock();
  ASSERT_EQ(0, start());
  // qivea's exit statuses 2 (no such user), 8 (invalid value) and 1, as the command runner maps them.
  const std::vector<std::pair<int, PymReturnT>> answers = {{2, -2}, {8, -9}, {1, -1}};
  for (const auto& answer : answers) {
    qivea.answer("authorization", answer.first, "admin,operator", "qivea: refused\n");
    EXPECT_EQ(answer.second, query()) << answer.first;
    EXPECT_EQ(marker, roles);
    EXPECT_EQ(1u, log().count(3, "getRoles failed (" + std::to_string(answer.second) + ")"));
  }
  EXPECT_EQ(0u, log().count(4, NO_ROLES_TEXT));
}

TEST_F(RoleQueryTest, UnknownUserOfTheCommandGivesMinusTwo) {
  unlock();
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  roles = marker;
  EXPECT_EQ(-2, component->getRoles("LDAP", "mallory", &roles));
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(3, "getRoles failed (-2)"));
}

TEST_F(RoleQueryTest, TwoCommasInARowGiveAnEmptyMiddleRole) {
  unlock();
  qivea.setUsers("alice:a,,b\n");
  ASSERT_EQ(0, start());
  ASSERT_EQ(0, query());
  ASSERT_NE(marker, roles);
  EXPECT_EQ((Strings{"a", "", "b"}), texts(roles));
  EXPECT_EQ(nullptr, roles[3]);
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryTest, TrailingCommaGivesNoEmptyLastRole) {
  unlock();
  qivea.setUsers("alice:a,b,\n");
  ASSERT_EQ(0, start());
  ASSERT_EQ(0, query());
  EXPECT_EQ((Strings{"a", "b"}), texts(roles));
  EXPECT_EQ(nullptr, roles[2]);
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryTest, EachQueryHandsOutItsOwnArray) {
  unlock();
  qivea.setUsers("alice:admin,operator\n");
  ASSERT_EQ(0, start());
  ASSERT_EQ(0, query());
  const char** first = roles;
  ASSERT_EQ(0, query());
  const char** second = roles;
  ASSERT_NE(first, second);
  EXPECT_NE(first[0], second[0]);
  EXPECT_NE(first[1], second[1]);
  // Giving one back leaves the other whole.
  EXPECT_EQ(0, component->freeRoles("LDAP", first));
  EXPECT_EQ((Strings{"admin", "operator"}), texts(second));
  EXPECT_EQ(0, component->freeRoles("LDAP", second));
}

// A user name with what qivea's argument cannot carry, and how the warning shows it.
class RoleQueryUserNameTest : public RoleQueryTest,
                              public ::testing::WithParamInterface<std::pair<std::string, std::string>> {};

TEST_P(RoleQueryUserNameTest, UserNameThatWouldBringItsOwnOptionsIsRefusedBeforeQiveaRuns) {
  unlock();
  // What the words of each name would get from qivea, were it asked.
  qivea.setUsers("eve:admin\n-eve:admin\nalice:admin\n");
  ASSERT_EQ(0, start());
  roles = marker;
  EXPECT_EQ(-1, component->getRoles("LDAP", GetParam().first.c_str(), &roles));
  EXPECT_EQ(marker, roles);
  EXPECT_TRUE(searchCalls().empty());
  EXPECT_EQ(1u, log().count(4, "User name '" + GetParam().second + "' cannot be passed to qivea"));
  EXPECT_EQ(0u, log().count(8, "Using QIV EA authorization function"));
}

INSTANTIATE_TEST_SUITE_P(
    BlanksControlCharactersAndLeadingDashes, RoleQueryUserNameTest,
    ::testing::Values(std::make_pair("eve --filterType=3 --filter=(uid=alice) --type=cn",
                                     "eve --filterType=3 --filter=(uid=alice) --type=cn"),
                      std::make_pair("eve ", "eve "), std::make_pair("eve\t--filterType=3", "eve\\x09--filterType=3"),
                      std::make_pair("eve\n--filterType=3", "eve\\x0a--filterType=3"),
                      std::make_pair("eve\r", "eve\\x0d"), std::make_pair("e\x7f\\ve", "e\\x7f\\x5cve"),
                      std::make_pair("-eve", "-eve"), std::make_pair("--filterType=3", "--filterType=3")));

TEST_F(RoleQueryTest, UserNameWithoutBlankControlCharacterOrLeadingDashGoesAsItIs) {
  unlock();
  const std::string user = "j\xc3\xbcrgen.o'neil-2@example=x\\*";
  qivea.setUsers(user + ":admin\n");
  ASSERT_EQ(0, start());
  roles = marker;
  ASSERT_EQ(0, component->getRoles("LDAP", user.c_str(), &roles));
  EXPECT_EQ(" --userId=" + user + " --filterType=1 --bindDn=" + FIXTURE_BIND_DN, onlySearchArgument());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

// Passwords that a mask ending at the first blank, or at a text that looks like an option, would
// show in part.
class RoleQueryPasswordTest : public RoleQueryTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(RoleQueryPasswordTest, SearchArgumentShowsNoPartOfThePasswordInAnyLine) {
  const std::string password = GetParam();
  unlock();
  setBindPassword(password);
  set(LDAP_DN, USE_TLS, {"true"});
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_EQ(0, query());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
  const std::string head = std::string(" --userId=alice --filterType=1 --bindDn=") + FIXTURE_BIND_DN + " --bindPassword=";
  EXPECT_EQ(head + password + " --useTls", onlySearchArgument());
  // A qivea that tells the password back when it fails.
  qivea.answer("authorization", 1, "", "cannot bind with --bindPassword=" + password + " (" + password + ")\n");
  EXPECT_EQ(-1, query());

  const std::string masked = head + "**** --useTls";
  EXPECT_EQ(2u, log().count(8, " >> " + masked));
  EXPECT_EQ(2u, log().count(8, "Invoking: qivea authorization ldap search " + masked));
  EXPECT_EQ(1u, log().count(3, "cannot bind with --bindPassword=**** (****)\n"));
  EXPECT_EQ(0u, log().countContaining(password));
}

INSTANTIATE_TEST_SUITE_P(BlanksOptionsQuotesEqualsAndStars, RoleQueryPasswordTest,
                         ::testing::Values("S3cret Ph4se", "Pw1 --useTls", "\"Qu0ted\" 'as w3ll'", "a=b=c --bindDn=d",
                                           "*St4r* *"));

class RoleQueryBuiltInTest : public RoleQueryTest {
 protected:
  void SetUp() override {
    RoleQueryTest::SetUp();
    component->setQivAuthorization(&amLdap);
  }

  ScriptedAmLdap amLdap;
  // The built-in lookup sets and removes LDAPNOINIT; whatever the process had comes back.
  ScopedEnvironmentVariable ldapNoInit{"LDAPNOINIT"};
};

TEST_F(RoleQueryBuiltInTest, BuiltInLookupGetsTheConfigurationAndTheUser) {
  unlock();
  set(LDAP_DN, USE_TLS, {"true"});
  set(LDAP_DN, TLS_MODE, {"LDAPS"});
  set(LDAP_DN, SERVER_PORT, {"636"});
  amLdap.setReply({"admin", "operator"});
  ASSERT_EQ(0, start(componentFile(true)));
  ASSERT_TRUE(component->getConfigurationRunnable().getUseQivAuthorization());
  ASSERT_EQ(0, query());
  EXPECT_EQ((Strings{"admin", "operator"}), texts(roles));
  ASSERT_EQ(Strings{"alice"}, amLdap.users);
  const LdapConfiguration& config = amLdap.configs.front();
  EXPECT_EQ(UNLOCKED, config.administrativeState);
  EXPECT_EQ("127.0.0.1", config.ldapIpAddress);
  EXPECT_EQ("dc=example,dc=com", config.baseDn);
  EXPECT_EQ(FIXTURE_BIND_DN, config.bindDn);
  EXPECT_TRUE(amLdap.verifyTlsMode(LDAPS));
  EXPECT_TRUE(amLdap.verifyServerPort(636));
  EXPECT_TRUE(amLdap.verifyUseTls(true));
  EXPECT_EQ(1u, log().count(8, "Using QIV built in authorization function"));
  EXPECT_TRUE(searchCalls().empty());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryBuiltInTest, BuiltInFailureCodeIsReturnedAsItIsAndItsRolesAreNotHandedOut) {
  unlock();
  amLdap.setReply({"admin"});
  amLdap.setReturn(-2);
  ASSERT_EQ(0, start(componentFile(true)));
  EXPECT_EQ(-2, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(3, "getRoles failed (-2)"));
  EXPECT_EQ(1u, log().count(8, "Got following roles 'admin' for user 'alice'"));
  EXPECT_EQ(1u, amLdap.users.size());
}

TEST_F(RoleQueryBuiltInTest, BuiltInUserWithoutRolesGetsMinusOne) {
  unlock();
  ASSERT_EQ(0, start(componentFile(true)));
  EXPECT_EQ(-1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(4, NO_ROLES_TEXT));
  EXPECT_EQ(1u, amLdap.users.size());
}

TEST_F(RoleQueryBuiltInTest, BuiltInLookupIsNotAskedWhileLocked) {
  amLdap.setReply({"admin"});
  ASSERT_EQ(0, start(componentFile(true)));
  EXPECT_EQ(-1, query());
  EXPECT_EQ(1u, log().count(4, NOT_UNLOCKED_TEXT));
  EXPECT_TRUE(amLdap.users.empty());
}

TEST_F(RoleQueryBuiltInTest, ConfigurationFailingValidationIsNotGivenToTheBuiltInLookup) {
  unlock();
  amLdap.setReply({"admin"});
  ASSERT_EQ(0, start(componentFile(true)));
  LdapConfiguration config = component->getConfigurationRunnable().getLdapConfiguration();
  config.tlsClientCertificate = "/certs/client.pem";
  handOver(config);
  EXPECT_EQ(-1, query());
  EXPECT_EQ(1u, log().count(4, VALIDATION_TEXT));
  EXPECT_EQ(1u, log().count(4, NO_METHOD_TEXT));
  EXPECT_TRUE(amLdap.users.empty());
}

TEST_F(RoleQueryBuiltInTest, AddressGivenAsAUriIsNotGivenToTheBuiltInLookup) {
  unlock();
  set(LDAP_DN, USE_TLS, {"true"});
  amLdap.setReply({"admin"});
  ASSERT_EQ(0, start(componentFile(true)));
  LdapConfiguration config = component->getConfigurationRunnable().getLdapConfiguration();
  // Taken as a whole URI, it would connect in plain LDAP although TLS is configured.
  config.ldapIpAddress = "ldap://127.0.0.1";
  handOver(config);
  EXPECT_EQ(-1, query());
  EXPECT_EQ(1u, log().count(4, "Validation failed - ldapIpAddress must be a host name or an IP address, not "
                               "\"ldap://127.0.0.1\""));
  EXPECT_EQ(1u, log().count(4, VALIDATION_TEXT));
  EXPECT_EQ(1u, log().count(4, NO_METHOD_TEXT));
  EXPECT_TRUE(amLdap.users.empty());
}

TEST_F(RoleQueryBuiltInTest, ExternalCommandIsUsedWhenTheFileSaysFalse) {
  unlock();
  amLdap.setReply({"builtin"});
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start(componentFile(false)));
  ASSERT_EQ(0, query());
  EXPECT_EQ(Strings{"admin"}, texts(roles));
  EXPECT_TRUE(amLdap.users.empty());
  EXPECT_EQ(1u, searchCalls().size());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryBuiltInTest, WithoutAnyBuiltInLookupTheQueryIsRefused) {
  unlock();
  ASSERT_EQ(0, start(componentFile(true)));
  component->setQivAuthorization(nullptr);
  EXPECT_EQ(-1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(3, "No built-in LDAP authorization installed"));
}

class RoleQueryWithoutMethodTest : public RoleQueryTest {
 protected:
  RoleQueryWithoutMethodTest() : RoleQueryTest("no-ldap-auth-method.xml") {}
};

TEST_F(RoleQueryWithoutMethodTest, NeitherServiceModuleNorInitialConfigurationRefusesWithAnError) {
  qivea.setUsers("alice:admin\n");
  ASSERT_EQ(0, start());
  ASSERT_TRUE(component->isStarted());
  EXPECT_EQ(-1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(3, NO_SEC_TEXT));
  EXPECT_EQ(0u, log().count(4, NOT_UNLOCKED_TEXT));
  EXPECT_TRUE(searchCalls().empty());
}

namespace {

// One build of the user-authorization stand-in, loaded from its path while the object lives, so
// that the component's open by the bare name finds it; closing unloads it again.
class PreloadedLibrary {
 public:
  explicit PreloadedLibrary(const char* path) : _handle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {}
  ~PreloadedLibrary() {
    if (_handle != nullptr) dlclose(_handle);
  }
  PreloadedLibrary(const PreloadedLibrary&) = delete;
  PreloadedLibrary& operator=(const PreloadedLibrary&) = delete;
  bool loaded() const { return _handle != nullptr; }

 private:
  void* _handle;
};

std::string currentPath() {
  const char* path = std::getenv("PATH");
  return path != nullptr ? path : "";
}

}  // namespace

// The security framework present: "acs-config-update" on PATH (qivea still before it).
class RoleQuerySecurityFrameworkTest : public RoleQueryTest {
 protected:
  AcsConfigUpdateStandIn acs{ACS_CONFIG_UPDATE_PROGRAM};
  ScopedEnvironmentVariable path{"PATH", std::string(QIVEA_DIR) + ":" + currentPath()};
  SecAcsStandIn secAcs;
};

// ... with its user-authorization library loaded before the component opens it.
class RoleQueryServiceModuleTest : public RoleQuerySecurityFrameworkTest {
 protected:
  void SetUp() override {
    ASSERT_TRUE(library.loaded()) << dlerror();
    RoleQuerySecurityFrameworkTest::SetUp();
  }

  PreloadedLibrary library{SEC_ACS_LIBRARY};
};

TEST_F(RoleQuerySecurityFrameworkTest, WithoutTheUserAuthorizationLibraryTheServiceModuleIsNotAsked) {
  secAcs.setUsers({{"alice", {"admin"}}});
  ASSERT_EQ(0, start());
  ASSERT_TRUE(component->getConfigurationRunnable().isUsingSecAaFramework());
  EXPECT_EQ(-1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(0u, log().count(8, "Using Service Module authorization function"));
  EXPECT_EQ(0u, secAcs.callCount("acs_uai_initialize"));
  EXPECT_EQ(1u, log().count(4, NO_METHOD_TEXT));
}

TEST_F(RoleQueryServiceModuleTest, ServiceModuleIsAskedEvenWhileLdapIsLocked) {
  secAcs.setUsers({{"alice", {"admin", "operator"}}});
  qivea.setUsers("alice:fromqivea\n");
  ASSERT_EQ(0, start());
  ASSERT_TRUE(component->getConfigurationRunnable().isUsingSecAaFramework());
  ASSERT_EQ(LOCKED, component->getConfigurationRunnable().getLdapConfiguration().administrativeState);
  ASSERT_EQ(0, query());
  EXPECT_EQ((Strings{"admin", "operator"}), texts(roles));
  EXPECT_EQ(1u, secAcs.callCount("acs_uai_user_session_start"));
  EXPECT_EQ(1u, log().count(8, "Using Service Module authorization function"));
  EXPECT_EQ(1u, log().count(8, "Got following roles 'admin,operator' for user 'alice'"));
  EXPECT_EQ(0u, log().count(4, NOT_UNLOCKED_TEXT));
  EXPECT_TRUE(searchCalls().empty());
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryServiceModuleTest, ServiceModuleRolesKeepAnEmptyRoleBetweenTwo) {
  secAcs.setUsers({{"alice", {"a", "", "b"}}});
  ASSERT_EQ(0, start());
  ASSERT_EQ(0, query());
  EXPECT_EQ((Strings{"a", "", "b"}), texts(roles));
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}

TEST_F(RoleQueryServiceModuleTest, UserUnknownToTheServiceModuleGetsMinusTwo) {
  secAcs.setUsers({{"alice", {"admin"}}});
  ASSERT_EQ(0, start());
  roles = marker;
  EXPECT_EQ(-2, component->getRoles("LDAP", "mallory", &roles));
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(3, "getRoles failed (-2)"));
}

TEST_F(RoleQueryServiceModuleTest, ServiceModuleFailureHandsOutNoneOfTheRolesReadBeforeIt) {
  secAcs.setUsers({{"alice", {"admin", "operator", "guest"}}});
  secAcs.failRoleGet(2, 3);
  ASSERT_EQ(0, start());
  EXPECT_EQ(-1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(8, "Got following roles 'admin,operator' for user 'alice'"));
  EXPECT_EQ(1u, log().count(3, "getRoles failed (-1)"));
}

TEST_F(RoleQueryServiceModuleTest, ServiceModuleUserWithoutRolesGetsMinusOne) {
  secAcs.setUsers({{"alice", {}}});
  ASSERT_EQ(0, start());
  EXPECT_EQ(-1, query());
  EXPECT_EQ(marker, roles);
  EXPECT_EQ(1u, log().count(4, NO_ROLES_TEXT));
}

TEST_F(RoleQueryTest, SplitKeepsEmptyPiecesBetweenSeparatorsButNoneAtTheEnd) {
  Strings pieces = {"kept"};
  AccessManagementComponent::split("a,,b", ',', pieces);
  EXPECT_EQ((Strings{"kept", "a", "", "b"}), pieces);
  pieces.clear();
  AccessManagementComponent::split("a,b,", ',', pieces);
  EXPECT_EQ((Strings{"a", "b"}), pieces);
  pieces.clear();
  AccessManagementComponent::split("", ',', pieces);
  EXPECT_TRUE(pieces.empty());
  AccessManagementComponent::split("x;y", ';', pieces);
  EXPECT_EQ((Strings{"x", "y"}), pieces);
}

TEST_F(RoleQueryTest, AllocatedArrayHasOneMallocedStringPerRoleAndANullTerminator) {
  const char** array = nullptr;
  component->allocRoles("admin,,operator", &array);
  ASSERT_NE(nullptr, array);
  EXPECT_EQ((Strings{"admin", "", "operator"}), texts(array));
  EXPECT_EQ(nullptr, array[3]);
  // Each string has room for exactly its text: the sanitizer build sees any overrun.
  EXPECT_EQ(5u, std::strlen(array[0]));
  EXPECT_EQ(0, component->freeRoles("LDAP", array));
}

TEST_F(RoleQueryTest, NoPieceLeavesTheOutputUntouched) {
  const char** array = marker;
  component->allocRoles("", &array);
  EXPECT_EQ(marker, array);
}

TEST_F(RoleQueryTest, FreeRolesOfANullArrayIsZero) {
  EXPECT_EQ(0, component->freeRoles("LDAP", nullptr));
  EXPECT_EQ(0, component->freeRoles("default", nullptr));
}

TEST_F(RoleQueryTest, FreeRolesWithAnInvalidMethodFreesNothing) {
  const char** array = mallocedRoles({"admin", "operator"});
  EXPECT_EQ(-1, component->freeRoles("X", array));
  EXPECT_EQ(1u, log().count(4, "Method 'X' not supported"));
  EXPECT_EQ(-1, component->freeRoles(nullptr, array));
  // Still readable: the sanitizer build reports a use after free otherwise.
  EXPECT_EQ((Strings{"admin", "operator"}), texts(array));
  EXPECT_EQ(0, component->freeRoles("LDAP", array));
}

// The singleton lives until the process ends and no other component object may exist beside it
// (its event consumer is one per process), so each test builds it in a child process of its own.
class RoleQueryEntryPointTest : public FrameworkTestBase {
 protected:
  // The child runs this test afresh, with its own framework and stand-ins.
  RoleQueryEntryPointTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  // The child's checks failed or not, as its exit status. The child's stand-ins get no
  // destructor call, so its qivea home goes first.
  [[noreturn]] void exitWithResult() {
    qivea.removeHome();
    std::exit(HasFailure() ? 1 : 0);
  }

  void stopSingleton() {
    AccessManagementComponent& singleton = AccessManagementComponent::instance();
    singleton.stop(PymStateChangeShutdown);
    singleton.lib_term();
  }

  void getAndFreeBeforeStart() {
    AccessManagementComponent& singleton = AccessManagementComponent::instance();
    ASSERT_FALSE(singleton.isStarted());
    qivea.setUsers("alice:admin\n");
    const char** roles = marker;
    EXPECT_EQ(2, am_getRoles_2("LDAP", "alice", &roles));
    EXPECT_EQ(marker, roles);

    const char** array = mallocedRoles({"admin"});
    EXPECT_EQ(2, am_freeRoles_2("LDAP", array));
    // Still readable: the sanitizer build reports a use after free otherwise.
    EXPECT_EQ(Strings{"admin"}, texts(array));
    EXPECT_EQ(0, singleton.freeRoles("LDAP", array));

    EXPECT_EQ(0u, log().count(3, NOT_STARTED_TEXT));
    EXPECT_TRUE(qivea.callsStartingWith("authorization").empty());
  }

  void getAndFreeWhileStarted() {
    AccessManagementComponent& singleton = AccessManagementComponent::instance();
    framework().model().setStringValues(METHOD_DN, "administrativeState", {"UNLOCKED"});
    qivea.setUsers("alice:admin,operator\n");
    ASSERT_EQ(0, singleton.lib_init(framework().accessor(), componentFile().c_str()));
    ASSERT_EQ(0, singleton.start(PymStateChangeStartup));

    const char** roles = marker;
    ASSERT_EQ(0, am_getRoles_2("LDAP", "alice", &roles));
    EXPECT_EQ((Strings{"admin", "operator"}), texts(roles));
    EXPECT_EQ(0, am_freeRoles_2("LDAP", roles));
    EXPECT_EQ(-1, am_freeRoles_2("X", nullptr));

    ASSERT_EQ(0, singleton.stop(PymStateChangeShutdown));
    roles = marker;
    EXPECT_EQ(2, am_getRoles_2("LDAP", "alice", &roles));
    EXPECT_EQ(marker, roles);
    EXPECT_EQ(1u, qivea.callsStartingWith("authorization").size());
  }

  QiveaStandIn qivea{QIVEA_DIR};
  const char* markerTexts[2] = {"untouched", nullptr};
  const char** const marker = markerTexts;
};

TEST_F(RoleQueryEntryPointTest, BeforeStartBothEntriesAnswerTwoWithoutTouchingTheirArguments) {
  EXPECT_EXIT(
      {
        getAndFreeBeforeStart();
        stopSingleton();
        exitWithResult();
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(RoleQueryEntryPointTest, StartedSingletonAnswersThroughTheEntriesUntilStopped) {
  EXPECT_EXIT(
      {
        getAndFreeWhileStarted();
        stopSingleton();
        exitWithResult();
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(RoleQueryBuiltInTest, UserNameThatQiveaCannotTakeStillReachesTheBuiltInLookup) {
  unlock();
  amLdap.setReply({"admin"});
  ASSERT_EQ(0, start(componentFile(true)));
  roles = marker;
  // The built-in lookup escapes what it puts into a filter; the name is its to judge.
  ASSERT_EQ(0, component->getRoles("LDAP", "eve --filterType=3", &roles));
  EXPECT_EQ(Strings{"eve --filterType=3"}, amLdap.users);
  EXPECT_EQ(0u, log().countContaining("cannot be passed to qivea"));
  EXPECT_EQ(0, component->freeRoles("LDAP", roles));
}
