#include "ConfigurationRunnable.h"

#include "FrameworkTestBase.h"

#include <PymMwSpiCrypto.h>

#include <gtest/gtest.h>

#include <malloc.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

using namespace QivAccessManagement;

namespace {

const std::string AUTH_METHOD_CLASS = "ManagedElement,SystemFunctions,SecM,UserManagement,LdapAuthenticationMethod";
const std::string USER_MANAGEMENT_DN = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1";
const std::string AUTH_METHOD_DN = USER_MANAGEMENT_DN + ",LdapAuthenticationMethod=1";
const std::string LDAP_DN = AUTH_METHOD_DN + ",Ldap=1";
const std::string FILTER_DN = LDAP_DN + ",Filter=1";
const std::string ORBELIN_FILTER_DN = LDAP_DN + ",OrbelinFilter=1";
const std::string TLS_DN = "ManagedElement=1,SystemFunctions=1,SecM=1,Tls=1";
const std::string NODE_CREDENTIAL_DN = "ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,NodeCredential=1";
const std::string TRUST_CATEGORY_DN = "ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,TrustCategory=1";
const std::string DEFAULT_CIPHER_FILTER = "ALL:!aNULL:!eNULL:@STRENGTH";
const char FILE_PARSE_ERROR[] = "Failed to parse the AccessManagementComponent configuration file.";
const char MIGRATION_ERROR[] = "Failed to update new Ldap 2.0 attribute values";
const char NO_CRYPTO_ERROR[] = "No crypto service available to decrypt the bind password";
const char USE_TLS_DEFINITION[] = "<attribute name=\"useTls\" type=\"bool\"/>";
const char TARGET_TYPE_DEFINITION[] = "<attribute name=\"targetType\" type=\"string\" sequence=\"true\"/>";

std::string componentFile(const std::string& port, const std::string& tlsMode) {
  return "<configuration><QivAccessManagementComponent><ldapServerPort>" + port + "</ldapServerPort><ldapTlsMode>" +
         tlsMode + "</ldapTlsMode></QivAccessManagementComponent></configuration>";
}

std::string mandatoryNotFound(const std::string& dn, const std::string& attribute) {
  return "Mandatory attribute '" + dn + "," + attribute + "' not found!";
}

std::string optionalNotFound(const std::string& dn, const std::string& attribute) {
  return "Attribute '" + dn + "," + attribute + "' not found!";
}

// text with its one occurrence of from replaced by to.
std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(std::string::npos, at) << "not in the model: " << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

// A crypto service whose decrypt hands back a large malloc'ed buffer with the chosen result.
const std::size_t FAKE_BUFFER_SIZE = 8 << 20;
PymReturnT fakeDecryptResult = PymOk;

PymReturnT fakeEncrypt(const char*, char** result) {
  *result = nullptr;
  return PymFailure;
}

PymReturnT fakeDecrypt(const char*, char** result) {
  *result = static_cast<char*>(std::malloc(FAKE_BUFFER_SIZE));
  std::memset(*result, 'x', FAKE_BUFFER_SIZE - 1);
  (*result)[FAKE_BUFFER_SIZE - 1] = '\0';
  return fakeDecryptResult;
}

PymMwSpiCrypto_1 fakeCrypto = {{"FakeCryptoService", "PymMwSpiCrypto", "1"}, fakeEncrypt, fakeDecrypt};

// Bytes the C heap has handed out and not yet got back.
std::size_t heapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

}  // namespace

// The runnable with the framework's thread context and crypto service, on a fixture model.
class RunnableOnModel : public FrameworkTestBase {
 protected:
  explicit RunnableOnModel(const std::string& model) : FrameworkTestBase(model) {
    runnable.addExternalInterface(threadContextInterface());
    runnable.addExternalInterface(cryptoInterface());
  }

  // The framework's crypto table, as a component finds it.
  PymMgmtSpiInterface_1* cryptoInterface() {
    PymMgmtSpiInterface_1* result = nullptr;
    PymMgmtSpiInterfacePortal_3* portal =
        static_cast<PymMgmtSpiInterfacePortal_3*>(framework().accessor()->getPortal("3"));
    portal->getInterface("PymMwSpiCryptoService", "PymMwSpiCrypto", "1", &result);
    return result;
  }

  void readComponentFile(const std::string& port, const std::string& tlsMode) {
    ASSERT_EQ(0, runnable.readComponentConfiguration(componentFile(port, tlsMode).c_str()));
  }

  void set(const std::string& dn, const std::string& attribute, const std::vector<std::string>& values) {
    framework().model().setStringValues(dn, attribute, values);
  }

