#include "LdapConfigurationScript.h"

#include "FuzzScript.h"

#include <cstdint>
#include <map>

using QivAccessManagement::LdapConfiguration;

namespace {

using StringField = std::string LdapConfiguration::*;

const std::map<std::string, StringField>& stringFields() {
  static const std::map<std::string, StringField> fields = {
      {"bindDn", &LdapConfiguration::bindDn},
      {"ldapIpAddress", &LdapConfiguration::ldapIpAddress},
      {"baseDn", &LdapConfiguration::baseDn},
      {"fallbackLdapIpAddress", &LdapConfiguration::fallbackLdapIpAddress},
      {"tlsCaCertificate", &LdapConfiguration::tlsCaCertificate},
      {"tlsClientCertificate", &LdapConfiguration::tlsClientCertificate},
      {"tlsClientKey", &LdapConfiguration::tlsClientKey},
      {"nodeType", &LdapConfiguration::nodeType},
      {"roleAliasesBaseDn", &LdapConfiguration::roleAliasesBaseDn},
      {"bindPassword", &LdapConfiguration::bindPassword},
      {"cipherFilter", &LdapConfiguration::cipherFilter},
      {"filter", &LdapConfiguration::filter},
      {"type", &LdapConfiguration::type},
      {"serviceModule", &LdapConfiguration::serviceModule},
  };
  return fields;
}

}  // namespace

bool LdapConfigurationScript::apply(LdapConfiguration& config, const std::string& key, const std::string& value) {
  const auto field = stringFields().find(key);
  if (field != stringFields().end()) {
    config.*(field->second) = value;
    return true;
  }
  const int32_t number = static_cast<int32_t>(FuzzScript::number(value));
  const bool on = FuzzScript::flag(value);
  if (key == "administrativeState") {
    config.administrativeState = static_cast<QivAccessManagement::AdministrativeState>(number);
  } else if (key == "useTls") {
    config.useTls = on;
  } else if (key == "useTlsFallback") {
    config.useTlsFallback = on;
  } else if (key == "nodeCredential.nodeCertFileName") {
    config.nodeCredential.nodeCertFileName = value;
  } else if (key == "nodeCredential.nodeKeyFileName") {
    config.nodeCredential.nodeKeyFileName = value;
  } else if (key == "trustCategory.trustCatDirName") {
    config.trustCategory.trustCatDirName = value;
  } else if (key == "filterType") {
    config.filterType = static_cast<QivAccessManagement::FilterType>(number);
  } else if (key == "tlsMode") {
    config.tlsMode = static_cast<QivAccessManagement::TlsMode>(number);
  } else if (key == "serverPort") {
    config.serverPort = static_cast<uint16_t>(number);
  } else if (key == "targetBasedAccessControl") {
    config.targetBasedAccessControl = static_cast<QivAccessManagement::AdministrativeState>(number);
  } else if (key == "orbFiltVersion") {
    config.orbFiltVersion = static_cast<uint32_t>(number);
  } else if (key == "useReferrals") {
    config.useReferrals = on;
  } else if (key == "initConfigTimeout") {
    config.initConfigTimeout = static_cast<uint16_t>(number);
  } else if (key == "configFileInvalid") {
    config.configFileInvalid = on;
  } else {
    return false;
  }
  return true;
}
