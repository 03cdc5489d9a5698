#include "ConfigurationRunnable.h"

#include "LdapModel.h"
#include "MoAccessor.h"
#include "TextEquals.h"

#include <Qiv/LoggingWrapper.h>
#include <Qiv/QivConfiguration.h>
#include <Qiv/QivException.h>
#include <Qiv/RegularExpression.h>

#include <Poco/Exception.h>

#include <poll.h>

#include <algorithm>
#include <cassert>
#include <cctype>
#include <cstdlib>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <utility>

namespace QivAccessManagement {

using namespace LdapModel;

namespace {

const char THREAD_CONTEXT_INTERFACE[] = "PymMgmtSpiThreadContext";
const char CRYPTO_INTERFACE[] = "PymMwSpiCrypto";
// POSIX regcomp flags REG_EXTENDED | REG_NEWLINE | REG_NOSUB.
const int PATTERN_OPTIONS = 13;
const char USE_BUILT_IN_AUTHORIZATION_KEY[] = "useBuiltInAuthorization";
// The security framework's files, below the PSO clear path.
const char SEC_ACS_DIRECTORY[] = "/sec-acs";
const char FRAMEWORK_FILE[] = "/LdapSecAa.cfg";
const char SERVICE_MODULE_FILE[] = "/LdapSm.cfg";
const unsigned PSO_CLEAR_PATH_TIMEOUT_MS = 5000;

// Every model access of the component uses an exclusive lock and a 60 s transaction time-out.
const int ACCESSOR_LOCK_POLICY = PymLockPolicyExclusive;
const int ACCESSOR_TIMEOUT_SECONDS = 60;

// Reads what is waiting in pipe without blocking.
void drain(Poco::Pipe& pipe) {
  for (;;) {
    fd_set readSet;
    FD_ZERO(&readSet);
    FD_SET(pipe.readHandle(), &readSet);
    timeval immediately = {0, 0};
    if (select(pipe.readHandle() + 1, &readSet, nullptr, nullptr, &immediately) != 1) return;
    char byte = 0;
    if (pipe.readBytes(&byte, 1) != 1) return;
  }
}

// C0 controls and DEL, NUL included wherever it stands in the string.
bool holdsControlCharacter(const std::string& value) {
  return std::any_of(value.begin(), value.end(), [](char c) {
    const unsigned char byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
  });
}

bool startsWithIgnoringCase(const std::string& text, const std::string& prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::string::size_type i = 0; i < prefix.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) != static_cast<unsigned char>(prefix[i])) return false;
  }
  return true;
}

// A bare host or address. A bracketed IPv6 address passes: every back end takes it as it stands.
bool isHostOrAddress(const std::string& address) {
  if (address.find("://") != std::string::npos) return false;
  if (startsWithIgnoringCase(address, "ldap:") || startsWithIgnoringCase(address, "ldaps:")) return false;
  return address.find_first_of(", \t") == std::string::npos;
}

typedef std::pair<const char*, const std::string*> NamedText;

// The record's texts that qivea or the security framework's files get, in record order.
std::vector<NamedText> appliedTexts(const LdapConfiguration& config) {
  return {{BIND_DN, &config.bindDn},
          {LDAP_IP_ADDRESS, &config.ldapIpAddress},
          {BASE_DN, &config.baseDn},
          {FALLBACK_LDAP_IP_ADDRESS, &config.fallbackLdapIpAddress},
          {"nodeCredential certificate file", &config.nodeCredential.nodeCertFileName},
          {"nodeCredential key file", &config.nodeCredential.nodeKeyFileName},
          {"trustCategory directory", &config.trustCategory.trustCatDirName},
          {TLS_CA_CERTIFICATE, &config.tlsCaCertificate},
          {TLS_CLIENT_CERTIFICATE, &config.tlsClientCertificate},
          {TLS_CLIENT_KEY, &config.tlsClientKey},
          {NODE_TYPE, &config.nodeType},
          {ROLE_ALIASES_BASE_DN, &config.roleAliasesBaseDn},
          {BIND_PASSWORD, &config.bindPassword},
          {FILTER, &config.filter},
          {TYPE, &config.type}};
}

const char CIPHER_FILTER_CONTROL_TEXT[] = "Validation failed - cipherFilter must not contain a control character";

struct NodeListRelease {
  void operator()(Poco::XML::NodeList* list) const { list->release(); }
};

typedef std::unique_ptr<char, decltype(&std::free)> MallocedText;

bool hasInterfaceName(const PymMgmtSpiInterface_1* interface, const char* name) {
  return textEquals(interface->interfaceName, name);
}

std::string childDn(const std::string& parentDn, const char* rdnName) {
  return parentDn + "," + rdnName + INSTANCE_SUFFIX;
}

// Raises a mark for the lifetime of the scope, also when the scope is left by an exception.
class ScopedMark {
 public:
  explicit ScopedMark(std::atomic<bool>& mark) : _mark(mark) { _mark = true; }
  ~ScopedMark() { _mark = false; }
  ScopedMark(const ScopedMark&) = delete;
  ScopedMark& operator=(const ScopedMark&) = delete;

 private:
  std::atomic<bool>& _mark;
};

enum Presence { OPTIONAL, MANDATORY };

// Runs read, one read of dn's attrName; true when it succeeded. A failure is logged (for a
// mandatory attribute as a warning) and leaves what read would have set unchanged: one bad
// attribute does not stop the read of the others.
template <class Read>
bool guardedRead(const std::string& dn, const char* attrName, Presence presence, Read read) {
  try {
    read();
    return true;
  } catch (const std::exception& e) {
    if (presence == MANDATORY) {
      QIV_LOG(4, "Mandatory attribute '%s,%s' not found!", dn.c_str(), attrName);
    } else {
      QIV_LOG(6, "Attribute '%s,%s' not found!", dn.c_str(), attrName);
    }
    QIV_TRACE("Reason: %s", e.what());
    return false;
  }
}

// Reads dn's attrName into value; true when a value was read. An optional attribute without
// value leaves value unchanged and is no failure.
template <class T>
bool readAttribute(Qiv::MoAccessor& accessor, const std::string& dn, const char* attrName, Presence presence,
                   T& value) {
  bool hasValue = false;
  guardedRead(dn, attrName, presence, [&] {
    if (presence == MANDATORY) {
      value = accessor.getAttr<T>(dn, attrName);
      hasValue = true;
      return;
    }
    const Qiv::MoAccessor::Optional<T> optional = accessor.getOptionalAttrStrict<T>(dn, attrName);
    hasValue = optional.hasValue();
    if (hasValue) value = optional.get();
  });
  return hasValue;
}

// readAttribute of an enumeration, widened to field's type.
template <class Field>
bool readEnum(Qiv::MoAccessor& accessor, const std::string& dn, const char* attrName, Presence presence, Field& field) {
  Qiv::MoAccessor::Enum value;
  if (!readAttribute(accessor, dn, attrName, presence, value)) return false;
  field = static_cast<Field>(value.value);
  return true;
}

// Runs one step of the Ldap 2.0 migration; false when it failed, logged with what it did.
template <class Step>
bool runMigrationStep(const char* what, Step step) {
  try {
    step();
    return true;
  } catch (const std::exception& e) {
    QIV_LOG(3, "Caught exception %s. %s", what, e.what());
    return false;
  }
}

}  // namespace

