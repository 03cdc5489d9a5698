#include "LdapConfigFileProducer.h"

#include "FrameworkTestBase.h"
#include "NssWrapperGroups.h"

#include <Poco/File.h>
#include <Poco/TemporaryFile.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>

using namespace QivAccessManagement;

namespace {

const char kOamGroupMissing[] = "system-oam group not found";

// The framework file for fullConfiguration() and fullProducer(), around line 30, the
// "override_gid" line, which depends on the group database.
const char kExpectedSecAaBeforeOverrideGid[] = R"([GENERAL]
VERSION = ACS_IFREG-1

[SSSD]
ldap_schema = rfc2307
enumerate = false
cache_credentials = false
ignore_group_members = true

max_id = 4294967294
id_provider = ldap
access_provider = ldap
auth_provider = ldap
chpass_provider = ldap
sudo_provider = none
selinux_provider = none
subdomains_provider = none
autofs_provider = none
hostid_provider = none

ldap_connection_expire_timeout = 60

ldap_access_order = filter
ldap_tls_reqcert = demand
ldap_network_timeout = 5

###########################################
# Configurable SSSD domain parameters     #
###########################################
)";

const char kExpectedSecAaAfterOverrideGid[] = R"(
ldap_uri = ldaps://10.0.0.1:1636, ldaps://[2001:db8::2]:1636

# this is the baseDn used for LDAP queries
ldap_search_base = dc=example,dc=com

# this is the baseDn && bindPassword used for simple bind
# not currently using SASL external bind (bind over TLS)
ldap_default_bind_dn = cn=admin,dc=example,dc=com
ldap_default_authtok = s3cret <!baseDn!>

#ciphers
ldap_tls_cipher_suite = HIGH:!aNULL:@STRENGTH

#Certificate information
ldap_tls_cacertdir = /sec-acs/cert/trusted
ldap_tls_cacert = /sec-acs/cert/ca.pem
ldap_tls_key = /sec-acs/cert/node.key
ldap_tls_cert = /sec-acs/cert/node.pem

# simple authentication required
ldap_auth_disable_tls_never_use_in_production = false
ldap_id_use_start_tls = false

# client referrals
ldap_referrals = true

ldap_access_filter = (&(objectClass=posixAccount)(uidNumber>=1000)(|(orbelinUserAuthenticationScope=A)(orbelinUserAuthenticationScope=B)(orbelinUserAuthenticationScope=\*)))

[UAI_SERVICE_MODULE]
/opt/qiv/lib/modules/libqiv_ldap_sm.so
)";

const char kExpectedLdapSm[] = R"(###########################################
#    LDAP Service Module configuration    #
###########################################
ldap_uri = ldaps://10.0.0.1:1636, ldaps://[2001:db8::2]:1636
ldap_default_bind_dn = cn=admin,dc=example,dc=com
base_dn = dc=example,dc=com
ldap_default_authtok = s3cret <!baseDn!>
filter_type = 2
user_defined_filter_type = person
tls_mode = 1

ldap_tls_cacertdir = /sec-acs/cert/trusted
ldap_tls_cacert = /sec-acs/cert/ca.pem
ldap_tls_key = /sec-acs/cert/node.key
ldap_tls_cert = /sec-acs/cert/node.pem

node_type = A:B
role_aliases_base_dn = ou=roles,dc=example,dc=com
ldap_referrals = true
ldap_tls_cipher_suite = HIGH:!aNULL:@STRENGTH
ldap_access_filter = (objectClass=person)
orb_filt_target_based_access_control = 1
orb_filt_version = 2
)";

