#include "ConfigurationRunnable.h"

#include "FileSizeLimit.h"
#include "ForkedCheck.h"
#include "FrameworkTestBase.h"
#include "QiveaStandIn.h"
#include "ScopedEnvironmentVariable.h"
#include "UmaskCalls.h"

#include <Poco/TemporaryFile.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using namespace QivAccessManagement;

namespace {

using Args = std::vector<std::string>;

const char PASSWORD[] = "Pa55w0rd-on-the-line";
const uid_t NOBODY = 65534;
const char NO_PASSWORD_FILE_TEXT[] = "Could not create password file for QIVEA.";

std::string fileText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string linkTarget(const std::string& path) {
  char target[4096];
  const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
  return length < 0 ? std::string() : std::string(target, static_cast<std::size_t>(length));
}

// A configuration that uses every option the command line knows.
LdapConfiguration fullConfiguration() {
  LdapConfiguration config;
  config.administrativeState = UNLOCKED;
  config.ldapIpAddress = "10.0.0.1";
  config.fallbackLdapIpAddress = "10.0.0.2";
  config.serverPort = 636;
  config.useTls = true;
  config.tlsMode = LDAPS;
  config.cipherFilter = "HIGH:@STRENGTH";
  config.useReferrals = true;
  config.baseDn = "dc=example,dc=com";
  config.bindDn = "cn=admin,dc=example,dc=com";
  config.bindPassword = PASSWORD;
  config.trustCategory.trustCatDirName = "/certs/trusted";
  config.nodeCredential.nodeCertFileName = "/certs/node.pem";
  config.nodeCredential.nodeKeyFileName = "/certs/node.key";
  config.filterType = ORBELIN;
  config.targetBasedAccessControl = UNLOCKED;
  config.nodeType = "A:B";
  return config;
}

}  // namespace

// The runnable applying configurations through the qivea stand-in, with its password file in a
// directory of the test's own.
class ConfigurationRunnableCommandTest : public FrameworkTestBase {
 protected:
  ConfigurationRunnableCommandTest() : _tmpdir("TMPDIR", directory()) {}

  // A runnable that has asked qivea for its revision.
  std::unique_ptr<ConfigurationRunnable> runnableForRevision(const std::string& revision) {
    ScopedEnvironmentVariable spiRevision("QIVEA_SPI_REVISION", revision);
    std::unique_ptr<ConfigurationRunnable> runnable(new ConfigurationRunnable);
    runnable->setQiveaCapabilities();
    return runnable;
  }

  // The arguments of the calls after the revision query.
  std::vector<Args> authenticationCalls() { return qivea.callsStartingWith("authentication"); }

  Args prepared(ConfigurationRunnable& runnable, const LdapConfiguration& config) {
    runnable.prepareLdapCommand(config);
    return runnable.getLdapCommandArgs();
  }

  static bool contains(const Args& args, const std::string& text) {
    return std::find(args.begin(), args.end(), text) != args.end();
  }

  std::string directory() {
    Poco::File(_directory.path()).createDirectories();
    return _directory.path();
  }

  // A directory everyone may write, with the sticky bit, as /tmp is: a user cannot remove what
  // another one put there.
  std::string stickyDirectory() {
    const std::string path = directory() + "/shared";
    Poco::File(path).createDirectories();
    ::chmod(path.c_str(), 01777);
    return path;
  }

  // A victim file that the runnable's user could write, as a file of the framework's own would be.
  std::string victim() {
    const std::string path = directory() + "/victim";
    std::ofstream(path) << "the victim's own text\n";
    ::chmod(path.c_str(), 0666);
    return path;
  }

  // Prepares config with runnable and commits it as another user, for whom the removal of what
  // is at the password file's path fails, just as if it had been put there again right after the
  // removal. The commit must fail as a password file that cannot be written does.
  void commitAsAnotherUserFailsForTheFileInTheWay(ConfigurationRunnable& runnable) {
    const LdapConfiguration config = fullConfiguration();
    ASSERT_EQ(0, runnable.prepareUpdateConfiguration(config));
    const std::size_t callsBefore = authenticationCalls().size();
    EXPECT_TRUE(ForkedCheck::runAs(NOBODY, NOBODY, {}, [&] {
      EXPECT_EQ(-7, runnable.updateConfiguration(config));
      EXPECT_EQ(1u, log().count(3, NO_PASSWORD_FILE_TEXT));
      EXPECT_TRUE(runnable.getLdapCommandArgs().empty());
    }));
    EXPECT_EQ(callsBefore, authenticationCalls().size());
  }

