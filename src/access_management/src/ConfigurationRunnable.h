#ifndef QIV_ACCESS_MANAGEMENT_CONFIGURATION_RUNNABLE_H
#define QIV_ACCESS_MANAGEMENT_CONFIGURATION_RUNNABLE_H

#include "LdapConfiguration.h"

#include <PymSpiTypes.h>
#include <Poco/Mutex.h>

#include <cstdint>
#include <string>
#include <vector>

namespace QivAccessManagement {

// Owns the component's LDAP configuration: reads it from the component file, validates it and
// keeps the current record. The record and the configuration state are guarded by the
// configuration mutex; the marks (useTlsSet, baseDnSet, ldap20AttributesExist) are plain flags.
class ConfigurationRunnable {
 public:
  ConfigurationRunnable();
  ~ConfigurationRunnable();
  ConfigurationRunnable(const ConfigurationRunnable&) = delete;
  ConfigurationRunnable& operator=(const ConfigurationRunnable&) = delete;

  // Framework interfaces the runnable may use (the thread context for operator messages).
  // Borrowed; they must outlive the runnable.
  void addExternalInterface(PymMgmtSpiInterface_1* interface);

  // Hands text to the operator whose request is served, marked "@qivnbi@", through the
  // "PymMgmtSpiThreadContext" interface; a missing interface or a refusal is only logged.
  void addMessage(const std::string& text);

  // Checks config against every rule, in a fixed order, logging each violation as a warning
  // and, with addMessages, handing it to the operator. 0 when valid, -9 (or -1 for an
  // unusable port pattern) otherwise. Never throws, never changes config.
  int validateConfiguration(LdapConfiguration* config, bool addMessages);
  int verifyTlsClientAttributes(LdapConfiguration* config, bool addMessages);
  int verifyMandatoryLdapAttributes(LdapConfiguration* config, bool addMessages);
  int verifyFilterAttributes(LdapConfiguration* config, bool addMessages);
  int verifyBindAttributes(LdapConfiguration* config, bool addMessages);
  int verifyTargetBasedAccessControlAndTargetTypeAttributes(LdapConfiguration* config, bool addMessages);

  // Length (bytes; maxLength applies only when above minLength) and pattern check of one value.
  // 0 valid, -9 violated, -1 when the pattern does not compile.
  int validateAttribute(const std::string& name, int minLength, int maxLength, const std::string& pattern,
                        const std::string& value, bool addMessages);

  // Reads the component's own XML configuration (null: nothing to read) into the record:
  // port, TLS mode, service module, start-up time-out and built-in authorization. 0 on success
  // or when there is nothing to read, -9 for an invalid value (configFileInvalid then set), -1
  // for a document that does not parse or a service module that cannot be opened. Exceptions
  // of the time-out conversion pass to the caller. Takes the configuration mutex.
  int readComponentConfiguration(const char* config);

  // Whole-string signed decimal conversion; throws Qiv::QivException otherwise.
  int stringToInt(const std::string& text) const;
  // The start-up time-out: a non-negative integer cut to 16 bits; throws Qiv::QivException.
  uint16_t convertAndValidateInitConfigTimeoutValue(const std::string& text) const;

  // A copy of the current record, taken under the configuration mutex.
  LdapConfiguration getLdapConfiguration();
  uint16_t getInitConfigTimeoutValue() const;
  // True when role queries use the component's own LDAP client.
  bool getUseQivAuthorization() const;

  void setUseTlsSet(bool set);
  void setBaseDnSet(bool set);
  void setLdap20AttributesExist(bool exist);
  bool isLdap20AttributesExist() const;

 private:
  // The result of one rule: its log line as a warning and, with addMessages, its operator text.
  int reportViolation(const std::string& logText, const std::string& operatorText, bool addMessages);

  Poco::FastMutex _configurationMutex;
  LdapConfiguration _ldapConfiguration;
  std::vector<PymMgmtSpiInterface_1*> _externalInterfaces;
  bool _useTlsSet;
  bool _baseDnSet;
  bool _ldap20AttributesExist;
  bool _useQivAuthorization;
};

}  // namespace QivAccessManagement

#endif
