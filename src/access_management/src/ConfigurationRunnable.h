#ifndef QIV_ACCESS_MANAGEMENT_CONFIGURATION_RUNNABLE_H
#define QIV_ACCESS_MANAGEMENT_CONFIGURATION_RUNNABLE_H

#include "AmQivEaWrapper.h"
#include "LdapConfigFileProducer.h"
#include "LdapConfiguration.h"
#include "LdapMethod.h"
#include "OperatorMessages.h"
#include "QiveaAuthenticationCommand.h"
#include "SecAcsDirectory.h"

#include <PymMgmtSpiPortal.h>
#include <Poco/Condition.h>
#include <Poco/Mutex.h>
#include <Poco/Pipe.h>
#include <Poco/Runnable.h>
#include <Qiv/CryptoUtility.h>
#include <Qiv/SecApi.h>

#include <sys/select.h>

#include <atomic>

#include <cstdint>
#include <string>
#include <vector>

namespace Qiv {
class MoAccessor;
}

namespace QivAccessManagement {

// Owns the component's LDAP configuration: reads it from the component file and the model,
// validates it, keeps the current record and applies it, through qivea
// (QiveaAuthenticationCommand) or the security framework (SecAcsDirectory, LdapMethod). The
// record, the state and the MO references are guarded by the configuration mutex; the marks
// (useTlsSet, baseDnSet, ldap20AttributesExist, tlsDnExists, the migration mark,
// useQivAuthorization) are atomic flags, read by transaction, interceptor and request threads
// while this thread sets them.
class ConfigurationRunnable : public Poco::Runnable {
 public:
  // The thread's progress, as getState() reports it.
  enum State {
    STATE_CREATED = 0,
    STATE_INITIALISED = 1,
    STATE_READING = 2,
    STATE_READ_FAILED = 3,
    STATE_INVALID = 4,
    STATE_LOOP_RUNNING = 5,
    STATE_CONFIGURATION_SET = 6,
    STATE_STOPPING = 7,
    STATE_STOPPED = 8
  };

  ConfigurationRunnable();
  ~ConfigurationRunnable() override;
  ConfigurationRunnable(const ConfigurationRunnable&) = delete;
  ConfigurationRunnable& operator=(const ConfigurationRunnable&) = delete;

  // The configuration thread. init (on the framework's control thread, before the thread
  // starts) keeps the portal, the LdapAuthenticationMethod DN and the component configuration,
  // reads whether the built-in authorization is wanted, finds the cipher filter and asks qivea
  // what it supports: 0, or -1 ("Invalid arguments") for a null portal or an empty DN.
  int init(QivMgmtSpiInterfacePortal_1* portal, const std::string& ldapAuthenticationMethodDn, const char* config);
  // Where run() signals that the initial configuration was read and applied; null: nobody waits.
  // Both stay the caller's.
  void setStartUpCondition(Poco::Condition* condition, Poco::FastMutex* mutex);
  // Reads, validates and applies the initial configuration, signals start-up, then serves the
  // certificate events and re-subscription requests until stop().
  void run() override;
  // Tells the thread to end (from any thread); the caller joins it.
  void stop();
  // The transaction side's re-subscription with the current MO references: asks the thread and
  // waits for its answer. False when the thread did not answer.
  bool requestResubscription();
  // Takes a newly committed record as the current one.
  int ldapConfigurationUpdated(const LdapConfiguration* config);
  // While the initial configuration is read or found invalid: role queries must wait.
  bool isRunning() const;
  bool isInitialConfigurationSet() const;
  bool isUsingSecAaFramework() const;
  bool isSecApiOpRunning() const;
  Qiv::SecApi* getSecApiObj();
  // The component file kept by init.
  int readComponentConfiguration();
  // The Tls MO's cipher list changed (filter without the strength suffix): stores it and, when
  // TLS is in use and the back end takes it, applies the configuration again. Only while the Tls
  // MO exists. The configuration thread or the event router's thread.
  void cipherReconfiguration(const std::string& filter);
  // Re-applies the configuration with the node's new certificate files, through the security
  // framework when it is in use, else through qivea. The result of the re-apply.
  int updateCertsAndKey();

  // Applying a configuration through the security framework. All of it runs under the
  // configuration mutex, the runs of qivea and "acs-config-update" included; SecAcsDirectory
  // does the directory and certificate-store work.
  // Takes config as the current record; UNLOCKED registers the LDAP service module again,
  // LOCKED deregisters it. That step's result (-1 for any other state).
  int updateConfigurationUsingSecAA(const LdapConfiguration& config);
  // Lays out "sec-acs" below qivea's PSO clear path for the current record: the directory, the
  // certificate store, the framework file "LdapSecAa.cfg", its registration, and only then the
  // service module's file "LdapSm.cfg". 0, or the failing step's code after its message; what
  // was written before stays.
  int registerLdapModule();
  // Takes the LDAP service module's registration back: 0, -1, or -2 without the framework.
  int deregisterLdapModule();
  // The steps of registerLdapModule (see SecAcsDirectory); createCertificateStorage copies the
  // current record's files.
  int createAcsDirectory(const std::string& path);
  int createCertificateStorage(const std::string& dir, LdapConfigFileProducer& producer);
  int copyCert(const std::string& source, const std::string& targetDir, std::string& copiedPath);

