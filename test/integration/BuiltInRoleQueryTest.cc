#include "BuiltInLookupTest.h"
#include "SlapdInstance.h"

#include <Framework/OperatorTransaction.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// The built library answering role queries from a real directory.
class BuiltInRoleQueryTest : public BuiltInLookupTest {
 protected:
  void SetUp() override { useServer(TestDirectory::SlapdInstance::host(), directory.plainPort()); }

  TestDirectory::SlapdInstance directory;
};

TEST_F(BuiltInRoleQueryTest, PosixGroupsAnswerTheGroupsThatListTheUser) {
  useFilterType("POSIX_GROUPS");
  start();
  EXPECT_EQ(answer(0, {"admin", "ops"}), rolesOf("alice"));
  EXPECT_EQ(answer(0, {"ops"}), rolesOf("bob"));
}

TEST_F(BuiltInRoleQueryTest, UserWithoutRolesIsRefused) {
  useFilterType("POSIX_GROUPS");
  start();
  EXPECT_EQ(answer(-1), rolesOf("erin"));
  EXPECT_EQ(1u, log().count(4, "User has no roles!"));
}

TEST_F(BuiltInRoleQueryTest, UnknownUserIsNoSuchObject) {
  useFilterType("POSIX_GROUPS");
  start();
  EXPECT_EQ(answer(-2), rolesOf("nobody"));
  EXPECT_EQ(1u, log().count(3, "getRoles failed (-2)"));
}

TEST_F(BuiltInRoleQueryTest, OrbelinRolesAreFilteredByNodeTypeAndAuthenticationScope) {
  useFilterType("ORBELIN");
  model().setStringValues(LDAP_DN, "nodeType", {"X"});
  model().setStringValues(ORBELIN_FILTER_DN, "targetBasedAccessControl", {"UNLOCKED"});
  model().setStringValues(ORBELIN_FILTER_DN, "version", {"V2"});
  start();
  // Scope "X": "X:admin" is for this node, "Y:operator" is not.
  EXPECT_EQ(answer(0, {"admin"}), rolesOf("carol"));
  // Scope "*": "*:viewer" holds everywhere; a role without a target type needs version 1.
  EXPECT_EQ(answer(0, {"viewer"}), rolesOf("dave"));
}

TEST_F(BuiltInRoleQueryTest, OrbelinVersionOneKeepsRolesWithoutTargetType) {
  useFilterType("ORBELIN");
  model().setStringValues(LDAP_DN, "nodeType", {"X"});
  model().setStringValues(ORBELIN_FILTER_DN, "targetBasedAccessControl", {"UNLOCKED"});
  model().setStringValues(ORBELIN_FILTER_DN, "version", {"V1"});
  start();
  EXPECT_EQ(answer(0, {"plainrole", "viewer"}), rolesOf("dave"));
}

TEST_F(BuiltInRoleQueryTest, RoleAliasesAreResolvedUnderTheirBaseDn) {
  useFilterType("ORBELIN");
  model().setStringValues(LDAP_DN, "roleAliasesBaseDn", {TestDirectory::SlapdInstance::roleAliasesBaseDn()});
  model().setStringValues(ORBELIN_FILTER_DN, "roleAliasesBaseDn", {TestDirectory::SlapdInstance::roleAliasesBaseDn()});
  start();
  // "opsadmin" stands for admin and operator; "*" alone is no role.
  EXPECT_EQ(answer(0, {"admin", "operator"}), rolesOf("frank"));
}

TEST_F(BuiltInRoleQueryTest, RoleAliasesAreDiscardedWithoutTheirBaseDn) {
  useFilterType("ORBELIN");
  start();
  EXPECT_EQ(answer(0, {"admin"}), rolesOf("frank"));
}

TEST_F(BuiltInRoleQueryTest, FlexibleFilterTakesTheUserForItsPlaceholder) {
  useFilterType("FLEXIBLE");
  model().setStringValues(FILTER_DN, "filter", {"(uid=<UID>)"});
  model().setStringValues(FILTER_DN, "type", {"employeeType"});
  start();
  EXPECT_EQ(answer(0, {"auditor", "netadmin"}), rolesOf("grace"));
}

TEST_F(BuiltInRoleQueryTest, LdapsWithTheDirectorysCaAnswersAsPlain) {
  useFilterType("POSIX_GROUPS");
  useTls("LDAPS", directory.ldapsPort(), directory.caFile());
  start();
  EXPECT_EQ(answer(0, {"admin", "ops"}), rolesOf("alice"));
}

TEST_F(BuiltInRoleQueryTest, StartTlsWithTheDirectorysCaAnswersAsPlain) {
  useFilterType("POSIX_GROUPS");
  useTls("STARTTLS", directory.plainPort(), directory.caFile());
  start();
  EXPECT_EQ(answer(0, {"admin", "ops"}), rolesOf("alice"));
}

TEST_F(BuiltInRoleQueryTest, CaThatDidNotSignTheServerCertificateGivesNoRoles) {
  useFilterType("POSIX_GROUPS");
  for (const std::string mode : {"LDAPS", "STARTTLS"}) {
    SCOPED_TRACE(mode);
    useTls(mode, mode == "LDAPS" ? directory.ldapsPort() : directory.plainPort(), directory.otherCaFile());
    startWithTheModel();
    EXPECT_EQ(answer(-1), rolesOf("alice"));
  }
  EXPECT_EQ(2u, log().count(3, "getRoles failed (-1)"));
}