  QiveaStandIn qivea{QIVEA_DIR};

 private:
  Poco::TemporaryFile _directory;
  ScopedEnvironmentVariable _tmpdir;
};

TEST_F(ConfigurationRunnableCommandTest, FullCommandLineInItsOrderThenCommittedWithoutPrepare) {
  auto runnable = runnableForRevision("1.4.0");
  ASSERT_TRUE(runnable->probeTlsMode());
  const LdapConfiguration config = fullConfiguration();
  const Args expected = {"authentication", "ldap", "--prepare", "--uri=ldaps://10.0.0.1:636", "--uri=ldaps://10.0.0.2:636",
                         "--useTls", "--tls-mode=LDAPS", "--cipherFilter=HIGH:@STRENGTH", "--useReferrals",
                         "--base-dn=dc=example,dc=com", "--login-attribute=uid", "--bind-dn=cn=admin,dc=example,dc=com",
                         "--password-file=" + runnable->getPasswordFilePath(), "--tls-ca-cert-directory=/certs/trusted",
                         "--tls-client-certificate=/certs/node.pem", "--tls-client-key=/certs/node.key",
                         "--nodeType=A:B:\\*"};

  EXPECT_EQ(0, runnable->prepareUpdateConfiguration(config));
  EXPECT_EQ(expected, runnable->getLdapCommandArgs());
  EXPECT_EQ(1u, log().count(8, "Set LDAP configuration"));
  EXPECT_EQ(0, runnable->updateConfiguration(config));
  EXPECT_TRUE(runnable->getLdapCommandArgs().empty());
  EXPECT_EQ(1u, log().count(8, "Administrative state unlocked - setting LDAP configuration"));

  const std::vector<Args> calls = authenticationCalls();
  ASSERT_EQ(3u, calls.size());  // the probe, the dry run, the commit
  EXPECT_EQ(expected, calls[1]);
  Args committed = expected;
  committed.erase(committed.begin() + 2);
  EXPECT_EQ(committed, calls[2]);

  // The password reaches qivea through a file only its owner may read.
  EXPECT_EQ(std::string(PASSWORD) + "\n", fileText(runnable->getPasswordFilePath()));
  struct stat status = {};
  ASSERT_EQ(0, stat(runnable->getPasswordFilePath().c_str(), &status));
  EXPECT_EQ(0600u, status.st_mode & 0777);
  EXPECT_EQ(0u, log().countContaining(PASSWORD));
}

TEST_F(ConfigurationRunnableCommandTest, Ipv6AddressIsBracketedAndGetsThePortOnlyWhenSet) {
  auto runnable = runnableForRevision("1.4.0");
  LdapConfiguration config;
  config.administrativeState = UNLOCKED;
  config.ldapIpAddress = "::1";
  EXPECT_EQ("--uri=ldap://[::1]", prepared(*runnable, config)[3]);
  config.serverPort = 636;
  config.useTls = true;
  config.tlsMode = LDAPS;
  EXPECT_EQ("--uri=ldaps://[::1]:636", prepared(*runnable, config)[3]);
  config.ldapIpAddress = "ldap.example.com";
  EXPECT_EQ("--uri=ldaps://ldap.example.com:636", prepared(*runnable, config)[3]);
}

TEST_F(ConfigurationRunnableCommandTest, FallbackSchemeFollowsThePrimaryServerNotUseTlsFallback) {
  auto runnable = runnableForRevision("1.4.0");
  LdapConfiguration config = fullConfiguration();
  config.useTlsFallback = false;
  EXPECT_EQ("--uri=ldaps://10.0.0.2:636", prepared(*runnable, config)[4]);
  config.useTls = false;
  config.useTlsFallback = true;
  config.serverPort = 0;
  EXPECT_EQ("--uri=ldap://10.0.0.2", prepared(*runnable, config)[4]);
}