  void setBindPassword(const std::string& encrypted) {
    framework().model().setStructValue(LDAP_DN, "bindPassword", {{"password", {encrypted}}});
  }

  // What the model holds committed (enumerations by literal name).
  std::vector<std::string> committed(const std::string& dn, const std::string& attribute) {
    return framework().model().stringValues(dn, attribute);
  }

  // Loads the model's own text with one piece of it replaced.
  void reloadModelWith(const std::string& from, const std::string& to) {
    framework().model().loadText(replaced(framework().model().toXml(), from, to));
  }

  std::size_t countStartingWith(int level, const std::string& prefix) {
    std::size_t count = 0;
    for (const Framework::LogRecord& record : log().records()) {
      if (record.level == level && record.text.compare(0, prefix.size(), prefix) == 0) ++count;
    }
    return count;
  }

  LdapConfiguration record() { return runnable.getLdapConfiguration(); }

  // The mandatory rule fails for an unlocked configuration with an address only when a set-mark
  // is missing.
  bool mandatoryMarksSet() {
    LdapConfiguration config = record();
    config.administrativeState = UNLOCKED;
    config.ldapIpAddress = "10.0.0.1";
    return runnable.verifyMandatoryLdapAttributes(&config, false) == 0;
  }

  ConfigurationRunnable runnable;
};

class ConfigurationRunnableModelTest : public RunnableOnModel {
 protected:
  ConfigurationRunnableModelTest() : RunnableOnModel("ldap20.xml") {}
};

class ConfigurationRunnableModelPre20Test : public RunnableOnModel {
 protected:
  ConfigurationRunnableModelPre20Test() : RunnableOnModel("pre20.xml") {}
};

class ConfigurationRunnableModelNoAuthMethodTest : public RunnableOnModel {
 protected:
  ConfigurationRunnableModelNoAuthMethodTest() : RunnableOnModel("no-ldap-auth-method.xml") {}
};

class ConfigurationRunnableModelMigrationTest : public RunnableOnModel {
 protected:
  ConfigurationRunnableModelMigrationTest() : RunnableOnModel("ldap20-unmigrated.xml") {}
};

class ConfigurationRunnableModelTlsTest : public RunnableOnModel {
 protected:
  ConfigurationRunnableModelTlsTest() : RunnableOnModel("tls.xml") {}
};

class ConfigurationRunnableModelTlsNoCipherFilterTest : public RunnableOnModel {
 protected:
  ConfigurationRunnableModelTlsNoCipherFilterTest() : RunnableOnModel("tls-no-cipher-filter.xml") {}
};

