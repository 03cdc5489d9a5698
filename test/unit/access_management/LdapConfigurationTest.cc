#include "LdapConfiguration.h"

#include "LdapModel.h"

#include <gtest/gtest.h>

using namespace QivAccessManagement;

TEST(LdapConfigurationTest, DefaultRecordHoldsTheDocumentedDefaults) {
  const LdapConfiguration config;
  EXPECT_EQ(LOCKED, config.administrativeState);
  EXPECT_EQ(UNLOCKED, config.targetBasedAccessControl);
  EXPECT_EQ(1u, config.orbFiltVersion);
  EXPECT_EQ(0, config.serverPort);
  EXPECT_EQ(STARTTLS, config.tlsMode);
  EXPECT_EQ("/opt/qiv/lib/modules/libqiv_ldap_sm.so", config.serviceModule);
  EXPECT_EQ(FILTER_TYPE_NOT_SET, config.filterType);
  EXPECT_FALSE(config.useTls);
  EXPECT_FALSE(config.useTlsFallback);
  EXPECT_FALSE(config.useReferrals);
  EXPECT_FALSE(config.configFileInvalid);
  EXPECT_EQ(0, config.initConfigTimeout);
  for (const std::string* text :
       {&config.bindDn, &config.ldapIpAddress, &config.baseDn, &config.fallbackLdapIpAddress,
        &config.tlsCaCertificate, &config.tlsClientCertificate, &config.tlsClientKey, &config.nodeType,
        &config.roleAliasesBaseDn, &config.bindPassword, &config.cipherFilter, &config.filter, &config.type,
        &config.nodeCredential.nodeCertFileName, &config.nodeCredential.nodeKeyFileName,
        &config.trustCategory.trustCatDirName})
    EXPECT_TRUE(text->empty());
}

TEST(LdapConfigurationTest, EnumerationsHaveTheModelValues) {
  EXPECT_EQ(0, STARTTLS);
  EXPECT_EQ(1, LDAPS);
  EXPECT_EQ(0, LOCKED);
  EXPECT_EQ(1, UNLOCKED);
  EXPECT_EQ(3, FLEXIBLE);
  EXPECT_EQ(4u, sizeof(AdministrativeState));
  EXPECT_EQ(4u, sizeof(TlsMode));
  EXPECT_EQ(4u, sizeof(FilterType));
}

TEST(LdapConfigurationTest, NodeTypeSequenceIsJoinedWithColons) {
  EXPECT_EQ("a:b:c", LdapConfiguration::joinNodeTypes({"a", "b", "c"}));
  EXPECT_EQ("a", LdapConfiguration::joinNodeTypes({"a"}));
  EXPECT_EQ("", LdapConfiguration::joinNodeTypes({}));
  EXPECT_EQ(":b", LdapConfiguration::joinNodeTypes({"", "b"}));
}

TEST(LdapConfigurationTest, CopyIsIndependentOfItsSource) {
  LdapConfiguration source;
  source.administrativeState = UNLOCKED;
  source.ldapIpAddress = "10.0.0.1";
  source.bindPassword = "secret";
  source.nodeCredential.nodeCertFileName = "/certs/node.pem";
  source.trustCategory.trustCatDirName = "/certs/trusted";
  source.serverPort = 636;

  LdapConfiguration copy(source);
  LdapConfiguration assigned;
  assigned = source;
  for (LdapConfiguration* target : {&copy, &assigned}) {
    EXPECT_EQ(UNLOCKED, target->administrativeState);
    EXPECT_EQ("10.0.0.1", target->ldapIpAddress);
    EXPECT_EQ("/certs/node.pem", target->nodeCredential.nodeCertFileName);
    EXPECT_EQ("/certs/trusted", target->trustCategory.trustCatDirName);
    EXPECT_EQ(636, target->serverPort);
  }

  copy.ldapIpAddress = "10.0.0.2";
  copy.nodeCredential.nodeCertFileName = "/other.pem";
  assigned.bindPassword = "changed";
  EXPECT_EQ("10.0.0.1", source.ldapIpAddress);
  EXPECT_EQ("/certs/node.pem", source.nodeCredential.nodeCertFileName);
  EXPECT_EQ("secret", source.bindPassword);
  EXPECT_EQ("10.0.0.1", assigned.ldapIpAddress);
}

TEST(LdapConfigurationTest, ModelNamesAreConsistentWithEachOther) {
  using namespace LdapModel;
  EXPECT_EQ(std::string(LDAP_AUTHENTICATION_METHOD_CLASS) + "," + LDAP_RDN, LDAP_CLASS);
  EXPECT_EQ(std::string(LDAP_CLASS) + "," + FILTER_RDN, FILTER_CLASS);
  EXPECT_EQ(std::string(LDAP_CLASS) + "," + ORBELIN_FILTER_RDN, ORBELIN_FILTER_CLASS);
  EXPECT_EQ(std::string(LDAP_AUTHENTICATION_METHOD_CLASS_PATH) + "/" + LDAP_RDN, LDAP_CLASS_PATH);
  EXPECT_EQ(std::string(LDAP_CLASS_PATH) + "/" + FILTER_RDN, FILTER_CLASS_PATH);
  EXPECT_EQ(std::string(LDAP_CLASS_PATH) + "/" + ORBELIN_FILTER_RDN, ORBELIN_FILTER_CLASS_PATH);
  EXPECT_EQ(std::string(LDAP_DN) + "," + ORBELIN_FILTER_RDN + INSTANCE_SUFFIX, ORBELIN_FILTER_DN);
  EXPECT_EQ(std::string(USER_MANAGEMENT_DN) + ",LdapAuthenticationMethod=1," + LDAP_RDN + INSTANCE_SUFFIX, LDAP_DN);
}
