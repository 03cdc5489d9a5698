#ifndef QIV_ACCESS_MANAGEMENT_QIVEA_AUTHENTICATION_COMMAND_H
#define QIV_ACCESS_MANAGEMENT_QIVEA_AUTHENTICATION_COMMAND_H

#include "AmQivEaWrapper.h"
#include "LdapConfiguration.h"

#include <Poco/Mutex.h>

#include <atomic>
#include <string>
#include <vector>

namespace QivAccessManagement {

// Applies a configuration through qivea's "authentication" command: builds the command line
// from a record, sends the dry run and the real command, and knows what qivea's revision takes.
// The command line kept between a prepare and its commit is guarded by the configuration mutex
// it is given, which the sending operations hold for the whole qivea run.
class QiveaAuthenticationCommand {
 public:
  // All three are borrowed and must outlive the object: the runner, the owner's configuration
  // mutex and its mark that the model has the Ldap 2.0 attributes.
  QiveaAuthenticationCommand(const AmQivEaWrapper& qivEa, Poco::Mutex& configurationMutex,
                             const std::atomic<bool>& ldap20AttributesExist);
  QiveaAuthenticationCommand(const QiveaAuthenticationCommand&) = delete;
  QiveaAuthenticationCommand& operator=(const QiveaAuthenticationCommand&) = delete;

  // Builds the "authentication ldap --prepare ..." command line for config into ldapCommandArgs.
  void prepareLdapCommand(const LdapConfiguration& config);
  // The dry run ("--prepare"): 0, or -6 when qivea refused or could not be run.
  int prepareUpdateConfiguration(const LdapConfiguration& config);
  // The real command (the prepared line without "--prepare", or the default method when
  // LOCKED), with the bind password in the password file when qivea takes one: 0 or -7.
  int updateConfiguration(const LdapConfiguration& config);
  // Switches the node to the default method: 0 or -7.
  int setDefaultConfiguration();
  // Removes the first element equal to text.
  static void eraseArgument(std::vector<std::string>& args, const std::string& text);
  // "--tls-mode=LDAPS" for LDAPS, empty for STARTTLS (qivea's default).
  static std::string getTextForTlsMode(TlsMode mode);
  // Sets what qivea accepts from its SPI revision ("1.0.0" when it cannot be asked).
  void setQiveaCapabilities();
  // Asks qivea whether it takes "--tls-mode=LDAPS"; false (logged) when it refuses.
  bool probeTlsMode();
  bool isTlsModeSupported() const;
  // Whether "--cipherFilter=" goes on the command line; the security framework's path sets it.
  bool isCipherFilterSupported() const;
  void setCipherFilterSupported(bool supported);
  std::vector<std::string> getLdapCommandArgs() const;
  const std::string& getPasswordFilePath() const;

 private:
  // One URI argument of the command line for address.
  std::string uriArgument(const std::string& address, const LdapConfiguration& config) const;
  // Sends args through qivea's "authentication" command; throws Qiv::QivException.
  void sendAuthentication(const std::vector<std::string>& args) const;
  // Writes the bind password for qivea into a file it creates, readable by the owner only; false,
  // with nothing left at the path, when that failed, and false when something was at the path
  // again before the creation (then left alone).
  bool writePasswordFile(const std::string& password) const;

  const AmQivEaWrapper& _qivEa;
  Poco::Mutex& _configurationMutex;
  const std::atomic<bool>& _ldap20AttributesExist;
  std::vector<std::string> _ldapCommandArgs;
  const std::string _passwordFilePath;
  bool _passwordFileSupported;
  bool _cipherFilterSupported;
  bool _caCertDirSupported;
  bool _useReferralsSupported;
  bool _tlsModeSupported;
};

}  // namespace QivAccessManagement

#endif