TEST_F(ConfigurationRunnableModelTest, FullReadFillsEveryRecordField) {
  readComponentFile("1389", "STARTTLS");
  set(AUTH_METHOD_DN, "administrativeState", {"UNLOCKED"});
  set(LDAP_DN, "bindDn", {"cn=reader,dc=example,dc=com"});
  setBindPassword(framework().crypto().encrypt("Open-Sesame-42"));
  set(LDAP_DN, "ldapIpAddress", {"10.1.2.3"});
  set(LDAP_DN, "useTls", {"true"});
  set(LDAP_DN, "baseDn", {"dc=node,dc=example"});
  set(LDAP_DN, "fallbackLdapIpAddress", {"10.1.2.4"});
  set(LDAP_DN, "useTlsFallback", {"true"});
  set(LDAP_DN, "tlsCaCertificate", {"ca.pem"});
  set(LDAP_DN, "tlsClientCertificate", {"client.pem"});
  set(LDAP_DN, "tlsClientKey", {"client.key"});
  set(LDAP_DN, "nodeType", {"bsc", "msc"});
  set(LDAP_DN, "roleAliasesBaseDn", {"ou=aliases,dc=example"});
  set(LDAP_DN, "profileFilter", {"FLEXIBLE"});
  set(LDAP_DN, "filterType", {"FLEXIBLE"});
  set(LDAP_DN, "tlsMode", {"LDAPS"});
  set(LDAP_DN, "serverPort", {"636"});
  set(LDAP_DN, "useReferrals", {"true"});
  set(FILTER_DN, "filter", {"(uid=%u)"});
  set(FILTER_DN, "type", {"posix"});
  set(ORBELIN_FILTER_DN, "targetBasedAccessControl", {"LOCKED"});
  set(ORBELIN_FILTER_DN, "version", {"V2"});
  EXPECT_EQ(ConfigurationRunnable::STATE_CREATED, runnable.getState());

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  EXPECT_EQ(ConfigurationRunnable::STATE_READING, runnable.getState());
  const LdapConfiguration config = record();
  EXPECT_EQ(UNLOCKED, config.administrativeState);
  EXPECT_EQ("cn=reader,dc=example,dc=com", config.bindDn);
  EXPECT_EQ("10.1.2.3", config.ldapIpAddress);
  EXPECT_TRUE(config.useTls);
  EXPECT_EQ("dc=node,dc=example", config.baseDn);
  EXPECT_EQ("10.1.2.4", config.fallbackLdapIpAddress);
  EXPECT_TRUE(config.useTlsFallback);
  // Certificate files come from the security API later, never from the model.
  EXPECT_EQ("", config.nodeCredential.nodeCertFileName);
  EXPECT_EQ("", config.nodeCredential.nodeKeyFileName);
  EXPECT_EQ("", config.trustCategory.trustCatDirName);
  EXPECT_EQ("ca.pem", config.tlsCaCertificate);
  EXPECT_EQ("client.pem", config.tlsClientCertificate);
  EXPECT_EQ("client.key", config.tlsClientKey);
  EXPECT_EQ("bsc:msc", config.nodeType);
  EXPECT_EQ("ou=aliases,dc=example", config.roleAliasesBaseDn);
  EXPECT_EQ(FLEXIBLE, config.filterType);
  EXPECT_EQ("Open-Sesame-42", config.bindPassword);
  // The model's port and TLS mode win over the component file's.
  EXPECT_EQ(LDAPS, config.tlsMode);
  EXPECT_EQ(636, config.serverPort);
  // The cipher filter belongs to initCipher, not to this read.
  EXPECT_EQ("", config.cipherFilter);
  EXPECT_EQ("(uid=%u)", config.filter);
  EXPECT_EQ("posix", config.type);
  EXPECT_EQ(LOCKED, config.targetBasedAccessControl);
  EXPECT_EQ(2u, config.orbFiltVersion);
  EXPECT_TRUE(config.useReferrals);
  EXPECT_EQ("/opt/qiv/lib/modules/libqiv_ldap_sm.so", config.serviceModule);
  EXPECT_EQ(0, config.initConfigTimeout);
  EXPECT_FALSE(config.configFileInvalid);

  EXPECT_TRUE(runnable.isLdap20AttributesExist());
  EXPECT_TRUE(mandatoryMarksSet());
  EXPECT_FALSE(runnable.isLdap20MigrationRunning());
  EXPECT_EQ(NODE_CREDENTIAL_DN, runnable.getNodeCredentialMoRef());
  EXPECT_EQ(TRUST_CATEGORY_DN, runnable.getTrustCategoryMoRef());
  EXPECT_EQ(1u, log().count(8, "Reading initial LDAP configuration..."));
  EXPECT_EQ(1u, log().count(8, "Checking if Ldap 2.0 attributes exist..."));
  EXPECT_EQ(1u, log().count(8, "Ldap 2.0 attribute profileFilter exist and has a value set..."));
  EXPECT_EQ(0u, log().countAtLevel(3));
  EXPECT_EQ(0u, log().countAtLevel(4));
}

TEST_F(ConfigurationRunnableModelTest, OptionalAttributesWithoutValueAreNoFailure) {
  ASSERT_EQ(0, runnable.readInitialConfiguration());

  const LdapConfiguration config = record();
  EXPECT_EQ("", config.fallbackLdapIpAddress);
  EXPECT_EQ("", config.tlsCaCertificate);
  EXPECT_EQ("", config.bindPassword);
  EXPECT_EQ("", config.filter);
  EXPECT_EQ(0u, log().countContaining("not found!"));
  EXPECT_EQ(0u, log().countAtLevel(3));
}

TEST_F(ConfigurationRunnableModelTest, MissingMandatoryValuesAreLoggedAndTheReadGoesOn) {
  set(AUTH_METHOD_DN, "administrativeState", {});
  for (const char* attribute : {"ldapIpAddress", "useTls", "baseDn", "filterType", "useReferrals"})
    set(LDAP_DN, attribute, {});
  set(LDAP_DN, "fallbackLdapIpAddress", {"10.9.9.9"});
  set(LDAP_DN, "roleAliasesBaseDn", {"ou=aliases"});

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  EXPECT_EQ(1u, log().count(4, mandatoryNotFound(AUTH_METHOD_DN, "administrativeState")));
  for (const char* attribute : {"ldapIpAddress", "useTls", "baseDn", "filterType", "useReferrals"})
    EXPECT_EQ(1u, log().count(4, mandatoryNotFound(LDAP_DN, attribute))) << attribute;
  EXPECT_EQ(0u, log().countContaining("Attribute '"));
  // The attributes after each gap were still read.
  EXPECT_EQ("10.9.9.9", record().fallbackLdapIpAddress);
  EXPECT_EQ("ou=aliases", record().roleAliasesBaseDn);
  EXPECT_EQ(NODE_CREDENTIAL_DN, runnable.getNodeCredentialMoRef());
  EXPECT_EQ(ConfigurationRunnable::STATE_READING, runnable.getState());

  // useTls and baseDn stayed unset, so the mandatory rule reports them.
  EXPECT_FALSE(mandatoryMarksSet());
  runnable.setUseTlsSet(true);
  runnable.setBaseDnSet(true);
  EXPECT_TRUE(mandatoryMarksSet());
}

