#include "LdapAttributeWriter.h"

#include "ConfigurationRunnable.h"
#include "LdapModel.h"

#include <Qiv/LoggingWrapper.h>

#include <cstring>
#include <vector>

namespace QivAccessManagement {

using namespace LdapModel;

namespace {

// The class name of the object dn names: the last RDN's attribute.
std::string className(const std::string& dn) {
  const std::size_t start = dn.rfind(',') == std::string::npos ? 0 : dn.rfind(',') + 1;
  const std::size_t equals = dn.find('=', start);
  return dn.substr(start, equals == std::string::npos ? std::string::npos : equals - start);
}

const LdapConfiguration& defaults() {
  static const LdapConfiguration record;
  return record;
}

}  // namespace

LdapAttributeWriter::LdapAttributeWriter(ConfigurationRunnable& runnable) : _runnable(runnable), _value(nullptr) {}

const std::string& LdapAttributeWriter::refusal() const { return _refusal; }

LdapAttributeWriter::Outcome LdapAttributeWriter::write(LdapConfiguration& config, References& references,
                                                        const std::string& dn, const std::string& attributeName,
                                                        const PymMoAttributeValueContainer_3* value) {
  _value = value;
  _refusal.clear();
  const std::string objectClass = className(dn);
  if (objectClass == "LdapAuthenticationMethod") return writeAuthenticationMethod(config, attributeName);
  if (objectClass == LDAP_RDN) return writeLdap(config, references, attributeName);
  if (objectClass == FILTER_RDN) return writeFilter(config, attributeName);
  if (objectClass == ORBELIN_FILTER_RDN) return writeOrbelinFilter(config, attributeName);
  return NOT_HELD;
}

LdapAttributeWriter::Outcome LdapAttributeWriter::writeAuthenticationMethod(LdapConfiguration& config,
                                                                            const std::string& name) {
  if (name != ADMINISTRATIVE_STATE) return NOT_HELD;
  return readEnum(config.administrativeState, defaults().administrativeState) ? WRITTEN : UNREADABLE;
}

LdapAttributeWriter::Outcome LdapAttributeWriter::writeLdap(LdapConfiguration& config, References& references,
                                                            const std::string& name) {
  bool read = false;
  if (name == BIND_DN) {
    read = readText(config.bindDn, defaults().bindDn);
  } else if (name == BIND_PASSWORD) {
    return writeBindPassword(config);
  } else if (name == LDAP_IP_ADDRESS) {
    read = readText(config.ldapIpAddress, defaults().ldapIpAddress);
  } else if (name == USE_TLS) {
    read = readBool(config.useTls, defaults().useTls);
    if (read) _runnable.setUseTlsSet(!isUnset());
  } else if (name == BASE_DN) {
    read = readText(config.baseDn, defaults().baseDn);
    if (read) _runnable.setBaseDnSet(!isUnset());
  } else if (name == FALLBACK_LDAP_IP_ADDRESS) {
    read = readText(config.fallbackLdapIpAddress, defaults().fallbackLdapIpAddress);
  } else if (name == USE_TLS_FALLBACK) {
    read = readBool(config.useTlsFallback, defaults().useTlsFallback);
  } else if (name == TLS_CA_CERTIFICATE) {
    read = readText(config.tlsCaCertificate, defaults().tlsCaCertificate);
  } else if (name == TLS_CLIENT_CERTIFICATE) {
    read = readText(config.tlsClientCertificate, defaults().tlsClientCertificate);
  } else if (name == TLS_CLIENT_KEY) {
    read = readText(config.tlsClientKey, defaults().tlsClientKey);
  } else if (name == NODE_TYPE) {
    read = hasType(PymMoValueType_String);
    if (read) {
      std::vector<std::string> nodeTypes;
      for (uint32_t i = 0; !isUnset() && i < _value->nrOfValues; ++i)
        nodeTypes.push_back(_value->values[i].theString != nullptr ? _value->values[i].theString : "");
      config.nodeType = LdapConfiguration::joinNodeTypes(nodeTypes);
    }
  } else if (name == ROLE_ALIASES_BASE_DN) {
    read = readText(config.roleAliasesBaseDn, defaults().roleAliasesBaseDn);
  } else if (name == FILTER_TYPE) {
    read = readEnum(config.filterType, defaults().filterType);
  } else if (name == PROFILE_FILTER) {
    // The newer attribute counts from 0 where filterType counts from 1.
    int32_t profileFilter = -1;
    read = readEnum(profileFilter, -1);
    if (read) config.filterType = static_cast<FilterType>(profileFilter + 1);
  } else if (name == TLS_MODE) {
    return writeTlsMode(config);
  } else if (name == SERVER_PORT) {
    read = readUint16(config.serverPort, defaults().serverPort);
  } else if (name == USE_REFERRALS) {
    read = readBool(config.useReferrals, defaults().useReferrals);
  } else if (name == NODE_CREDENTIAL) {
    read = readReference(references.nodeCredential);
  } else if (name == TRUST_CATEGORY) {
    read = readReference(references.trustCategory);
  } else {
    return NOT_HELD;
  }
  return read ? WRITTEN : UNREADABLE;
}

LdapAttributeWriter::Outcome LdapAttributeWriter::writeFilter(LdapConfiguration& config, const std::string& name) {
  bool read = false;
  if (name == FILTER) {
    read = readText(config.filter, defaults().filter);
  } else if (name == TYPE) {
    read = readText(config.type, defaults().type);
  } else {
    return NOT_HELD;
  }
  return read ? WRITTEN : UNREADABLE;
}

LdapAttributeWriter::Outcome LdapAttributeWriter::writeOrbelinFilter(LdapConfiguration& config,
                                                                     const std::string& name) {
  bool read = false;
  if (name == TARGET_BASED_ACCESS_CONTROL) {
    read = readEnum(config.targetBasedAccessControl, defaults().targetBasedAccessControl);
  } else if (name == VERSION) {
    read = readEnum(config.orbFiltVersion, defaults().orbFiltVersion);
  } else if (name == ROLE_ALIASES_BASE_DN) {
    read = readText(config.roleAliasesBaseDn, defaults().roleAliasesBaseDn);
  } else {
    return NOT_HELD;
  }
  return read ? WRITTEN : UNREADABLE;
}

LdapAttributeWriter::Outcome LdapAttributeWriter::writeTlsMode(LdapConfiguration& config) {
  if (isUnset()) {
    _refusal = "Validation failed - tlsMode can not be unset. LDAPS or STARTTLS has to be chosen as a valid value for tlsMode";
    return REFUSED;
  }
  if (!readEnum(config.tlsMode, defaults().tlsMode)) return UNREADABLE;
  if (config.tlsMode == LDAPS && !config.useTls)
    QIV_LOG(4, "TlsMode is set to LDAPS but UseTls is disabled, TLS will not be used");
  return WRITTEN;
}

LdapAttributeWriter::Outcome LdapAttributeWriter::writeBindPassword(LdapConfiguration& config) {
  if (isUnset()) {
    config.bindPassword.clear();
    return WRITTEN;
  }
  if (!hasType(PymMoValueType_Struct)) return UNREADABLE;
  std::string encrypted;
  for (const PymMoAttrStructMember_3* member = _value->values[0].structMember; member != nullptr; member = member->next) {
    const PymMoAttributeValueContainer_3* memberValue = member->memberValue;
    if (member->memberName == nullptr || std::strcmp(member->memberName, PASSWORD_MEMBER) != 0) continue;
    if (memberValue == nullptr || memberValue->type != PymMoValueType_String) return UNREADABLE;
    if (memberValue->nrOfValues > 0 && memberValue->values != nullptr && memberValue->values[0].theString != nullptr)
      encrypted = memberValue->values[0].theString;
  }
  // A structure without a password holds none.
  if (encrypted.empty()) {
    config.bindPassword.clear();
    return WRITTEN;
  }
  std::string clear;
  if (_runnable.decryptPw(encrypted, clear) != 0) return UNREADABLE;
  config.bindPassword = clear;
  return WRITTEN;
}

bool LdapAttributeWriter::isUnset() const { return _value == nullptr || _value->nrOfValues == 0 || _value->values == nullptr; }

bool LdapAttributeWriter::hasType(PymMoValueType type) const { return _value == nullptr || _value->type == type; }

bool LdapAttributeWriter::readText(std::string& field, const std::string& unset) const {
  if (!hasType(PymMoValueType_String)) return false;
  field = isUnset() ? unset : (_value->values[0].theString != nullptr ? _value->values[0].theString : "");
  return true;
}

bool LdapAttributeWriter::readBool(bool& field, bool unset) const {
  if (!hasType(PymMoValueType_Bool)) return false;
  field = isUnset() ? unset : _value->values[0].theBool;
  return true;
}

bool LdapAttributeWriter::readUint16(uint16_t& field, uint16_t unset) const {
  if (!hasType(PymMoValueType_Uint16)) return false;
  field = isUnset() ? unset : _value->values[0].u16;
  return true;
}

template <class Field>
bool LdapAttributeWriter::readEnum(Field& field, Field unset) const {
  if (!hasType(PymMoValueType_Enum)) return false;
  field = isUnset() ? unset : static_cast<Field>(_value->values[0].theEnum);
  return true;
}

bool LdapAttributeWriter::readReference(std::string& field) const {
  if (!hasType(PymMoValueType_Reference)) return false;
  field = isUnset() || _value->values[0].moRef == nullptr ? "" : _value->values[0].moRef;
  return true;
}

}  // namespace QivAccessManagement