ConfigurationRunnable::ConfigurationRunnable()
    : _state(STATE_CREATED),
      _operatorMessages(nullptr),
      _useTlsSet(false),
      _baseDnSet(false),
      _ldap20AttributesExist(false),
      _ldap20MigrationRunning(false),
      _tlsDnExists(false),
      _useQivAuthorization(false),
      _authentication(_qivEa, _configurationMutex, _ldap20AttributesExist),
      _portal(nullptr),
      _hasComponentConfiguration(false),
      _startUpCondition(nullptr),
      _startUpMutex(nullptr),
      _secApiOpRunning(false),
      _initialConfigurationSet(false),
      _usingSecAaFramework(false) {}

ConfigurationRunnable::~ConfigurationRunnable() = default;

void ConfigurationRunnable::addExternalInterface(PymMgmtSpiInterface_1* interface) {
  if (interface == nullptr) return;
  // A later start hands in the framework's current one; the one of an earlier start may be gone.
  _externalInterfaces.erase(std::remove_if(_externalInterfaces.begin(), _externalInterfaces.end(),
                                           [&](PymMgmtSpiInterface_1* known) {
                                             return interface->interfaceName != nullptr &&
                                                    hasInterfaceName(known, interface->interfaceName);
                                           }),
                            _externalInterfaces.end());
  _externalInterfaces.push_back(interface);
  if (hasInterfaceName(interface, CRYPTO_INTERFACE))
    _crypto.setInterface(reinterpret_cast<PymMwSpiCrypto_1*>(interface));
}

void ConfigurationRunnable::setOperatorMessages(OperatorMessages* operatorMessages) {
  _operatorMessages = operatorMessages;
}

void ConfigurationRunnable::addMessage(const std::string& text) {
  if (_operatorMessages == nullptr) {
    QIV_LOG(4, "%s interface missing; failed to add failure message: \"%s\"", THREAD_CONTEXT_INTERFACE, text.c_str());
    return;
  }
  _operatorMessages->addMessage(text);
}

int ConfigurationRunnable::validateConfiguration(LdapConfiguration* config, bool addMessages) {
  // Every rule runs so that every violation is reported; the result follows a fixed priority.
  const int tlsClient = verifyTlsClientAttributes(config, addMessages);
  const int mandatory = verifyMandatoryLdapAttributes(config, addMessages);
  const int filter = verifyFilterAttributes(config, addMessages);
  const int bind = verifyBindAttributes(config, addMessages);
  const int targetBasedAccessControl = verifyTargetBasedAccessControlAndTargetTypeAttributes(config, addMessages);
  const int controlCharacters = verifyControlCharacters(config, addMessages);
  const int serverAddresses = verifyServerAddresses(config, addMessages);
  int result = 0;
  for (const int ruleResult :
       {targetBasedAccessControl, bind, filter, mandatory, tlsClient, controlCharacters, serverAddresses}) {
    if (ruleResult != 0) {
      result = ruleResult;
      break;
    }
  }
  if (config->serverPort != 0) {
    const int portResult = validateAttribute(SERVER_PORT, 1, 6, PORT_PATTERN, std::to_string(config->serverPort), addMessages);
    if (portResult != 0) result = portResult;
  }
  if (!config->useTls && config->tlsMode == LDAPS)
    QIV_LOG(4, "TlsMode is set to LDAPS but UseTls is disabled, TLS will not be used");
  return result;
}

int ConfigurationRunnable::verifyTlsClientAttributes(LdapConfiguration* config, bool addMessages) {
  if (config->tlsClientCertificate.empty() == config->tlsClientKey.empty()) return 0;
  const std::string text =
      "Validation failed - either both tls-client-certificate and tls-client-key should be set or none";
  return reportViolation(text, text, addMessages);
}

int ConfigurationRunnable::verifyMandatoryLdapAttributes(LdapConfiguration* config, bool addMessages) {
  if (config->administrativeState == LOCKED) {
    QIV_TRACE("Validation : %s is LOCKED, LDAP is not used.", ADMINISTRATIVE_STATE);
    return 0;
  }
  if (config->administrativeState != UNLOCKED) return 0;
  QIV_TRACE("Validation: %s (length: %d),  %s (length: %d), %s (length: %d)", LDAP_IP_ADDRESS,
            static_cast<int>(config->ldapIpAddress.size()), USE_TLS, static_cast<int>(config->useTls), BASE_DN,
            static_cast<int>(config->baseDn.size()));
  // baseDn and useTls need a value, not a non-empty one.
  if (!config->ldapIpAddress.empty() && _useTlsSet && _baseDnSet) return 0;
  const std::string names = std::string(LDAP_IP_ADDRESS) + ", " + USE_TLS + " and " + BASE_DN + " must be set";
  return reportViolation("Validation failed - Mandatory Attributes " + names + " to configure LDAP",
                         "Validation failed - Mandatory Attributes " + names, addMessages);
}

int ConfigurationRunnable::verifyFilterAttributes(LdapConfiguration* config, bool addMessages) {
  if (config->filterType != FLEXIBLE || (!config->filter.empty() && !config->type.empty())) return 0;
  const std::string text = std::string("Validation failed - both ") + FILTER + " and " + TYPE +
                           " attributes should be set if filterType=FLEXIBLE";
  return reportViolation(text, text, addMessages);
}

int ConfigurationRunnable::verifyBindAttributes(LdapConfiguration* config, bool addMessages) {
  // Only the password's length is ever logged.
  QIV_TRACE("Validation: %s (length: %d),  %s (length: %d)", BIND_DN, static_cast<int>(config->bindDn.size()),
            BIND_PASSWORD, static_cast<int>(config->bindPassword.size()));
  if (config->bindPassword.empty() || !config->bindDn.empty()) return 0;
  const std::string text = std::string("Validation failed - if ") + BIND_PASSWORD + " is set " + BIND_DN + " must also be set";
  return reportViolation(text, text, addMessages);
}

int ConfigurationRunnable::verifyTargetBasedAccessControlAndTargetTypeAttributes(LdapConfiguration* config,
                                                                                 bool addMessages) {
  if (!_ldap20AttributesExist) return 0;
  if (config->targetBasedAccessControl != UNLOCKED || !config->nodeType.empty()) return 0;
  const std::string text = std::string("Validation failed - if ") + TARGET_BASED_ACCESS_CONTROL +
                           " is set to UNLOCKED " + TARGET_TYPE + " must be set";
  return reportViolation(text, text, addMessages);
}

int ConfigurationRunnable::verifyControlCharacters(LdapConfiguration* config, bool addMessages) {
  int result = 0;
  for (const NamedText& text : appliedTexts(*config)) {
    if (!holdsControlCharacter(*text.second)) continue;
    const std::string violation = std::string("Validation failed - ") + text.first + " must not contain a control character";
    result = reportViolation(violation, violation, addMessages);
  }
  return result;
}

int ConfigurationRunnable::verifyServerAddresses(LdapConfiguration* config, bool addMessages) {
  int result = 0;
  for (const NamedText& text : {NamedText(LDAP_IP_ADDRESS, &config->ldapIpAddress),
                                NamedText(FALLBACK_LDAP_IP_ADDRESS, &config->fallbackLdapIpAddress)}) {
    const std::string& address = *text.second;
    // One with a control character is reported by that rule, which does not echo it.
    if (address.empty() || holdsControlCharacter(address) || isHostOrAddress(address)) continue;
    const std::string violation =
        std::string("Validation failed - ") + text.first + " must be a host name or an IP address, not \"" + address + "\"";
    result = reportViolation(violation, violation, addMessages);
  }
  return result;
}