TEST_F(ConfigurationRunnableModelTest, ValueOfTheWrongTypeIsReportedAsMandatoryAndTheReadGoesOn) {
  reloadModelWith(USE_TLS_DEFINITION, "<attribute name=\"useTls\" type=\"string\"/>");

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  EXPECT_EQ(1u, log().count(4, mandatoryNotFound(LDAP_DN, "useTls")));
  EXPECT_EQ("dc=example,dc=com", record().baseDn);
  EXPECT_EQ("127.0.0.1", record().ldapIpAddress);
  // baseDn was read after the failure; only the useTls mark is missing.
  runnable.setUseTlsSet(true);
  EXPECT_TRUE(mandatoryMarksSet());
}

TEST_F(ConfigurationRunnableModelTest, UnreadableOptionalAttributeIsLoggedAndTheReadGoesOn) {
  reloadModelWith("<attribute name=\"fallbackLdapIpAddress\" type=\"string\"/>",
                  "<attribute name=\"fallbackLdapIpAddress\" type=\"string\" sequence=\"true\"/>");
  set(LDAP_DN, "fallbackLdapIpAddress", {"10.0.0.8", "10.0.0.9"});
  set(LDAP_DN, "useTlsFallback", {"true"});

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  EXPECT_EQ(1u, log().count(6, optionalNotFound(LDAP_DN, "fallbackLdapIpAddress")));
  EXPECT_EQ(0u, log().countContaining("Mandatory attribute"));
  EXPECT_EQ("", record().fallbackLdapIpAddress);
  EXPECT_TRUE(record().useTlsFallback);
}

TEST_F(ConfigurationRunnableModelTest, NodeTypeSequenceIsJoinedAndAnEmptyOneClearsTheField) {
  set(LDAP_DN, "nodeType", {"a", "b", "c"});
  ASSERT_EQ(0, runnable.readInitialConfiguration());
  EXPECT_EQ("a:b:c", record().nodeType);

  set(LDAP_DN, "nodeType", {"single"});
  ASSERT_EQ(0, runnable.readInitialConfiguration());
  EXPECT_EQ("single", record().nodeType);

  set(LDAP_DN, "nodeType", {});
  ASSERT_EQ(0, runnable.readInitialConfiguration());
  EXPECT_EQ("", record().nodeType);
  EXPECT_EQ(0u, log().countContaining("nodeType' not found!"));
}

TEST_F(ConfigurationRunnableModelTest, ModelWithoutPortAndTlsModeOverridesTheComponentFile) {
  readComponentFile("1389", "LDAPS");
  set(LDAP_DN, "tlsMode", {});
  set(LDAP_DN, "serverPort", {});

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  EXPECT_EQ(STARTTLS, record().tlsMode);
  EXPECT_EQ(0, record().serverPort);
}

TEST_F(ConfigurationRunnableModelTest, InvalidComponentFileDoesNotStopTheReadOfAnLdap20Model) {
  EXPECT_EQ(-9, runnable.readComponentConfiguration(componentFile("port", "LDAPS").c_str()));

  EXPECT_EQ(0, runnable.readInitialConfiguration());
  EXPECT_EQ(ConfigurationRunnable::STATE_READING, runnable.getState());
  EXPECT_EQ(389, record().serverPort);
  EXPECT_EQ(0u, log().count(3, FILE_PARSE_ERROR));
}

TEST_F(ConfigurationRunnableModelTest, MoReferencesFollowTheModelAndTheSetters) {
  runnable.setNodeCredentialMoRef("NodeCredential=old");
  runnable.setTrustCategoryMoRef("TrustCategory=old");
  EXPECT_EQ("NodeCredential=old", runnable.getNodeCredentialMoRef());
  EXPECT_EQ("TrustCategory=old", runnable.getTrustCategoryMoRef());

  set(LDAP_DN, "trustCategory", {});
  ASSERT_EQ(0, runnable.readInitialConfiguration());
  EXPECT_EQ(NODE_CREDENTIAL_DN, runnable.getNodeCredentialMoRef());
  EXPECT_EQ("", runnable.getTrustCategoryMoRef());
}

