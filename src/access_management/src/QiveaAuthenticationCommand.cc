#include "QiveaAuthenticationCommand.h"

#include <Qiv/LoggingWrapper.h>
#include <Qiv/QivException.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace QivAccessManagement {

namespace {

const unsigned QIVEA_TIMEOUT_MS = 30000;
const unsigned SPI_REVISION_TIMEOUT_MS = 5000;
const char PREPARE[] = "--prepare";
const char PASSWORD_FILE_NAME[] = "/.ldap.secret.tmp";
const char DEFAULT_PASSWORD_FILE[] = "/tmp/.ldap.secret.tmp";
// Tried once at start: does qivea take the LDAPS mode? The base DN is only an example.
const char TLS_MODE_PROBE[] =
    "authentication ldap --uri=ldaps://127.0.0.1 --useTls --tls-mode=LDAPS --base-dn=dc=example,dc=com "
    "--login-attribute=uid";

// TMPDIR's password file, taken as the variable stands (no slash handling).
std::string passwordFilePath() {
  const char* directory = std::getenv("TMPDIR");
  return directory != nullptr ? std::string(directory) + PASSWORD_FILE_NAME : DEFAULT_PASSWORD_FILE;
}

// Whether the revision major.minor is at least the given one.
bool atLeast(int major, int minor, int wantedMajor, int wantedMinor) {
  return major > wantedMajor || (major == wantedMajor && minor >= wantedMinor);
}

}  // namespace

QiveaAuthenticationCommand::QiveaAuthenticationCommand(const AmQivEaWrapper& qivEa, Poco::Mutex& configurationMutex,
                                                       const std::atomic<bool>& ldap20AttributesExist)
    : _qivEa(qivEa),
      _configurationMutex(configurationMutex),
      _ldap20AttributesExist(ldap20AttributesExist),
      _passwordFilePath(passwordFilePath()),
      _passwordFileSupported(false),
      _cipherFilterSupported(false),
      _caCertDirSupported(false),
      _useReferralsSupported(false),
      _tlsModeSupported(false) {}

void QiveaAuthenticationCommand::prepareLdapCommand(const LdapConfiguration& config) {
  std::vector<std::string>& args = _ldapCommandArgs;
  args = {"authentication", "ldap", PREPARE};
  if (!config.ldapIpAddress.empty()) args.push_back(uriArgument(config.ldapIpAddress, config));
  // The fallback's scheme follows the primary server's TLS settings.
  if (!config.fallbackLdapIpAddress.empty()) args.push_back(uriArgument(config.fallbackLdapIpAddress, config));
  if (config.useTls) {
    args.push_back("--useTls");
    const std::string tlsMode = getTextForTlsMode(config.tlsMode);
    if (_tlsModeSupported && !tlsMode.empty()) args.push_back(tlsMode);
    if (_cipherFilterSupported) args.push_back("--cipherFilter=" + config.cipherFilter);
  }
  if (config.useReferrals && _useReferralsSupported) args.push_back("--useReferrals");
  args.push_back("--base-dn=" + config.baseDn);
  args.push_back("--login-attribute=uid");
  if (!config.bindDn.empty()) args.push_back("--bind-dn=" + config.bindDn);
  if (!config.bindPassword.empty()) {
    args.push_back(_passwordFileSupported ? "--password-file=" + _passwordFilePath
                                          : "--bind-password=" + config.bindPassword);
  }
  // The deprecated attributes win over the node credential and the trust category.
  if (!config.tlsCaCertificate.empty()) {
    args.push_back("--tls-ca-certificate=" + config.tlsCaCertificate);
  } else if (!config.trustCategory.trustCatDirName.empty() && _caCertDirSupported) {
    args.push_back("--tls-ca-cert-directory=" + config.trustCategory.trustCatDirName);
  }
  if (!config.tlsClientCertificate.empty()) {
    args.push_back("--tls-client-certificate=" + config.tlsClientCertificate);
  } else if (!config.nodeCredential.nodeCertFileName.empty()) {
    args.push_back("--tls-client-certificate=" + config.nodeCredential.nodeCertFileName);
  }
  if (!config.tlsClientKey.empty()) {
    args.push_back("--tls-client-key=" + config.tlsClientKey);
  } else if (!config.nodeCredential.nodeKeyFileName.empty()) {
    args.push_back("--tls-client-key=" + config.nodeCredential.nodeKeyFileName);
  }
  if (config.filterType == ORBELIN && config.targetBasedAccessControl == UNLOCKED) {
    if (!config.nodeType.empty()) {
      args.push_back("--nodeType=" + config.nodeType + ":\\*");
    } else if (_ldap20AttributesExist) {
      args.push_back("--nodeType=\\*");
    }
  }
}

std::string QiveaAuthenticationCommand::uriArgument(const std::string& address, const LdapConfiguration& config) const {
  const std::string scheme = config.useTls && config.tlsMode == LDAPS ? "--uri=ldaps://" : "--uri=ldap://";
  const std::string host = isIPv6(address) ? "[" + address + "]" : address;
  if (config.serverPort == 0) return scheme + host;
  return scheme + host + ":" + std::to_string(config.serverPort);
}

void QiveaAuthenticationCommand::sendAuthentication(const std::vector<std::string>& args) const {
  _qivEa.configureAuthentication(args, QIVEA_TIMEOUT_MS);
}