// A configuration that gives every keyword of both templates a value.
LdapConfiguration fullConfiguration() {
  LdapConfiguration config;
  config.administrativeState = UNLOCKED;
  config.ldapIpAddress = "10.0.0.1";
  config.fallbackLdapIpAddress = "2001:db8::2";
  config.serverPort = 1636;
  config.useTls = true;
  config.tlsMode = LDAPS;
  config.baseDn = "dc=example,dc=com";
  config.bindDn = "cn=admin,dc=example,dc=com";
  config.bindPassword = "s3cret <!baseDn!>";  // a value that looks like a keyword stays as it is
  config.cipherFilter = "HIGH:!aNULL:@STRENGTH";
  config.useReferrals = true;
  config.filterType = ORBELIN;
  config.targetBasedAccessControl = UNLOCKED;
  config.nodeType = "A:B";
  config.roleAliasesBaseDn = "ou=roles,dc=example,dc=com";
  config.filter = "(objectClass=person)";
  config.type = "person";
  config.orbFiltVersion = 2;
  return config;
}

LdapConfigFileProducer fullProducer() {
  LdapConfigFileProducer producer("/opt/qiv/lib/modules/libqiv_ldap_sm.so");
  producer.setCaCertDir("/sec-acs/cert/trusted");
  producer.setTlsCaCertificate("/sec-acs/cert/ca.pem");
  producer.setTlsKey("/sec-acs/cert/node.key");
  producer.setTlsCertificate("/sec-acs/cert/node.pem");
  return producer;
}

// The text split at line feeds; the last element is what follows the last line feed.
std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  std::string::size_type start = 0;
  for (std::string::size_type end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
    result.push_back(text.substr(start, end - start));
  result.push_back(text.substr(start));
  return result;
}

void expectSameLines(const std::string& expected, const std::string& actual) {
  const std::vector<std::string> expectedLines = lines(expected);
  const std::vector<std::string> actualLines = lines(actual);
  ASSERT_EQ(expectedLines.size(), actualLines.size());
  for (std::size_t i = 0; i < expectedLines.size(); ++i)
    EXPECT_EQ(expectedLines[i], actualLines[i]) << "line " << i + 1;
}

std::size_t lineCount(const std::string& text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

std::string fileText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

mode_t permissions(const std::string& path) {
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return static_cast<mode_t>(-1);
  return status.st_mode & 07777;
}

// Takes text into its buffer but cannot pass it on, like a full disk.
class UnsyncableBuffer : public std::stringbuf {
 protected:
  int sync() override { return -1; }
};

}  // namespace

class LdapConfigFileProducerTest : public FrameworkTestBase {
 protected:
  // templateText expanded for config by producer.
  static std::string expand(LdapConfigFileProducer& producer, const LdapConfiguration& config,
                            const std::string& templateText) {
    std::ostringstream out;
    EXPECT_EQ(0, producer.writeConfig(out, config, templateText));
    return out.str();
  }

  static std::string expand(const LdapConfiguration& config, const std::string& templateText) {
    LdapConfigFileProducer producer;
    return expand(producer, config, templateText);
  }

  static std::string secAaText(const LdapConfiguration& config) {
    std::ostringstream out;
    EXPECT_EQ(0, LdapConfigFileProducer().writeSecAaConfig(out, config));
    return out.str();
  }

  static std::string ldapSmText(const LdapConfiguration& config) {
    std::ostringstream out;
    EXPECT_EQ(0, LdapConfigFileProducer().writeLdapSmConfig(out, config));
    return out.str();
  }

  std::string path(const std::string& name) {
    Poco::File(_directory.path()).createDirectories();
    return _directory.path() + "/" + name;
  }

 private:
  Poco::TemporaryFile _directory;
};

// The "override_gid" line reads the group database: these tests run again where libnss-wrapper
// shows them a database of their own.
class LdapConfigFileProducerGroupTest : public LdapConfigFileProducerTest {
 protected:
  NssWrapperGroups groups;
};

