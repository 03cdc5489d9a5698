#include "BareLdapLookup.h"

#include "CipherPriorityTranslator.h"

#include <ldap.h>
#include <sys/time.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

namespace Bench {

namespace {

// What the component sets on every session.
const int SYNCHRONOUS_TIMEOUT_SECONDS = 12;
const int NETWORK_TIMEOUT_SECONDS = 11;
const int TLS_PROTOCOL_MIN = LDAP_OPT_X_TLS_PROTOCOL_TLS1_0;
const char MANAGE_DSA_IT_OID[] = "2.16.840.1.113730.3.4.2";
const char AUTHENTICATION_SCOPE[] = "orbelinUserAuthenticationScope";
const char AUTHORIZATION_SCOPE[] = "orbelinUserAuthorizationScope";

struct Unbind {
  void operator()(LDAP* ld) const { ldap_unbind_ext_s(ld, nullptr, nullptr); }
};
struct FreeMessage {
  void operator()(LDAPMessage* message) const { ldap_msgfree(message); }
};
using Session = std::unique_ptr<LDAP, Unbind>;
using Result = std::unique_ptr<LDAPMessage, FreeMessage>;

void check(int rc, const char* call) {
  if (rc != LDAP_SUCCESS) throw std::runtime_error(std::string(call) + ": " + ldap_err2string(rc));
}

void setOption(LDAP* ld, int option, const void* value) {
  check(ldap_set_option(ld, option, value), "ldap_set_option");
}

// attribute null: all attributes.
Result search(LDAP* ld, const char* base, int scope, const std::string& filter, const char* attribute) {
  char* attributes[] = {const_cast<char*>(attribute), nullptr};
  LDAPMessage* message = nullptr;
  const int rc =
      ldap_search_ext_s(ld, base, scope, filter.empty() ? nullptr : filter.c_str(),
                        attribute != nullptr ? attributes : nullptr, 0, nullptr, nullptr, nullptr, 0, &message);
  Result result(message);
  check(rc, "ldap_search_ext_s");
  return result;
}

std::vector<std::string> values(LDAP* ld, LDAPMessage* result, const char* attribute) {
  std::vector<std::string> found;
  for (LDAPMessage* entry = ldap_first_entry(ld, result); entry != nullptr; entry = ldap_next_entry(ld, entry)) {
    berval** entryValues = ldap_get_values_len(ld, entry, attribute);
    for (int index = 0; entryValues != nullptr && entryValues[index] != nullptr; ++index)
      found.emplace_back(entryValues[index]->bv_val, entryValues[index]->bv_len);
    ldap_value_free_len(entryValues);
  }
  return found;
}

// The role a value grants on a node without node types: the value itself, or the role of a
// "*:role" value; empty for "*" and for values bound to another target type.
std::string grantedRole(const std::string& value) {
  const std::string::size_type colon = value.find(':');
  if (colon == std::string::npos) return value == "*" ? "" : value;
  return value.compare(0, colon, "*") == 0 ? value.substr(colon + 1) : "";
}

}  // namespace

BareLdapLookup::BareLdapLookup(Settings settings) : _settings(std::move(settings)) {}

std::string BareLdapLookup::cipherSuiteFor(const std::string& filter) {
  if (Ldap::CipherPriorityTranslator::isLibldapTlsOpenSsl()) return filter;
  std::string priority;
  std::string reason;
  if (!Ldap::CipherPriorityTranslator::translate(filter, priority, reason))
    throw std::runtime_error("cipher filter '" + filter + "': " + reason);
  return priority;
}

std::vector<std::string> BareLdapLookup::roles(const std::string& user) const {
  // Global defaults, as the component sets them before it has a session.
  const timeval synchronousTimeout = {SYNCHRONOUS_TIMEOUT_SECONDS, 0};
  const timeval networkTimeout = {NETWORK_TIMEOUT_SECONDS, 0};
  setOption(nullptr, LDAP_OPT_TIMEOUT, &synchronousTimeout);
  setOption(nullptr, LDAP_OPT_NETWORK_TIMEOUT, &networkTimeout);

  LDAP* handle = nullptr;
  const int initialized = ldap_initialize(&handle, _settings.uri.c_str());
  const Session session(handle);
  check(initialized, "ldap_initialize");
  LDAP* ld = session.get();
  const int version = LDAP_VERSION3;
  setOption(ld, LDAP_OPT_PROTOCOL_VERSION, &version);
  setOption(ld, LDAP_OPT_X_TLS_PROTOCOL_MIN, &TLS_PROTOCOL_MIN);
  if (_settings.security != Security::NONE) {
    setOption(ld, LDAP_OPT_X_TLS_CACERTFILE, _settings.caFile.c_str());
    setOption(ld, LDAP_OPT_X_TLS_CIPHER_SUITE, _settings.cipherSuite.c_str());
    const int demand = LDAP_OPT_X_TLS_DEMAND;
    setOption(ld, LDAP_OPT_X_TLS_REQUIRE_CERT, &demand);
    const int client = 0;
    setOption(ld, LDAP_OPT_X_TLS_NEWCTX, &client);
    if (_settings.security == Security::STARTTLS) check(ldap_start_tls_s(ld, nullptr, nullptr), "ldap_start_tls_s");
  }
  // ManageDsaIT on every request, as the component sends it.
  LDAPControl manageDsaIt = {const_cast<char*>(MANAGE_DSA_IT_OID), {0, nullptr}, 0};
  LDAPControl* controls[] = {&manageDsaIt, nullptr};
  setOption(ld, LDAP_OPT_SERVER_CONTROLS, controls);

  // Root DSE: the server answers.
  search(ld, nullptr, LDAP_SCOPE_BASE, "", nullptr);
  const std::string base = _settings.baseDn;
  if (ldap_count_entries(ld, search(ld, base.c_str(), LDAP_SCOPE_SUBTREE, "(uid=" + user + ")", nullptr).get()) <= 0)
    throw std::runtime_error("no user " + user);
  const std::string userFilter = "(&(objectClass=posixAccount)(uid=" + user + "))";
  search(ld, base.c_str(), LDAP_SCOPE_SUBTREE, userFilter, AUTHENTICATION_SCOPE);
  const Result granted = search(ld, base.c_str(), LDAP_SCOPE_SUBTREE, userFilter, AUTHORIZATION_SCOPE);

  std::vector<std::string> roles;
  for (const std::string& value : values(ld, granted.get(), AUTHORIZATION_SCOPE)) {
    const std::string role = grantedRole(value);
    if (role.empty()) continue;
    // A role alias is not a role.
    const Result alias =
        search(ld, base.c_str(), LDAP_SCOPE_SUBTREE, "(&(objectClass=orbelinRoleAlias)(role=" + role + "))", nullptr);
    if (ldap_count_entries(ld, alias.get()) == 0) roles.push_back(role);
  }
  std::sort(roles.begin(), roles.end());
  roles.erase(std::unique(roles.begin(), roles.end()), roles.end());
  return roles;
}

}  // namespace Bench
