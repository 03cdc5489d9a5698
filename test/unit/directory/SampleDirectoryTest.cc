#include "LdapProbe.h"
#include "SlapdInstance.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace TestDirectory {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

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

TEST_F(SampleDirectoryTest, CarolHasScopeXAndRolesForTargetTypesXAndY) {
  const std::string carol = "(&(objectClass=posixAccount)(uid=carol))";

  EXPECT_THAT(find(carol, "orbelinUserAuthenticationScope"), ElementsAre("orbelinUserAuthenticationScope: X"));
  EXPECT_THAT(find(carol, "orbelinUserAuthorizationScope"),
              UnorderedElementsAre("orbelinUserAuthorizationScope: X:admin",
                                   "orbelinUserAuthorizationScope: Y:operator"));
}

TEST_F(SampleDirectoryTest, DaveHasEveryScopeAViewerRoleForAllAndAPlainRole) {
  const std::string dave = "(&(objectClass=posixAccount)(uid=dave))";

  EXPECT_THAT(find(dave, "orbelinUserAuthenticationScope"), ElementsAre("orbelinUserAuthenticationScope: *"));
  EXPECT_THAT(find(dave, "orbelinUserAuthorizationScope"),
              UnorderedElementsAre("orbelinUserAuthorizationScope: *:viewer",
                                   "orbelinUserAuthorizationScope: plainrole"));
}

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