bool ConfigurationRunnable::isApplicable(LdapConfiguration& config) {
  // A LOCKED record hands none of its values on.
  if (config.administrativeState != UNLOCKED) return true;
  const int controlCharacters = verifyControlCharacters(&config, false);
  const int serverAddresses = verifyServerAddresses(&config, false);
  if (controlCharacters == 0 && serverAddresses == 0) return true;
  QIV_LOG(3, "Not applying the configuration: it holds a value that validation refuses");
  return false;
}

int ConfigurationRunnable::validateAttribute(const std::string& name, int minLength, int maxLength,
                                             const std::string& pattern, const std::string& value, bool addMessages) {
  const long length = static_cast<long>(value.size());
  const std::string quoted = name + "=\"" + value + "\"";
  if (minLength > 0 && length < minLength)
    return reportViolation("Validation failed - string too short: " + quoted, "Validation failed - string too short: " + quoted,
                           addMessages);
  // Equal limits mean no upper limit.
  if (maxLength > minLength && maxLength > 0 && length > maxLength)
    return reportViolation("Validation failed - string too long: " + quoted, "Validation failed - string too long: " + quoted,
                           addMessages);
  if (pattern.empty()) {
    QIV_LOG(4, "Restriction pattern empty! Validating: %s", name.c_str());
    return 0;
  }
  std::unique_ptr<Qiv::RegularExpression> expression;
  try {
    expression.reset(new Qiv::RegularExpression(pattern, PATTERN_OPTIONS));
  } catch (const Qiv::QivException&) {
    QIV_LOG(4, "Invalid string attribute regular expression %s =~ \"%s\"", name.c_str(), pattern.c_str());
    return -1;
  }
  if (expression->match(value, 0)) return 0;
  return reportViolation("Validation failed - unmatched string attribute: " + quoted,
                         "Validation failed - unmatched string attribute: " + quoted, addMessages);
}

int ConfigurationRunnable::reportViolation(const std::string& logText, const std::string& operatorText, bool addMessages) {
  QIV_LOG(4, "%s", logText.c_str());
  if (addMessages) addMessage(operatorText);
  return -9;
}

int ConfigurationRunnable::readComponentConfiguration(const char* config) {
  QIV_TRACE(" >> ");
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  if (config == nullptr) {
    QIV_LOG(6, "No configuration provided for %s", COMPONENT_NAME);
    return 0;
  }
  QIV_TRACE("\n%s", config);
  Qiv::QivConfiguration document;
  try {
    document.load(config);
  } catch (const Qiv::QivException& e) {
    QIV_LOG(3, "Failed to parse the %s configuration: %s", COMPONENT_NAME, e.what());
    return -1;
  }
  const std::unique_ptr<Poco::XML::NodeList, NodeListRelease> nodes(document.getElementsByTagName(COMPONENT_NAME));
  if (!nodes || nodes->length() == 0) {
    QIV_LOG(3, "No %s configuration found", COMPONENT_NAME);
    return 0;
  }
  if (nodes->length() > 1) QIV_LOG(4, "Multiple %s configurations found (using first)", COMPONENT_NAME);
  const Poco::XML::Element* element = static_cast<const Poco::XML::Element*>(nodes->item(0));
  LdapConfiguration& record = _ldapConfiguration;
  std::string value;

  if (!Qiv::QivConfiguration::getElementValue(document, element, LDAP_SERVER_PORT_KEY, value) || value.empty()) {
    QIV_TRACE("No port number specified, using default port");
  } else {
    if (validateAttribute(LDAP_SERVER_PORT_KEY, 1, 6, PORT_PATTERN, value, false) != 0) {
      record.configFileInvalid = true;
      return -9;
    }
    // Cut to 16 bits without a range check.
    record.serverPort = static_cast<uint16_t>(std::strtoul(value.c_str(), nullptr, 10));
    QIV_TRACE("Port number (%s) retrieved from configuration: %s", LDAP_SERVER_PORT_KEY, value.c_str());
  }

  value.clear();
  if (Qiv::QivConfiguration::getElementValue(document, element, LDAP_TLS_MODE_KEY, value) && !value.empty()) {
    if (value == "LDAPS") {
      record.tlsMode = LDAPS;
    } else if (value == "STARTTLS") {
      record.tlsMode = STARTTLS;
    } else {
      QIV_LOG(3, "Validation failed, TlsMode has invalid value (%s)", value.c_str());
      record.configFileInvalid = true;
      return -9;
    }
  }

  value.clear();
  if (!Qiv::QivConfiguration::getElementValue(document, element, SERVICE_MODULE_KEY, value)) {
    QIV_TRACE("No service module specified, using default: %s", value.c_str());
  } else if (value.empty()) {
    QIV_TRACE("Service module (%s) retrieved from configuration but empty, using default: %s ", SERVICE_MODULE_KEY,
              value.c_str());
  } else {
    // Opened for reading and writing: a module the process cannot write counts as missing.
    std::fstream module(value, std::ios::in | std::ios::out);
    if (!module.is_open()) {
      QIV_LOG(3, "Service module from configuration does not exist(%s): \"%s\"", SERVICE_MODULE_KEY, value.c_str());
      return -1;
    }
    record.serviceModule = value;
    QIV_TRACE("Service module (%s) retrieved from configuration: %s", SERVICE_MODULE_KEY, value.c_str());
  }

  value.clear();
  if (!Qiv::QivConfiguration::getElementValue(document, element, LDAP_INIT_CONFIG_TIMEOUT_KEY, value)) {
    QIV_TRACE("No '%s' parameter found in configuration file, start-up will be asynchronous", LDAP_INIT_CONFIG_TIMEOUT_KEY);
  } else if (value.empty()) {
    QIV_TRACE("No value found for parameter '%s' in configuration file, start-up will be asynchronous",
              LDAP_INIT_CONFIG_TIMEOUT_KEY);
  } else {
    record.initConfigTimeout = convertAndValidateInitConfigTimeoutValue(value);
    QIV_TRACE("Initialize configuration timeout value (%s) retrieved from configuration: %s",
              LDAP_INIT_CONFIG_TIMEOUT_KEY, value.c_str());
  }

  return 0;
}

void ConfigurationRunnable::readUseQivAuthorization(const char* config) {
  _useQivAuthorization = false;
  if (config == nullptr) return;
  Qiv::QivConfiguration document;
  try {
    document.load(config);
  } catch (const Qiv::QivException&) {
    return;  // reported when the whole component file is read
  }
  const std::unique_ptr<Poco::XML::NodeList, NodeListRelease> nodes(document.getElementsByTagName(COMPONENT_NAME));
  if (!nodes || nodes->length() == 0) return;
  const Poco::XML::Element* element = static_cast<const Poco::XML::Element*>(nodes->item(0));
  std::string value;
  if (!Qiv::QivConfiguration::getElementValue(document, element, USE_BUILT_IN_AUTHORIZATION_KEY, value) ||
      value.empty())
    return;
  if (value != "true" && value != "false") {
    QIV_LOG(3, "Validation failed, useBuiltInAuthorization has invalid value (%s)", value.c_str());
    return;
  }
  _useQivAuthorization = value == "true";
  QIV_TRACE("Built-in authorization (%s) retrieved from configuration: %s", USE_BUILT_IN_AUTHORIZATION_KEY,
            value.c_str());
}

int ConfigurationRunnable::stringToInt(const std::string& text) const {
  std::istringstream stream(text);
  int value = 0;
  // The whole text must be the number: nothing may follow it, not even a blank.
  if (!(stream >> value) || stream.get() != std::char_traits<char>::eof()) {
    QIV_LOG(3, "Failed convert string to integer - %s", text.c_str());
    throw Qiv::QivException("Failed to parse string to integer: '%s'.", text.c_str());
  }
  return value;
}