TEST_F(ConfigurationRunnableCommandTest, DryRunOfAnotherAdministrativeStateGivesMinusSixWithoutACommand) {
  auto runnable = runnableForRevision("1.4.0");
  LdapConfiguration config = fullConfiguration();
  config.administrativeState = static_cast<AdministrativeState>(2);
  EXPECT_EQ(-6, runnable->prepareUpdateConfiguration(config));
  EXPECT_TRUE(authenticationCalls().empty());
  EXPECT_TRUE(runnable->getLdapCommandArgs().empty());
  EXPECT_EQ(0u, log().count(8, "Set LDAP configuration"));
  EXPECT_EQ(0u, log().count(8, "Set default configuration"));
}

TEST_F(ConfigurationRunnableCommandTest, StartTlsWritesNoMode) {
  auto runnable = runnableForRevision("1.4.0");
  ASSERT_TRUE(runnable->probeTlsMode());
  LdapConfiguration config = fullConfiguration();
  config.tlsMode = STARTTLS;
  const Args args = prepared(*runnable, config);
  EXPECT_TRUE(contains(args, "--useTls"));
  for (const std::string& arg : args) EXPECT_NE(0u, arg.find("--tls-mode=")) << arg;
  EXPECT_EQ("--uri=ldap://10.0.0.1:636", args[3]);
}

TEST_F(ConfigurationRunnableCommandTest, WithoutTheProbeNoModeIsSent) {
  auto runnable = runnableForRevision("1.4.0");
  EXPECT_FALSE(contains(prepared(*runnable, fullConfiguration()), "--tls-mode=LDAPS"));
}

TEST_F(ConfigurationRunnableCommandTest, Revision11PutsThePasswordOnTheLineMaskedInLogs) {
  auto runnable = runnableForRevision("1.1.0");
  LdapConfiguration config = fullConfiguration();
  const Args args = prepared(*runnable, config);
  EXPECT_TRUE(contains(args, std::string("--bind-password=") + PASSWORD));
  EXPECT_FALSE(contains(args, "--cipherFilter=HIGH:@STRENGTH"));
  EXPECT_FALSE(contains(args, "--useReferrals"));
  EXPECT_FALSE(contains(args, "--tls-ca-cert-directory=/certs/trusted"));

  EXPECT_EQ(0, runnable->prepareUpdateConfiguration(config));
  EXPECT_EQ(0, runnable->updateConfiguration(config));
  EXPECT_TRUE(contains(authenticationCalls().back(), std::string("--bind-password=") + PASSWORD));
  EXPECT_EQ(0u, log().countContaining(PASSWORD));
  EXPECT_LT(0u, log().countContaining("--bind-password=****"));
  EXPECT_FALSE(Poco::File(runnable->getPasswordFilePath()).exists());
}

TEST_F(ConfigurationRunnableCommandTest, Revision12SendsNoCaArgumentForATrustCategoryOnly) {
  auto runnable = runnableForRevision("1.2.0");
  LdapConfiguration config = fullConfiguration();
  const Args args = prepared(*runnable, config);
  EXPECT_TRUE(contains(args, "--password-file=" + runnable->getPasswordFilePath()));
  EXPECT_TRUE(contains(args, "--cipherFilter=HIGH:@STRENGTH"));
  for (const std::string& arg : args) EXPECT_NE(0u, arg.find("--tls-ca-")) << arg;

  auto newer = runnableForRevision("1.3.0");
  EXPECT_TRUE(contains(prepared(*newer, config), "--tls-ca-cert-directory=/certs/trusted"));
}

