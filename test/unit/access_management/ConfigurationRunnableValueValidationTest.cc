#include "ConfigurationRunnable.h"

#include "FrameworkTestBase.h"
#include "RecordedOperatorMessages.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

using namespace QivAccessManagement;

namespace {

const char PASSWORD[] = "S3cret-bind";

// One text field of the record that reaches a qivea command line or a security-framework file.
struct TextField {
  const char* id;    // for the test's name
  const char* name;  // as the texts name it
  std::string& (*of)(LdapConfiguration&);
};

const TextField TEXT_FIELDS[] = {
    {"bindDn", "bindDn", [](LdapConfiguration& c) -> std::string& { return c.bindDn; }},
    {"ldapIpAddress", "ldapIpAddress", [](LdapConfiguration& c) -> std::string& { return c.ldapIpAddress; }},
    {"baseDn", "baseDn", [](LdapConfiguration& c) -> std::string& { return c.baseDn; }},
    {"fallbackLdapIpAddress", "fallbackLdapIpAddress",
     [](LdapConfiguration& c) -> std::string& { return c.fallbackLdapIpAddress; }},
    {"nodeCertFileName", "nodeCredential certificate file",
     [](LdapConfiguration& c) -> std::string& { return c.nodeCredential.nodeCertFileName; }},
    {"nodeKeyFileName", "nodeCredential key file",
     [](LdapConfiguration& c) -> std::string& { return c.nodeCredential.nodeKeyFileName; }},
    {"trustCatDirName", "trustCategory directory",
     [](LdapConfiguration& c) -> std::string& { return c.trustCategory.trustCatDirName; }},
    {"tlsCaCertificate", "tlsCaCertificate", [](LdapConfiguration& c) -> std::string& { return c.tlsCaCertificate; }},
    {"tlsClientCertificate", "tlsClientCertificate",
     [](LdapConfiguration& c) -> std::string& { return c.tlsClientCertificate; }},
    {"tlsClientKey", "tlsClientKey", [](LdapConfiguration& c) -> std::string& { return c.tlsClientKey; }},
    {"nodeType", "nodeType", [](LdapConfiguration& c) -> std::string& { return c.nodeType; }},
    {"roleAliasesBaseDn", "roleAliasesBaseDn", [](LdapConfiguration& c) -> std::string& { return c.roleAliasesBaseDn; }},
    {"bindPassword", "bindPassword", [](LdapConfiguration& c) -> std::string& { return c.bindPassword; }},
    {"filter", "filter", [](LdapConfiguration& c) -> std::string& { return c.filter; }},
    {"type", "type", [](LdapConfiguration& c) -> std::string& { return c.type; }},
};

struct ControlCharacter {
  const char* id;
  char value;
};

const ControlCharacter CONTROL_CHARACTERS[] = {{"LF", '\n'},      {"CR", '\r'},         {"NUL", '\0'},
                                               {"SOH", '\x01'},   {"US", '\x1f'},       {"DEL", '\x7f'}};

const TextField ADDRESS_FIELDS[] = {TEXT_FIELDS[1], TEXT_FIELDS[3]};

std::string controlText(const std::string& name) {
  return "Validation failed - " + name + " must not contain a control character";
}

std::string addressText(const std::string& name, const std::string& value) {
  return "Validation failed - " + name + " must be a host name or an IP address, not \"" + value + "\"";
}

}  // namespace

class ConfigurationRunnableValueValidationTest : public FrameworkTestBase {
 protected:
  ConfigurationRunnableValueValidationTest() {
    runnable.setOperatorMessages(&operatorChannel);
    runnable.setUseTlsSet(true);
    runnable.setBaseDnSet(true);
  }

