#include "LdapConfigFileProducer.h"

#include "AmQivEaWrapper.h"

#include <Poco/StringTokenizer.h>
#include <Qiv/LoggingWrapper.h>
#include <grp.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>

namespace QivAccessManagement {

namespace {

const char kOamGroup[] = "system-oam";
const std::size_t kGroupBufferSize = 1024;
const char kPosixAccountFilter[] = "(&(objectClass=posixAccount)(uidNumber>=1000)";
const char kScopeTermStart[] = "(orbelinUserAuthenticationScope=";
const char kAnyScopeTerm[] = "(orbelinUserAuthenticationScope=\\*)";

// Every line of both templates, the last one included, ends with a line feed.
const char kSecAaTemplate[] = R"([GENERAL]
VERSION = ACS_IFREG-1

[SSSD]
ldap_schema = rfc2307
enumerate = false
cache_credentials = false
ignore_group_members = true

max_id = 4294967294
id_provider = ldap
access_provider = ldap
auth_provider = ldap
chpass_provider = ldap
sudo_provider = none
selinux_provider = none
subdomains_provider = none
autofs_provider = none
hostid_provider = none

ldap_connection_expire_timeout = 60

ldap_access_order = filter
ldap_tls_reqcert = demand
ldap_network_timeout = 5

###########################################
# Configurable SSSD domain parameters     #
###########################################
<!overrideGid!>

ldap_uri = <!ldapUri!>

# this is the baseDn used for LDAP queries
ldap_search_base = <!baseDn!>

# this is the baseDn && bindPassword used for simple bind
# not currently using SASL external bind (bind over TLS)
ldap_default_bind_dn = <!bindDn!>
ldap_default_authtok = <!bindPassword!>

#ciphers
ldap_tls_cipher_suite = <!cipherFilter!>

#Certificate information
<!caCertDir!>
<!tlsCaCertificate!>
ldap_tls_key = <!tlsKey!>
ldap_tls_cert = <!tlsCertificate!>

# simple authentication required
ldap_auth_disable_tls_never_use_in_production = <!disableTls!>
ldap_id_use_start_tls = <!useStartTls!>

# client referrals
ldap_referrals = <!useReferrals!>

ldap_access_filter = <!ssdFilter!>

[UAI_SERVICE_MODULE]
<!serviceModulePath!>
)";

const char kLdapSmTemplate[] = R"(###########################################
#    LDAP Service Module configuration    #
###########################################
ldap_uri = <!ldapUri!>
ldap_default_bind_dn = <!bindDn!>
base_dn = <!baseDn!>
ldap_default_authtok = <!bindPassword!>
filter_type = <!filterType!>
user_defined_filter_type = <!type!>
tls_mode = <!tlsMode!>

<!caCertDir!>
<!tlsCaCertificate!>
ldap_tls_key = <!tlsKey!>
ldap_tls_cert = <!tlsCertificate!>

node_type = <!nodeType!>
role_aliases_base_dn = <!roleAliasesBaseDn!>
ldap_referrals = <!useReferrals!>
ldap_tls_cipher_suite = <!cipherFilter!>
ldap_access_filter = <!filter!>
orb_filt_target_based_access_control = <!orbFiltTargetBasedAccessControl!>
orb_filt_version = <!orbFiltVersion!>
)";

const char* boolText(bool value) { return value ? "true" : "false"; }

// The CA settings are whole lines, left out when there is no value.
std::string optionalSetting(const char* key, const std::string& value) {
  return value.empty() ? std::string() : key + value;
}