TEST_F(LdapConfigFileProducerGroupTest, SecAaFileOfAFullConfigurationLineByLine) {
  groups.addGroup("system-oam", 4242, "oam");
  if (groups.rerunWithDatabases()) return;
  const std::string file = path("LdapSecAa.cfg");
  const LdapConfiguration config = fullConfiguration();
  LdapConfigFileProducer producer = fullProducer();
  const std::string expected = kExpectedSecAaBeforeOverrideGid + std::string("override_gid = 4242\n") +
                               kExpectedSecAaAfterOverrideGid;
  ASSERT_EQ(61u, lineCount(expected));

  ASSERT_EQ(0, producer.writeSecAaConfig(file, config));

  expectSameLines(expected, fileText(file));
  EXPECT_EQ(0u, log().count(4, kOamGroupMissing));
}

TEST_F(LdapConfigFileProducerTest, LdapSmFileOfAFullConfigurationLineByLine) {
  const std::string file = path("LdapSm.cfg");
  const LdapConfiguration config = fullConfiguration();
  LdapConfigFileProducer producer = fullProducer();
  ASSERT_EQ(23u, lineCount(kExpectedLdapSm));

  ASSERT_EQ(0, producer.writeLdapSmConfig(file, config));

  expectSameLines(kExpectedLdapSm, fileText(file));
  EXPECT_EQ(0u, log().count(4, kOamGroupMissing));
}

TEST_F(LdapConfigFileProducerTest, StreamsGetTheSameTextsAsTheFiles) {
  const LdapConfiguration config = fullConfiguration();
  LdapConfigFileProducer producer = fullProducer();
  const std::string secAaFile = path("LdapSecAa.cfg");
  const std::string ldapSmFile = path("LdapSm.cfg");
  ASSERT_EQ(0, producer.writeSecAaConfig(secAaFile, config));
  ASSERT_EQ(0, producer.writeLdapSmConfig(ldapSmFile, config));
  std::ostringstream secAa;
  std::ostringstream ldapSm;

  EXPECT_EQ(0, producer.writeSecAaConfig(secAa, config));
  EXPECT_EQ(0, producer.writeLdapSmConfig(ldapSm, config));

  EXPECT_EQ(fileText(secAaFile), secAa.str());
  EXPECT_EQ(kExpectedLdapSm, ldapSm.str());
}

TEST_F(LdapConfigFileProducerTest, WrittenFilesAreTruncatedAndGetMode0640) {
  const std::string secAaFile = path("LdapSecAa.cfg");
  const std::string ldapSmFile = path("LdapSm.cfg");
  for (const std::string& file : {secAaFile, ldapSmFile}) {
    std::ofstream(file) << std::string(10000, 'x');
    ASSERT_EQ(0, ::chmod(file.c_str(), 0666));
  }
  LdapConfigFileProducer producer = fullProducer();

  EXPECT_EQ(0, producer.writeSecAaConfig(secAaFile, fullConfiguration()));
  EXPECT_EQ(0, producer.writeLdapSmConfig(ldapSmFile, fullConfiguration()));

  EXPECT_EQ(0640u, permissions(secAaFile));
  EXPECT_EQ(0640u, permissions(ldapSmFile));
  EXPECT_EQ(61u, lineCount(fileText(secAaFile)));
  EXPECT_EQ(kExpectedLdapSm, fileText(ldapSmFile));
}

TEST_F(LdapConfigFileProducerTest, UnopenablePathGivesMinusOneWithoutAMessage) {
  const std::string secAaFile = path("missing/LdapSecAa.cfg");
  const std::string ldapSmFile = path("missing/LdapSm.cfg");
  LdapConfigFileProducer producer = fullProducer();

  EXPECT_EQ(-1, producer.writeSecAaConfig(secAaFile, fullConfiguration()));
  EXPECT_EQ(-1, producer.writeLdapSmConfig(ldapSmFile, fullConfiguration()));

  EXPECT_FALSE(Poco::File(secAaFile).exists());
  EXPECT_FALSE(Poco::File(ldapSmFile).exists());
  EXPECT_EQ(0u, log().countAtLevel(3));
}