  // Every text field set, and valid by every rule.
  static LdapConfiguration everyTextSet() {
    LdapConfiguration config;
    config.administrativeState = UNLOCKED;
    config.ldapIpAddress = "10.0.0.1";
    config.fallbackLdapIpAddress = "2001:db8::7";
    config.baseDn = "dc=example,dc=com";
    config.bindDn = "cn=reader,dc=example,dc=com";
    config.bindPassword = PASSWORD;
    config.nodeCredential.nodeCertFileName = "/node/cert.pem";
    config.nodeCredential.nodeKeyFileName = "/node/key.pem";
    config.trustCategory.trustCatDirName = "/node/trusted";
    config.tlsCaCertificate = "/certs/ca.pem";
    config.tlsClientCertificate = "/certs/client.pem";
    config.tlsClientKey = "/certs/client.key";
    config.nodeType = "bsc:rnc";
    config.roleAliasesBaseDn = "ou=aliases,dc=example,dc=com";
    config.filterType = FLEXIBLE;
    config.filter = "(uid=<UID>)";
    config.type = "cn";
    return config;
  }

  RecordedOperatorMessages operatorChannel;
  ConfigurationRunnable runnable;
};

TEST_F(ConfigurationRunnableValueValidationTest, RecordWithEveryTextFieldSetIsValid) {
  LdapConfiguration config = everyTextSet();
  EXPECT_EQ(0, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(0u, log().countAtLevel(4));
  EXPECT_TRUE(operatorChannel.texts.empty());
}

class ControlCharacterTest : public ConfigurationRunnableValueValidationTest,
                             public ::testing::WithParamInterface<std::tuple<TextField, ControlCharacter>> {};

TEST_P(ControlCharacterTest, ValueHoldingItIsRefusedByNameWithoutTheValue) {
  const TextField& field = std::get<0>(GetParam());
  const char character = std::get<1>(GetParam()).value;
  LdapConfiguration config = everyTextSet();
  // The character inside and at the end: a std::string may hold NUL anywhere.
  std::string& value = field.of(config);
  value = value.substr(0, 2) + character + value.substr(2) + character;
  const std::string text = controlText(field.name);

  EXPECT_EQ(-9, runnable.validateConfiguration(&config, false));
  EXPECT_EQ(1u, log().count(4, text));
  // Only this text: an address holding one is not also reported, with its value, as no address.
  EXPECT_EQ(1u, log().countAtLevel(4));
  EXPECT_TRUE(operatorChannel.texts.empty());

  EXPECT_EQ(-9, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(std::vector<std::string>{text}, operatorChannel.texts);
  // Neither the value (the password's tail stands unbroken in it) nor the character is logged.
  EXPECT_EQ(0u, log().countContaining(value.substr(3, 8)));
  EXPECT_EQ(0u, log().countContaining(std::string(1, character)));
}

INSTANTIATE_TEST_SUITE_P(EveryTextFieldAndCharacter, ControlCharacterTest,
                         ::testing::Combine(::testing::ValuesIn(TEXT_FIELDS), ::testing::ValuesIn(CONTROL_CHARACTERS)),
                         [](const ::testing::TestParamInfo<ControlCharacterTest::ParamType>& info) {
                           return std::string(std::get<0>(info.param).id) + "_" + std::get<1>(info.param).id;
                         });

TEST_F(ConfigurationRunnableValueValidationTest, EveryFieldHoldingAControlCharacterIsReportedInRecordOrder) {
  LdapConfiguration config = everyTextSet();
  config.type += '\n';
  config.baseDn += "\nldap_tls_cacert = /tmp/attacker-ca.pem";
  config.bindPassword += '\r';
  EXPECT_EQ(-9, runnable.validateConfiguration(&config, true));
  EXPECT_EQ((std::vector<std::string>{controlText("baseDn"), controlText("bindPassword"), controlText("type")}),
            operatorChannel.texts);
  EXPECT_EQ(0u, log().countContaining("attacker"));
}

TEST_F(ConfigurationRunnableValueValidationTest, LockedConfigurationIsCheckedToo) {
  LdapConfiguration config;
  config.roleAliasesBaseDn = "ou=aliases\ntls_reqcert = never";
  EXPECT_EQ(-9, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(std::vector<std::string>{controlText("roleAliasesBaseDn")}, operatorChannel.texts);
}

TEST_F(ConfigurationRunnableValueValidationTest, TabIsRefusedButUtf8LettersAreNot) {
  LdapConfiguration config = everyTextSet();
  config.filter = "(cn=M\xc3\xbcller ~ <UID>)";
  EXPECT_EQ(0, runnable.validateConfiguration(&config, false));
  config.filter = "(cn=<UID>)\t";
  EXPECT_EQ(-9, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(std::vector<std::string>{controlText("filter")}, operatorChannel.texts);
}

class AddressFormTest : public ConfigurationRunnableValueValidationTest,
                        public ::testing::WithParamInterface<std::tuple<TextField, const char*>> {};

TEST_P(AddressFormTest, UriSchemeListOrBlankIsRefusedWithTheValue) {
  const TextField& field = std::get<0>(GetParam());
  const std::string value = std::get<1>(GetParam());
  LdapConfiguration config = everyTextSet();
  field.of(config) = value;
  const std::string text = addressText(field.name, value);

  EXPECT_EQ(-9, runnable.validateConfiguration(&config, false));
  EXPECT_EQ(1u, log().count(4, text));
  EXPECT_EQ(1u, log().countAtLevel(4));
  EXPECT_TRUE(operatorChannel.texts.empty());

  EXPECT_EQ(-9, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(std::vector<std::string>{text}, operatorChannel.texts);
}

INSTANTIATE_TEST_SUITE_P(BothAddresses, AddressFormTest,
                         ::testing::Combine(::testing::ValuesIn(ADDRESS_FIELDS),
                                            ::testing::Values("ldap://h", "ldaps://h", "h1,h2", "h 1", "ldap:h",
                                                              "LDAPS:h", "h:389/x://y")),
                         [](const ::testing::TestParamInfo<AddressFormTest::ParamType>& info) {
                           return std::string(std::get<0>(info.param).id) + "_" + std::to_string(info.index % 7);
                         });

class ValidAddressTest : public ConfigurationRunnableValueValidationTest,
                         public ::testing::WithParamInterface<std::tuple<TextField, const char*>> {};

TEST_P(ValidAddressTest, HostNameOrIpAddressPasses) {
  LdapConfiguration config = everyTextSet();
  std::get<0>(GetParam()).of(config) = std::get<1>(GetParam());
  EXPECT_EQ(0, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(0u, log().countAtLevel(4));
  EXPECT_TRUE(operatorChannel.texts.empty());
}

// A bracketed IPv6 address stays valid: every back end passes it on as it stands, which is the
// form a URI needs.
INSTANTIATE_TEST_SUITE_P(BothAddresses, ValidAddressTest,
                         ::testing::Combine(::testing::ValuesIn(ADDRESS_FIELDS),
                                            ::testing::Values("ldap.example.com", "ldaps-1.example.com", "ldapserver",
                                                              "192.0.2.10", "2001:db8::7", "::1", "[2001:db8::1]")),
                         [](const ::testing::TestParamInfo<ValidAddressTest::ParamType>& info) {
                           return std::string(std::get<0>(info.param).id) + "_" + std::to_string(info.index % 7);
                         });

TEST_F(ConfigurationRunnableValueValidationTest, EmptyFallbackAddressIsNotChecked) {
  LdapConfiguration config = everyTextSet();
  config.fallbackLdapIpAddress.clear();
  EXPECT_EQ(0, runnable.validateConfiguration(&config, true));
  EXPECT_TRUE(operatorChannel.texts.empty());
}

TEST_F(ConfigurationRunnableValueValidationTest, AddressRuleComesAfterTheOtherRulesAndBothAddressesAreReported) {
  LdapConfiguration config = everyTextSet();
  config.ldapIpAddress = "ldap://dir.example";
  config.fallbackLdapIpAddress = "10.0.0.8 10.0.0.9";
  config.bindDn.clear();
  EXPECT_EQ(-9, runnable.validateConfiguration(&config, true));
  EXPECT_EQ((std::vector<std::string>{"Validation failed - if bindPassword is set bindDn must also be set",
                                      addressText("ldapIpAddress", "ldap://dir.example"),
                                      addressText("fallbackLdapIpAddress", "10.0.0.8 10.0.0.9")}),
            operatorChannel.texts);
}