int QiveaAuthenticationCommand::prepareUpdateConfiguration(const LdapConfiguration& config) {
  try {
    if (config.administrativeState == LOCKED) {
      QIV_TRACE("Set default configuration");
      sendAuthentication({"authentication", "default", PREPARE});
      return 0;
    }
    if (config.administrativeState != UNLOCKED) return -6;
    QIV_TRACE("Set LDAP configuration");
    Poco::Mutex::ScopedLock lock(_configurationMutex);
    prepareLdapCommand(config);
    sendAuthentication(_ldapCommandArgs);
    return 0;
  } catch (const Qiv::QivException& e) {
    QIV_LOG(3, "%s", e.what());
    return -6;
  }
}

int QiveaAuthenticationCommand::updateConfiguration(const LdapConfiguration& config) {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  try {
    if (config.administrativeState == UNLOCKED) {
      QIV_TRACE("Administrative state unlocked - setting LDAP configuration");
      if (_passwordFileSupported && !config.bindPassword.empty() && !writePasswordFile(config.bindPassword)) {
        _ldapCommandArgs.clear();
        QIV_LOG(3, "Could not create password file for QIVEA.");
        return -7;
      }
      // The line prepared for this transaction, not rebuilt.
      eraseArgument(_ldapCommandArgs, PREPARE);
      sendAuthentication(_ldapCommandArgs);
    } else if (config.administrativeState == LOCKED) {
      QIV_TRACE("Administrative state locked - setting default method");
      sendAuthentication({"authentication", "default"});
    } else {
      QIV_LOG(3, "Invalid administrativeState (%d)!", static_cast<int>(config.administrativeState));
      return -7;
    }
    _ldapCommandArgs.clear();
    return 0;
  } catch (const Qiv::QivException& e) {
    QIV_LOG(3, "%s", e.what());
    return -7;
  }
}

bool QiveaAuthenticationCommand::writePasswordFile(const std::string& password) const {
  std::remove(_passwordFilePath.c_str());
  // Only a file made here takes the password: a file or link someone put at the path after the
  // removal (the directory may be everyone's) makes the creation fail. The mode is given here,
  // not through the umask, which every thread of the host shares.
  const int fd = ::open(_passwordFilePath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  const std::string content = password + '\n';
  bool written = ::fchmod(fd, 0600) == 0;
  for (std::size_t done = 0; written && done < content.size();) {
    const ssize_t count = ::write(fd, content.data() + done, content.size() - done);
    if (count < 0 && errno == EINTR) continue;
    written = count > 0;
    if (written) done += static_cast<std::size_t>(count);
  }
  // A failed close may be the failed write (a full disk): qivea would read a short password.
  written = ::close(fd) == 0 && written;
  // No part of the password is left behind for a command that will not run.
  if (!written) ::unlink(_passwordFilePath.c_str());
  return written;
}

int QiveaAuthenticationCommand::setDefaultConfiguration() {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  try {
    sendAuthentication({"authentication", "default"});
    _ldapCommandArgs.clear();
    return 0;
  } catch (const Qiv::QivException& e) {
    QIV_LOG(3, "%s", e.what());
    return -7;
  }
}

void QiveaAuthenticationCommand::eraseArgument(std::vector<std::string>& args, const std::string& text) {
  const auto found = std::find(args.begin(), args.end(), text);
  if (found != args.end()) args.erase(found);
}

std::string QiveaAuthenticationCommand::getTextForTlsMode(TlsMode mode) { return mode == LDAPS ? "--tls-mode=LDAPS" : ""; }

void QiveaAuthenticationCommand::setQiveaCapabilities() {
  std::string revision;
  if (_qivEa.getQiveaSpiRevision(revision, SPI_REVISION_TIMEOUT_MS) != 0) revision = "1.0.0";
  int major = 0;
  int minor = 0;
  int patch = 0;
  std::sscanf(revision.c_str(), "%d.%d.%d", &major, &minor, &patch);
  _passwordFileSupported = atLeast(major, minor, 1, 2);
  _cipherFilterSupported = atLeast(major, minor, 1, 2);
  _caCertDirSupported = atLeast(major, minor, 1, 3);
  _useReferralsSupported = atLeast(major, minor, 1, 4);
}

bool QiveaAuthenticationCommand::probeTlsMode() {
  QIV_TRACE("TEST if TLS-mode is supported");
  std::vector<std::string> args;
  std::istringstream words(TLS_MODE_PROBE);
  for (std::string word; words >> word;) args.push_back(word);
  args.push_back(PREPARE);
  try {
    sendAuthentication(args);
    _tlsModeSupported = true;
    return true;
  } catch (const Qiv::QivException& e) {
    QIV_LOG(4, "Tls-mode is not supported");
    QIV_LOG(3, "Caught exception: %s", e.what());
    return false;
  }
}

std::vector<std::string> QiveaAuthenticationCommand::getLdapCommandArgs() const {
  Poco::Mutex::ScopedLock lock(_configurationMutex);
  return _ldapCommandArgs;
}

const std::string& QiveaAuthenticationCommand::getPasswordFilePath() const { return _passwordFilePath; }

bool QiveaAuthenticationCommand::isTlsModeSupported() const { return _tlsModeSupported; }

bool QiveaAuthenticationCommand::isCipherFilterSupported() const { return _cipherFilterSupported; }

void QiveaAuthenticationCommand::setCipherFilterSupported(bool supported) { _cipherFilterSupported = supported; }

}  // namespace QivAccessManagement
