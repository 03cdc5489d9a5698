#include "ConfigurationRunnable.h"

#include "FrameworkTestBase.h"
#include "RecordedOperatorMessages.h"

#include <gtest/gtest.h>

using namespace QivAccessManagement;

namespace {

const char MANDATORY_LOG[] =
    "Validation failed - Mandatory Attributes ldapIpAddress, useTls and baseDn must be set to configure LDAP";
const char MANDATORY_OPERATOR[] = "Validation failed - Mandatory Attributes ldapIpAddress, useTls and baseDn must be set";
const char BIND_TEXT[] = "Validation failed - if bindPassword is set bindDn must also be set";
const char FILTER_TEXT[] = "Validation failed - both filter and type attributes should be set if filterType=FLEXIBLE";
const char TLS_CLIENT_TEXT[] =
    "Validation failed - either both tls-client-certificate and tls-client-key should be set or none";
const char TARGET_TEXT[] = "Validation failed - if targetBasedAccessControl is set to UNLOCKED targetType must be set";
const char LDAPS_WARNING[] = "TlsMode is set to LDAPS but UseTls is disabled, TLS will not be used";

}  // namespace

class ConfigurationRunnableValidationTest : public FrameworkTestBase {
 protected:
  ConfigurationRunnableValidationTest() { runnable.setOperatorMessages(&operatorChannel); }

  // A configuration that passes every rule.
  static LdapConfiguration validUnlocked() {
    LdapConfiguration config;
    config.administrativeState = UNLOCKED;
    config.ldapIpAddress = "10.0.0.1";
    config.baseDn = "dc=example,dc=com";
    return config;
  }

  void markMandatorySet() {
    runnable.setUseTlsSet(true);
    runnable.setBaseDnSet(true);
  }

  RecordedOperatorMessages operatorChannel;
  ConfigurationRunnable runnable;
};

