#include "LdapProbe.h"
#include "SlapdInstance.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace TestDirectory {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using ::testing::UnorderedElementsAreArray;

// The sample users answer the searches the role lookup makes, as test/fixtures/ldap/sample.ldif
// says they should.
class SampleDirectoryTest : public ::testing::Test {
 protected:
  SampleDirectoryTest() : _probe(connection()) {}

  // The lines of the entries under the base DN that match filter, for the one attribute asked for
  // ("dn" for the entries' names), in the directory's order.
  std::vector<std::string> find(const std::string& filter, const std::string& attribute,
                                const std::string& base = SlapdInstance::baseDn()) const {
    const LdapProbe::Answer answer = _probe.search(base, LdapProbe::Scope::Subtree, filter);
    EXPECT_TRUE(answer.succeeded()) << answer.error;
    std::vector<std::string> values;
    for (const std::string& line : answer.lines) {
      if (line.compare(0, attribute.size() + 2, attribute + ": ") == 0) values.push_back(line);
    }
    return values;
  }

 private:
  LdapProbe::Connection connection() const {
    LdapProbe::Connection connection;
    connection.port = _directory.plainPort();
    connection.bindDn = SlapdInstance::readerDn();
    connection.password = SlapdInstance::readerPassword();
    return connection;
  }

  SlapdInstance _directory;
  LdapProbe _probe;
};

TEST_F(SampleDirectoryTest, PosixGroupsHoldAliceInAdminAndOpsAndBobInOps) {
  EXPECT_THAT(find("(&(objectClass=posixGroup)(memberUid=alice))", "cn"),
              UnorderedElementsAre("cn: admin", "cn: ops"));
  EXPECT_THAT(find("(&(objectClass=posixGroup)(memberUid=bob))", "cn"), ElementsAre("cn: ops"));
}

// A user's authentication scope and authorisation scopes, as the filterType 2 lookup reads them
// from the user's account entry.
struct AccountScopes {
  const char* name;
  const char* uid;
  const char* authenticationScope;
  std::vector<std::string> authorizationScopes;
};

std::ostream& operator<<(std::ostream& out, const AccountScopes& account) { return out << account.uid; }

class SampleDirectoryAccountTest : public SampleDirectoryTest, public ::testing::WithParamInterface<AccountScopes> {};

TEST_P(SampleDirectoryAccountTest, AccountHoldsItsScopes) {
  const std::string account = std::string("(&(objectClass=posixAccount)(uid=") + GetParam().uid + "))";

  EXPECT_THAT(find(account, "orbelinUserAuthenticationScope"), ElementsAre(GetParam().authenticationScope));
  EXPECT_THAT(find(account, "orbelinUserAuthorizationScope"), UnorderedElementsAreArray(GetParam().authorizationScopes));
}

INSTANTIATE_TEST_SUITE_P(
    SampleUsers, SampleDirectoryAccountTest,
    ::testing::Values(AccountScopes{"CarolHasScopeXAndRolesForTargetTypesXAndY", "carol",
                                    "orbelinUserAuthenticationScope: X",
                                    {"orbelinUserAuthorizationScope: X:admin", "orbelinUserAuthorizationScope: Y:operator"}},
                      AccountScopes{"DaveHasEveryScopeAViewerRoleForAllAndAPlainRole", "dave",
                                    "orbelinUserAuthenticationScope: *",
                                    {"orbelinUserAuthorizationScope: *:viewer", "orbelinUserAuthorizationScope: plainrole"}}),
    [](const ::testing::TestParamInfo<AccountScopes>& info) { return std::string(info.param.name); });

TEST_F(SampleDirectoryTest, FrankHoldsTheAliasOpsadminThatStandsForAdminAndOperator) {
  EXPECT_THAT(find("(&(objectClass=posixAccount)(uid=frank))", "orbelinUserAuthorizationScope"),
              UnorderedElementsAre("orbelinUserAuthorizationScope: opsadmin",
                                   "orbelinUserAuthorizationScope: admin", "orbelinUserAuthorizationScope: *"));
  // By its DN under the aliases' base (how aliases are resolved) and by its role (how they are discarded).
  EXPECT_THAT(find("(objectClass=*)", "orbelinUserAuthorizationScope",
                   std::string("role=opsadmin,") + SlapdInstance::roleAliasesBaseDn()),
              UnorderedElementsAre("orbelinUserAuthorizationScope: admin", "orbelinUserAuthorizationScope: operator"));
  EXPECT_THAT(find("(&(objectClass=orbelinRoleAlias)(role=opsadmin))", "dn"),
              ElementsAre("dn: role=opsadmin,ou=roleAliases,dc=example,dc=com"));
  EXPECT_THAT(find("(&(objectClass=orbelinRoleAlias)(role=admin))", "dn"), IsEmpty());
}

TEST_F(SampleDirectoryTest, GraceHasHerRolesInEmployeeType) {
  EXPECT_THAT(find("(uid=grace)", "employeeType"), UnorderedElementsAre("employeeType: netadmin",
                                                                         "employeeType: auditor"));
}

TEST_F(SampleDirectoryTest, ErinExistsWithoutAnyRole) {
  EXPECT_THAT(find("(uid=erin)", "dn"), ElementsAre("dn: uid=erin,ou=people,dc=example,dc=com"));
  EXPECT_THAT(find("(uid=erin)", "orbelinUserAuthorizationScope"), IsEmpty());
  EXPECT_THAT(find("(uid=erin)", "employeeType"), IsEmpty());
  EXPECT_THAT(find("(&(objectClass=posixGroup)(memberUid=erin))", "cn"), IsEmpty());
}

TEST_F(SampleDirectoryTest, UnescapedUserNamesMatchOtherUsers) {
  // The user name "a*)(uid=*" pasted into the filterType 2 filter.
  EXPECT_THAT(find("(&(objectClass=posixAccount)(uid=a*)(uid=*))", "uid"),
              UnorderedElementsAre("uid: alice", "uid: amy", "uid: ann"));
  EXPECT_EQ(9u, find("(uid=*)", "uid").size());
  EXPECT_THAT(find("(uid=amy)", "orbelinUserAuthorizationScope"), ElementsAre("orbelinUserAuthorizationScope: viewer"));
  EXPECT_THAT(find("(uid=ann)", "orbelinUserAuthorizationScope"),
              ElementsAre("orbelinUserAuthorizationScope: operator"));
}

}  // namespace
}  // namespace TestDirectory