TEST_F(LdapConfigFileProducerTest, FailedStreamGivesMinusOne) {
  LdapConfigFileProducer producer = fullProducer();
  std::ostringstream secAa;
  std::ostringstream ldapSm;
  std::ostringstream other;
  secAa.setstate(std::ios::failbit);
  ldapSm.setstate(std::ios::failbit);
  other.setstate(std::ios::badbit);

  EXPECT_EQ(-1, producer.writeSecAaConfig(secAa, fullConfiguration()));
  EXPECT_EQ(-1, producer.writeLdapSmConfig(ldapSm, fullConfiguration()));
  EXPECT_EQ(-1, producer.writeConfig(other, fullConfiguration(), "plain text"));

  EXPECT_EQ("", secAa.str());
  EXPECT_EQ("", ldapSm.str());
  EXPECT_EQ("", other.str());
}

TEST_F(LdapConfigFileProducerTest, WriteThatFailsOnlyWhenFlushedGivesMinusOne) {
  UnsyncableBuffer buffer;
  std::ostream out(&buffer);
  LdapConfigFileProducer producer = fullProducer();

  EXPECT_EQ(-1, producer.writeLdapSmConfig(out, fullConfiguration()));
}

TEST_F(LdapConfigFileProducerTest, KeywordNotInTheTableIsCopiedUnchanged) {
  LdapConfiguration config;
  config.bindDn = "cn=admin";
  const std::string text = "a <!noSuchKeyword!> b <!BindDn!> c <! bindDn !> d <!!> e <!bindDn!>";

  EXPECT_EQ("a <!noSuchKeyword!> b <!BindDn!> c <! bindDn !> d <!!> e cn=admin", expand(config, text));
}

TEST_F(LdapConfigFileProducerTest, OpeningMarkWithoutClosingMarkIsCopiedToTheEnd) {
  LdapConfiguration config;
  config.bindDn = "cn=admin";

  EXPECT_EQ("x=cn=admin y=<!bindDn z=<!baseDn!", expand(config, "x=<!bindDn!> y=<!bindDn z=<!baseDn!"));
  EXPECT_EQ("<!>", expand(config, "<!>"));
  EXPECT_EQ("tail <!", expand(config, "tail <!"));
}

TEST_F(LdapConfigFileProducerTest, ExpandedTextIsNeverScannedAgain) {
  LdapConfiguration config;
  config.bindDn = "<!baseDn!>";
  config.baseDn = "dc=example";
  config.bindPassword = "<!";

  EXPECT_EQ("<!baseDn!> dc=example", expand(config, "<!bindDn!> <!baseDn!>"));
  // An opening mark from a value does not pair with a closing mark from the template.
  EXPECT_EQ("<!baseDn!>", expand(config, "<!bindPassword!>baseDn!>"));
}

TEST_F(LdapConfigFileProducerTest, EveryOccurrenceOfAKeywordIsExpanded) {
  LdapConfiguration config;
  config.baseDn = "dc=example";

  EXPECT_EQ("dc=example/dc=example/dc=example", expand(config, "<!baseDn!>/<!baseDn!>/<!baseDn!>"));
}

TEST_F(LdapConfigFileProducerTest, WithoutTlsTheTlsModeIsEmptyAndTlsIsDisabled) {
  LdapConfiguration config = fullConfiguration();
  config.useTls = false;
  config.tlsMode = LDAPS;

  const std::vector<std::string> ldapSm = lines(ldapSmText(config));
  const std::vector<std::string> secAa = lines(secAaText(config));

  EXPECT_EQ("tls_mode = ", ldapSm[9]);
  EXPECT_EQ("ldap_auth_disable_tls_never_use_in_production = true", secAa[51]);
  EXPECT_EQ("ldap_id_use_start_tls = false", secAa[52]);
}

// A TLS mode on the default port, and the lines it decides in both files.
struct DefaultPortCase {
  TlsMode tlsMode;
  const char* uri;
  const char* ldapSmTlsMode;
  const char* startTls;
};