uint16_t ConfigurationRunnable::convertAndValidateInitConfigTimeoutValue(const std::string& text) const {
  const int value = stringToInt(text);
  if (value < 0)
    throw Qiv::QivException("Provided value for configuration parameter '%s' is negative. Value: %i",
                            LDAP_INIT_CONFIG_TIMEOUT_KEY, value);
  // A silent wrap: 65536 gives 0.
  return static_cast<uint16_t>(value);
}

int ConfigurationRunnable::readInitialConfiguration() {
  QIV_TRACE(" >> ");
  // The read fills a copy and publishes it with one assignment under the mutex, so readers see
  // the record from before or after the read, never half of one. The mutex is not held across
  // the read because the migration commits a transaction, and the framework's participants in
  // it may come back to this object for the record.
  LdapConfiguration config;
  {
    Poco::Mutex::ScopedLock lock(_configurationMutex);
    _state = STATE_READING;
    config = _ldapConfiguration;
  }
  std::string nodeCredentialMoRef;
  std::string trustCategoryMoRef;
  const int result = readModel(config, nodeCredentialMoRef, trustCategoryMoRef);

  Poco::Mutex::ScopedLock lock(_configurationMutex);
  if (result != 0) {
    _state = STATE_READ_FAILED;
    QIV_TRACE(" << failed");
    return -1;
  }
  _ldapConfiguration = config;
  _nodeCredentialMoRef = nodeCredentialMoRef;
  _trustCategoryMoRef = trustCategoryMoRef;
  QIV_TRACE(" << ");
  return 0;
}

int ConfigurationRunnable::readModel(LdapConfiguration& config, std::string& nodeCredentialMoRef,
                                     std::string& trustCategoryMoRef) {
  QIV_TRACE("Reading initial LDAP configuration...");
  Qiv::MoAccessor accessor(ACCESSOR_LOCK_POLICY, ACCESSOR_TIMEOUT_SECONDS);
  _ldapAuthenticationMethodDn = accessor.getFirstMoInstance(LDAP_AUTHENTICATION_METHOD_CLASS);
  if (_ldapAuthenticationMethodDn.empty()) {
    QIV_LOG(3, "Could not find any instance of ('%s')!", LDAP_AUTHENTICATION_METHOD_CLASS);
    return -1;
  }
  readEnum(accessor, _ldapAuthenticationMethodDn, ADMINISTRATIVE_STATE, MANDATORY, config.administrativeState);

  const std::string ldapDn = ldapMoDn();
  if (checkLdap20Attributes(accessor, ldapDn, config) != 0) return -1;
  readLdapAttributes(accessor, ldapDn, config);

  if (!_ldap20AttributesExist && config.configFileInvalid) {
    QIV_LOG(3, "Failed to parse the AccessManagementComponent configuration file.");
    return -1;
  }
  if (_ldap20AttributesExist) {
    // The model overrides the component file's port and TLS mode.
    QIV_TRACE("Reading Ldap 2.0 attributes...");
    config.tlsMode = STARTTLS;
    config.serverPort = 0;
    readEnum(accessor, ldapDn, TLS_MODE, OPTIONAL, config.tlsMode);
    readAttribute(accessor, ldapDn, SERVER_PORT, OPTIONAL, config.serverPort);
    readAttribute(accessor, ldapDn, USE_REFERRALS, MANDATORY, config.useReferrals);
  }

  QIV_TRACE("Reading Filter attributes...");
  const std::string filterDn = childDn(ldapDn, FILTER_RDN);
  readAttribute(accessor, filterDn, FILTER, OPTIONAL, config.filter);
  readAttribute(accessor, filterDn, TYPE, OPTIONAL, config.type);
  // Read a second time, as the read always has; harmless.
  readAttribute(accessor, ldapDn, ROLE_ALIASES_BASE_DN, OPTIONAL, config.roleAliasesBaseDn);

  if (_ldap20AttributesExist) {
    QIV_TRACE("Reading OrbelinFilter attributes...");
    const std::string orbelinFilterDn = childDn(ldapDn, ORBELIN_FILTER_RDN);
    readEnum(accessor, orbelinFilterDn, TARGET_BASED_ACCESS_CONTROL, OPTIONAL, config.targetBasedAccessControl);
    readEnum(accessor, orbelinFilterDn, VERSION, OPTIONAL, config.orbFiltVersion);
  }

  QIV_TRACE("Reading nodeCredential and trustCategory references...");
  Qiv::MoAccessor::MoRef reference;
  if (readAttribute(accessor, ldapDn, NODE_CREDENTIAL, OPTIONAL, reference)) nodeCredentialMoRef = reference.dn;
  reference = Qiv::MoAccessor::MoRef();
  if (readAttribute(accessor, ldapDn, TRUST_CATEGORY, OPTIONAL, reference)) trustCategoryMoRef = reference.dn;
  return 0;
}

int ConfigurationRunnable::checkLdap20Attributes(Qiv::MoAccessor& accessor, const std::string& ldapDn,
                                                 LdapConfiguration& config) {
  QIV_TRACE("Checking if Ldap 2.0 attributes exist...");
  bool profileFilterSet = false;
  try {
    profileFilterSet = accessor.getOptionalAttrStrict<Qiv::MoAccessor::Enum>(ldapDn, PROFILE_FILTER).hasValue();
  } catch (const std::exception&) {
    // An older model: port and TLS mode stay those of the component file.
    QIV_LOG(6, "Ldap 2.0 attribute profileFilter does not exist...");
    return 0;
  }
  _ldap20AttributesExist = true;
  if (profileFilterSet) {
    QIV_TRACE("Ldap 2.0 attribute profileFilter exist and has a value set...");
    return 0;
  }

  QIV_TRACE("Ldap 2.0 attribute profileFilter has empty value...");
  Qiv::MoAccessor::Optional<Qiv::MoAccessor::Enum> filterType;
  try {
    filterType = accessor.getOptionalAttrStrict<Qiv::MoAccessor::Enum>(ldapDn, FILTER_TYPE);
  } catch (const std::exception&) {
    QIV_LOG(4, "Attribute filterType does not exist...");
    return 0;
  }
  if (!filterType.hasValue()) {
    QIV_TRACE("Both Ldap 2.0 attribute profileFilter and filterType has empty values.");
    return 0;
  }
  QIV_TRACE("Ldap filterType attribute exist and has a value set...");
  config.filterType = static_cast<FilterType>(filterType.get().value);
  int result = 0;
  {
    const ScopedMark migrationRunning(_ldap20MigrationRunning);
    result = updateLdap20values(config.filterType, accessor);
  }
  if (result != 0) {
    QIV_LOG(3, "Failed to update new Ldap 2.0 attribute values");
    return -1;
  }
  return 0;
}

