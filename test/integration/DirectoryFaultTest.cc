#include "BuiltInLookupTest.h"
#include "FakeDirectory.h"
#include "SlapdInstance.h"
#include "TemporaryDirectory.h"
#include "ThrowAwayCertificates.h"

#include <sys/resource.h>
#include <sys/time.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace {

using TestDirectory::FakeDirectory;
using Behaviour = TestDirectory::FakeDirectory::Behaviour;
using Clock = std::chrono::steady_clock;

// One attempt ends 12 s after it connected; the bounds leave room for a loaded machine.
const std::chrono::seconds ONE_SERVER_BOUND{20};
const std::chrono::seconds TWO_SERVERS_BOUND{35};
// What a lookup may spend of a core while it waits for a silent server.
const double WAITING_CPU_SECONDS = 2.0;
const char ALICE_FILTER[] = "(&(objectClass=posixGroup)(memberUid=alice))";

double threadCpuSeconds() {
  rusage usage;
  getrusage(RUSAGE_THREAD, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// A directory in which alice exists and the groups found by groupsOf list her.
FakeDirectory::SearchScript aliceIn(std::function<std::vector<FakeDirectory::Entry>()> groupsOf,
                                    unsigned delayMs = 0) {
  return [groupsOf, delayMs](const FakeDirectory::SearchRequest& request) {
    FakeDirectory::SearchAnswer answer = FakeDirectory::defaultAnswer(request);
    if (request.filter == "(uid=alice)") {
      answer.entries.push_back({"uid=alice,ou=people,dc=example,dc=com", {{"uid", {"alice"}}}});
    } else if (request.filter == ALICE_FILTER) {
      answer.entries = groupsOf();
    }
    answer.delayMs = delayMs;
    return answer;
  };
}

std::vector<FakeDirectory::Entry> adminGroup() { return {{"cn=admin,ou=groups,dc=example,dc=com", {{"cn", {"admin"}}}}}; }

}  // namespace

// The loaded library's built-in lookup against a directory that misbehaves: whatever it does,
// the query ends within the bound, waits without spinning, releases the lookup, and the next
// query is answered.
class DirectoryFaultTest : public BuiltInLookupTest {
 protected:
  DirectoryFaultTest() : certificates(files.path() + "/tls") {}

  void SetUp() override {
    useServer(fake.host(), fake.port());
    useFilterType("POSIX_GROUPS");
  }

  void useLdaps() {
    certificates.create();
    useTls("LDAPS", fake.port(), certificates.caFile());
  }

  // The query's answer, its wall time and the CPU time of the thread that asked.
  struct Measured {
    Answer answer;
    Clock::duration wall;
    double cpuSeconds;
  };

  Measured measuredRolesOf(const std::string& user) {
    const Clock::time_point start = Clock::now();
    const double cpuStart = threadCpuSeconds();
    Measured measured{rolesOf(user), {}, 0};
    measured.wall = Clock::now() - start;
    measured.cpuSeconds = threadCpuSeconds() - cpuStart;
    return measured;
  }

  // After a fault: the directory behaves, and the next query gets alice's role.
  void expectNextQueryAnswered() {
    fake.setBehaviour(Behaviour::ANSWER);
    fake.setExtendedResultCode(2);
    fake.setSearchScript(aliceIn(adminGroup));
    EXPECT_EQ(answer(0, {"admin"}), rolesOf("alice"));
  }

  // The same for a filter-type-2 lookup: alice holds the role "admin".
  void expectNextQueryAnsweredAsOrbelin() {
    fake.setSearchScript([](const FakeDirectory::SearchRequest& request) {
      FakeDirectory::SearchAnswer answer = FakeDirectory::defaultAnswer(request);
      if (request.filter == "(uid=alice)" || request.filter == "(&(objectClass=posixAccount)(uid=alice))") {
        answer.entries.push_back({"uid=alice,ou=people,dc=example,dc=com",
                                  {{"uid", {"alice"}}, {"orbelinUserAuthorizationScope", {"admin"}}}});
      } else if (request.base.rfind("role=", 0) == 0) {
        answer.resultCode = 32;
      }
      return answer;
    });
    EXPECT_EQ(answer(0, {"admin"}), rolesOf("alice"));
  }

  // A directory that breaks the connection at the nth message or request: the query fails at
  // once, with the level-3 line, and the next one is answered.
  void expectQuickFailureAndRecovery(Behaviour behaviour, int nth) {
    fake.setBehaviour(behaviour, nth);
    fake.setSearchScript(aliceIn(adminGroup));
    start();
    const Measured measured = measuredRolesOf("alice");
    EXPECT_EQ(answer(-1), measured.answer);
    EXPECT_LT(measured.wall, std::chrono::seconds(5));
    EXPECT_EQ(1u, unansweredLines()) << testing::PrintToString(logLines());
    expectNextQueryAnswered();
  }

  // Level-3 lines that name the fake directory as not answering.
  std::size_t unansweredLines() {
    std::size_t count = 0;
    for (const Framework::LogRecord& record : log().records()) {
      if (record.level == 3 && record.text.rfind("No answer from LDAP server " + fake.address() + ": ", 0) == 0) ++count;
    }
    return count;
  }

  void expectSilenceEndedInTime(const Measured& measured) {
    EXPECT_EQ(answer(-1), measured.answer);
    EXPECT_LT(measured.wall, ONE_SERVER_BOUND);
    EXPECT_LT(measured.cpuSeconds, WAITING_CPU_SECONDS);
    EXPECT_EQ(1u, unansweredLines()) << testing::PrintToString(logLines());
  }

  TemporaryDirectory files;
  TestDirectory::ThrowAwayCertificates certificates;
  FakeDirectory fake{Behaviour::ANSWER};
};

TEST_F(DirectoryFaultTest, ServerSilentAfterAcceptIsDownWithinTheBound) {
  fake.setBehaviour(Behaviour::SILENT_AFTER_ACCEPT);
  start();
  expectSilenceEndedInTime(measuredRolesOf("alice"));
  expectNextQueryAnswered();
}

TEST_F(DirectoryFaultTest, LdapsHandshakeThatStallsEndsWithinTheBoundWithoutSpinning) {
  useLdaps();
  fake.setBehaviour(Behaviour::SILENT_AFTER_FIRST_READ);
  start();
  expectSilenceEndedInTime(measuredRolesOf("alice"));
  EXPECT_LT(0u, fake.bytesReceived());
  model().setStringValues(LDAP_DN, "useTls", {"false"});
  startWithTheModel();
  expectNextQueryAnswered();
}

TEST_F(DirectoryFaultTest, StartTlsHandshakeThatStallsEndsWithinTheBoundWithoutSpinning) {
  certificates.create();
  useTls("STARTTLS", fake.port(), certificates.caFile());
  fake.setBehaviour(Behaviour::SILENT_AFTER_START_TLS);
  fake.setExtendedResultCode(0);
  start();
  expectSilenceEndedInTime(measuredRolesOf("alice"));
  EXPECT_EQ(1u, fake.extendedRequests().size());
  model().setStringValues(LDAP_DN, "useTls", {"false"});
  startWithTheModel();
  expectNextQueryAnswered();
}

TEST_F(DirectoryFaultTest, AnswersThatEachComeSlowlyEndTheQueryAtTheBound) {
  // Each answer in time for libldap's own 12 s, together far past it.
  fake.setSearchScript(aliceIn(adminGroup, 5000));
  start();
  expectSilenceEndedInTime(measuredRolesOf("alice"));
  expectNextQueryAnswered();
}

TEST_F(DirectoryFaultTest, ConnectionClosedInTheMiddleOfAnAnswerIsAFailureNotAnUnknownUser) {
  // Bind response, root DSE entry and result, then the user's entry is cut.
  expectQuickFailureAndRecovery(Behaviour::CLOSE_MID_ANSWER, 4);
}

TEST_F(DirectoryFaultTest, ResetInsteadOfAnAnswerIsAFailureNotAnUnknownUser) {
  // Bind, root DSE read, then the user's search is answered by a reset.
  expectQuickFailureAndRecovery(Behaviour::RESET_ON_REQUEST, 3);
}

TEST_F(DirectoryFaultTest, DirectoryThatAnswersWithoutTheUserStillMeansNoSuchUser) {
  start();
  EXPECT_EQ(answer(-2), rolesOf("alice"));
  EXPECT_EQ(0u, log().countContaining("No answer from LDAP server"));
}

TEST_F(DirectoryFaultTest, QueryThatWaitedBehindASilentServerIsAnsweredNext) {
  fake.setBehaviour(Behaviour::SILENT_AFTER_ACCEPT);
  start();
  std::future<Answer> first = std::async(std::launch::async, [this] { return rolesOf("alice"); });
  while (fake.connectionsAccepted() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  // The second query waits for the lookup; its own connection meets a directory that answers.
  fake.setBehaviour(Behaviour::ANSWER);
  fake.setSearchScript(aliceIn(adminGroup));
  const Clock::time_point start = Clock::now();
  std::future<Answer> second = std::async(std::launch::async, [this] { return rolesOf("alice"); });
  ASSERT_EQ(std::future_status::ready, second.wait_for(ONE_SERVER_BOUND));
  EXPECT_EQ(answer(0, {"admin"}), second.get());
  EXPECT_LT(Clock::now() - start, ONE_SERVER_BOUND);
  EXPECT_EQ(answer(-1), first.get());
}

TEST_F(DirectoryFaultTest, HundredThousandValuesOfTheRoleAttributeAreAnswered) {
  std::vector<std::string> values;
  for (int index = 0; index < 100000; ++index) values.push_back("role" + std::to_string(100000 + index));
  fake.setSearchScript(aliceIn([values] {
    return std::vector<FakeDirectory::Entry>{{"cn=big,ou=groups,dc=example,dc=com", {{"cn", values}}}};
  }));
  start();
  const Measured measured = measuredRolesOf("alice");
  EXPECT_EQ(0, measured.answer.code);
  EXPECT_EQ(values, measured.answer.roles);
  EXPECT_LT(measured.wall, ONE_SERVER_BOUND);
}

TEST_F(DirectoryFaultTest, RoleValueOfOneMebibyteIsAnswered) {
  const std::string value(1 << 20, 'r');
  fake.setSearchScript(aliceIn([value] {
    return std::vector<FakeDirectory::Entry>{{"cn=big,ou=groups,dc=example,dc=com", {{"cn", {value}}}}};
  }));
  start();
  const Measured measured = measuredRolesOf("alice");
  EXPECT_EQ(answer(0, {value}), measured.answer);
  EXPECT_LT(measured.wall, ONE_SERVER_BOUND);
}

TEST_F(DirectoryFaultTest, TenThousandEntriesForTheUsersFilterAreAnswered) {
  std::vector<FakeDirectory::Entry> groups;
  std::vector<std::string> expected;
  for (int index = 0; index < 10000; ++index) {
    const std::string name = "group" + std::to_string(10000 + index);
    groups.push_back({"cn=" + name + ",ou=groups,dc=example,dc=com", {{"cn", {name}}}});
    expected.push_back(name);
  }
  fake.setSearchScript(aliceIn([groups] { return groups; }));
  start();
  const Measured measured = measuredRolesOf("alice");
  EXPECT_EQ(answer(0, expected), measured.answer);
  EXPECT_LT(measured.wall, ONE_SERVER_BOUND);
}

TEST_F(DirectoryFaultTest, TenThousandRolesThatEachNeedAnAliasSearchStayWithinTheBound) {
  useFilterType("ORBELIN");
  model().setStringValues(LDAP_DN, "roleAliasesBaseDn", {"ou=roleAliases,dc=example,dc=com"});
  std::vector<std::string> values;
  for (int index = 0; index < 10000; ++index) values.push_back("role" + std::to_string(10000 + index));
  fake.setSearchScript([values](const FakeDirectory::SearchRequest& request) {
    FakeDirectory::SearchAnswer answer = FakeDirectory::defaultAnswer(request);
    if (request.filter == "(uid=alice)" || request.filter == "(&(objectClass=posixAccount)(uid=alice))") {
      answer.entries.push_back({"uid=alice,ou=people,dc=example,dc=com",
                                {{"uid", {"alice"}}, {"orbelinUserAuthorizationScope", values}}});
    } else if (request.base.rfind("role=", 0) == 0) {
      answer.resultCode = 32;  // noSuchObject: no alias entry for that role
    }
    return answer;
  });
  start();
  const Measured measured = measuredRolesOf("alice");
  // Finished in time, or cut at the bound: either way within it.
  if (measured.answer.code == 0) {
    EXPECT_EQ(values, measured.answer.roles);
  } else {
    EXPECT_EQ(answer(-1), measured.answer);
  }
  EXPECT_LT(measured.wall, ONE_SERVER_BOUND);
  expectNextQueryAnsweredAsOrbelin();
}

// A primary that accepts and then says nothing, on the fallback's port of another loopback address.
class HungPrimaryTest : public BuiltInLookupTest {
 protected:
  HungPrimaryTest() : primary(Behaviour::SILENT_AFTER_ACCEPT, 1, "127.0.0.2", fallback.plainPort()) {}

  void SetUp() override {
    useServer(primary.host(), fallback.plainPort());
    model().setStringValues(LDAP_DN, "fallbackLdapIpAddress", {TestDirectory::SlapdInstance::host()});
    useFilterType("POSIX_GROUPS");
  }

  TestDirectory::SlapdInstance fallback;
  FakeDirectory primary;
};

TEST_F(HungPrimaryTest, GivesWayToTheFallbackWithinTwiceTheBound) {
  start();
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(answer(0, {"admin", "ops"}), rolesOf("alice"));
  EXPECT_LT(Clock::now() - start, TWO_SERVERS_BOUND);
  EXPECT_EQ(1u, primary.connectionsAccepted());
  const std::string fallbackAddress = TestDirectory::SlapdInstance::host() + std::string(":") +
                                      std::to_string(fallback.plainPort());
  EXPECT_EQ(1u, log().count(4, "LDAP server " + primary.address() + " did not answer, asking " + fallbackAddress))
      << testing::PrintToString(logLines());
}

TEST_F(HungPrimaryTest, PrimaryThatRefusesTheBindIsNotRetriedOnTheFallback) {
  primary.setBehaviour(Behaviour::ANSWER);
  primary.setBindResultCode(49);
  start();
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(answer(-1), rolesOf("alice"));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  EXPECT_EQ(0u, log().countContaining("did not answer, asking"));
}