// Appends the URI of address, if any, to the ", "-separated list uris.
void appendUri(std::string& uris, const std::string& address, bool ldaps, uint16_t serverPort) {
  if (address.empty()) return;
  uint16_t port = serverPort;
  const std::string prefix = LdapConfigFileProducer::getUriPrefixAndPort(port, ldaps);
  if (!uris.empty()) uris += ", ";
  uris += prefix + (isIPv6(address) ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

// The end of the ORBELIN filter: with target-based access control, the user's authentication
// scope must name one of the node types or be the wildcard.
std::string scopeTerms(const LdapConfiguration& config) {
  if (config.targetBasedAccessControl == LOCKED) return ")";
  std::string terms;
  const Poco::StringTokenizer nodeTypes(config.nodeType, ":", Poco::StringTokenizer::TOK_IGNORE_EMPTY);
  for (const std::string& nodeType : nodeTypes) terms += kScopeTermStart + nodeType + ")";
  if (terms.empty()) return std::string(kAnyScopeTerm) + ")";
  return "(|" + terms + kAnyScopeTerm + "))";
}

}  // namespace

const std::map<std::string, LdapConfigFileProducer::Getter> LdapConfigFileProducer::keywordExpansion =
    LdapConfigFileProducer::initKeywordExpansion();

std::map<std::string, LdapConfigFileProducer::Getter> LdapConfigFileProducer::initKeywordExpansion() {
  return {{"bindDn", &LdapConfigFileProducer::getBindDn},
          {"baseDn", &LdapConfigFileProducer::getBaseDn},
          {"bindPassword", &LdapConfigFileProducer::getBindPassword},
          {"filter", &LdapConfigFileProducer::getFilter},
          {"nodeType", &LdapConfigFileProducer::getNodeType},
          {"roleAliasesBaseDn", &LdapConfigFileProducer::getRoleAliasesBaseDn},
          {"cipherFilter", &LdapConfigFileProducer::getCipherFilter},
          {"type", &LdapConfigFileProducer::getType},
          {"filterType", &LdapConfigFileProducer::getFilterType},
          {"orbFiltVersion", &LdapConfigFileProducer::getOrbFiltVersion},
          {"orbFiltTargetBasedAccessControl", &LdapConfigFileProducer::getOrbFiltTargetBasedAccessControl},
          {"tlsMode", &LdapConfigFileProducer::getTlsMode},
          {"useReferrals", &LdapConfigFileProducer::getUseReferrals},
          {"disableTls", &LdapConfigFileProducer::getDisableTls},
          {"useStartTls", &LdapConfigFileProducer::getUseStartTls},
          {"ldapUri", &LdapConfigFileProducer::getLdapUri},
          {"ssdFilter", &LdapConfigFileProducer::getSsdFilter},
          {"overrideGid", &LdapConfigFileProducer::getOverrideGid},
          {"serviceModulePath", &LdapConfigFileProducer::getServiceModulePath},
          {"caCertDir", &LdapConfigFileProducer::getCaCertDir},
          {"tlsCaCertificate", &LdapConfigFileProducer::getTlsCaCertificate},
          {"tlsKey", &LdapConfigFileProducer::getTlsKey},
          {"tlsCertificate", &LdapConfigFileProducer::getTlsCertificate}};
}

LdapConfigFileProducer::LdapConfigFileProducer(const std::string& serviceModulePath)
    : _config(nullptr), _serviceModulePath(serviceModulePath) {}

int LdapConfigFileProducer::writeSecAaConfig(const std::string& path, const LdapConfiguration& config) {
  return writeFile(path, config, kSecAaTemplate);
}

int LdapConfigFileProducer::writeLdapSmConfig(const std::string& path, const LdapConfiguration& config) {
  return writeFile(path, config, kLdapSmTemplate);
}

int LdapConfigFileProducer::writeSecAaConfig(std::ostream& stream, const LdapConfiguration& config) {
  return writeConfig(stream, config, kSecAaTemplate);
}

int LdapConfigFileProducer::writeLdapSmConfig(std::ostream& stream, const LdapConfiguration& config) {
  return writeConfig(stream, config, kLdapSmTemplate);
}

int LdapConfigFileProducer::writeFile(const std::string& path, const LdapConfiguration& config,
                                      const std::string& templateText) {
  // An unopenable file leaves the stream failed, so writeConfig gives -1 for it.
  std::ofstream file(path.c_str(), std::ios::out | std::ios::trunc);
  int result = writeConfig(file, config, templateText);
  if (result == 0) result = setPermission(path);
  return result;
}

int LdapConfigFileProducer::writeConfig(std::ostream& stream, const LdapConfiguration& config,
                                        const std::string& templateText) {
  _config = &config;
  std::string::size_type position = 0;
  for (;;) {
    const std::string::size_type open = templateText.find("<!", position);
    if (open == std::string::npos) break;
    stream.write(templateText.data() + position, open - position);
    const std::string::size_type close = templateText.find("!>", open + 2);
    if (close == std::string::npos) {
      position = open;
      break;
    }
    const std::string::size_type end = close + 2;
    const auto expansion = keywordExpansion.find(templateText.substr(open + 2, close - open - 2));
    if (expansion != keywordExpansion.end())
      stream << (this->*expansion->second)();
    else
      stream.write(templateText.data() + open, end - open);
    position = end;
  }
  stream.write(templateText.data() + position, templateText.size() - position);
  // Buffered text must reach its destination for a failed write to show in the state.
  stream.flush();
  _config = nullptr;
  return stream.fail() ? -1 : 0;
}

void LdapConfigFileProducer::setServiceModelPath(const std::string& path) { _serviceModulePath = path; }

void LdapConfigFileProducer::setCaCertDir(const std::string& dir) { _caCertDir = dir; }

void LdapConfigFileProducer::setTlsCaCertificate(const std::string& file) { _tlsCaCertificate = file; }

void LdapConfigFileProducer::setTlsKey(const std::string& file) { _tlsKey = file; }

void LdapConfigFileProducer::setTlsCertificate(const std::string& file) { _tlsCertificate = file; }

std::string LdapConfigFileProducer::getUriPrefixAndPort(uint16_t& port, bool ldaps) {
  if (port == 0) port = ldaps ? 636 : 389;
  return ldaps ? "ldaps://" : "ldap://";
}

int LdapConfigFileProducer::setPermission(const std::string& path) {
  if (::chmod(path.c_str(), 0640) == 0) return 0;
  QIV_LOG(3, "Failed to set file permissions for: %s (%d)", path.c_str(), errno);
  return -1;
}

std::string LdapConfigFileProducer::getBindDn() const { return _config->bindDn; }

std::string LdapConfigFileProducer::getBaseDn() const { return _config->baseDn; }

std::string LdapConfigFileProducer::getBindPassword() const { return _config->bindPassword; }

std::string LdapConfigFileProducer::getFilter() const { return _config->filter; }

std::string LdapConfigFileProducer::getNodeType() const { return _config->nodeType; }

std::string LdapConfigFileProducer::getRoleAliasesBaseDn() const { return _config->roleAliasesBaseDn; }

std::string LdapConfigFileProducer::getCipherFilter() const { return _config->cipherFilter; }

std::string LdapConfigFileProducer::getType() const { return _config->type; }

std::string LdapConfigFileProducer::getFilterType() const { return std::to_string(_config->filterType); }

std::string LdapConfigFileProducer::getOrbFiltVersion() const { return std::to_string(_config->orbFiltVersion); }

std::string LdapConfigFileProducer::getOrbFiltTargetBasedAccessControl() const {
  return std::to_string(_config->targetBasedAccessControl);
}

std::string LdapConfigFileProducer::getTlsMode() const {
  return _config->useTls ? std::to_string(_config->tlsMode) : std::string();
}

std::string LdapConfigFileProducer::getUseReferrals() const { return boolText(_config->useReferrals); }

std::string LdapConfigFileProducer::getDisableTls() const { return boolText(!_config->useTls); }

std::string LdapConfigFileProducer::getUseStartTls() const {
  return boolText(_config->useTls && _config->tlsMode == STARTTLS);
}

std::string LdapConfigFileProducer::getLdapUri() const {
  const bool ldaps = _config->useTls && _config->tlsMode == LDAPS;
  const bool fallbackLdaps = _config->useTlsFallback ? _config->tlsMode == LDAPS : ldaps;
  std::string uris;
  appendUri(uris, _config->ldapIpAddress, ldaps, _config->serverPort);
  appendUri(uris, _config->fallbackLdapIpAddress, fallbackLdaps, _config->serverPort);
  return uris;
}

std::string LdapConfigFileProducer::getSsdFilter() const {
  const std::string posixAccounts = kPosixAccountFilter;
  switch (_config->filterType) {
    case FILTER_TYPE_NOT_SET:
    case POSIX_GROUPS:
    case FLEXIBLE:
      return posixAccounts + ")";
    case ORBELIN:
      return posixAccounts + scopeTerms(*_config);
    default:
      return std::string();
  }
}

std::string LdapConfigFileProducer::getOverrideGid() const {
  group entry;
  group* found = nullptr;
  char buffer[kGroupBufferSize];
  if (::getgrnam_r(kOamGroup, &entry, buffer, sizeof buffer, &found) != 0 || found == nullptr) {
    QIV_LOG(4, "%s group not found", kOamGroup);
    return std::string();
  }
  return "override_gid = " + std::to_string(found->gr_gid);
}

std::string LdapConfigFileProducer::getServiceModulePath() const { return _serviceModulePath; }

std::string LdapConfigFileProducer::getCaCertDir() const {
  return optionalSetting("ldap_tls_cacertdir = ", _caCertDir);
}

std::string LdapConfigFileProducer::getTlsCaCertificate() const {
  return optionalSetting("ldap_tls_cacert = ", _tlsCaCertificate);
}

std::string LdapConfigFileProducer::getTlsKey() const { return _tlsKey; }

std::string LdapConfigFileProducer::getTlsCertificate() const { return _tlsCertificate; }

}  // namespace QivAccessManagement