void ConfigurationRunnable::readLdapAttributes(Qiv::MoAccessor& accessor, const std::string& ldapDn,
                                               LdapConfiguration& config) {
  QIV_TRACE("Reading Ldap attributes...");
  readAttribute(accessor, ldapDn, BIND_DN, OPTIONAL, config.bindDn);
  readBindPassword(accessor, ldapDn, config);
  readAttribute(accessor, ldapDn, LDAP_IP_ADDRESS, MANDATORY, config.ldapIpAddress);
  if (readAttribute(accessor, ldapDn, USE_TLS, MANDATORY, config.useTls)) _useTlsSet = true;
  if (readAttribute(accessor, ldapDn, BASE_DN, MANDATORY, config.baseDn)) _baseDnSet = true;
  readAttribute(accessor, ldapDn, FALLBACK_LDAP_IP_ADDRESS, OPTIONAL, config.fallbackLdapIpAddress);
  readAttribute(accessor, ldapDn, USE_TLS_FALLBACK, OPTIONAL, config.useTlsFallback);
  readAttribute(accessor, ldapDn, TLS_CA_CERTIFICATE, OPTIONAL, config.tlsCaCertificate);
  readAttribute(accessor, ldapDn, TLS_CLIENT_CERTIFICATE, OPTIONAL, config.tlsClientCertificate);
  readAttribute(accessor, ldapDn, TLS_CLIENT_KEY, OPTIONAL, config.tlsClientKey);
  guardedRead(ldapDn, NODE_TYPE, OPTIONAL, [&] {
    config.nodeType = LdapConfiguration::joinNodeTypes(accessor.getSeqAttr<std::string>(ldapDn, NODE_TYPE));
  });
  readAttribute(accessor, ldapDn, ROLE_ALIASES_BASE_DN, OPTIONAL, config.roleAliasesBaseDn);
  readEnum(accessor, ldapDn, FILTER_TYPE, MANDATORY, config.filterType);
}

void ConfigurationRunnable::readBindPassword(Qiv::MoAccessor& accessor, const std::string& ldapDn,
                                             LdapConfiguration& config) {
  std::string encrypted;
  guardedRead(ldapDn, BIND_PASSWORD, OPTIONAL, [&] {
    const Qiv::MoAccessor::Optional<Qiv::MoAccessor::Struct> bindPassword =
        accessor.getOptionalAttrStrict<Qiv::MoAccessor::Struct>(ldapDn, BIND_PASSWORD);
    if (bindPassword.hasValue()) encrypted = bindPassword.get().get<std::string>(PASSWORD_MEMBER);
  });
  // No structure, or one without a password: there is nothing to decrypt.
  if (encrypted.empty()) return;
  std::string clear;
  if (decryptPw(encrypted, clear) != 0) return;
  config.bindPassword = clear;
  QIV_TRACE("Bind password decrypted (length: %d)", static_cast<int>(clear.size()));
}

std::string ConfigurationRunnable::ldapMoDn() const { return childDn(_ldapAuthenticationMethodDn, LDAP_RDN); }

int ConfigurationRunnable::updateLdap20values(FilterType filterType, Qiv::MoAccessor& accessor) {
  QIV_TRACE(" >> filterType: %d", static_cast<int>(filterType));
  int16_t profileFilter = 0;
  switch (filterType) {
    case POSIX_GROUPS:
      profileFilter = 0;
      break;
    case ORBELIN:
      profileFilter = 1;
      break;
    case FLEXIBLE:
      profileFilter = 2;
      break;
    default:
      QIV_LOG(3, "Attribute filterType has an invalid value.");
      return -1;
  }
  const std::string ldapDn = ldapMoDn();
  bool succeeded = runMigrationStep("when setting profileFilter attribute", [&] {
    accessor.setAttr(ldapDn, PROFILE_FILTER, Qiv::MoAccessor::Enum(profileFilter));
  });

  // The component file's port and TLS mode become the model's.
  const LdapConfiguration fileConfiguration = getLdapConfiguration();
  if (fileConfiguration.configFileInvalid) {
    QIV_LOG(3, "Failed to parse the AccessManagementComponent configuration file.");
    return -1;
  }
  succeeded &= runMigrationStep("when setting tlsMode attribute", [&] {
    accessor.setAttr(ldapDn, TLS_MODE, Qiv::MoAccessor::Enum(static_cast<int16_t>(fileConfiguration.tlsMode)));
  });
  succeeded &= runMigrationStep("when setting serverPort attribute", [&] {
    accessor.setAttr<unsigned short>(ldapDn, SERVER_PORT, fileConfiguration.serverPort);
  });
  succeeded &= runMigrationStep("when setting targetType attribute", [&] {
    accessor.setSeqAttr(USER_MANAGEMENT_DN, TARGET_TYPE, accessor.getSeqAttr<std::string>(ldapDn, NODE_TYPE));
  });
  if (filterType == ORBELIN) {
    const std::string orbelinFilterDn = childDn(ldapDn, ORBELIN_FILTER_RDN);
    succeeded &= runMigrationStep("when setting targetBasedAccessControl attribute", [&] {
      accessor.setAttr(orbelinFilterDn, TARGET_BASED_ACCESS_CONTROL, Qiv::MoAccessor::Enum(UNLOCKED));
    });
    succeeded &= runMigrationStep("when setting roleAliasesBaseDn attribute", [&] {
      const Qiv::MoAccessor::Optional<std::string> roleAliasesBaseDn =
          accessor.getOptionalAttrStrict<std::string>(ldapDn, ROLE_ALIASES_BASE_DN);
      if (roleAliasesBaseDn.hasValue())
        accessor.setAttr(orbelinFilterDn, ROLE_ALIASES_BASE_DN, roleAliasesBaseDn.get());
    });
  }
  succeeded &= runMigrationStep("during commit transaction", [&] { accessor.commit(); });
  QIV_TRACE(" << %s", succeeded ? "updated" : "failed");
  return succeeded ? 0 : -1;
}

std::string ConfigurationRunnable::getDnValue(const std::string& classPath) {
  Qiv::MoAccessor accessor(ACCESSOR_LOCK_POLICY, ACCESSOR_TIMEOUT_SECONDS);
  const std::string dn = accessor.getFirstMoInstance(classPath);
  if (dn.empty()) QIV_LOG(4, "Could not find first instance of classpath : %s", classPath.c_str());
  return dn;
}

bool ConfigurationRunnable::isUserManagementDnExists() {
  const std::string dn = getDnValue(USER_MANAGEMENT_CLASS);
  std::vector<std::string> targetType;
  if (readTargetType(dn, targetType)) return true;
  QIV_LOG(4, "UserManagement Dn does not exist %s !", dn.c_str());
  return false;
}

std::vector<std::string> ConfigurationRunnable::getTargetType() {
  const std::string dn = getDnValue(USER_MANAGEMENT_CLASS);
  std::vector<std::string> targetType;
  if (!readTargetType(dn, targetType)) QIV_LOG(4, "Unable to get  %s,targetType", dn.c_str());
  return targetType;
}

bool ConfigurationRunnable::readTargetType(const std::string& userManagementDn, std::vector<std::string>& targetType) {
  try {
    Qiv::MoAccessor accessor(ACCESSOR_LOCK_POLICY, ACCESSOR_TIMEOUT_SECONDS);
    targetType = accessor.getSeqAttr<std::string>(userManagementDn, TARGET_TYPE);
    return true;
  } catch (const std::exception& e) {
    QIV_TRACE("Reason: %s", e.what());
    return false;
  }
}

void ConfigurationRunnable::initCipher() {
  const std::string tlsDn = getDnValue(TLS_CLASS);
  std::string cipherFilter = DEFAULT_CIPHER_FILTER;
  if (!tlsDn.empty()) {
    _tlsDnExists = true;
    cipherFilter = getCipherFilter(tlsDn);
  }
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  _ldapConfiguration.cipherFilter = cipherFilter;
}