std::ostream& operator<<(std::ostream& out, const DefaultPortCase& mode) { return out << mode.uri; }

class LdapConfigFileProducerDefaultPortTest : public LdapConfigFileProducerTest,
                                              public ::testing::WithParamInterface<DefaultPortCase> {};

TEST_P(LdapConfigFileProducerDefaultPortTest, TheTlsModeChoosesSchemePortAndTlsLines) {
  LdapConfiguration config;
  config.ldapIpAddress = "10.0.0.1";
  config.useTls = true;
  config.tlsMode = GetParam().tlsMode;
  config.serverPort = 0;

  const std::vector<std::string> ldapSm = lines(ldapSmText(config));
  const std::vector<std::string> secAa = lines(secAaText(config));

  EXPECT_EQ(std::string("ldap_uri = ") + GetParam().uri, ldapSm[3]);
  EXPECT_EQ(std::string("tls_mode = ") + GetParam().ldapSmTlsMode, ldapSm[9]);
  EXPECT_EQ(std::string("ldap_uri = ") + GetParam().uri, secAa[31]);
  EXPECT_EQ("ldap_auth_disable_tls_never_use_in_production = false", secAa[51]);
  EXPECT_EQ(std::string("ldap_id_use_start_tls = ") + GetParam().startTls, secAa[52]);
}

INSTANTIATE_TEST_SUITE_P(StartTlsAndLdaps, LdapConfigFileProducerDefaultPortTest,
                         ::testing::Values(DefaultPortCase{STARTTLS, "ldap://10.0.0.1:389", "0", "true"},
                                           DefaultPortCase{LDAPS, "ldaps://10.0.0.1:636", "1", "false"}));

TEST_F(LdapConfigFileProducerTest, Ipv6PrimaryAndIpv4FallbackOverLdaps) {
  LdapConfiguration config;
  config.ldapIpAddress = "2001:db8::1";
  config.fallbackLdapIpAddress = "10.0.0.2";
  config.useTls = true;
  config.useTlsFallback = true;
  config.tlsMode = LDAPS;

  EXPECT_EQ("ldaps://[2001:db8::1]:636, ldaps://10.0.0.2:636", expand(config, "<!ldapUri!>"));
}

TEST_F(LdapConfigFileProducerTest, FallbackSchemeFollowsUseTlsFallbackOrElseThePrimary) {
  LdapConfiguration config;
  config.ldapIpAddress = "10.0.0.1";
  config.fallbackLdapIpAddress = "10.0.0.2";
  config.tlsMode = LDAPS;

  config.useTls = false;
  config.useTlsFallback = true;
  EXPECT_EQ("ldap://10.0.0.1:389, ldaps://10.0.0.2:636", expand(config, "<!ldapUri!>"));

  config.useTls = true;
  config.useTlsFallback = false;
  EXPECT_EQ("ldaps://10.0.0.1:636, ldaps://10.0.0.2:636", expand(config, "<!ldapUri!>"));

  config.useTls = false;
  EXPECT_EQ("ldap://10.0.0.1:389, ldap://10.0.0.2:389", expand(config, "<!ldapUri!>"));

  config.useTlsFallback = true;
  config.tlsMode = STARTTLS;
  EXPECT_EQ("ldap://10.0.0.1:389, ldap://10.0.0.2:389", expand(config, "<!ldapUri!>"));
}

TEST_F(LdapConfigFileProducerTest, ServerPortIsWrittenForBothServers) {
  LdapConfiguration config;
  config.ldapIpAddress = "ldap.example.com";
  config.fallbackLdapIpAddress = "::1";
  config.serverPort = 10389;

  EXPECT_EQ("ldap://ldap.example.com:10389, ldap://[::1]:10389", expand(config, "<!ldapUri!>"));
}

TEST_F(LdapConfigFileProducerTest, UriListHoldsOnlyTheServersThatAreSet) {
  LdapConfiguration config;
  EXPECT_EQ("", expand(config, "<!ldapUri!>"));

  config.fallbackLdapIpAddress = "10.0.0.2";
  EXPECT_EQ("ldap://10.0.0.2:389", expand(config, "<!ldapUri!>"));
}