TEST_F(ConfigurationRunnableCommandTest, DeprecatedCertificateAttributesWin) {
  auto runnable = runnableForRevision("1.4.0");
  LdapConfiguration config = fullConfiguration();
  config.tlsCaCertificate = "/old/ca.pem";
  config.tlsClientCertificate = "/old/client.pem";
  config.tlsClientKey = "/old/client.key";
  const Args args = prepared(*runnable, config);
  EXPECT_TRUE(contains(args, "--tls-ca-certificate=/old/ca.pem"));
  EXPECT_TRUE(contains(args, "--tls-client-certificate=/old/client.pem"));
  EXPECT_TRUE(contains(args, "--tls-client-key=/old/client.key"));
  EXPECT_FALSE(contains(args, "--tls-ca-cert-directory=/certs/trusted"));
  EXPECT_FALSE(contains(args, "--tls-client-certificate=/certs/node.pem"));
}

TEST_F(ConfigurationRunnableCommandTest, NodeTypeArgumentFollowsTargetBasedAccessControl) {
  auto runnable = runnableForRevision("1.4.0");
  LdapConfiguration config = fullConfiguration();
  config.nodeType.clear();
  EXPECT_EQ("--tls-client-key=/certs/node.key", prepared(*runnable, config).back());  // no node type at all
  runnable->setLdap20AttributesExist(true);
  EXPECT_EQ("--nodeType=\\*", prepared(*runnable, config).back());
  config.targetBasedAccessControl = LOCKED;
  config.nodeType = "A";
  EXPECT_EQ("--tls-client-key=/certs/node.key", prepared(*runnable, config).back());
  config.targetBasedAccessControl = UNLOCKED;
  config.filterType = FLEXIBLE;
  EXPECT_EQ("--tls-client-key=/certs/node.key", prepared(*runnable, config).back());
}

TEST_F(ConfigurationRunnableCommandTest, EraseArgumentRemovesOnlyTheFirstEqualElement) {
  Args args = {"a", "--prepare", "b", "--prepare", "--prepared"};
  ConfigurationRunnable::eraseArgument(args, "--prepare");
  EXPECT_EQ((Args{"a", "b", "--prepare", "--prepared"}), args);
  ConfigurationRunnable::eraseArgument(args, "missing");
  EXPECT_EQ(4u, args.size());
}

TEST_F(ConfigurationRunnableCommandTest, LockedConfigurationSwitchesToTheDefaultMethod) {
  auto runnable = runnableForRevision("1.4.0");
  LdapConfiguration config;
  EXPECT_EQ(0, runnable->prepareUpdateConfiguration(config));
  EXPECT_EQ(0, runnable->updateConfiguration(config));
  EXPECT_EQ((std::vector<Args>{{"authentication", "default", "--prepare"}, {"authentication", "default"}}),
            authenticationCalls());
  EXPECT_EQ(1u, log().count(8, "Set default configuration"));
  EXPECT_EQ(1u, log().count(8, "Administrative state locked - setting default method"));
}

TEST_F(ConfigurationRunnableCommandTest, RefusedDryRunGivesMinusSixAndKeepsTheLine) {
  auto runnable = runnableForRevision("1.4.0");
  qivea.answer("authentication ldap", 1, "", "LDAP server not reachable");
  const LdapConfiguration config = fullConfiguration();
  EXPECT_EQ(-6, runnable->prepareUpdateConfiguration(config));
  const Args kept = runnable->getLdapCommandArgs();
  ASSERT_EQ(16u, kept.size());
  EXPECT_EQ("--prepare", kept[2]);
  EXPECT_EQ(1u, log().count(3, "LDAP server not reachable"));
  std::string line = "Failed to invoke: qivea";
  for (const std::string& arg : kept) line += " " + arg;
  EXPECT_EQ(1u, log().count(3, line + ", result: -1"));
}

TEST_F(ConfigurationRunnableCommandTest, RefusedCommitGivesMinusSevenAndKeepsTheLine) {
  auto runnable = runnableForRevision("1.4.0");
  const LdapConfiguration config = fullConfiguration();
  ASSERT_EQ(0, runnable->prepareUpdateConfiguration(config));
  qivea.answer("authentication ldap", 1, "", "refused");
  EXPECT_EQ(-7, runnable->updateConfiguration(config));
  const Args kept = runnable->getLdapCommandArgs();
  EXPECT_EQ(15u, kept.size());
  EXPECT_FALSE(contains(kept, "--prepare"));
  EXPECT_EQ(0u, log().countContaining(PASSWORD));
}