std::string ConfigurationRunnable::getCipherFilter(const std::string& tlsDn) {
  assert(_tlsDnExists == true);
  try {
    Qiv::MoAccessor accessor(ACCESSOR_LOCK_POLICY, ACCESSOR_TIMEOUT_SECONDS);
    const Qiv::MoAccessor::Optional<std::string> cipherFilter =
        accessor.getOptionalAttrStrict<std::string>(tlsDn, CIPHER_FILTER);
    if (cipherFilter.hasValue() && holdsControlCharacter(cipherFilter.get())) {
      QIV_LOG(3, "%s, using the default cipher filter %s", CIPHER_FILTER_CONTROL_TEXT, DEFAULT_CIPHER_FILTER);
      return DEFAULT_CIPHER_FILTER;
    }
    if (cipherFilter.hasValue()) return cipherFilter.get() + CIPHER_STRENGTH_SUFFIX;
  } catch (const std::exception& e) {
    QIV_TRACE("Reason: %s", e.what());
  }
  QIV_LOG(4, "Unable to get  %s,cipherFilter, using default cipher filter : %s ", tlsDn.c_str(), DEFAULT_CIPHER_FILTER);
  return DEFAULT_CIPHER_FILTER;
}

int ConfigurationRunnable::decryptPw(const std::string& encrypted, std::string& clear) {
  if (!_crypto.hasInterface()) {
    QIV_LOG(3, "No crypto service available to decrypt the bind password");
    return -1;
  }
  char* buffer = nullptr;
  const int result = _crypto.decrypt(encrypted.c_str(), &buffer);
  // The service may hand a buffer back on failure too; it is released either way.
  const MallocedText owned(buffer, &std::free);
  if (result != 0) {
    QIV_LOG(3, "Failed to decrypt the bind password (%d)", result);
    return result;
  }
  if (owned) clear = owned.get();
  return result;
}

void ConfigurationRunnable::releaseCrypto() { _crypto.release(); }

int ConfigurationRunnable::getState() const {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  return _state;
}

bool ConfigurationRunnable::isTlsDnExists() const { return _tlsDnExists; }

bool ConfigurationRunnable::isLdap20MigrationRunning() const { return _ldap20MigrationRunning; }

std::string ConfigurationRunnable::getNodeCredentialMoRef() const {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  return _nodeCredentialMoRef;
}

std::string ConfigurationRunnable::getTrustCategoryMoRef() const {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  return _trustCategoryMoRef;
}

void ConfigurationRunnable::setNodeCredentialMoRef(const std::string& moRef) {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  _nodeCredentialMoRef = moRef;
}

void ConfigurationRunnable::setTrustCategoryMoRef(const std::string& moRef) {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  _trustCategoryMoRef = moRef;
}

void ConfigurationRunnable::prepareLdapCommand(const LdapConfiguration& config) {
  _authentication.prepareLdapCommand(config);
}

int ConfigurationRunnable::prepareUpdateConfiguration(const LdapConfiguration& config) {
  return _authentication.prepareUpdateConfiguration(config);
}

int ConfigurationRunnable::updateConfiguration(const LdapConfiguration& config) {
  return _authentication.updateConfiguration(config);
}

int ConfigurationRunnable::setDefaultConfiguration() { return _authentication.setDefaultConfiguration(); }

void ConfigurationRunnable::eraseArgument(std::vector<std::string>& args, const std::string& text) {
  QiveaAuthenticationCommand::eraseArgument(args, text);
}

std::string ConfigurationRunnable::getTextForTlsMode(TlsMode mode) {
  return QiveaAuthenticationCommand::getTextForTlsMode(mode);
}

void ConfigurationRunnable::setQiveaCapabilities() { _authentication.setQiveaCapabilities(); }

bool ConfigurationRunnable::probeTlsMode() { return _authentication.probeTlsMode(); }

bool ConfigurationRunnable::getQiveaTlsModeSupport() const {
  return hasReadConfiguration() && _authentication.isTlsModeSupported();
}

bool ConfigurationRunnable::hasReadConfiguration() const {
  const int state = getState();
  return state == STATE_READ_FAILED || state == STATE_LOOP_RUNNING || state == STATE_CONFIGURATION_SET;
}

std::vector<std::string> ConfigurationRunnable::getLdapCommandArgs() const { return _authentication.getLdapCommandArgs(); }

const std::string& ConfigurationRunnable::getPasswordFilePath() const { return _authentication.getPasswordFilePath(); }

int ConfigurationRunnable::init(QivMgmtSpiInterfacePortal_1* portal, const std::string& ldapAuthenticationMethodDn,
                                const char* config) {
  if (portal == nullptr || ldapAuthenticationMethodDn.empty()) {
    QIV_TRACE("Invalid arguments");
    // Whatever an earlier init left must not let run() go on without a portal.
    _portal = nullptr;
    setState(STATE_CREATED);
    return -1;
  }
  _portal = portal;
  _ldapAuthenticationMethodDn = ldapAuthenticationMethodDn;
  {
    // Each start reads from scratch: nothing removed from the model while stopped (the bind
    // password above all) may survive into the new record.
    Poco::Mutex::ScopedLock lock(_configurationMutex);
    _ldapConfiguration = LdapConfiguration();
  }
  _useTlsSet = false;
  _baseDnSet = false;
  // A stop request that an earlier run never read must not end the next one.
  for (Poco::Pipe* pipe : {&_stopRequest, &_subscribeRequest, &_subscribeComplete}) drain(*pipe);
  _hasComponentConfiguration = config != nullptr;
  _componentConfiguration = config != nullptr ? config : "";
  // Start sets LDAPNOINIT from this before the rest of the component file is read.
  readUseQivAuthorization(config);
  initCipher();
  setQiveaCapabilities();
  setState(STATE_INITIALISED);
  return 0;
}

int ConfigurationRunnable::readComponentConfiguration() {
  return readComponentConfiguration(_hasComponentConfiguration ? _componentConfiguration.c_str() : nullptr);
}

void ConfigurationRunnable::setStartUpCondition(Poco::Condition* condition, Poco::FastMutex* mutex) {
  _startUpCondition = condition;
  _startUpMutex = mutex;
}

void ConfigurationRunnable::run() {
  QIV_TRACE(" >> ");
  try {
    if (getState() != STATE_INITIALISED || _portal == nullptr) {
      QIV_LOG(3, "Not initialized!");
      return;
    }
    // A configuration that cannot be read gives no start-up signal: start-up then times out.
    if (readInitialConfiguration() != 0) return;
    subscribeCertificates();
    applyInitialConfiguration();
    signalStartUp();
    serveEvents();
  } catch (const Qiv::QivException& e) {
    QIV_LOG(3, "FATAL QivException: %s", e.what());
  } catch (const std::exception& e) {
    QIV_LOG(3, "FATAL std Exception: %s", e.what());
  } catch (...) {
    QIV_LOG(3, "FATAL unknown exception!");
  }
  // However the loop ended (security API gone, select failed, an exception), nobody answers a
  // re-subscription request any more: the transaction side must not wait for one.
  _secApiOpRunning = false;
  QIV_TRACE(" << ");
}

void ConfigurationRunnable::subscribeCertificates() {
  const std::string nodeCredential = getNodeCredentialMoRef();
  const std::string trustCategory = getTrustCategoryMoRef();
  if (nodeCredential.empty() && trustCategory.empty()) {
    QIV_TRACE("NodeCred Mo Ref and TrustCat Mo Ref not set in initial configuration");
  } else if (nodeCredential.empty() || trustCategory.empty()) {
    QIV_LOG(4, "NodeCred Mo Ref or TrustCat Mo Ref not set in initial configuration");
  } else if (!_secApi.isAvailable()) {
    QIV_LOG(4, "Sec Api is not available");
  } else if (_secApi.subscribe(nodeCredential, trustCategory) == -1) {
    QIV_LOG(4, "Subscription to Sec Api for nodeCredential and trustCategory failed");
  } else {
    QIV_TRACE("subscribed to Sec Api for nodeCredential and trustCategory");
    refreshCertificateFiles();
  }
}

