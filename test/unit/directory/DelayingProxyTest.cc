#include "DelayingProxy.h"

#include "DirectoryEntries.h"
#include "Eventually.h"
#include "FakeDirectory.h"
#include "LdapProbe.h"
#include "SlapdInstance.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ldap.h>

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <thread>

namespace TestDirectory {
namespace {

using ::testing::Contains;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned DELAY_MS = 300;
// Far beyond what any step here needs on a loaded machine, far below a hung test.
constexpr milliseconds GENEROUS{5000};

milliseconds since(Clock::time_point start) { return std::chrono::duration_cast<milliseconds>(Clock::now() - start); }

LdapProbe::Connection through(const DelayingProxy& proxy) {
  LdapProbe::Connection connection;
  connection.port = proxy.port();
  return connection;
}

TEST(DelayingProxyTest, DelaysEachAnswerOfAFakeDirectory) {
  FakeDirectory directory;
  directory.setSearchScript([](const FakeDirectory::SearchRequest&) {
    FakeDirectory::SearchAnswer answer;
    answer.entries.push_back({"uid=alice,ou=people,dc=example,dc=com", {{"uid", {"alice"}}}});
    return answer;
  });
  DelayingProxy proxy(directory.host(), directory.port(), DELAY_MS);
  LdapProbe::Connection connection = through(proxy);
  connection.bindDn = SlapdInstance::readerDn();
  connection.password = SlapdInstance::readerPassword();

  const Clock::time_point start = Clock::now();
  const LdapProbe::Answer answer =
      LdapProbe(connection).search("dc=example,dc=com", LdapProbe::Scope::Subtree, "(uid=alice)");
  const milliseconds elapsed = since(start);

  ASSERT_TRUE(answer.succeeded()) << answer.error;
  EXPECT_THAT(answer.lines, Contains("uid: alice"));
  // The bind's answer and the search's, one after the other.
  EXPECT_GE(elapsed, milliseconds(2 * DELAY_MS));
  EXPECT_LT(elapsed, GENEROUS);
  EXPECT_EQ(1, proxy.connectionsAccepted());
  EXPECT_EQ(1, directory.connectionsAccepted());
  EXPECT_THAT(directory.bindDns(), Contains(SlapdInstance::readerDn()));
}

TEST(DelayingProxyTest, SlowsDownLdapsOfARealSlapd) {
  SlapdInstance slapd;
  DelayingProxy proxy(SlapdInstance::host(), slapd.ldapsPort(), DELAY_MS);
  LdapProbe::Connection connection = through(proxy);
  connection.security = LdapProbe::Security::Ldaps;
  connection.caFile = slapd.caFile();

  const Clock::time_point start = Clock::now();
  const LdapProbe::Answer answer =
      LdapProbe(connection).search(SlapdInstance::baseDn(), LdapProbe::Scope::Subtree, "(uid=alice)");
  const milliseconds elapsed = since(start);

  ASSERT_TRUE(answer.succeeded()) << answer.error;
  EXPECT_THAT(answer.lines, Contains("dn: uid=alice,ou=people,dc=example,dc=com"));
  // The server's handshake flight and the search's answer, at least.
  EXPECT_GE(elapsed, milliseconds(2 * DELAY_MS));
  EXPECT_LT(elapsed, GENEROUS);
}

TEST(DelayingProxyTest, ClosesTheClientsConnectionWhenUpstreamRefuses) {
  DelayingProxy proxy(SlapdInstance::host(), SlapdInstance::unusedPort(), DELAY_MS);

  const Clock::time_point start = Clock::now();
  const LdapProbe::Answer answer = LdapProbe(through(proxy)).readRootDse();

  EXPECT_EQ(LDAP_SERVER_DOWN, answer.code) << answer.error;
  EXPECT_LT(since(start), GENEROUS);
  EXPECT_EQ(1, proxy.connectionsAccepted());
}

TEST(DelayingProxyTest, EndsPromptlyWithAnswersStillHeld) {
  // ThreadSanitizer starts a thread of its own at the process's first thread creation: one made
  // and joined first keeps it out of the comparison.
  std::thread([] {}).join();
  const std::set<std::string> descriptors = directoryEntries("/proc/self/fd");
  const std::set<std::string> threads = directoryEntries("/proc/self/task");
  {
    FakeDirectory directory;
    auto proxy = std::make_unique<DelayingProxy>(directory.host(), directory.port(), 60000);
    LDAP* ld = nullptr;
    ASSERT_EQ(LDAP_SUCCESS, ldap_initialize(&ld, ("ldap://" + proxy->address()).c_str()));
    const int version = LDAP_VERSION3;
    ldap_set_option(ld, LDAP_OPT_PROTOCOL_VERSION, &version);
    int id = 0;
    const int rc =
        ldap_search_ext(ld, "", LDAP_SCOPE_BASE, "(objectClass=*)", nullptr, 0, nullptr, nullptr, nullptr, 0, &id);
    // The answer has reached the proxy, which holds it for a minute.
    const bool answered = eventually([&] { return directory.requestsReceived() == 1; });

    const Clock::time_point start = Clock::now();
    proxy.reset();
    const milliseconds elapsed = since(start);
    ldap_unbind_ext_s(ld, nullptr, nullptr);

    EXPECT_EQ(LDAP_SUCCESS, rc);
    EXPECT_TRUE(answered);
    EXPECT_LT(elapsed, milliseconds(1000));
  }
  EXPECT_EQ(descriptors, directoryEntries("/proc/self/fd"));
  EXPECT_EQ(threads, directoryEntries("/proc/self/task"));
}

}  // namespace
}  // namespace TestDirectory
