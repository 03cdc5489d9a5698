#include "LdapTlsWrapper.h"

#include "FakeDirectory.h"
#include "FrameworkTestBase.h"
#include "LibldapDefaults.h"
#include "TemporaryDirectory.h"
#include "ThrowAwayCertificates.h"

#include <sys/resource.h>

#include <gtest/gtest.h>

#include <chrono>
#include <list>
#include <string>
#include <vector>

namespace {

using Ldap::LdapTlsWrapper;
using Ldap::OperationOutcome;
using TestDirectory::FakeDirectory;
using Behaviour = TestDirectory::FakeDirectory::Behaviour;
using Clock = std::chrono::steady_clock;

// Short, so that the tests of a silent server stay short; the bounds leave room for a loaded machine.
const int SESSION_SECONDS = 2;
const std::chrono::seconds BOUND{8};

double threadCpuSeconds() {
  rusage usage;
  getrusage(RUSAGE_THREAD, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

}  // namespace

// The LDAP client against a directory that misbehaves: every operation of a session ends by its
// deadline, the synchronous time-out after connect, and tells what became of it.
class LdapSessionGuardTest : public FrameworkTestBase {
 protected:
  void SetUp() override {
    ASSERT_TRUE(wrapper.setSynchronousTimeout(SESSION_SECONDS));
    ASSERT_TRUE(wrapper.setNetworkTimeout(SESSION_SECONDS));
  }

  void connectLdaps() {
    certificates.create();
    ASSERT_TRUE(wrapper.connect(Ldap::TLS_LDAPS, fake.address(), ""));
    ASSERT_TRUE(wrapper.setCaCertificate(certificates.caFile()));
    ASSERT_TRUE(wrapper.setRequireCert(Ldap::REQCERT_DEMAND));
    ASSERT_TRUE(wrapper.createNewCtx());
  }

  void expectNoAnswer() {
    const OperationOutcome outcome = wrapper.lastOutcome();
    EXPECT_EQ(OperationOutcome::NO_ANSWER, outcome.kind);
    EXPECT_EQ(fake.address(), outcome.server);
    EXPECT_FALSE(outcome.reason.empty());
  }

  std::list<std::string> searchAll() { return wrapper.search("dc=example,dc=com", Ldap::SCOPE_SUBTREE, "(uid=x)", nullptr); }

  LibldapDefaults defaults;
  TemporaryDirectory files;
  TestDirectory::ThrowAwayCertificates certificates{files.path() + "/tls"};
  FakeDirectory fake{Behaviour::ANSWER};
  LdapTlsWrapper wrapper;
};

TEST_F(LdapSessionGuardTest, StalledLdapsHandshakeEndsAtTheDeadlineWithoutSpinning) {
  fake.setBehaviour(Behaviour::SILENT_AFTER_FIRST_READ);
  connectLdaps();
  const Clock::time_point start = Clock::now();
  const double cpu = threadCpuSeconds();
  EXPECT_FALSE(wrapper.ping());
  EXPECT_LT(Clock::now() - start, BOUND);
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(SESSION_SECONDS * 1000 - 100));
  // libldap alone retries the handshake in a tight loop for ever.
  EXPECT_LT(threadCpuSeconds() - cpu, 0.5);
  expectNoAnswer();
}

TEST_F(LdapSessionGuardTest, EveryOperationAfterTheDeadlineFailsAtOnce) {
  fake.setSearchScript([](const FakeDirectory::SearchRequest& request) {
    FakeDirectory::SearchAnswer answer = FakeDirectory::defaultAnswer(request);
    answer.delayMs = 1500;
    return answer;
  });
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, fake.address(), ""));
  // Each search alone is in time for libldap's time-out; the second passes the session's deadline.
  EXPECT_TRUE(wrapper.ping());
  EXPECT_TRUE(wrapper.lastOutcome().answered());
  const Clock::time_point start = Clock::now();
  EXPECT_FALSE(wrapper.ping());
  expectNoAnswer();
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1200));
  const Clock::time_point later = Clock::now();
  EXPECT_TRUE(searchAll().empty());
  expectNoAnswer();
  EXPECT_LT(Clock::now() - later, std::chrono::milliseconds(200));
}