  // Framework interfaces handed over at start, the thread context among them; the runnable
  // itself uses the crypto service ("PymMwSpiCrypto") for the bind password. Operator texts go
  // through setOperatorMessages instead. Borrowed; they must outlive the runnable.
  void addExternalInterface(PymMgmtSpiInterface_1* interface);

  // Where operator texts go (the component); borrowed, null: only logged.
  void setOperatorMessages(OperatorMessages* operatorMessages);
  // Hands text to the operator whose request is served, through the component's channel; with
  // none, or when it refuses, the text is only logged.
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
  // Every text that reaches qivea's arguments or the security framework's files (the password
  // and the certificate file names included) must be free of C0 control characters and DEL: a
  // line break would add lines of its own to those files. Reported by name, never by value.
  int verifyControlCharacters(LdapConfiguration* config, bool addMessages);
  // ldapIpAddress and fallbackLdapIpAddress must name one server: no URI or scheme (it would
  // override the configured TLS), no comma or blank (further URIs).
  int verifyServerAddresses(LdapConfiguration* config, bool addMessages);

  // Length (bytes; maxLength applies only when above minLength) and pattern check of one value.
  // 0 valid, -9 violated, -1 when the pattern does not compile.
  int validateAttribute(const std::string& name, int minLength, int maxLength, const std::string& pattern,
                        const std::string& value, bool addMessages);

  // Reads the component's own XML configuration (null: nothing to read) into the record:
  // port, TLS mode, service module and start-up time-out. 0 on success
  // or when there is nothing to read, -9 for an invalid value (configFileInvalid then set), -1
  // for a document that does not parse or a service module that cannot be opened. Exceptions
  // of the time-out conversion pass to the caller. Takes the configuration mutex.
  int readComponentConfiguration(const char* config);

  // Whole-string signed decimal conversion; throws Qiv::QivException otherwise.
  int stringToInt(const std::string& text) const;
  // The start-up time-out: a non-negative integer cut to 16 bits; throws Qiv::QivException.
  uint16_t convertAndValidateInitConfigTimeoutValue(const std::string& text) const;

  // The initial read of the model into the record (state STATE_READING meanwhile): the
  // administrative state, the Ldap attributes with the migration of a pre-2.0 configuration,
  // the Filter and OrbelinFilter children and the MO references. A single unreadable attribute
  // is logged and skipped. 0 when the read completed; -1 (state STATE_READ_FAILED, record
  // unchanged) when there is no LdapAuthenticationMethod, the migration failed or the component
  // file is invalid for a model without the Ldap 2.0 attributes.
  int readInitialConfiguration();

  // Fills the Ldap 2.0 attributes of a configuration that only has the deprecated ones:
  // profileFilter from filterType, tlsMode and serverPort from the component file, targetType
  // from nodeType and, for filterType 2, the OrbelinFilter values; commits through accessor.
  // 0 when every step succeeded.
  int updateLdap20values(FilterType filterType, Qiv::MoAccessor& accessor);

  // DN of the first instance of classPath (comma form), or "" with a warning.
  std::string getDnValue(const std::string& classPath);
  // Whether UserManagement's "targetType" can be read.
  bool isUserManagementDnExists();
  // UserManagement's "targetType", empty (after a warning) when it cannot be read.
  std::vector<std::string> getTargetType();

  // Sets the record's cipher filter from the Tls MO, or to the default when there is none.
  void initCipher();
  // The Tls MO's "cipherFilter" + ":@STRENGTH", or the default with a warning. Only once the Tls
  // MO is known to exist.
  std::string getCipherFilter(const std::string& tlsDn);

  // Decrypts a stored password with the framework's crypto service: the service's result, -1
  // without a service; clear is set only on success.
  int decryptPw(const std::string& encrypted, std::string& clear);
  // Drops the crypto context; later decryptions fail.
  void releaseCrypto();

  int getState() const;
  bool isTlsDnExists() const;
  // True while the initial read writes the Ldap 2.0 attributes derived from the deprecated ones.
  bool isLdap20MigrationRunning() const;
  // DNs of the referenced NodeCredential and TrustCategory ("" when not set).
  std::string getNodeCredentialMoRef() const;
  std::string getTrustCategoryMoRef() const;
  void setNodeCredentialMoRef(const std::string& moRef);
  void setTrustCategoryMoRef(const std::string& moRef);

  // A copy of the current record, taken under the configuration mutex.
  LdapConfiguration getLdapConfiguration();
  uint16_t getInitConfigTimeoutValue() const;
  // True when role queries use the component's own LDAP client.
  bool getUseQivAuthorization() const;