TEST_F(ConfigurationRunnableModelTest, BindPasswordWithoutCryptoServiceStaysEmpty) {
  ConfigurationRunnable withoutCrypto;
  withoutCrypto.addExternalInterface(threadContextInterface());
  setBindPassword(framework().crypto().encrypt("Open-Sesame-42"));

  ASSERT_EQ(0, withoutCrypto.readInitialConfiguration());

  EXPECT_EQ("", withoutCrypto.getLdapConfiguration().bindPassword);
  EXPECT_EQ("cn=admin,dc=example,dc=com", withoutCrypto.getLdapConfiguration().bindDn);
  EXPECT_EQ(1u, log().count(3, NO_CRYPTO_ERROR));
}

TEST_F(ConfigurationRunnableModelTest, TamperedBindPasswordIsNotTaken) {
  std::string encrypted = framework().crypto().encrypt("Open-Sesame-42");
  encrypted[encrypted.size() / 2] = encrypted[encrypted.size() / 2] == 'A' ? 'B' : 'A';
  setBindPassword(encrypted);

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  EXPECT_EQ("", record().bindPassword);
  EXPECT_EQ(1u, log().count(3, "Failed to decrypt the bind password (-1)"));
}

TEST_F(ConfigurationRunnableModelTest, BindPasswordStructureWithoutPasswordIsNotDecrypted) {
  framework().model().setStructValue(LDAP_DN, "bindPassword", {});

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  EXPECT_EQ("", record().bindPassword);
  EXPECT_EQ(1u, log().count(6, optionalNotFound(LDAP_DN, "bindPassword")));
  EXPECT_EQ(0u, log().countContaining("decrypt"));
}

TEST_F(ConfigurationRunnableModelTest, ClearBindPasswordNeverReachesTheLog) {
  const std::string clear = "Clear-Bind-Pw-7f3a";
  setBindPassword(framework().crypto().encrypt(clear));
  set(AUTH_METHOD_DN, "administrativeState", {"UNLOCKED"});
  ASSERT_EQ(9, log().getLevel());

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  ASSERT_EQ(clear, record().bindPassword);
  EXPECT_EQ(1u, log().count(8, "Bind password decrypted (length: 18)"));
  EXPECT_LT(0u, log().countAtLevel(8));
  for (const Framework::LogRecord& line : log().records())
    EXPECT_EQ(std::string::npos, (line.method + line.text).find(clear)) << line.level << " " << line.text;
}

TEST_F(ConfigurationRunnableModelTest, DecryptPwGivesTheClearText) {
  std::string clear = "unchanged";
  EXPECT_EQ(0, runnable.decryptPw(framework().crypto().encrypt("pa55 word"), clear));
  EXPECT_EQ("pa55 word", clear);
}

TEST_F(ConfigurationRunnableModelTest, DecryptPwOfATamperedTextFailsAndLeavesClearUnchanged) {
  std::string encrypted = framework().crypto().encrypt("pa55 word");
  encrypted[0] = encrypted[0] == 'A' ? 'B' : 'A';
  std::string clear = "unchanged";

  EXPECT_EQ(-1, runnable.decryptPw(encrypted, clear));
  EXPECT_EQ("unchanged", clear);
  EXPECT_EQ(1u, log().count(3, "Failed to decrypt the bind password (-1)"));
}

TEST_F(ConfigurationRunnableModelTest, DecryptPwWithoutCryptoServiceFails) {
  const std::string encrypted = framework().crypto().encrypt("pa55 word");
  std::string clear;
  ConfigurationRunnable withoutCrypto;
  EXPECT_EQ(-1, withoutCrypto.decryptPw(encrypted, clear));
  EXPECT_EQ(1u, log().count(3, NO_CRYPTO_ERROR));

  runnable.releaseCrypto();
  EXPECT_EQ(-1, runnable.decryptPw(encrypted, clear));
  EXPECT_EQ(2u, log().count(3, NO_CRYPTO_ERROR));
  EXPECT_EQ("", clear);
}

// A buffer kept by decryptPw would leave FAKE_BUFFER_SIZE more bytes in use; the log lines
// written meanwhile take far less. (Sanitizer builds keep their own heap; there the leak check
// at exit covers the same.)
TEST_F(ConfigurationRunnableModelTest, DecryptPwReleasesTheServiceBufferOnEveryOutcome) {
  ConfigurationRunnable withFakeCrypto;
  withFakeCrypto.addExternalInterface(&fakeCrypto.base);
  for (const PymReturnT outcome : {PymFailure, PymOk}) {
    fakeDecryptResult = outcome;
    const std::size_t before = heapInUse();
    {
      std::string clear = "unchanged";
      EXPECT_EQ(outcome, withFakeCrypto.decryptPw("anything", clear));
      EXPECT_EQ(outcome == PymOk ? FAKE_BUFFER_SIZE - 1 : std::strlen("unchanged"), clear.size());
    }
    EXPECT_LT(heapInUse(), before + FAKE_BUFFER_SIZE / 2) << "outcome " << outcome;
  }
}