TEST_F(ConfigurationRunnableCommandTest, PasswordFileThatCannotBeWrittenStopsTheCommit) {
  ScopedEnvironmentVariable tmpdir("TMPDIR", "/nonexistent/directory");
  auto runnable = runnableForRevision("1.4.0");
  EXPECT_EQ("/nonexistent/directory/.ldap.secret.tmp", runnable->getPasswordFilePath());
  const LdapConfiguration config = fullConfiguration();
  ASSERT_EQ(0, runnable->prepareUpdateConfiguration(config));
  const std::size_t callsBefore = authenticationCalls().size();
  EXPECT_EQ(-7, runnable->updateConfiguration(config));
  EXPECT_EQ(1u, log().count(3, "Could not create password file for QIVEA."));
  EXPECT_TRUE(runnable->getLdapCommandArgs().empty());
  EXPECT_EQ(callsBefore, authenticationCalls().size());
}

TEST_F(ConfigurationRunnableCommandTest, LinkAtThePasswordFileIsNotFollowed) {
  ScopedEnvironmentVariable tmpdir("TMPDIR", stickyDirectory());
  auto runnable = runnableForRevision("1.4.0");
  const std::string target = victim();
  ASSERT_EQ(0, ::symlink(target.c_str(), runnable->getPasswordFilePath().c_str()));
  commitAsAnotherUserFailsForTheFileInTheWay(*runnable);
  EXPECT_EQ("the victim's own text\n", fileText(target));
  EXPECT_EQ(target, linkTarget(runnable->getPasswordFilePath()));
}

TEST_F(ConfigurationRunnableCommandTest, FileAtThePasswordFileIsNotWritten) {
  ScopedEnvironmentVariable tmpdir("TMPDIR", stickyDirectory());
  auto runnable = runnableForRevision("1.4.0");
  const std::string planted = runnable->getPasswordFilePath();
  std::ofstream(planted) << "planted\n";
  // Readable by all: whatever went in would be anyone's.
  ::chmod(planted.c_str(), 0666);
  commitAsAnotherUserFailsForTheFileInTheWay(*runnable);
  EXPECT_EQ("planted\n", fileText(planted));
  struct stat status = {};
  ASSERT_EQ(0, ::lstat(planted.c_str(), &status));
  EXPECT_EQ(0666u, status.st_mode & 07777);
}

TEST_F(ConfigurationRunnableCommandTest, PasswordFileCutShortStopsTheCommitAndIsRemoved) {
  auto runnable = runnableForRevision("1.4.0");
  const LdapConfiguration config = fullConfiguration();
  ASSERT_EQ(0, runnable->prepareUpdateConfiguration(config));
  const std::size_t callsBefore = authenticationCalls().size();
  {
    // Less than the password: the write fails part way, or only when the file is closed.
    const FileSizeLimit limit(4);
    ASSERT_TRUE(limit.isSet());
    EXPECT_EQ(-7, runnable->updateConfiguration(config));
  }
  EXPECT_EQ(1u, log().count(3, NO_PASSWORD_FILE_TEXT));
  EXPECT_TRUE(runnable->getLdapCommandArgs().empty());
  EXPECT_EQ(callsBefore, authenticationCalls().size());
  EXPECT_FALSE(Poco::File(runnable->getPasswordFilePath()).exists());
}