TEST_F(BuiltInRoleQueryTest, UnreachablePrimaryFallsBackToTheSecondServer) {
  useFilterType("POSIX_GROUPS");
  // The directory listens on 127.0.0.1 only: the same port on 127.0.0.2 refuses.
  model().setStringValues(LDAP_DN, "ldapIpAddress", {"127.0.0.2"});
  model().setStringValues(LDAP_DN, "fallbackLdapIpAddress", {TestDirectory::SlapdInstance::host()});
  start();
  EXPECT_EQ(answer(0, {"admin", "ops"}), rolesOf("alice"));
}

TEST_F(BuiltInRoleQueryTest, UnreachableServerGivesNoRoles) {
  useFilterType("POSIX_GROUPS");
  model().setStringValues(LDAP_DN, "serverPort", {std::to_string(TestDirectory::SlapdInstance::unusedPort())});
  start();
  EXPECT_EQ(answer(-1), rolesOf("alice"));
}

TEST_F(BuiltInRoleQueryTest, WrongBindPasswordGivesNoRoles) {
  useFilterType("POSIX_GROUPS");
  bindAs(TestDirectory::SlapdInstance::readerDn(), "not-the-password");
  start();
  EXPECT_EQ(answer(-1), rolesOf("alice"));
  EXPECT_EQ(1u, log().count(8, "Bind failed"));
}

TEST_F(BuiltInRoleQueryTest, NamesThatWouldWidenTheSearchMatchNobody) {
  for (const std::string filterType : {"POSIX_GROUPS", "ORBELIN"}) {
    SCOPED_TRACE(filterType);
    useFilterType(filterType);
    startWithTheModel();
    EXPECT_EQ(answer(-2), rolesOf("*"));
    EXPECT_EQ(answer(-2), rolesOf("a*)(uid=*"));
    EXPECT_EQ(answer(-2), rolesOf("*)(|(uid=*"));
  }
}

TEST_F(BuiltInRoleQueryTest, BindPasswordReachesNoLogLineAtAnyLevel) {
  useFilterType("POSIX_GROUPS");
  useTls("STARTTLS", directory.plainPort(), directory.caFile());
  log().setLevel(9);
  start();
  EXPECT_EQ(answer(0, {"admin", "ops"}), rolesOf("alice"));
  bindAs(TestDirectory::SlapdInstance::readerDn(), "wrong-secret");
  startWithTheModel();
  EXPECT_EQ(answer(-1), rolesOf("alice"));
  EXPECT_EQ(2u, log().count(8, "Binding using DN: " + std::string(TestDirectory::SlapdInstance::readerDn())));
  EXPECT_EQ(0u, log().countContaining(TestDirectory::SlapdInstance::readerPassword()));
  EXPECT_EQ(0u, log().countContaining("wrong-secret"));
}

TEST_F(BuiltInRoleQueryTest, QueriesOnSeveralThreadsMeetTransactionsThatSwitchTheConnection) {
  useFilterType("POSIX_GROUPS");
  start();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  const auto running = [&] { return std::chrono::steady_clock::now() < deadline; };
  std::mutex mutex;
  std::map<PymReturnT, int> codes;
  std::vector<std::string> wrongAnswers;
  std::map<PymReturnT, int> commits;

  std::vector<std::future<void>> workers;
  for (int thread = 0; thread < 4; ++thread) {
    workers.push_back(std::async(std::launch::async, [&] {
      while (running()) {
        const char** roles = nullptr;
        const PymReturnT code = accessManagement->getRoles("LDAP", "alice", &roles);
        std::string text;
        for (const char** role = roles; code == 0 && *role != nullptr; ++role) text += std::string(*role) + ",";
        const PymReturnT freed = code == 0 ? accessManagement->freeRoles("LDAP", roles) : 0;
        EXPECT_EQ(0, freed);
        std::lock_guard<std::mutex> lock(mutex);
        ++codes[code];
        if (code == 0 && text != "admin,ops,") wrongAnswers.push_back(text);
      }
    }));
  }
  // Plain, LDAPS and StartTLS in turn: each must answer the same roles.
  workers.push_back(std::async(std::launch::async, [&] {
    for (int round = 0; running(); ++round) {
      Framework::OperatorTransaction transaction(framework());
      const int mode = round % 3;
      const std::string port = std::to_string(mode == 1 ? directory.ldapsPort() : directory.plainPort());
      PymReturnT written = transaction.setText(LDAP_DN, "useTls", {mode == 0 ? "false" : "true"});
      if (written == 0) written = transaction.setText(LDAP_DN, "tlsMode", {mode == 1 ? "LDAPS" : "STARTTLS"});
      if (written == 0) written = transaction.setText(LDAP_DN, "serverPort", {port});
      if (written == 0) written = transaction.setText(LDAP_DN, "tlsCaCertificate", {directory.caFile()});
      const PymReturnT committed = written == 0 ? transaction.commit() : written;
      if (transaction.isOpen()) transaction.abort();
      std::lock_guard<std::mutex> lock(mutex);
      ++commits[committed];
    }
  }));
  for (std::future<void>& worker : workers) {
    if (worker.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
      // Joining a stuck thread would hang the whole suite.
      std::fprintf(stderr, "a worker is still busy long after the deadline: deadlock\n");
      std::abort();
    }
    worker.get();
  }

  std::lock_guard<std::mutex> lock(mutex);
  EXPECT_TRUE(wrongAnswers.empty()) << wrongAnswers.front();
  // Answered, or asked to come back while the thread takes the new configuration.
  for (const auto& code : codes) EXPECT_TRUE(code.first == 0 || code.first == 1) << "role query code " << code.first;
  EXPECT_GT(codes[0], 0);
  EXPECT_GT(commits[0], 2);
  for (const auto& code : commits) EXPECT_EQ(0, code.first) << "commit code " << code.first;
  for (const auto& code : codes) std::printf("role query code %d: %d times\n", code.first, code.second);
  for (const auto& code : commits) std::printf("commit code %d: %d times\n", code.first, code.second);
}