void ConfigurationRunnable::refreshCertificateFiles() {
  const std::string certificate = _secApi.getNodeCertFileName();
  const std::string key = _secApi.getNodeKeyFileName();
  const std::string trustedDirectory = _secApi.getTrustCatDirName();
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  _ldapConfiguration.nodeCredential.nodeCertFileName = certificate;
  _ldapConfiguration.nodeCredential.nodeKeyFileName = key;
  _ldapConfiguration.trustCategory.trustCatDirName = trustedDirectory;
}

void ConfigurationRunnable::applyInitialConfiguration() {
  LdapConfiguration config = getLdapConfiguration();
  if (config.administrativeState == UNLOCKED) {
    QIV_TRACE("Initial LDAP configuration read - validating...");
    if (validateConfiguration(&config, false) != 0) {
      QIV_LOG(3, "Invalid initial LDAP configuration!");
      setState(STATE_INVALID);
    }
  }
  const bool locked = config.administrativeState == LOCKED;
  const bool unlocked = config.administrativeState == UNLOCKED;
  if (!_ldapMethod.isSecAaFwAvailable()) {
    QIV_LOG(6, "Using QIV LDAP implementation");
    if (locked && config.useTls && !probeTlsMode()) setState(STATE_INVALID);
    // A LOCKED configuration is applied too, so that the node switches LDAP off.
    if (locked || (unlocked && getState() == STATE_READING)) {
      if (prepareUpdateConfiguration(config) == 0 && updateConfiguration(config) == 0) {
        Poco::Mutex::ScopedLock lock(_configurationMutex);
        _initialConfigurationSet = true;
      } else {
        setState(STATE_INVALID);
      }
    }
  } else {
    QIV_LOG(6, "Using SEC AA FW");
    _usingSecAaFramework = true;
    if (locked && getState() == STATE_READING) {
      const int result = deregisterLdapModule();
      if (result != 0) QIV_LOG(3, "Failed to deregister LDAP SM in SEC AA FW: %d", result);
    } else if (unlocked && getState() == STATE_READING) {
      setDefaultConfiguration();
      const int result = registerLdapModule();
      if (result != 0) {
        setState(STATE_INVALID);
        QIV_LOG(3, "Failed to register LDAP SM in SEC AA FW: %d", result);
      }
    }
  }
  if (!locked && !unlocked) {
    QIV_LOG(3, "Invalid administrativeState (%d)!", static_cast<int>(config.administrativeState));
    setState(STATE_INVALID);
  }
  if (getState() == STATE_READING) {
    setState(STATE_CONFIGURATION_SET);
    QIV_TRACE("Initial LDAP configuration set");
  } else {
    QIV_LOG(3, "Unable to set initial configuration!");
  }
}

void ConfigurationRunnable::signalStartUp() {
  if (_startUpCondition == nullptr || _startUpMutex == nullptr) return;
  QIV_TRACE("Signal that start-up is complete to AccessManagementComponent");
  // The waiter holds the mutex until it waits, so the signal cannot come too early.
  _startUpMutex->lock();
  _startUpMutex->unlock();
  _startUpCondition->signal();
}

void ConfigurationRunnable::serveEvents() {
  if (!_secApi.isAvailable()) {
    QIV_TRACE("SEC API is not available");
    _secApiOpRunning = false;
    return;
  }
  setState(STATE_LOOP_RUNNING);
  _secApiOpRunning = true;
  while (true) {
    fd_set readSet;
    int maxFd = -1;
    if (updateFDSet(readSet, maxFd) == -2) return;
    if (!_secApiOpRunning) break;
    timeval timeout = {1, 0};
    const int ready = select(maxFd + 1, &readSet, nullptr, nullptr, &timeout);
    if (ready == 0) continue;
    if (ready == -1) {
      if (errno == EINTR) {
        QIV_LOG(4, "Interrupt signal caught");
        continue;
      }
      QIV_LOG(3, "Select call returned: %d (%s).", ready, std::strerror(errno));
      break;
    }
    char byte = 0;
    const int secApiFd = _secApi.getEventFd();
    if (FD_ISSET(_subscribeRequest.readHandle(), &readSet)) {
      _subscribeRequest.readBytes(&byte, 1);
      QIV_TRACE("Subscribe to SecApi with new nodeCredential or trustCategory");
      _secApi.subscribe(getNodeCredentialMoRef(), getTrustCategoryMoRef());
      const char answer = 'S';
      _subscribeComplete.writeBytes(&answer, 1);
    } else if (secApiFd != -1 && FD_ISSET(secApiFd, &readSet)) {
      if (_secApi.handleEvent()) {
        QIV_TRACE("Certificate or key contents changed in CertM");
        updateCertsAndKey();
      }
    } else if (FD_ISSET(_stopRequest.readHandle(), &readSet)) {
      _stopRequest.readBytes(&byte, 1);
      _secApiOpRunning = false;
      QIV_TRACE("Stop Notification received. Stopping configuration runnable");
      break;
    }
  }
  if (getState() == STATE_LOOP_RUNNING) QIV_TRACE("Select loop terminated.");
  setState(STATE_CONFIGURATION_SET);
}

int ConfigurationRunnable::updateFDSet(fd_set& readSet, int& maxFd) {
  FD_ZERO(&readSet);
  try {
    FD_SET(_subscribeRequest.readHandle(), &readSet);
    FD_SET(_stopRequest.readHandle(), &readSet);
    maxFd = std::max(_subscribeRequest.readHandle(), _stopRequest.readHandle());
    if (!_secApi.isAvailable()) {
      QIV_LOG(4, "sec api is not available");
      return -2;
    }
    const int secApiFd = _secApi.getEventFd();
    if (secApiFd != -1) {
      FD_SET(secApiFd, &readSet);
      maxFd = std::max(maxFd, secApiFd);
    }
  } catch (const Poco::Exception& e) {
    QIV_LOG(3, "FATAL Poco Exception: %s", e.displayText().c_str());
  }
  return 0;
}

void ConfigurationRunnable::stop() {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  _state = STATE_STOPPING;
  _initialConfigurationSet = false;
  releaseCrypto();
  try {
    const char request = 'S';
    _stopRequest.writeBytes(&request, 1);
  } catch (const Poco::Exception& e) {
    QIV_LOG(3, "FATAL Poco Exception: %s", e.displayText().c_str());
  }
  _secApiOpRunning = false;
  _state = STATE_STOPPED;
}

bool ConfigurationRunnable::requestResubscription() {
  try {
    const char request = 'S';
    _subscribeRequest.writeBytes(&request, 1);
    // The loop may end before it answers (a stop): then nobody will.
    pollfd answerReady = {_subscribeComplete.readHandle(), POLLIN, 0};
    while (::poll(&answerReady, 1, 100) == 0) {
      if (!_secApiOpRunning) return false;
    }
    char answer = 0;
    if (_subscribeComplete.readBytes(&answer, 1) != 1) return false;
    QIV_TRACE("Read 1 byte sent from configuration runnable thread for _subscribeCompleteNotification");
    return true;
  } catch (const Poco::Exception& e) {
    QIV_LOG(3, "FATAL Poco Exception: %s", e.displayText().c_str());
    return false;
  }
}

