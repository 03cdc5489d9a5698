#include "LdapProbe.h"
#include "ScopedEnvironmentVariable.h"
#include "SlapdInstance.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ldap.h>
#include <signal.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace TestDirectory {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using Security = LdapProbe::Security;

const char* const ALICE_DN_LINE = "dn: uid=alice,ou=people,dc=example,dc=com";
// Server and client agree on nothing but AES-128-GCM, or on nothing at all.
const char* const ONLY_AES_128_GCM = "NORMAL:-CIPHER-ALL:+AES-128-GCM";
const char* const ONLY_AES_256_GCM = "NORMAL:-CIPHER-ALL:+AES-256-GCM";

LdapProbe::Connection connectionTo(int port, Security security = Security::Plain, const std::string& caFile = "") {
  LdapProbe::Connection connection;
  connection.port = port;
  connection.security = security;
  connection.caFile = caFile;
  return connection;
}

LdapProbe::Answer findAlice(const LdapProbe::Connection& connection) {
  return LdapProbe(connection).search(SlapdInstance::baseDn(), LdapProbe::Scope::Subtree, "(uid=alice)");
}

bool processExists(int pid) { return ::kill(pid, 0) == 0 || errno != ESRCH; }

// A directory of its own for TMPDIR while the object lives, to see what an instance leaves there.
class ScopedTemporaryDirectory {
 public:
  ScopedTemporaryDirectory()
      : _path(std::filesystem::temp_directory_path() /
              ("slapd-instance-test-" + std::to_string(::getpid()))),
        _created(std::filesystem::create_directories(_path)),
        _variable("TMPDIR", _path.string()) {}
  ~ScopedTemporaryDirectory() { std::filesystem::remove_all(_path); }

  std::string path() const { return _path.string(); }
  bool isEmpty() const { return _created && std::filesystem::is_empty(_path); }

 private:
  std::filesystem::path _path;
  bool _created;
  ScopedEnvironmentVariable _variable;
};

TEST(SlapdInstanceTest, FindsAliceOnThePlainPort) {
  SlapdInstance directory;

  const LdapProbe::Answer answer = findAlice(connectionTo(directory.plainPort()));

  ASSERT_TRUE(answer.succeeded()) << answer.error;
  EXPECT_THAT(answer.lines, Contains(ALICE_DN_LINE));
  EXPECT_THAT(answer.lines, Contains("uid: alice"));
}

// Alice looked up under security on the port of directory that it uses, trusting caFile.
LdapProbe::Answer findAliceOver(const SlapdInstance& directory, Security security, const std::string& caFile) {
  const int port = security == Security::Ldaps ? directory.ldapsPort() : directory.plainPort();
  return findAlice(connectionTo(port, security, caFile));
}

// LDAPS on the LDAPS port, StartTLS on the plain one.
class SlapdInstanceTlsTest : public ::testing::TestWithParam<Security> {};

TEST_P(SlapdInstanceTlsTest, FindsAliceForAClientTrustingItsCa) {
  SlapdInstance directory;

  const LdapProbe::Answer answer = findAliceOver(directory, GetParam(), directory.caFile());

  ASSERT_TRUE(answer.succeeded()) << answer.error;
  EXPECT_THAT(answer.lines, Contains(ALICE_DN_LINE));
}

INSTANTIATE_TEST_SUITE_P(LdapsAndStartTls, SlapdInstanceTlsTest, ::testing::Values(Security::Ldaps, Security::StartTls),
                         [](const ::testing::TestParamInfo<Security>& info) {
                           return info.param == Security::Ldaps ? "Ldaps" : "StartTls";
                         });

TEST(SlapdInstanceTest, LdapsIsRefusedByAClientTrustingTheOtherCa) {
  SlapdInstance directory;

  const LdapProbe::Answer answer = findAliceOver(directory, Security::Ldaps, directory.otherCaFile());

  EXPECT_EQ(LDAP_SERVER_DOWN, answer.code) << answer.error;
  EXPECT_TRUE(answer.lines.empty());
}