TEST_F(ConfigurationRunnableCommandTest, PasswordFileIsOwnerOnlyWhateverTheUmaskWhichIsNotTouched) {
  auto runnable = runnableForRevision("1.4.0");
  const LdapConfiguration config = fullConfiguration();
  for (const mode_t mask : {0000, 0277}) {
    ASSERT_EQ(0, runnable->prepareUpdateConfiguration(config));
    const mode_t previous = ::umask(mask);
    const unsigned callsBefore = UmaskCalls::count();
    const int result = runnable->updateConfiguration(config);
    const unsigned umaskCalls = UmaskCalls::count() - callsBefore;
    ::umask(previous);
    EXPECT_EQ(0, result) << std::oct << mask;
    // Every thread of a host shares the umask: the file's mode is set without it.
    EXPECT_EQ(0u, umaskCalls) << std::oct << mask;
    struct stat status = {};
    ASSERT_EQ(0, ::lstat(runnable->getPasswordFilePath().c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 07777) << std::oct << mask;
    EXPECT_EQ(std::string(PASSWORD) + "\n", fileText(runnable->getPasswordFilePath()));
  }
}

TEST_F(ConfigurationRunnableCommandTest, Revision11PasswordWithBlanksAndOptionTextIsMaskedWhole) {
  auto runnable = runnableForRevision("1.1.0");
  LdapConfiguration config = fullConfiguration();
  config.bindPassword = "S3cret Ph4se --useTls";
  qivea.answer("authentication ldap", 1, "", "refused\n");
  EXPECT_EQ(-6, runnable->prepareUpdateConfiguration(config));
  std::string line = "Failed to invoke: qivea";
  for (const std::string& arg : runnable->getLdapCommandArgs()) {
    line += " " + (arg == "--bind-password=" + config.bindPassword ? std::string("--bind-password=****") : arg);
  }
  EXPECT_EQ(1u, log().count(3, line + ", result: -1"));
  EXPECT_EQ(0u, log().countContaining("Ph4se"));
}

TEST_F(ConfigurationRunnableCommandTest, PasswordFileFollowsTmpdirWithoutSlashHandling) {
  {
    ScopedEnvironmentVariable tmpdir("TMPDIR", "/var/tmp/");
    EXPECT_EQ("/var/tmp//.ldap.secret.tmp", ConfigurationRunnable().getPasswordFilePath());
  }
  ScopedEnvironmentVariable unset("TMPDIR");
  EXPECT_EQ("/tmp/.ldap.secret.tmp", ConfigurationRunnable().getPasswordFilePath());
}

TEST_F(ConfigurationRunnableCommandTest, RevisionThatCannotBeAskedCountsAsOneZeroZero) {
  qivea.answer("spi-revision", 1, "", "broken");
  std::unique_ptr<ConfigurationRunnable> runnable(new ConfigurationRunnable);
  runnable->setQiveaCapabilities();
  const Args args = prepared(*runnable, fullConfiguration());
  EXPECT_TRUE(contains(args, std::string("--bind-password=") + PASSWORD));
  EXPECT_FALSE(contains(args, "--cipherFilter=HIGH:@STRENGTH"));
}

TEST_F(ConfigurationRunnableCommandTest, DefaultConfigurationIsSentAndItsFailureIsMinusSeven) {
  auto runnable = runnableForRevision("1.4.0");
  EXPECT_EQ(0, runnable->setDefaultConfiguration());
  EXPECT_EQ((Args{"authentication", "default"}), authenticationCalls().back());
  qivea.answer("authentication default", 1, "", "no");
  EXPECT_EQ(-7, runnable->setDefaultConfiguration());
}

TEST_F(ConfigurationRunnableCommandTest, RefusedTlsModeProbeIsLogged) {
  auto runnable = runnableForRevision("1.4.0");
  qivea.answer("authentication ldap", 1, "", "unknown option --tls-mode");
  EXPECT_FALSE(runnable->probeTlsMode());
  EXPECT_EQ(1u, log().count(4, "Tls-mode is not supported"));
  const Args probe = authenticationCalls().back();
  EXPECT_EQ((Args{"authentication", "ldap", "--uri=ldaps://127.0.0.1", "--useTls", "--tls-mode=LDAPS",
                  "--base-dn=dc=example,dc=com", "--login-attribute=uid", "--prepare"}),
            probe);
}

TEST_F(ConfigurationRunnableCommandTest, TlsModeSupportIsReportedOnlyOnceTheConfigurationWasRead) {
  auto runnable = runnableForRevision("1.4.0");
  ASSERT_TRUE(runnable->probeTlsMode());
  EXPECT_FALSE(runnable->getQiveaTlsModeSupport());
  EXPECT_EQ("--tls-mode=LDAPS", ConfigurationRunnable::getTextForTlsMode(LDAPS));
  EXPECT_EQ("", ConfigurationRunnable::getTextForTlsMode(STARTTLS));
}