int ConfigurationRunnable::ldapConfigurationUpdated(const LdapConfiguration* config) {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  _ldapConfiguration = *config;
  _initialConfigurationSet = true;
  return 0;
}

int ConfigurationRunnable::updateCertsAndKey() {
  refreshCertificateFiles();
  LdapConfiguration config = getLdapConfiguration();
  if (!isApplicable(config)) return -9;
  if (_usingSecAaFramework) return updateConfigurationUsingSecAA(config);
  const int prepared = prepareUpdateConfiguration(config);
  return prepared != 0 ? prepared : updateConfiguration(config);
}

void ConfigurationRunnable::cipherReconfiguration(const std::string& filter) {
  QIV_TRACE(" >> ");
  assert(_tlsDnExists == true);
  if (holdsControlCharacter(filter)) {
    // The Tls MO's change is committed already; all that is left is not to take it.
    QIV_LOG(3, "%s, keeping cipherFilter %s", CIPHER_FILTER_CONTROL_TEXT, getLdapConfiguration().cipherFilter.c_str());
    QIV_TRACE(" << ");
    return;
  }
  const std::string newFilter = filter + CIPHER_STRENGTH_SUFFIX;
  if (!_usingSecAaFramework && !_authentication.isCipherFilterSupported()) {
    QIV_TRACE("Qivea is not supported , not reconfiguring the cipher filter");
    QIV_TRACE(" << ");
    return;
  }
  // The security framework always takes the cipher list.
  if (_usingSecAaFramework) _authentication.setCipherFilterSupported(true);
  LdapConfiguration config;
  {
    Poco::Mutex::ScopedLock lock(_configurationMutex);
    if (newFilter == _ldapConfiguration.cipherFilter) {
      QIV_TRACE("Not reconfiguring with cipherFilter %s since same as already set filter", newFilter.c_str());
      QIV_TRACE(" << ");
      return;
    }
    _ldapConfiguration.cipherFilter = newFilter;
    config = _ldapConfiguration;
  }
  if (!config.useTls) {
    // Takes effect with the next configuration that is applied.
    QIV_TRACE("Not reconfiguring with cipherFilter %s since useTls set to false", newFilter.c_str());
    QIV_TRACE(" << ");
    return;
  }
  if (!isApplicable(config)) {
    QIV_TRACE(" << ");
    return;
  }
  QIV_TRACE("Reconfiguring with cipherFilter %s", newFilter.c_str());
  if (_usingSecAaFramework) {
    updateConfigurationUsingSecAA(config);
  } else if (prepareUpdateConfiguration(config) == 0) {
    updateConfiguration(config);
  }
  QIV_TRACE(" << ");
}

int ConfigurationRunnable::updateConfigurationUsingSecAA(const LdapConfiguration& config) {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  ldapConfigurationUpdated(&config);
  if (config.administrativeState == UNLOCKED) {
    QIV_TRACE("Configuration update, administrativeState UNLOCKED - register again Ldap Module");
    return registerLdapModule();
  }
  if (config.administrativeState == LOCKED) {
    QIV_TRACE("Configuration update, administrativeState LOCKED - deregister Ldap Module");
    return deregisterLdapModule();
  }
  QIV_LOG(3, "Invalid administrativeState (%d)!", static_cast<int>(config.administrativeState));
  return -1;
}

int ConfigurationRunnable::registerLdapModule() {
  // A commit and the configuration thread never lay out the directory at the same time.
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  std::string clearPath;
  int result = _qivEa.getQivPsoClearPath(clearPath, PSO_CLEAR_PATH_TIMEOUT_MS);
  if (result != 0) {
    QIV_LOG(3, "Failed to get PSO clear path (%d)", result);
    return result;
  }
  const std::string directory = clearPath + SEC_ACS_DIRECTORY;
  result = createAcsDirectory(directory);
  if (result != 0) {
    QIV_LOG(3, "Failed to create directory (%d)", result);
    return result;
  }
  LdapConfigFileProducer producer;
  result = createCertificateStorage(directory, producer);
  if (result != 0) {
    QIV_LOG(3, "Failed to create certificate storage (%d)", result);
    return result;
  }
  const LdapConfiguration& config = _ldapConfiguration;
  producer.setServiceModelPath(config.serviceModule);
  QIV_TRACE("Setting service module to: %s ", config.serviceModule.c_str());
  const std::string frameworkFile = directory + FRAMEWORK_FILE;
  result = producer.writeSecAaConfig(frameworkFile, config);
  if (result != 0) {
    QIV_LOG(3, "Failed to write ACS Configuration file (%s) (%d)", frameworkFile.c_str(), result);
    return result;
  }
  // The order is fixed: the service module gets its file only once the framework took its own.
  result = _ldapMethod.registerLdapServiceModule(frameworkFile);
  if (result != 0) {
    QIV_LOG(3, "Failed to register service module (%d)", result);
    return result;
  }
  const std::string serviceModuleFile = directory + SERVICE_MODULE_FILE;
  result = producer.writeLdapSmConfig(serviceModuleFile, config);
  if (result != 0)
    QIV_LOG(3, "Failed to write LDAP service module configuration (%s) (%d)", serviceModuleFile.c_str(), result);
  return result;
}

int ConfigurationRunnable::deregisterLdapModule() { return _ldapMethod.deregisterLdapServiceModule(); }

int ConfigurationRunnable::createAcsDirectory(const std::string& path) { return _secAcsDirectory.createAcsDirectory(path); }

int ConfigurationRunnable::createCertificateStorage(const std::string& dir, LdapConfigFileProducer& producer) {
  return _secAcsDirectory.createCertificateStorage(dir, getLdapConfiguration(), producer);
}

int ConfigurationRunnable::copyCert(const std::string& source, const std::string& targetDir, std::string& copiedPath) {
  return _secAcsDirectory.copyCert(source, targetDir, copiedPath);
}

bool ConfigurationRunnable::isRunning() const {
  const int state = getState();
  return state == STATE_READING || state == STATE_INVALID;
}

bool ConfigurationRunnable::isInitialConfigurationSet() const {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  return _initialConfigurationSet;
}

bool ConfigurationRunnable::isUsingSecAaFramework() const { return _usingSecAaFramework; }

bool ConfigurationRunnable::isSecApiOpRunning() const { return _secApiOpRunning; }

Qiv::SecApi* ConfigurationRunnable::getSecApiObj() { return &_secApi; }

void ConfigurationRunnable::setState(int state) {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  _state = state;
}

LdapConfiguration ConfigurationRunnable::getLdapConfiguration() {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  return _ldapConfiguration;
}

uint16_t ConfigurationRunnable::getInitConfigTimeoutValue() const { return _ldapConfiguration.initConfigTimeout; }

bool ConfigurationRunnable::getUseQivAuthorization() const { return _useQivAuthorization; }

void ConfigurationRunnable::setUseTlsSet(bool set) { _useTlsSet = set; }

void ConfigurationRunnable::setBaseDnSet(bool set) { _baseDnSet = set; }

bool ConfigurationRunnable::isUseTlsSet() const { return _useTlsSet; }

bool ConfigurationRunnable::isBaseDnSet() const { return _baseDnSet; }

void ConfigurationRunnable::setLdap20AttributesExist(bool exist) { _ldap20AttributesExist = exist; }

bool ConfigurationRunnable::isLdap20AttributesExist() const { return _ldap20AttributesExist; }

}  // namespace QivAccessManagement