  // Applying a configuration through the adaptation command: entry points of
  // QiveaAuthenticationCommand, which does the work and describes each.
  void setQiveaCapabilities();
  bool probeTlsMode();
  void prepareLdapCommand(const LdapConfiguration& config);
  int prepareUpdateConfiguration(const LdapConfiguration& config);  // 0 or -6
  int updateConfiguration(const LdapConfiguration& config);         // 0 or -7
  int setDefaultConfiguration();                                     // 0 or -7
  static void eraseArgument(std::vector<std::string>& args, const std::string& text);
  static std::string getTextForTlsMode(TlsMode mode);
  // The probe's answer, once the configuration has been read; false before.
  bool getQiveaTlsModeSupport() const;
  // True once the initial read has ended (failed, looping or done).
  bool hasReadConfiguration() const;
  std::vector<std::string> getLdapCommandArgs() const;
  const std::string& getPasswordFilePath() const;

  void setUseTlsSet(bool set);
  void setBaseDnSet(bool set);
  bool isUseTlsSet() const;
  bool isBaseDnSet() const;
  void setLdap20AttributesExist(bool exist);
  bool isLdap20AttributesExist() const;

 private:
  // "useBuiltInAuthorization" of the component file (false when absent or invalid, logged then).
  void readUseQivAuthorization(const char* config);
  // The result of one rule: its log line as a warning and, with addMessages, its operator text.
  int reportViolation(const std::string& logText, const std::string& operatorText, bool addMessages);
  // False (logged) when an UNLOCKED config holds a value that those two rules refuse: the current
  // record may hold one (an invalid initial read, certificate file names from the security
  // API), and re-applying it must not hand it on.
  bool isApplicable(LdapConfiguration& config);

  // The steps of readInitialConfiguration on the caller's copy of the record; -1 ends the read.
  int readModel(LdapConfiguration& config, std::string& nodeCredentialMoRef, std::string& trustCategoryMoRef);
  // Decides ldap20AttributesExist and migrates a pre-2.0 configuration; -1 when that failed.
  int checkLdap20Attributes(Qiv::MoAccessor& accessor, const std::string& ldapDn, LdapConfiguration& config);
  void readLdapAttributes(Qiv::MoAccessor& accessor, const std::string& ldapDn, LdapConfiguration& config);
  void readBindPassword(Qiv::MoAccessor& accessor, const std::string& ldapDn, LdapConfiguration& config);
  // The Ldap MO below the LdapAuthenticationMethod instance found by the initial read.
  std::string ldapMoDn() const;
  // UserManagement's "targetType"; false when it cannot be read.
  bool readTargetType(const std::string& userManagementDn, std::vector<std::string>& targetType);

  // The steps of run(); each may leave state changed.
  void subscribeCertificates();
  void applyInitialConfiguration();
  void signalStartUp();
  void serveEvents();
  // The descriptors select waits on; -2 when the security API went away.
  int updateFDSet(fd_set& readSet, int& maxFd);
  void setState(int state);
  // The record's certificate files from the security API.
  void refreshCertificateFiles();

  // Recursive, not a FastMutex: updateConfigurationUsingSecAA holds it while the steps it calls
  // (ldapConfigurationUpdated, registerLdapModule) take it again.
  mutable Poco::Mutex _configurationMutex;
  LdapConfiguration _ldapConfiguration;
  int _state;
  std::string _nodeCredentialMoRef;
  std::string _trustCategoryMoRef;
  std::string _ldapAuthenticationMethodDn;
  std::vector<PymMgmtSpiInterface_1*> _externalInterfaces;
  OperatorMessages* _operatorMessages;
  Qiv::CryptoUtility _crypto;
  std::atomic<bool> _useTlsSet;
  std::atomic<bool> _baseDnSet;
  std::atomic<bool> _ldap20AttributesExist;
  std::atomic<bool> _ldap20MigrationRunning;
  std::atomic<bool> _tlsDnExists;
  std::atomic<bool> _useQivAuthorization;
  AmQivEaWrapper _qivEa;
  QiveaAuthenticationCommand _authentication;

  QivMgmtSpiInterfacePortal_1* _portal;
  std::string _componentConfiguration;
  bool _hasComponentConfiguration;
  Poco::Condition* _startUpCondition;
  Poco::FastMutex* _startUpMutex;
  Poco::Pipe _subscribeRequest;
  Poco::Pipe _subscribeComplete;
  Poco::Pipe _stopRequest;
  std::atomic<bool> _secApiOpRunning;
  std::atomic<bool> _initialConfigurationSet;
  std::atomic<bool> _usingSecAaFramework;
  Qiv::SecApi _secApi;
  LdapMethod _ldapMethod;
  SecAcsDirectory _secAcsDirectory;
};

}  // namespace QivAccessManagement

#endif