TEST_F(ConfigurationRunnableModelTest, GetDnValueFindsTheFirstInstance) {
  EXPECT_EQ(AUTH_METHOD_DN, runnable.getDnValue(AUTH_METHOD_CLASS));
  EXPECT_EQ(0u, log().countAtLevel(4));

  EXPECT_EQ("", runnable.getDnValue("ManagedElement,SystemFunctions,SecM,Tls"));
  EXPECT_EQ(1u, log().count(4, "Could not find first instance of classpath : ManagedElement,SystemFunctions,SecM,Tls"));
}

TEST_F(ConfigurationRunnableModelTest, TargetTypeIsTheUserManagementSequence) {
  EXPECT_TRUE(runnable.getTargetType().empty());
  set(USER_MANAGEMENT_DN, "targetType", {"t1", "t2"});
  EXPECT_EQ((std::vector<std::string>{"t1", "t2"}), runnable.getTargetType());
  EXPECT_TRUE(runnable.isUserManagementDnExists());
  EXPECT_EQ(0u, log().countAtLevel(4));
}

TEST_F(ConfigurationRunnableModelTest, UnreadableTargetTypeIsWarnedAbout) {
  reloadModelWith(TARGET_TYPE_DEFINITION, "");

  EXPECT_TRUE(runnable.getTargetType().empty());
  EXPECT_EQ(1u, log().count(4, "Unable to get  " + USER_MANAGEMENT_DN + ",targetType"));
  EXPECT_FALSE(runnable.isUserManagementDnExists());
  EXPECT_EQ(1u, log().count(4, "UserManagement Dn does not exist " + USER_MANAGEMENT_DN + " !"));
}

TEST_F(ConfigurationRunnableModelTest, NoTlsMoGivesTheDefaultCipherFilter) {
  runnable.initCipher();

  EXPECT_FALSE(runnable.isTlsDnExists());
  EXPECT_EQ(DEFAULT_CIPHER_FILTER, record().cipherFilter);
  EXPECT_EQ(1u, log().count(4, "Could not find first instance of classpath : ManagedElement,SystemFunctions,SecM,Tls"));
}

TEST_F(ConfigurationRunnableModelTlsTest, CipherFilterOfTheTlsMoGetsTheStrengthSuffix) {
  runnable.initCipher();

  EXPECT_TRUE(runnable.isTlsDnExists());
  const std::string expected = "ECDHE-RSA-AES256-GCM-SHA384:ECDHE-RSA-AES128-GCM-SHA256:@STRENGTH";
  EXPECT_EQ(expected, record().cipherFilter);
  EXPECT_EQ(expected, runnable.getCipherFilter(TLS_DN));
  EXPECT_EQ(0u, log().countAtLevel(4));
}

TEST_F(ConfigurationRunnableModelTlsTest, CipherFilterWithAControlCharacterGivesTheDefaultWithAnError) {
  framework().model().setStringValues(TLS_DN, "cipherFilter", {"HIGH\nldap_tls_reqcert = never"});
  runnable.initCipher();

  EXPECT_TRUE(runnable.isTlsDnExists());
  EXPECT_EQ(DEFAULT_CIPHER_FILTER, record().cipherFilter);
  EXPECT_EQ(1u, log().count(3, "Validation failed - cipherFilter must not contain a control character, using the "
                               "default cipher filter " +
                                   DEFAULT_CIPHER_FILTER));
  EXPECT_EQ(0u, log().countContaining("reqcert"));
}

TEST_F(ConfigurationRunnableModelTlsNoCipherFilterTest, TlsMoWithoutCipherFilterGivesTheDefaultWithAWarning) {
  runnable.initCipher();

  EXPECT_TRUE(runnable.isTlsDnExists());
  EXPECT_EQ(DEFAULT_CIPHER_FILTER, record().cipherFilter);
  EXPECT_EQ(1u, log().count(4, "Unable to get  " + TLS_DN + ",cipherFilter, using default cipher filter : " +
                                   DEFAULT_CIPHER_FILTER + " "));
}