TEST(SlapdInstanceTest, StartTlsIsRefusedByAClientTrustingTheOtherCa) {
  SlapdInstance directory;

  const LdapProbe::Answer answer = findAliceOver(directory, Security::StartTls, directory.otherCaFile());

  EXPECT_EQ(LDAP_CONNECT_ERROR, answer.code) << answer.error;
  EXPECT_THAT(answer.error, HasSubstr("StartTLS"));
}

TEST(SlapdInstanceTest, AddressesNameTheLoopbackAndTheTwoPorts) {
  SlapdInstance directory;

  EXPECT_NE(directory.plainPort(), directory.ldapsPort());
  EXPECT_EQ("127.0.0.1:" + std::to_string(directory.plainPort()), directory.plainAddress());
  EXPECT_EQ("127.0.0.1:" + std::to_string(directory.ldapsPort()), directory.ldapsAddress());
}

TEST(SlapdInstanceTest, AdministratorAndReaderBindWithTheirPasswordsOnly) {
  SlapdInstance directory;
  LdapProbe::Connection connection = connectionTo(directory.plainPort());

  connection.bindDn = SlapdInstance::rootDn();
  connection.password = SlapdInstance::rootPassword();
  EXPECT_TRUE(findAlice(connection).succeeded()) << findAlice(connection).error;
  connection.bindDn = SlapdInstance::readerDn();
  connection.password = SlapdInstance::readerPassword();
  EXPECT_TRUE(findAlice(connection).succeeded()) << findAlice(connection).error;
  connection.password = SlapdInstance::rootPassword();
  EXPECT_EQ(LDAP_INVALID_CREDENTIALS, findAlice(connection).code);
}

TEST(SlapdInstanceTest, PasswordsAreShownToTheAdministratorOnly) {
  SlapdInstance directory;
  LdapProbe::Connection connection = connectionTo(directory.plainPort());

  connection.bindDn = SlapdInstance::readerDn();
  connection.password = SlapdInstance::readerPassword();
  const LdapProbe::Answer asReader = findAlice(connection);
  connection.bindDn = SlapdInstance::rootDn();
  connection.password = SlapdInstance::rootPassword();
  const LdapProbe::Answer asAdministrator = findAlice(connection);

  ASSERT_TRUE(asReader.succeeded()) << asReader.error;
  EXPECT_THAT(asReader.lines, Not(Contains("userPassword: alicepw")));
  EXPECT_THAT(asAdministrator.lines, Contains("userPassword: alicepw"));
}

TEST(SlapdInstanceTest, TwoInstancesRunSideBySide) {
  SlapdInstance first;
  SlapdInstance second;

  EXPECT_NE(first.plainPort(), second.plainPort());
  EXPECT_NE(first.ldapsPort(), second.ldapsPort());
  EXPECT_NE(first.directory(), second.directory());
  EXPECT_NE(first.pid(), second.pid());
  EXPECT_TRUE(findAlice(connectionTo(first.plainPort())).succeeded());
  EXPECT_TRUE(findAlice(connectionTo(second.plainPort())).succeeded());
  // Each server certificate is signed by its own instance's CA only.
  EXPECT_FALSE(findAlice(connectionTo(second.ldapsPort(), Security::Ldaps, first.caFile())).succeeded());
  EXPECT_TRUE(findAlice(connectionTo(second.ldapsPort(), Security::Ldaps, second.caFile())).succeeded());
}

