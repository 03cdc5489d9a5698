#include "ConfigurationRunnable.h"

#include "LdapModel.h"

#include <PymMgmtSpiThreadContext.h>
#include <Qiv/LoggingWrapper.h>
#include <Qiv/QivConfiguration.h>
#include <Qiv/QivException.h>
#include <Qiv/RegularExpression.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

namespace QivAccessManagement {

using namespace LdapModel;

namespace {

const char THREAD_CONTEXT_INTERFACE[] = "PymMgmtSpiThreadContext";
const char OPERATOR_MESSAGE_MARKER[] = "@qivnbi@";
// POSIX regcomp flags REG_EXTENDED | REG_NEWLINE | REG_NOSUB.
const int PATTERN_OPTIONS = 13;
const char USE_BUILT_IN_AUTHORIZATION_KEY[] = "useBuiltInAuthorization";

struct NodeListRelease {
  void operator()(Poco::XML::NodeList* list) const { list->release(); }
};

}  // namespace

ConfigurationRunnable::ConfigurationRunnable()
    : _useTlsSet(false), _baseDnSet(false), _ldap20AttributesExist(false), _useQivAuthorization(false) {}

ConfigurationRunnable::~ConfigurationRunnable() = default;

void ConfigurationRunnable::addExternalInterface(PymMgmtSpiInterface_1* interface) {
  if (interface != nullptr) _externalInterfaces.push_back(interface);
}

void ConfigurationRunnable::addMessage(const std::string& text) {
  PymMgmtSpiThreadContext_2* threadContext = nullptr;
  for (PymMgmtSpiInterface_1* interface : _externalInterfaces) {
    if (interface->interfaceName != nullptr && std::strcmp(interface->interfaceName, THREAD_CONTEXT_INTERFACE) == 0) {
      threadContext = reinterpret_cast<PymMgmtSpiThreadContext_2*>(interface);
      break;
    }
  }
  if (threadContext == nullptr) {
    QIV_LOG(4, "%s interface missing; failed to add failure message: \"%s\"", THREAD_CONTEXT_INTERFACE, text.c_str());
    return;
  }
  const std::string message = OPERATOR_MESSAGE_MARKER + text;
  const PymReturnT result = threadContext->addMessage(PymThreadContextMessageOperator, message.c_str());
  if (result != 0) QIV_LOG(4, "Failed (%d) to add message!", result);
}

int ConfigurationRunnable::validateConfiguration(LdapConfiguration* config, bool addMessages) {
  // Every rule runs so that every violation is reported; the result follows a fixed priority.
  const int tlsClient = verifyTlsClientAttributes(config, addMessages);
  const int mandatory = verifyMandatoryLdapAttributes(config, addMessages);
  const int filter = verifyFilterAttributes(config, addMessages);
  const int bind = verifyBindAttributes(config, addMessages);
  const int targetBasedAccessControl = verifyTargetBasedAccessControlAndTargetTypeAttributes(config, addMessages);
  int result = 0;
  for (const int ruleResult : {targetBasedAccessControl, bind, filter, mandatory, tlsClient}) {
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
  Poco::FastMutex::ScopedLock lock(_configurationMutex);
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

  value.clear();
  if (Qiv::QivConfiguration::getElementValue(document, element, USE_BUILT_IN_AUTHORIZATION_KEY, value) &&
      !value.empty()) {
    if (value != "true" && value != "false") {
      QIV_LOG(3, "Validation failed, useBuiltInAuthorization has invalid value (%s)", value.c_str());
      record.configFileInvalid = true;
      return -9;
    }
    _useQivAuthorization = value == "true";
    QIV_TRACE("Built-in authorization (%s) retrieved from configuration: %s", USE_BUILT_IN_AUTHORIZATION_KEY,
              value.c_str());
  }
  return 0;
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

LdapConfiguration ConfigurationRunnable::getLdapConfiguration() {
  Poco::FastMutex::ScopedLock lock(_configurationMutex);
  return _ldapConfiguration;
}

uint16_t ConfigurationRunnable::getInitConfigTimeoutValue() const { return _ldapConfiguration.initConfigTimeout; }

bool ConfigurationRunnable::getUseQivAuthorization() const { return _useQivAuthorization; }

void ConfigurationRunnable::setUseTlsSet(bool set) { _useTlsSet = set; }

void ConfigurationRunnable::setBaseDnSet(bool set) { _baseDnSet = set; }

void ConfigurationRunnable::setLdap20AttributesExist(bool exist) { _ldap20AttributesExist = exist; }

bool ConfigurationRunnable::isLdap20AttributesExist() const { return _ldap20AttributesExist; }

}  // namespace QivAccessManagement