TEST_F(ConfigurationRunnableModelPre20Test, ModelWithoutProfileFilterKeepsTheComponentFilePortAndTlsMode) {
  readComponentFile("1636", "LDAPS");

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  EXPECT_FALSE(runnable.isLdap20AttributesExist());
  EXPECT_EQ(1u, log().count(6, "Ldap 2.0 attribute profileFilter does not exist..."));
  const LdapConfiguration config = record();
  EXPECT_EQ(LDAPS, config.tlsMode);
  EXPECT_EQ(1636, config.serverPort);
  EXPECT_EQ(POSIX_GROUPS, config.filterType);
  EXPECT_EQ("127.0.0.1", config.ldapIpAddress);
  // Neither OrbelinFilter nor useReferrals is read without the Ldap 2.0 attributes.
  EXPECT_EQ(0u, log().countContaining("OrbelinFilter"));
  EXPECT_EQ(0u, log().countContaining("useReferrals"));
  EXPECT_EQ(UNLOCKED, config.targetBasedAccessControl);
  EXPECT_EQ(1u, config.orbFiltVersion);
  EXPECT_EQ(0u, log().countAtLevel(4));
}

TEST_F(ConfigurationRunnableModelPre20Test, InvalidComponentFileFailsTheRead) {
  EXPECT_EQ(-9, runnable.readComponentConfiguration(componentFile("1636", "ldaps").c_str()));

  EXPECT_EQ(-1, runnable.readInitialConfiguration());

  EXPECT_EQ(ConfigurationRunnable::STATE_READ_FAILED, runnable.getState());
  EXPECT_EQ(1u, log().count(3, FILE_PARSE_ERROR));
  // The record keeps what it held before the read.
  EXPECT_EQ("", record().ldapIpAddress);
}

TEST_F(ConfigurationRunnableModelNoAuthMethodTest, NoLdapAuthenticationMethodFailsTheRead) {
  EXPECT_EQ(-1, runnable.readInitialConfiguration());

  EXPECT_EQ(ConfigurationRunnable::STATE_READ_FAILED, runnable.getState());
  EXPECT_EQ(1u, log().count(3,
                            "Could not find any instance of "
                            "('ManagedElement,SystemFunctions,SecM,UserManagement,LdapAuthenticationMethod')!"));
  EXPECT_EQ(0u, log().countContaining("Checking if Ldap 2.0 attributes exist..."));
}

TEST_F(ConfigurationRunnableModelMigrationTest, FlexibleFilterTypeIsMigratedAndCommitted) {
  readComponentFile("1636", "LDAPS");

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  EXPECT_EQ(1u, log().count(8, "Ldap 2.0 attribute profileFilter has empty value..."));
  EXPECT_EQ(1u, log().count(8, "Ldap filterType attribute exist and has a value set..."));
  EXPECT_EQ(0u, log().countContaining("Caught exception"));
  // Committed: the model store itself holds them. FLEXIBLE is profileFilter's value 2.
  EXPECT_EQ(std::vector<std::string>{"FLEXIBLE"}, committed(LDAP_DN, "profileFilter"));
  EXPECT_EQ(std::vector<std::string>{"LDAPS"}, committed(LDAP_DN, "tlsMode"));
  EXPECT_EQ(std::vector<std::string>{"1636"}, committed(LDAP_DN, "serverPort"));
  EXPECT_EQ((std::vector<std::string>{"a", "b"}), committed(USER_MANAGEMENT_DN, "targetType"));
  // Only filterType 2 touches OrbelinFilter.
  EXPECT_TRUE(committed(ORBELIN_FILTER_DN, "targetBasedAccessControl").empty());
  EXPECT_TRUE(committed(ORBELIN_FILTER_DN, "roleAliasesBaseDn").empty());

  EXPECT_TRUE(runnable.isLdap20AttributesExist());
  EXPECT_FALSE(runnable.isLdap20MigrationRunning());
  const LdapConfiguration config = record();
  EXPECT_EQ(FLEXIBLE, config.filterType);
  EXPECT_EQ(LDAPS, config.tlsMode);
  EXPECT_EQ(1636, config.serverPort);
  EXPECT_EQ("a:b", config.nodeType);
  EXPECT_EQ(ConfigurationRunnable::STATE_READING, runnable.getState());
}

TEST_F(ConfigurationRunnableModelMigrationTest, OrbelinFilterTypeAlsoUnlocksTargetBasedAccessControl) {
  set(LDAP_DN, "filterType", {"2"});

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  EXPECT_EQ(std::vector<std::string>{"ORBELIN"}, committed(LDAP_DN, "profileFilter"));
  EXPECT_EQ(std::vector<std::string>{"STARTTLS"}, committed(LDAP_DN, "tlsMode"));
  EXPECT_EQ(std::vector<std::string>{"0"}, committed(LDAP_DN, "serverPort"));
  EXPECT_EQ(std::vector<std::string>{"UNLOCKED"}, committed(ORBELIN_FILTER_DN, "targetBasedAccessControl"));
  EXPECT_EQ(std::vector<std::string>{"ou=roles,dc=example,dc=com"}, committed(ORBELIN_FILTER_DN, "roleAliasesBaseDn"));
  EXPECT_EQ(UNLOCKED, record().targetBasedAccessControl);
  EXPECT_EQ(ORBELIN, record().filterType);
}

