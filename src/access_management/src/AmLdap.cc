#include "AmLdap.h"

#include "AmQivEaWrapper.h"
#include "DirectoryNotAnswering.h"
#include "LdapEscape.h"

#include <Qiv/LoggingWrapper.h>

namespace QivAccessManagement {

namespace {

const int SYNCHRONOUS_TIMEOUT_S = 12;
const int NETWORK_TIMEOUT_S = 11;

const char DEFAULT_PORT[] = "389";
const char DEFAULT_LDAPS_PORT[] = "636";

const std::string AUTHENTICATION_SCOPE_ATTRIBUTE = "orbelinUserAuthenticationScope";
// What a scope line starts with: the attribute name, a colon and a blank.
const std::string::size_type AUTHENTICATION_SCOPE_PREFIX_LENGTH = AUTHENTICATION_SCOPE_ATTRIBUTE.size() + 2;

const char ANY_TARGET_TYPE[] = "*";
const char BLANKS[] = " \t\n";

std::string serverPort(const LdapConfiguration* config) {
  if (config->serverPort != 0) return std::to_string(config->serverPort);
  if (config->tlsMode == STARTTLS || !config->useTls) return DEFAULT_PORT;
  if (config->tlsMode == LDAPS) return DEFAULT_LDAPS_PORT;
  return std::string();
}

// "address:port", an IPv6 address in brackets; empty when address is.
std::string serverAddress(const std::string& address, const std::string& port) {
  if (address.empty()) return address;
  return (isIPv6(address) ? "[" + address + "]" : address) + ":" + port;
}

// The flexible filter for user: the first "" holds the user's place, else the first <UID>.
std::string flexibleFilter(const std::string& pattern, const std::string& user) {
  std::string result = pattern;
  std::string::size_type at = result.find("\"\"");
  if (at != std::string::npos) return result.replace(at, 2, user);
  at = result.find("<UID>");
  if (at != std::string::npos) result.replace(at, 5, user);
  return result;
}

}  // namespace

AmLdap::AmLdap(Ldap::ILdapTlsWrapper* wrapper)
    : rolesCursor(roles.end()),
      nodeTypesCursor(nodeTypes.end()),
      targetTypesCursor(targetTypes.end()),
      ldapWrapper(wrapper) {}

AmLdap::AmLdap() : AmLdap(nullptr) {}

AmLdap::~AmLdap() = default;

int AmLdap::authorizationLdap(const LdapConfiguration* config, const std::string& user, std::string& result) {
  QIV_TRACE(" >> user: %s", user.c_str());
  Poco::FastMutex::ScopedLock lock(mutex);
  result.clear();
  roles.clear();
  nodeTypes.clear();
  targetTypes.clear();

  prepareFilter(config, user);
  std::string nodeTypeText;
  getNodeType(nodeTypeText, config);
  if (!nodeTypeText.empty()) createNodeTypeList(nodeTypeText, config);

  int rc = lookUp(config, user, result);
  // libldap moves on to the fallback only when the primary cannot be connected to; a primary
  // that accepted and then said nothing gives way to the fallback here.
  if (rc == -1 && !config->fallbackLdapIpAddress.empty()) {
    const Ldap::OperationOutcome outcome = ldapWrapper->lastOutcome();
    const std::string port = serverPort(config);
    if (outcome.kind == Ldap::OperationOutcome::NO_ANSWER &&
        outcome.server == serverAddress(config->ldapIpAddress, port)) {
      const std::string fallback = serverAddress(config->fallbackLdapIpAddress, port);
      QIV_LOG(4, "LDAP server %s did not answer, asking %s", outcome.server.c_str(), fallback.c_str());
      LdapConfiguration fallbackOnly = *config;
      fallbackOnly.ldapIpAddress = config->fallbackLdapIpAddress;
      fallbackOnly.fallbackLdapIpAddress.clear();
      roles.clear();
      targetTypes.clear();
      rc = lookUp(&fallbackOnly, user, result);
    }
  }
  // An unknown user ends the lookup without exit trace.
  if (rc == -2) return rc;
  QIV_TRACE(" << result: %d roles: %s'", rc, result.c_str());
  return rc;
}

int AmLdap::lookUp(const LdapConfiguration* config, const std::string& user, std::string& result) {
  // A failed connection is left as it is: the wrapper's next connect releases it.
  const int rc = openLdapConnection(config);
  if (rc != 0) {
    // A refusal (a bind refused, a certificate not trusted) keeps its traces; silence is logged.
    const Ldap::OperationOutcome outcome = ldapWrapper->lastOutcome();
    if (outcome.kind == Ldap::OperationOutcome::NO_ANSWER) reportUnanswered(outcome);
    return rc;
  }
  try {
    // An unknown user leaves the session open; the next connect releases it.
    if (!userExist(config, user)) return -2;
    readTargetTypes(config);
    const std::list<std::string> roleAttributes{roleAttribute};
    fetchRoles(config, searchDirectory(config->baseDn, filter, &roleAttributes));
    if (config->filterType == ORBELIN) {
      if (config->roleAliasesBaseDn.empty()) {
        discardAliases(config);
      } else {
        resolveAliases(config->roleAliasesBaseDn, config);
      }
    }
  } catch (const DirectoryNotAnswering&) {
    ldapWrapper->disconnect();
    return -1;
  } catch (...) {
    ldapWrapper->disconnect();
    throw;
  }
  roles.sort();
  roles.unique();
  for (const std::string& role : roles) {
    if (!result.empty()) result += ",";
    result += role;
  }
  ldapWrapper->disconnect();
  return 0;
}

std::list<std::string> AmLdap::searchDirectory(const std::string& base, const std::string& searchFilter,
                                               const std::list<std::string>* attributes) {
  std::list<std::string> lines = ldapWrapper->search(base, Ldap::SCOPE_SUBTREE, searchFilter, attributes);
  const Ldap::OperationOutcome outcome = ldapWrapper->lastOutcome();
  if (!outcome.answered()) {
    reportUnanswered(outcome);
    throw DirectoryNotAnswering(outcome.server);
  }
  return lines;
}

void AmLdap::reportUnanswered(const Ldap::OperationOutcome& outcome) {
  QIV_LOG(3, "No answer from LDAP server %s: %s", outcome.server.c_str(), outcome.reason.c_str());
}

int AmLdap::openLdapConnection(const LdapConfiguration* config) {
  const std::string port = serverPort(config);
  const std::string primary = serverAddress(config->ldapIpAddress, port);
  const std::string fallback = serverAddress(config->fallbackLdapIpAddress, port);

  // Without a handle yet these become libldap's defaults, which the new handle inherits.
  ldapWrapper->setSynchronousTimeout(SYNCHRONOUS_TIMEOUT_S);
  ldapWrapper->setNetworkTimeout(NETWORK_TIMEOUT_S);

  Ldap::TlsModeConnection mode = Ldap::TLS_NONE;
  if (config->useTls) {
    QIV_TRACE("Using TLS");
    mode = config->tlsMode == LDAPS ? Ldap::TLS_LDAPS : Ldap::TLS_STARTTLS;
  } else {
    QIV_TRACE("No TLS");
  }
  if (!ldapWrapper->connect(mode, primary, fallback)) {
    QIV_TRACE("Connect failed");
    return -1;
  }
  if (config->useTls && !secureConnection(config)) return -1;

  if (!ldapWrapper->setLdapOptReferrals(config->useReferrals)) {
    QIV_TRACE("setLdapOptReferrals failed");
    return -1;
  }
  if (!config->useReferrals && !ldapWrapper->setLdapOptServerControls()) {
    QIV_TRACE("setLdapOptServerControls failed");
    return -1;
  }
  // Without a bind DN the session stays anonymous.
  if (!config->bindDn.empty() && !ldapWrapper->bind(config->bindDn, config->bindPassword)) {
    QIV_TRACE("Bind failed");
    return -1;
  }
  if (!ldapWrapper->ping()) {
    QIV_TRACE("Ping failed");
    return -1;
  }
  return 0;
}

bool AmLdap::secureConnection(const LdapConfiguration* config) {
  if (!config->tlsCaCertificate.empty()) {
    if (!ldapWrapper->setCaCertificate(config->tlsCaCertificate)) {
      QIV_TRACE("setCaCertificate failed: %s", config->tlsCaCertificate.c_str());
      return false;
    }
  } else if (!config->trustCategory.trustCatDirName.empty()) {
    if (!ldapWrapper->setCaCertDirectory(config->trustCategory.trustCatDirName)) {
      QIV_TRACE("setCaCertDirectory failed: %s", config->trustCategory.trustCatDirName.c_str());
      return false;
    }
  }
  // The deprecated attributes win over the node credential; an empty name is still set.
  const std::string& certificate = config->tlsClientCertificate.empty() ? config->nodeCredential.nodeCertFileName
                                                                        : config->tlsClientCertificate;
  if (!ldapWrapper->setClientCertificate(certificate)) {
    QIV_TRACE("setClientCertificate failed: %s", certificate.c_str());
    return false;
  }
  const std::string& key =
      config->tlsClientKey.empty() ? config->nodeCredential.nodeKeyFileName : config->tlsClientKey;
  if (!ldapWrapper->setClientKey(key)) {
    QIV_TRACE("setClientKey failed: %s", key.c_str());
    return false;
  }
  if (!ldapWrapper->setCipherSuite(config->cipherFilter)) {
    QIV_TRACE("setCipherSuite failed");
    return false;
  }
  if (!ldapWrapper->setRequireCert(Ldap::REQCERT_DEMAND)) {
    QIV_TRACE("setRequireCert failed");
    return false;
  }
  // The new TLS context is what takes up the options set above.
  if (!ldapWrapper->createNewCtx()) {
    QIV_TRACE("createNewCtx failed");
    return false;
  }
  if (config->tlsMode == STARTTLS && !ldapWrapper->startTls()) {
    QIV_TRACE("startTls failed");
    return false;
  }
  return true;
}

bool AmLdap::userExist(const LdapConfiguration* config, const std::string& user) {
  QIV_TRACE(" >> user: %s", user.c_str());
  const std::string userFilter = "(uid=" + LdapEscape::filterValue(user) + ")";
  if (searchDirectory(config->baseDn, userFilter, nullptr).empty()) {
    QIV_TRACE("user not found: %s", user.c_str());
    return false;
  }
  return true;
}

void AmLdap::readTargetTypes(const LdapConfiguration* config) {
  const std::list<std::string> attributes{AUTHENTICATION_SCOPE_ATTRIBUTE};
  for (const std::string& line : searchDirectory(config->baseDn, filter, &attributes)) {
    QIV_TRACE("Authenticationscope Entry: %s", line.c_str());
    // Only the prefix's length is skipped, its text is not compared; a shorter line throws.
    targetTypes.push_back(line.substr(AUTHENTICATION_SCOPE_PREFIX_LENGTH));
  }
}

bool AmLdap::fetchRoles(const LdapConfiguration* config, const std::list<std::string>& lines) {
  if (lines.empty()) return false;
  const std::string prefix = roleAttribute + ":";
  for (const std::string& line : lines) {
    QIV_TRACE("got line: %s", line.c_str());
    if (line.compare(0, prefix.size(), prefix) != 0) continue;
    const std::string role = parseRoleLine(trim(line.substr(prefix.size())), config);
    if (role.empty()) continue;
    QIV_TRACE("saved: %s", role.c_str());
    roles.push_back(role);
  }
  return true;
}

std::string AmLdap::parseRoleLine(const std::string& value, const LdapConfiguration* config) {
  QIV_TRACE(" >> in: %s", value.c_str());
  const std::string::size_type colon = value.find(':');
  std::string kept;
  if (config->filterType != ORBELIN) {
    // The colon at index 1 passes on purpose: directories in use rely on it; do not "fix" it.
    if (colon == std::string::npos || colon == 1) kept = value;
  } else if (nodeTypes.empty()) {
    if (colon == std::string::npos) {
      if (value != ANY_TARGET_TYPE) kept = value;
    } else if (value.compare(0, colon, ANY_TARGET_TYPE) == 0) {
      kept = value.substr(colon + 1);
    }
  } else if (colon == std::string::npos) {
    // A value without target type holds on every node type under the first filter version.
    if (config->orbFiltVersion == 1) kept = value;
  } else {
    kept = matchTargetType(value, colon);
  }
  QIV_TRACE(" << out: %s", kept.c_str());
  return kept;
}

std::string AmLdap::matchTargetType(const std::string& value, std::string::size_type colon) {
  const std::string prefix = value.substr(0, colon);
  for (nodeTypesCursor = nodeTypes.begin(); nodeTypesCursor != nodeTypes.end(); ++nodeTypesCursor) {
    if (prefix != *nodeTypesCursor && prefix != ANY_TARGET_TYPE) continue;
    for (targetTypesCursor = targetTypes.begin(); targetTypesCursor != targetTypes.end(); ++targetTypesCursor) {
      if (*targetTypesCursor != prefix) continue;
      QIV_TRACE("Allow Target Type : %s", prefix.c_str());
      return value.substr(colon + 1);
    }
  }
  return std::string();
}

void AmLdap::prepareFilter(const LdapConfiguration* config, const std::string& user) {
  const std::string value = LdapEscape::filterValue(user);
  switch (config->filterType) {
    case POSIX_GROUPS:
      filter = "(&(objectClass=posixGroup)(memberUid=" + value + "))";
      roleAttribute = "cn";
      break;
    case ORBELIN:
      filter = "(&(objectClass=posixAccount)(uid=" + value + "))";
      roleAttribute = "orbelinUserAuthorizationScope";
      break;
    case FLEXIBLE:
      filter = flexibleFilter(config->filter, value);
      roleAttribute = config->type;
      break;
    default:
      break;
  }
}

void AmLdap::getNodeType(std::string& out, const LdapConfiguration* config) {
  if (config->filterType == ORBELIN && config->targetBasedAccessControl == UNLOCKED) {
    out = config->nodeType;
  } else {
    out.clear();
  }
}

void AmLdap::createNodeTypeList(const std::string& nodeTypeText, const LdapConfiguration* config) {
  std::string::size_type start = 0;
  while (start <= nodeTypeText.size()) {
    std::string::size_type end = nodeTypeText.find(':', start);
    if (end == std::string::npos) end = nodeTypeText.size();
    if (end > start) nodeTypes.push_back(nodeTypeText.substr(start, end - start));
    start = end + 1;
  }
}

void AmLdap::resolveAliases(const std::string& roleAliasesBaseDn, const LdapConfiguration* config) {
  // Roles that aliases add are appended at the end and not visited again.
  std::list<std::string>::size_type remaining = roles.size();
  for (rolesCursor = roles.begin(); remaining > 0; --remaining) {
    if (*rolesCursor == ANY_TARGET_TYPE) {
      ++rolesCursor;
      continue;
    }
    const std::string aliasDn = "role=" + LdapEscape::dnValue(*rolesCursor) + "," + roleAliasesBaseDn;
    if (fetchRoles(config, searchDirectory(aliasDn, "", nullptr))) {
      rolesCursor = roles.erase(rolesCursor);
    } else {
      ++rolesCursor;
    }
  }
}

void AmLdap::discardAliases(const LdapConfiguration* config) {
  for (rolesCursor = roles.begin(); rolesCursor != roles.end();) {
    const std::string aliasFilter =
        "(&(objectClass=orbelinRoleAlias)(role=" + LdapEscape::filterValue(*rolesCursor) + "))";
    if (searchDirectory(config->baseDn, aliasFilter, nullptr).empty()) {
      ++rolesCursor;
    } else {
      rolesCursor = roles.erase(rolesCursor);
    }
  }
}

std::string AmLdap::trim(const std::string& text) {
  const std::string::size_type first = text.find_first_not_of(BLANKS);
  if (first == std::string::npos) return std::string();
  const std::string::size_type last = text.find_last_not_of(BLANKS);
  return text.substr(first, last - first + 1);
}

}  // namespace QivAccessManagement
