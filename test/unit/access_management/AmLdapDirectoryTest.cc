#include "AmLdap.h"
#include "LdapTlsWrapper.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "FrameworkTestBase.h"
#include "LibldapDefaults.h"
#include "SlapdInstance.h"

using QivAccessManagement::AmLdap;
using QivAccessManagement::LdapConfiguration;
using TestDirectory::SlapdInstance;

namespace {

typedef std::vector<std::string> Strings;

const int kTrace = 8;
// The cipher filter a node configures by default, in OpenSSL's syntax.
const char kCipherFilter[] = "ALL:!aNULL:!eNULL:@STRENGTH";
const char kReaderDn[] = "cn=reader,dc=example,dc=com";
const char kReaderPassword[] = "readerpw";

// One lookup's answer.
struct Answer {
  int result;
  std::string roles;
};

bool operator==(const Answer& a, const Answer& b) { return a.result == b.result && a.roles == b.roles; }

std::ostream& operator<<(std::ostream& stream, const Answer& answer) {
  return stream << "{" << answer.result << ", \"" << answer.roles << "\"}";
}

// The built-in lookup over the real LDAP client, against a throw-away slapd holding the
// project's sample users.
class AmLdapDirectoryTest : public FrameworkTestBase {
 protected:
  AmLdapDirectoryTest() : amLdap(&wrapper) {}

  void SetUp() override {
    try {
      directory.reset(new SlapdInstance());
    } catch (const std::exception& e) {
      FAIL() << e.what();
    }
    log().clear();
  }

  // A plain, anonymous configuration for the directory's plain port.
  LdapConfiguration config(QivAccessManagement::FilterType filterType = QivAccessManagement::POSIX_GROUPS) const {
    LdapConfiguration config;
    config.administrativeState = QivAccessManagement::UNLOCKED;
    config.ldapIpAddress = SlapdInstance::host();
    config.serverPort = static_cast<uint16_t>(directory->plainPort());
    config.baseDn = SlapdInstance::baseDn();
    config.useTls = false;
    config.filterType = filterType;
    config.cipherFilter = kCipherFilter;
    return config;
  }

  // Target-based access control on this node type.
  LdapConfiguration orbelinConfig(const std::string& nodeType) const {
    LdapConfiguration orbelin = config(QivAccessManagement::ORBELIN);
    orbelin.nodeType = nodeType;
    orbelin.targetBasedAccessControl = QivAccessManagement::UNLOCKED;
    return orbelin;
  }

  // TLS in mode on the port that mode uses, trusting caFile.
  LdapConfiguration tlsConfig(QivAccessManagement::TlsMode mode, const std::string& caFile) const {
    LdapConfiguration tls = config();
    tls.useTls = true;
    tls.tlsMode = mode;
    tls.serverPort =
        static_cast<uint16_t>(mode == QivAccessManagement::LDAPS ? directory->ldapsPort() : directory->plainPort());
    tls.tlsCaCertificate = caFile;
    return tls;
  }

  Answer lookUp(const LdapConfiguration& configuration, const std::string& user) {
    Answer answer;
    answer.result = amLdap.authorizationLdap(&configuration, user, answer.roles);
    return answer;
  }

  bool traced(const std::string& text) { return log().count(kTrace, text) != 0; }