TEST_F(ConfigurationRunnableModelMigrationTest, PosixGroupsFilterTypeGivesProfileFilterZero) {
  set(LDAP_DN, "filterType", {"1"});

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  EXPECT_EQ(std::vector<std::string>{"POSIX_GROUPS"}, committed(LDAP_DN, "profileFilter"));
  EXPECT_TRUE(committed(ORBELIN_FILTER_DN, "targetBasedAccessControl").empty());
}

TEST_F(ConfigurationRunnableModelMigrationTest, InvalidFilterTypeFailsTheRead) {
  set(LDAP_DN, "filterType", {"5"});

  EXPECT_EQ(-1, runnable.readInitialConfiguration());

  EXPECT_EQ(ConfigurationRunnable::STATE_READ_FAILED, runnable.getState());
  EXPECT_EQ(1u, log().count(3, "Attribute filterType has an invalid value."));
  EXPECT_EQ(1u, log().count(3, MIGRATION_ERROR));
  EXPECT_TRUE(committed(LDAP_DN, "profileFilter").empty());
  EXPECT_FALSE(runnable.isLdap20MigrationRunning());
  // A failed read publishes nothing.
  EXPECT_EQ(FILTER_TYPE_NOT_SET, record().filterType);
  EXPECT_EQ("", record().ldapIpAddress);
  EXPECT_EQ("", runnable.getNodeCredentialMoRef());
}

TEST_F(ConfigurationRunnableModelMigrationTest, InvalidComponentFileFailsTheMigrationWithoutCommitting) {
  EXPECT_EQ(-9, runnable.readComponentConfiguration(componentFile("12345678", "LDAPS").c_str()));

  EXPECT_EQ(-1, runnable.readInitialConfiguration());

  EXPECT_EQ(ConfigurationRunnable::STATE_READ_FAILED, runnable.getState());
  EXPECT_EQ(1u, log().count(3, FILE_PARSE_ERROR));
  EXPECT_EQ(1u, log().count(3, MIGRATION_ERROR));
  EXPECT_TRUE(committed(LDAP_DN, "profileFilter").empty());
  EXPECT_TRUE(committed(LDAP_DN, "tlsMode").empty());
}

TEST_F(ConfigurationRunnableModelMigrationTest, EmptyFilterTypeLeavesTheModelAsItIs) {
  set(LDAP_DN, "filterType", {});

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  EXPECT_EQ(1u, log().count(8, "Both Ldap 2.0 attribute profileFilter and filterType has empty values."));
  EXPECT_EQ(1u, log().count(4, mandatoryNotFound(LDAP_DN, "filterType")));
  EXPECT_TRUE(committed(LDAP_DN, "profileFilter").empty());
  EXPECT_TRUE(committed(USER_MANAGEMENT_DN, "targetType").empty());
}

TEST_F(ConfigurationRunnableModelMigrationTest, MissingFilterTypeAttributeIsLogged) {
  reloadModelWith("<value attribute=\"filterType\">3</value>", "");
  reloadModelWith("<attribute name=\"filterType\" type=\"enum\"/>", "");

  ASSERT_EQ(0, runnable.readInitialConfiguration());

  EXPECT_EQ(1u, log().count(4, "Attribute filterType does not exist..."));
  EXPECT_EQ(1u, log().count(4, mandatoryNotFound(LDAP_DN, "filterType")));
  EXPECT_TRUE(runnable.isLdap20AttributesExist());
  EXPECT_TRUE(committed(LDAP_DN, "profileFilter").empty());
}

TEST_F(ConfigurationRunnableModelMigrationTest, FailedMigrationStepFailsTheRead) {
  reloadModelWith(TARGET_TYPE_DEFINITION, "");

  EXPECT_EQ(-1, runnable.readInitialConfiguration());

  EXPECT_EQ(ConfigurationRunnable::STATE_READ_FAILED, runnable.getState());
  EXPECT_EQ(1u, countStartingWith(3, "Caught exception when setting targetType attribute. "));
  EXPECT_EQ(1u, countStartingWith(3, "Caught exception "));
  EXPECT_EQ(1u, log().count(3, MIGRATION_ERROR));
  // The other steps still went into the committed transaction.
  EXPECT_EQ(std::vector<std::string>{"FLEXIBLE"}, committed(LDAP_DN, "profileFilter"));
}