TEST_F(LdapConfigFileProducerTest, UriPrefixAndDefaultPort) {
  uint16_t port = 0;
  EXPECT_EQ("ldaps://", LdapConfigFileProducer::getUriPrefixAndPort(port, true));
  EXPECT_EQ(636, port);

  port = 0;
  EXPECT_EQ("ldap://", LdapConfigFileProducer::getUriPrefixAndPort(port, false));
  EXPECT_EQ(389, port);

  port = 1234;
  EXPECT_EQ("ldaps://", LdapConfigFileProducer::getUriPrefixAndPort(port, true));
  EXPECT_EQ(1234, port);
}

TEST_F(LdapConfigFileProducerTest, SsdFilterOfThePosixFilterTypes) {
  LdapConfiguration config;
  config.nodeType = "A:B";
  for (const FilterType filterType : {FILTER_TYPE_NOT_SET, POSIX_GROUPS, FLEXIBLE}) {
    config.filterType = filterType;
    EXPECT_EQ("(&(objectClass=posixAccount)(uidNumber>=1000))", expand(config, "<!ssdFilter!>")) << filterType;
  }
}

TEST_F(LdapConfigFileProducerTest, SsdFilterOfFilterType2WithTargetBasedAccessControlLocked) {
  LdapConfiguration config;
  config.filterType = ORBELIN;
  config.targetBasedAccessControl = LOCKED;
  config.nodeType = "A:B";

  EXPECT_EQ("(&(objectClass=posixAccount)(uidNumber>=1000))", expand(config, "<!ssdFilter!>"));
}

TEST_F(LdapConfigFileProducerTest, SsdFilterOfFilterType2WithNodeTypesAAndB) {
  LdapConfiguration config;
  config.filterType = ORBELIN;
  config.targetBasedAccessControl = UNLOCKED;
  config.nodeType = "A:B";
  const std::string expected =
      R"((&(objectClass=posixAccount)(uidNumber>=1000)(|(orbelinUserAuthenticationScope=A)(orbelinUserAuthenticationScope=B)(orbelinUserAuthenticationScope=\*))))";

  EXPECT_EQ(expected, expand(config, "<!ssdFilter!>"));

  config.nodeType = ":A::B:";  // empty pieces are skipped
  EXPECT_EQ(expected, expand(config, "<!ssdFilter!>"));
}

TEST_F(LdapConfigFileProducerTest, SsdFilterOfFilterType2WithoutNodeTypesIsTheShortWildcardForm) {
  LdapConfiguration config;
  config.filterType = ORBELIN;
  config.targetBasedAccessControl = UNLOCKED;
  const std::string expected = R"((&(objectClass=posixAccount)(uidNumber>=1000)(orbelinUserAuthenticationScope=\*)))";

  config.nodeType = "";
  EXPECT_EQ(expected, expand(config, "<!ssdFilter!>"));

  config.nodeType = "::";
  EXPECT_EQ(expected, expand(config, "<!ssdFilter!>"));
}

TEST_F(LdapConfigFileProducerTest, SsdFilterOfAnUnknownFilterTypeIsEmpty) {
  LdapConfiguration config;
  config.filterType = static_cast<FilterType>(9);

  EXPECT_EQ("[]", expand(config, "[<!ssdFilter!>]"));
}

TEST_F(LdapConfigFileProducerTest, NumbersInDecimalAndReferralsAsWords) {
  const std::string text = "<!filterType!> <!orbFiltVersion!> <!orbFiltTargetBasedAccessControl!> <!useReferrals!>";
  LdapConfiguration config;
  EXPECT_EQ("0 1 1 false", expand(config, text));

  config.filterType = FLEXIBLE;
  config.orbFiltVersion = 4294967295u;
  config.targetBasedAccessControl = LOCKED;
  config.useReferrals = true;
  EXPECT_EQ("3 4294967295 0 true", expand(config, text));
}