  std::unique_ptr<SlapdInstance> directory;
  // A lookup sets its time-outs while its wrapper has no handle.
  LibldapDefaults defaults;
  Ldap::LdapTlsWrapper wrapper;
  AmLdap amLdap;
};

TEST_F(AmLdapDirectoryTest, PosixGroupsGiveTheGroupsThatListTheUser) {
  EXPECT_EQ((Answer{0, "admin,ops"}), lookUp(config(), "alice"));
  EXPECT_EQ((Answer{0, "ops"}), lookUp(config(), "bob"));
  EXPECT_EQ((Answer{0, ""}), lookUp(config(), "erin"));
}

TEST_F(AmLdapDirectoryTest, UnknownUserGetsMinusTwoAndNoRoles) {
  EXPECT_EQ((Answer{-2, ""}), lookUp(config(), "nobody"));
  EXPECT_TRUE(traced("user not found: nobody"));
  // The session left open by that answer does not disturb the next lookup.
  EXPECT_EQ((Answer{0, "admin,ops"}), lookUp(config(), "alice"));
}

TEST_F(AmLdapDirectoryTest, NodeTypeKeepsOnlyTheRolesOfTheUsersTargetTypes) {
  EXPECT_EQ((Answer{0, "admin"}), lookUp(orbelinConfig("X"), "carol"));
  EXPECT_TRUE(traced("Allow Target Type : X"));
  EXPECT_EQ((Answer{0, ""}), lookUp(orbelinConfig("Y"), "carol"));
  // "Y:operator" needs "Y" in her authentication scope too.
  EXPECT_EQ((Answer{0, "admin"}), lookUp(orbelinConfig("X:Y"), "carol"));
}

TEST_F(AmLdapDirectoryTest, WildcardScopeKeepsWildcardRoles) {
  EXPECT_EQ((Answer{0, "plainrole,viewer"}), lookUp(orbelinConfig("X"), "dave"));
}

TEST_F(AmLdapDirectoryTest, WithoutTargetBasedAccessOnlyWildcardPrefixesAreStripped) {
  LdapConfiguration orbelin = orbelinConfig("X");
  orbelin.targetBasedAccessControl = QivAccessManagement::LOCKED;
  EXPECT_EQ((Answer{0, ""}), lookUp(orbelin, "carol"));
  EXPECT_EQ((Answer{0, "plainrole,viewer"}), lookUp(orbelin, "dave"));
}

TEST_F(AmLdapDirectoryTest, AliasesAreResolvedUnderTheirBase) {
  LdapConfiguration orbelin = orbelinConfig("X");
  orbelin.roleAliasesBaseDn = SlapdInstance::roleAliasesBaseDn();
  // Under the first filter version a plain "*" value is a role of its own, and no alias.
  EXPECT_EQ((Answer{0, "*,admin,operator"}), lookUp(orbelin, "frank"));
  orbelin.targetBasedAccessControl = QivAccessManagement::LOCKED;
  EXPECT_EQ((Answer{0, "admin,operator"}), lookUp(orbelin, "frank"));
}

TEST_F(AmLdapDirectoryTest, AliasesAreDiscardedWithoutAnAliasBase) {
  LdapConfiguration orbelin = orbelinConfig("X");
  EXPECT_EQ((Answer{0, "*,admin"}), lookUp(orbelin, "frank"));
  orbelin.targetBasedAccessControl = QivAccessManagement::LOCKED;
  EXPECT_EQ((Answer{0, "admin"}), lookUp(orbelin, "frank"));
}

TEST_F(AmLdapDirectoryTest, FlexibleFilterSelectsTheUserAndTheRoleAttribute) {
  LdapConfiguration flexible = config(QivAccessManagement::FLEXIBLE);
  flexible.filter = "(uid=<UID>)";
  flexible.type = "employeeType";
  EXPECT_EQ((Answer{0, "auditor,netadmin"}), lookUp(flexible, "grace"));
  flexible.filter = "(&(objectClass=posixAccount)(uid=\"\"))";
  EXPECT_EQ((Answer{0, "auditor,netadmin"}), lookUp(flexible, "grace"));
  EXPECT_EQ((Answer{0, ""}), lookUp(flexible, "alice"));
}

TEST_F(AmLdapDirectoryTest, FilterCharactersInANameMatchNoOne) {
  LdapConfiguration flexible = config(QivAccessManagement::FLEXIBLE);
  flexible.filter = "(uid=<UID>)";
  flexible.type = "orbelinUserAuthorizationScope";
  const std::vector<LdapConfiguration> configurations = {config(), orbelinConfig("X"),
                                                         config(QivAccessManagement::ORBELIN), flexible};
  for (const LdapConfiguration& configuration : configurations) {
    for (const std::string name : {"*", "a*)(uid=*"}) {
      EXPECT_EQ((Answer{-2, ""}), lookUp(configuration, name))
          << "filter type " << configuration.filterType << ", name " << name;
    }
  }
}

TEST_F(AmLdapDirectoryTest, PlainLdapsAndStartTlsAnswerTheSame) {
  EXPECT_EQ((Answer{0, "admin,ops"}), lookUp(config(), "alice"));
  EXPECT_TRUE(traced("No TLS"));
  EXPECT_EQ((Answer{0, "admin,ops"}), lookUp(tlsConfig(QivAccessManagement::LDAPS, directory->caFile()), "alice"));
  EXPECT_EQ((Answer{0, "admin,ops"}), lookUp(tlsConfig(QivAccessManagement::STARTTLS, directory->caFile()), "alice"));
  EXPECT_EQ(2u, log().count(kTrace, "Using TLS"));
}

// A directory in the slapd instance's own, which goes with it, holding caFile alone.
std::string trustCategoryWith(const SlapdInstance& directory, const std::string& name, const std::string& caFile) {
  const std::filesystem::path trust = std::filesystem::path(directory.directory()) / name;
  std::filesystem::create_directory(trust);
  std::filesystem::copy_file(caFile, trust / "ca.pem");
  return trust.string();
}

TEST_F(AmLdapDirectoryTest, TrustCategoryDirectoryServesAsCa) {
  LdapConfiguration tls = tlsConfig(QivAccessManagement::LDAPS, "");
  tls.trustCategory.trustCatDirName = trustCategoryWith(*directory, "trusted", directory->caFile());
  EXPECT_EQ((Answer{0, "admin,ops"}), lookUp(tls, "alice"));
  tls.trustCategory.trustCatDirName = trustCategoryWith(*directory, "foreign", directory->otherCaFile());
  EXPECT_EQ((Answer{-1, ""}), lookUp(tls, "alice"));
}

TEST_F(AmLdapDirectoryTest, StartTlsWithACaThatDidNotSignFails) {
  EXPECT_EQ((Answer{-1, ""}), lookUp(tlsConfig(QivAccessManagement::STARTTLS, directory->otherCaFile()), "alice"));
  EXPECT_TRUE(traced("startTls failed"));
}

TEST_F(AmLdapDirectoryTest, LdapsWithACaThatDidNotSignFails) {
  LdapConfiguration tls = tlsConfig(QivAccessManagement::LDAPS, directory->otherCaFile());
  // The handshake comes with the first operation: the liveness check, or the bind before it.
  EXPECT_EQ((Answer{-1, ""}), lookUp(tls, "alice"));
  EXPECT_TRUE(traced("Ping failed"));
  tls.bindDn = kReaderDn;
  tls.bindPassword = kReaderPassword;
  EXPECT_EQ((Answer{-1, ""}), lookUp(tls, "alice"));
  EXPECT_TRUE(traced("Bind failed"));
}

TEST_F(AmLdapDirectoryTest, UnreachablePrimaryFallsBack) {
  LdapConfiguration fallback = config();
  // slapd listens on 127.0.0.1 only: the same port on another loopback address refuses.
  fallback.ldapIpAddress = "127.0.0.2";
  EXPECT_EQ((Answer{-1, ""}), lookUp(fallback, "alice"));
  EXPECT_TRUE(traced("Ping failed"));
  fallback.fallbackLdapIpAddress = SlapdInstance::host();
  EXPECT_EQ((Answer{0, "admin,ops"}), lookUp(fallback, "alice"));
}

TEST_F(AmLdapDirectoryTest, BindWithDnAndPasswordWorksAndThePasswordIsNeverLogged) {
  LdapConfiguration bound = config();
  bound.bindDn = kReaderDn;
  bound.bindPassword = kReaderPassword;
  EXPECT_EQ((Answer{0, "admin,ops"}), lookUp(bound, "alice"));
  LdapConfiguration tls = tlsConfig(QivAccessManagement::STARTTLS, directory->caFile());
  tls.bindDn = kReaderDn;
  tls.bindPassword = kReaderPassword;
  EXPECT_EQ((Answer{0, "admin,ops"}), lookUp(tls, "alice"));
  bound.bindPassword = "wrong-secret";
  EXPECT_EQ((Answer{-1, ""}), lookUp(bound, "alice"));
  EXPECT_TRUE(traced("Bind failed"));

  ASSERT_LT(0u, log().count(kTrace, std::string("Binding using DN: ") + kReaderDn));
  EXPECT_EQ(0u, log().countContaining(kReaderPassword));
  EXPECT_EQ(0u, log().countContaining("wrong-secret"));
}

}  // namespace