TEST_F(ConfigurationRunnableValidationTest, LockedConfigurationWithEveryAttributeEmptyIsValid) {
  LdapConfiguration config;
  EXPECT_EQ(0, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(1u, log().count(8, "Validation : administrativeState is LOCKED, LDAP is not used."));
  EXPECT_TRUE(operatorChannel.texts.empty());
  EXPECT_EQ(0u, log().countAtLevel(4));
}

TEST_F(ConfigurationRunnableValidationTest, EveryViolatedRuleIsReportedInRuleOrder) {
  LdapConfiguration config;
  config.administrativeState = UNLOCKED;
  config.bindPassword = "S3cret!";
  markMandatorySet();

  EXPECT_EQ(-9, runnable.validateConfiguration(&config, false));
  EXPECT_EQ(1u, log().count(4, MANDATORY_LOG));
  EXPECT_EQ(1u, log().count(4, BIND_TEXT));
  EXPECT_TRUE(operatorChannel.texts.empty());

  EXPECT_EQ(-9, runnable.validateConfiguration(&config, true));
  EXPECT_EQ((std::vector<std::string>{MANDATORY_OPERATOR, BIND_TEXT}),
            operatorChannel.texts);
}

TEST_F(ConfigurationRunnableValidationTest, MandatoryRuleTracesLengthsAndNeedsBothSetMarks) {
  LdapConfiguration config = validUnlocked();
  EXPECT_EQ(-9, runnable.validateConfiguration(&config, false));
  EXPECT_EQ(1u, log().count(8, "Validation: ldapIpAddress (length: 8),  useTls (length: 0), baseDn (length: 17)"));

  runnable.setUseTlsSet(true);
  EXPECT_EQ(-9, runnable.verifyMandatoryLdapAttributes(&config, false));
  runnable.setBaseDnSet(true);
  EXPECT_EQ(0, runnable.verifyMandatoryLdapAttributes(&config, false));

  // A set but empty baseDn passes: only its presence is required.
  config.baseDn.clear();
  EXPECT_EQ(0, runnable.verifyMandatoryLdapAttributes(&config, false));
  config.ldapIpAddress.clear();
  EXPECT_EQ(-9, runnable.verifyMandatoryLdapAttributes(&config, false));
}

TEST_F(ConfigurationRunnableValidationTest, ServerPortIsCheckedOnlyWhenSet) {
  markMandatorySet();
  LdapConfiguration config = validUnlocked();
  config.serverPort = 65535;
  EXPECT_EQ(0, runnable.validateConfiguration(&config, true));
  config.serverPort = 0;
  EXPECT_EQ(0, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(0u, log().countContaining("serverPort"));
  EXPECT_TRUE(operatorChannel.texts.empty());
}

TEST_F(ConfigurationRunnableValidationTest, FlexibleFilterNeedsFilterAndType) {
  markMandatorySet();
  LdapConfiguration config = validUnlocked();
  config.filterType = FLEXIBLE;
  config.filter = "(uid=<UID>)";
  EXPECT_EQ(-9, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(1u, log().count(4, FILTER_TEXT));
  EXPECT_EQ(std::vector<std::string>{FILTER_TEXT}, operatorChannel.texts);

  config.type = "cn";
  EXPECT_EQ(0, runnable.verifyFilterAttributes(&config, false));
  config.filterType = ORBELIN;
  config.filter.clear();
  EXPECT_EQ(0, runnable.verifyFilterAttributes(&config, false));
}

TEST_F(ConfigurationRunnableValidationTest, ClientCertificateAndKeyComeTogether) {
  markMandatorySet();
  LdapConfiguration config = validUnlocked();
  config.tlsClientCertificate = "/certs/client.pem";
  EXPECT_EQ(-9, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(1u, log().count(4, TLS_CLIENT_TEXT));
  EXPECT_EQ(std::vector<std::string>{TLS_CLIENT_TEXT}, operatorChannel.texts);
  config.tlsClientKey = "/certs/client.key";
  EXPECT_EQ(0, runnable.verifyTlsClientAttributes(&config, false));
  config.tlsClientCertificate.clear();
  EXPECT_EQ(-9, runnable.verifyTlsClientAttributes(&config, false));
}

TEST_F(ConfigurationRunnableValidationTest, TargetBasedAccessControlRuleAppliesOnlyWithLdap20Attributes) {
  markMandatorySet();
  LdapConfiguration config = validUnlocked();
  ASSERT_EQ(UNLOCKED, config.targetBasedAccessControl);
  EXPECT_EQ(0, runnable.validateConfiguration(&config, true));

  runnable.setLdap20AttributesExist(true);
  EXPECT_EQ(-9, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(1u, log().count(4, TARGET_TEXT));
  EXPECT_EQ(std::vector<std::string>{TARGET_TEXT}, operatorChannel.texts);

  config.nodeType = "X";
  EXPECT_EQ(0, runnable.validateConfiguration(&config, false));
  config.nodeType.clear();
  config.targetBasedAccessControl = LOCKED;
  EXPECT_EQ(0, runnable.validateConfiguration(&config, false));
}

TEST_F(ConfigurationRunnableValidationTest, LdapsWithoutTlsOnlyWarns) {
  markMandatorySet();
  LdapConfiguration config = validUnlocked();
  config.tlsMode = LDAPS;
  EXPECT_EQ(0, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(1u, log().count(4, LDAPS_WARNING));
  EXPECT_TRUE(operatorChannel.texts.empty());
  config.useTls = true;
  EXPECT_EQ(0, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(1u, log().count(4, LDAPS_WARNING));
}

TEST_F(ConfigurationRunnableValidationTest, ValidationNeverChangesTheRecord) {
  LdapConfiguration config;
  config.administrativeState = UNLOCKED;
  config.bindPassword = "pw";
  config.serverPort = 389;
  const LdapConfiguration before = config;
  runnable.validateConfiguration(&config, true);
  EXPECT_EQ(before.bindPassword, config.bindPassword);
  EXPECT_EQ(before.serverPort, config.serverPort);
  EXPECT_EQ(before.administrativeState, config.administrativeState);
}

TEST_F(ConfigurationRunnableValidationTest, BindPasswordIsNeverLoggedOnlyItsLength) {
  const std::string password = "Pa55-w0rd-never-logged";
  LdapConfiguration config;
  config.administrativeState = UNLOCKED;
  config.bindPassword = password;
  runnable.validateConfiguration(&config, true);
  config.bindDn = "cn=admin,dc=example,dc=com";
  runnable.validateConfiguration(&config, true);
  EXPECT_EQ(2u, log().count(8, "Validation: bindDn (length: 0),  bindPassword (length: 22)") +
                    log().count(8, "Validation: bindDn (length: 26),  bindPassword (length: 22)"));
  EXPECT_EQ(0u, log().countContaining(password));
  for (const std::string& message : operatorChannel.texts) EXPECT_EQ(std::string::npos, message.find(password));
}

TEST_F(ConfigurationRunnableValidationTest, ValidateAttributeChecksLengthsThenPattern) {
  EXPECT_EQ(-9, runnable.validateAttribute("serverPort", 1, 6, "(^[0-9]+$|SERVER_PORT_NOT_SET + $)", "1234567", true));
  EXPECT_EQ(1u, log().count(4, "Validation failed - string too long: serverPort=\"1234567\""));
  EXPECT_EQ(std::vector<std::string>{"Validation failed - string too long: serverPort=\"1234567\""},
            operatorChannel.texts);

  // Equal limits: no upper check.
  EXPECT_EQ(0, runnable.validateAttribute("code", 6, 6, "^[0-9]+$", "12345678", true));
  EXPECT_EQ(-9, runnable.validateAttribute("code", 6, 6, "^[0-9]+$", "12345", false));
  EXPECT_EQ(1u, log().count(4, "Validation failed - string too short: code=\"12345\""));

  EXPECT_EQ(-9, runnable.validateAttribute("serverPort", 1, 6, "(^[0-9]+$|SERVER_PORT_NOT_SET + $)", "12a", false));
  EXPECT_EQ(1u, log().count(4, "Validation failed - unmatched string attribute: serverPort=\"12a\""));
  EXPECT_EQ(0, runnable.validateAttribute("serverPort", 1, 6, "(^[0-9]+$|SERVER_PORT_NOT_SET + $)", "65535", false));
}

TEST_F(ConfigurationRunnableValidationTest, ValidateAttributeWithUnusablePatternGivesMinusOneWithoutOperatorText) {
  EXPECT_EQ(-1, runnable.validateAttribute("name", 0, 0, "(", "value", true));
  EXPECT_EQ(1u, log().count(4, "Invalid string attribute regular expression name =~ \"(\""));
  EXPECT_TRUE(operatorChannel.texts.empty());

  EXPECT_EQ(0, runnable.validateAttribute("name", 0, 0, "", "anything", true));
  EXPECT_EQ(1u, log().count(4, "Restriction pattern empty! Validating: name"));
}

TEST_F(ConfigurationRunnableValidationTest, OperatorMessageWithoutTheComponentsChannelIsOnlyLogged) {
  ConfigurationRunnable bare;
  bare.addMessage("text for the operator");
  EXPECT_EQ(1u, log().count(4,
                            "PymMgmtSpiThreadContext interface missing; failed to add failure message: \"text for the "
                            "operator\""));
  EXPECT_TRUE(operatorMessages().empty());
}

TEST_F(ConfigurationRunnableValidationTest, RefusedOperatorMessageIsLeftToTheChannel) {
  operatorChannel.result = -1;
  markMandatorySet();
  LdapConfiguration config = validUnlocked();
  config.bindDn.clear();
  config.bindPassword = "secret";
  EXPECT_EQ(-9, runnable.validateConfiguration(&config, true));
  EXPECT_EQ(std::vector<std::string>{BIND_TEXT}, operatorChannel.texts);
  // The channel logs its own refusal; the thread adds no second line.
  EXPECT_EQ(0u, log().count(4, "Failed (-1) to add message!"));
}
