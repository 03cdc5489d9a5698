#ifndef TEST_INTEGRATION_BUILT_IN_LOOKUP_TEST_H
#define TEST_INTEGRATION_BUILT_IN_LOOKUP_TEST_H

#include "LoadedComponentTest.h"
#include "SlapdInstance.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

const char METHOD_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";
const char LDAP_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1";
const char FILTER_DN[] =
    "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1,Filter=1";
const char ORBELIN_FILTER_DN[] =
    "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1,OrbelinFilter=1";
const char BUILT_IN_COMPONENT_FILE[] =
    "<QivAccessManagementComponent><useBuiltInAuthorization>true</useBuiltInAuthorization>"
    "<ldapInitConfigTimeout>10</ldapInitConfigTimeout></QivAccessManagementComponent>";

// What getRoles answered: its code and, for 0, the roles in the order handed out.
struct Answer {
  PymReturnT code;
  std::vector<std::string> roles;
};

inline bool operator==(const Answer& left, const Answer& right) {
  return left.code == right.code && left.roles == right.roles;
}

inline std::ostream& operator<<(std::ostream& out, const Answer& answer) {
  out << answer.code << " [";
  for (const std::string& role : answer.roles) out << " " << role;
  return out << " ]";
}

inline Answer answer(PymReturnT code, std::vector<std::string> roles = {}) { return Answer{code, std::move(roles)}; }

// The built library answering role queries through its own LDAP client, configured through the
// model as an operator would leave it: LDAP unlocked, the test directory's base DN and reader.
class BuiltInLookupTest : public LoadedComponentTest {
 protected:
  // The server the model names (address and port); referrals off.
  void useServer(const std::string& address, int port) {
    model().setStringValues(METHOD_DN, "administrativeState", {"UNLOCKED"});
    model().setStringValues(LDAP_DN, "ldapIpAddress", {address});
    model().setStringValues(LDAP_DN, "serverPort", {std::to_string(port)});
    model().setStringValues(LDAP_DN, "baseDn", {TestDirectory::SlapdInstance::baseDn()});
    bindAs(TestDirectory::SlapdInstance::readerDn(), TestDirectory::SlapdInstance::readerPassword());
    model().setStringValues(LDAP_DN, "useReferrals", {"false"});
  }

  Framework::ModelStore& model() { return framework().model(); }

  void bindAs(const std::string& dn, const std::string& password) {
    model().setStringValues(LDAP_DN, "bindDn", {dn});
    model().setStructValue(LDAP_DN, "bindPassword", {{"password", {framework().crypto().encrypt(password)}}});
  }

  void useFilterType(const std::string& filterType) {
    model().setStringValues(LDAP_DN, "filterType", {filterType});
    model().setStringValues(LDAP_DN, "profileFilter", {filterType});
  }

  void useTls(const std::string& mode, int port, const std::string& caFile) {
    model().setStringValues(LDAP_DN, "useTls", {"true"});
    model().setStringValues(LDAP_DN, "tlsMode", {mode});
    model().setStringValues(LDAP_DN, "serverPort", {std::to_string(port)});
    model().setStringValues(LDAP_DN, "tlsCaCertificate", {caFile});
  }

  void start() {
    initialize(BUILT_IN_COMPONENT_FILE);
    ASSERT_EQ(0, descriptor->start(PymStateChangeStartup));
  }

  // Starts, or stops and starts again: either way the thread reads the model as it is now.
  void startWithTheModel() {
    if (descriptor == nullptr) {
      start();
      return;
    }
    ASSERT_EQ(0, descriptor->stop(PymStateChangeShutdown));
    ASSERT_EQ(0, descriptor->start(PymStateChangeStartup));
  }

  Answer rolesOf(const std::string& user) {
    const char** roles = reinterpret_cast<const char**>(0x1);
    const PymReturnT code = accessManagement->getRoles("LDAP", user.c_str(), &roles);
    Answer result{code, {}};
    if (code != 0) {
      // A refusal never hands out an array.
      EXPECT_EQ(reinterpret_cast<const char**>(0x1), roles);
      return result;
    }
    for (const char** role = roles; *role != nullptr; ++role) result.roles.push_back(*role);
    EXPECT_EQ(0, accessManagement->freeRoles("LDAP", roles));
    return result;
  }
};

#endif