TEST(SlapdInstanceTest, StopEndsSlapdAndDestructionRemovesTheDirectory) {
  std::string path;
  {
    SlapdInstance directory;
    path = directory.directory();
    const int pid = directory.pid();
    ASSERT_GT(pid, 0);
    ASSERT_TRUE(processExists(pid));

    directory.stop();

    EXPECT_FALSE(processExists(pid));
    EXPECT_EQ(LDAP_SERVER_DOWN, findAlice(connectionTo(directory.plainPort())).code);
    EXPECT_TRUE(std::filesystem::is_directory(path));
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(SlapdInstanceTest, DestructionAloneEndsSlapd) {
  int pid = 0;
  {
    SlapdInstance directory;
    pid = directory.pid();
    ASSERT_TRUE(processExists(pid));
  }
  EXPECT_FALSE(processExists(pid));
}

TEST(SlapdInstanceTest, CipherSuiteLimitsWhatTheServerAccepts) {
  SlapdInstance::Options options;
  options.cipherSuite = ONLY_AES_128_GCM;
  SlapdInstance restricted(options);
  SlapdInstance unrestricted;
  LdapProbe::Connection toRestricted = connectionTo(restricted.ldapsPort(), Security::Ldaps, restricted.caFile());
  LdapProbe::Connection toUnrestricted =
      connectionTo(unrestricted.ldapsPort(), Security::Ldaps, unrestricted.caFile());

  toRestricted.cipherSuite = ONLY_AES_256_GCM;
  toUnrestricted.cipherSuite = ONLY_AES_256_GCM;
  EXPECT_EQ(LDAP_SERVER_DOWN, findAlice(toRestricted).code);
  EXPECT_TRUE(findAlice(toUnrestricted).succeeded()) << findAlice(toUnrestricted).error;
  toRestricted.cipherSuite = ONLY_AES_128_GCM;
  EXPECT_TRUE(findAlice(toRestricted).succeeded()) << findAlice(toRestricted).error;
}

TEST(SlapdInstanceTest, CipherSuiteAlsoLimitsStartTls) {
  SlapdInstance::Options options;
  options.cipherSuite = ONLY_AES_128_GCM;
  SlapdInstance directory(options);
  LdapProbe::Connection connection = connectionTo(directory.plainPort(), Security::StartTls, directory.caFile());

  connection.cipherSuite = ONLY_AES_256_GCM;
  EXPECT_EQ(LDAP_CONNECT_ERROR, findAlice(connection).code);
  connection.cipherSuite = ONLY_AES_128_GCM;
  EXPECT_TRUE(findAlice(connection).succeeded()) << findAlice(connection).error;
}

TEST(SlapdInstanceTest, SlapdThatCannotStartThrowsItsOutputAndLeavesNothing) {
  const ScopedTemporaryDirectory temporary;
  SlapdInstance::Options options;
  options.cipherSuite = "NO-SUCH-PRIORITY";

  try {
    SlapdInstance directory(options);
    FAIL() << "slapd started with an invalid cipher suite";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("could not set cipher list NO-SUCH-PRIORITY"));
  }
  EXPECT_TRUE(temporary.isEmpty());
}

TEST(SlapdInstanceTest, LdifFileTakesThePlaceOfTheSampleUsers) {
  const ScopedTemporaryDirectory temporary;
  const std::string ldif = temporary.path() + "/zoe.ldif";
  std::ofstream(ldif) << "dn: uid=zoe,ou=people,dc=example,dc=com\n"
                         "objectClass: account\n"
                         "uid: zoe\n";
  SlapdInstance::Options options;
  options.ldifFile = ldif;
  SlapdInstance directory(options);
  const LdapProbe probe(connectionTo(directory.plainPort()));

  const LdapProbe::Answer zoe = probe.search(SlapdInstance::baseDn(), LdapProbe::Scope::Subtree, "(uid=zoe)");
  const LdapProbe::Answer alice = probe.search(SlapdInstance::baseDn(), LdapProbe::Scope::Subtree, "(uid=alice)");
  const LdapProbe::Answer aliases =
      probe.search(SlapdInstance::roleAliasesBaseDn(), LdapProbe::Scope::Base, "(objectClass=*)");

  EXPECT_THAT(zoe.lines, Contains("dn: uid=zoe,ou=people,dc=example,dc=com"));
  EXPECT_TRUE(alice.succeeded()) << alice.error;
  EXPECT_TRUE(alice.lines.empty());
  EXPECT_THAT(aliases.lines, Contains("ou: roleAliases"));
}

TEST(SlapdInstanceTest, UnusedPortRefusesConnections) {
  const int port = SlapdInstance::unusedPort();

  EXPECT_GT(port, 0);
  EXPECT_EQ(LDAP_SERVER_DOWN, findAlice(connectionTo(port)).code);
}

}  // namespace
}  // namespace TestDirectory