TEST_F(LdapConfigFileProducerTest, RecordStringsAsTheyStand) {
  LdapConfiguration config;
  config.bindDn = " cn=a b ";
  config.baseDn = "dc=b";
  config.bindPassword = "p@ss word";
  config.filter = "(f=1)";
  config.type = "t";
  config.nodeType = "x:y";
  config.roleAliasesBaseDn = "ou=r";
  config.cipherFilter = "ALL";

  EXPECT_EQ(" cn=a b |dc=b|p@ss word|(f=1)|t|x:y|ou=r|ALL",
            expand(config, "<!bindDn!>|<!baseDn!>|<!bindPassword!>|<!filter!>|<!type!>|<!nodeType!>|"
                           "<!roleAliasesBaseDn!>|<!cipherFilter!>"));
}

TEST_F(LdapConfigFileProducerTest, CaLinesAreEmptyWithoutValuesWhileKeyAndCertificateKeysStay) {
  const LdapConfiguration config = fullConfiguration();

  const std::vector<std::string> secAa = lines(secAaText(config));
  const std::vector<std::string> ldapSm = lines(ldapSmText(config));

  EXPECT_EQ("", secAa[45]);
  EXPECT_EQ("", secAa[46]);
  EXPECT_EQ("ldap_tls_key = ", secAa[47]);
  EXPECT_EQ("ldap_tls_cert = ", secAa[48]);
  EXPECT_EQ("", ldapSm[11]);
  EXPECT_EQ("", ldapSm[12]);
  EXPECT_EQ("ldap_tls_key = ", ldapSm[13]);
  EXPECT_EQ("ldap_tls_cert = ", ldapSm[14]);
}

TEST_F(LdapConfigFileProducerTest, ServiceModulePathFromConstructionOrSetter) {
  const LdapConfiguration config;
  LdapConfigFileProducer producer("/lib/first.so");
  EXPECT_EQ("/lib/first.so", expand(producer, config, "<!serviceModulePath!>"));

  producer.setServiceModelPath("/lib/second.so");
  EXPECT_EQ("/lib/second.so", expand(producer, config, "<!serviceModulePath!>"));

  EXPECT_EQ("", expand(config, "<!serviceModulePath!>"));
}

TEST_F(LdapConfigFileProducerGroupTest, OverrideGidIsEmptyWithAWarningWithoutTheOamGroup) {
  if (groups.rerunWithDatabases()) return;

  EXPECT_EQ("[]", expand(LdapConfiguration(), "[<!overrideGid!>]"));

  EXPECT_EQ(1u, log().count(4, kOamGroupMissing));
}

TEST_F(LdapConfigFileProducerGroupTest, OverrideGidOfTheOamGroup) {
  groups.addGroup("staff", 50);
  groups.addGroup("system-oam", 4242, "oam");
  if (groups.rerunWithDatabases()) return;

  EXPECT_EQ("[override_gid = 4242]", expand(LdapConfiguration(), "[<!overrideGid!>]"));

  EXPECT_EQ(0u, log().count(4, kOamGroupMissing));
}

TEST_F(LdapConfigFileProducerTest, SetPermissionGivesMode0640) {
  const std::string file = path("plain");
  std::ofstream(file) << "text";
  ASSERT_EQ(0, ::chmod(file.c_str(), 0600));

  EXPECT_EQ(0, LdapConfigFileProducer::setPermission(file));

  EXPECT_EQ(0640u, permissions(file));
}

TEST_F(LdapConfigFileProducerTest, SetPermissionFailureIsLoggedAndGivesMinusOne) {
  const std::string missing = path("missing");

  EXPECT_EQ(-1, LdapConfigFileProducer::setPermission(missing));

  EXPECT_EQ(1u, log().count(3, "Failed to set file permissions for: " + missing + " (2)"));
}