TEST_F(LdapSessionGuardTest, ConnectStartsANewSession) {
  fake.setBehaviour(Behaviour::SILENT_AFTER_ACCEPT);
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, fake.address(), ""));
  EXPECT_FALSE(wrapper.ping());
  expectNoAnswer();
  fake.setBehaviour(Behaviour::ANSWER);
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, fake.address(), ""));
  EXPECT_TRUE(wrapper.lastOutcome().answered());
  EXPECT_TRUE(wrapper.ping());
}

TEST_F(LdapSessionGuardTest, AnswerWithoutEntriesIsAnAnswer) {
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, fake.address(), ""));
  EXPECT_TRUE(searchAll().empty());
  EXPECT_TRUE(wrapper.lastOutcome().answered());
  EXPECT_EQ("", wrapper.lastOutcome().server);
}

TEST_F(LdapSessionGuardTest, AnswerWithAnErrorCodeIsAnAnswer) {
  fake.setSearchScript([](const FakeDirectory::SearchRequest&) {
    FakeDirectory::SearchAnswer answer;
    answer.resultCode = 32;
    return answer;
  });
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, fake.address(), ""));
  EXPECT_TRUE(searchAll().empty());
  EXPECT_TRUE(wrapper.lastOutcome().answered());
}

TEST_F(LdapSessionGuardTest, ConnectionClosedMidAnswerIsNoAnswer) {
  // The bind's response, then the search's entry is cut.
  fake.setBehaviour(Behaviour::CLOSE_MID_ANSWER, 2);
  fake.setSearchScript([](const FakeDirectory::SearchRequest&) {
    FakeDirectory::SearchAnswer answer;
    answer.entries.push_back({"uid=x,dc=example,dc=com", {{"uid", {"x"}}}});
    return answer;
  });
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, fake.address(), ""));
  ASSERT_TRUE(wrapper.bind("cn=reader,dc=example,dc=com", "pw"));
  EXPECT_TRUE(searchAll().empty());
  expectNoAnswer();
}

TEST_F(LdapSessionGuardTest, ResetIsNoAnswer) {
  fake.setBehaviour(Behaviour::RESET_ON_REQUEST, 1);
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, fake.address(), ""));
  EXPECT_FALSE(wrapper.bind("cn=reader,dc=example,dc=com", "pw"));
  expectNoAnswer();
}

TEST_F(LdapSessionGuardTest, RefusedConnectionIsARefusalThatNamesTheUriList) {
  const int port = fake.port();
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, "127.0.0.2:" + std::to_string(port), ""));
  EXPECT_FALSE(wrapper.ping());
  const OperationOutcome outcome = wrapper.lastOutcome();
  EXPECT_EQ(OperationOutcome::REFUSED, outcome.kind);
  EXPECT_EQ("ldap://127.0.0.2:" + std::to_string(port), outcome.server);
}

TEST_F(LdapSessionGuardTest, RefusedBindIsAnAnswer) {
  fake.setBindResultCode(49);
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, fake.address(), ""));
  EXPECT_FALSE(wrapper.bind("cn=reader,dc=example,dc=com", "wrong"));
  EXPECT_TRUE(wrapper.lastOutcome().answered());
}

TEST_F(LdapSessionGuardTest, SessionThatSendsMoreThanItsCapIsCutOff) {
  // Three entries of 6 MiB: each fits in a message, together they pass the session's 16 MiB.
  fake.setSearchScript([](const FakeDirectory::SearchRequest&) {
    FakeDirectory::SearchAnswer answer;
    for (int index = 0; index < 3; ++index) {
      answer.entries.push_back({"cn=e" + std::to_string(index) + ",dc=example,dc=com",
                                {{"cn", {std::string(6u << 20, 'v')}}}});
    }
    return answer;
  });
  ASSERT_TRUE(wrapper.setSynchronousTimeout(30));
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, fake.address(), ""));
  EXPECT_TRUE(searchAll().empty());
  expectNoAnswer();
}

TEST_F(LdapSessionGuardTest, AnswerBelowTheCapArrivesWhole) {
  fake.setSearchScript([](const FakeDirectory::SearchRequest&) {
    FakeDirectory::SearchAnswer answer;
    answer.entries.push_back({"cn=e,dc=example,dc=com", {{"cn", {std::string(6u << 20, 'v')}}}});
    return answer;
  });
  ASSERT_TRUE(wrapper.connect(Ldap::TLS_NONE, fake.address(), ""));
  const std::list<std::string> lines = searchAll();
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ(4u + (6u << 20), lines.front().size());
  EXPECT_TRUE(wrapper.lastOutcome().answered());
}
