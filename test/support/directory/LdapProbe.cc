#include "LdapProbe.h"

#include <ldap.h>

#include <memory>

namespace TestDirectory {

namespace {

constexpr int NETWORK_TIMEOUT_SECONDS = 2;
constexpr int OPERATION_TIMEOUT_SECONDS = 5;

struct SessionRelease {
  void operator()(LDAP* ld) const { ldap_unbind_ext_s(ld, nullptr, nullptr); }
};
struct MessageRelease {
  void operator()(LDAPMessage* message) const { ldap_msgfree(message); }
};
struct MemoryRelease {
  void operator()(char* text) const { ldap_memfree(text); }
};
struct BerRelease {
  void operator()(BerElement* ber) const { ber_free(ber, 0); }
};
struct ValuesRelease {
  void operator()(berval** values) const { ldap_value_free_len(values); }
};
using Session = std::unique_ptr<LDAP, SessionRelease>;
using Message = std::unique_ptr<LDAPMessage, MessageRelease>;
using Text = std::unique_ptr<char, MemoryRelease>;

// Fills answer from a failed step; the diagnostic message says more than the code's text, such
// as which certificate check failed.
LdapProbe::Answer failure(LdapProbe::Answer answer, LDAP* ld, int code, const std::string& step) {
  answer.code = code;
  answer.error = step + ": " + ldap_err2string(code);
  char* diagnostic = nullptr;
  if (ld != nullptr && ldap_get_option(ld, LDAP_OPT_DIAGNOSTIC_MESSAGE, &diagnostic) == LDAP_OPT_SUCCESS &&
      diagnostic != nullptr) {
    const Text owned(diagnostic);
    if (*diagnostic != '\0') answer.error += " (" + std::string(diagnostic) + ")";
  }
  return answer;
}

// The TLS options of this connection; LDAP_OPT_X_TLS_NEWCTX makes them its own context.
int setTlsOptions(LDAP* ld, const LdapProbe::Connection& connection) {
  const int demand = LDAP_OPT_X_TLS_DEMAND;
  const int clientContext = 0;
  int rc = ldap_set_option(ld, LDAP_OPT_X_TLS_REQUIRE_CERT, &demand);
  if (rc == LDAP_OPT_SUCCESS && !connection.caFile.empty()) {
    rc = ldap_set_option(ld, LDAP_OPT_X_TLS_CACERTFILE, connection.caFile.c_str());
  }
  if (rc == LDAP_OPT_SUCCESS && !connection.cipherSuite.empty()) {
    rc = ldap_set_option(ld, LDAP_OPT_X_TLS_CIPHER_SUITE, connection.cipherSuite.c_str());
  }
  if (rc == LDAP_OPT_SUCCESS) rc = ldap_set_option(ld, LDAP_OPT_X_TLS_NEWCTX, &clientContext);
  return rc;
}

void appendEntry(LDAP* ld, LDAPMessage* entry, std::vector<std::string>& lines) {
  const Text dn(ldap_get_dn(ld, entry));
  lines.push_back("dn: " + std::string(dn ? dn.get() : ""));
  BerElement* rawBer = nullptr;
  Text attribute(ldap_first_attribute(ld, entry, &rawBer));
  const std::unique_ptr<BerElement, BerRelease> ber(rawBer);
  for (; attribute; attribute.reset(ldap_next_attribute(ld, entry, ber.get()))) {
    const std::unique_ptr<berval*, ValuesRelease> values(ldap_get_values_len(ld, entry, attribute.get()));
    for (berval** value = values.get(); value != nullptr && *value != nullptr; ++value) {
      lines.push_back(std::string(attribute.get()) + ": " + std::string((*value)->bv_val, (*value)->bv_len));
    }
  }
}

}  // namespace

LdapProbe::Answer LdapProbe::search(const std::string& base, Scope scope, const std::string& filter) const {
  Answer answer;
  const std::string uri = std::string(_connection.security == Security::Ldaps ? "ldaps://" : "ldap://") +
                          _connection.host + ":" + std::to_string(_connection.port);
  LDAP* rawSession = nullptr;
  int rc = ldap_initialize(&rawSession, uri.c_str());
  const Session session(rawSession);
  if (rc != LDAP_SUCCESS) return failure(answer, nullptr, rc, "ldap_initialize " + uri);
  LDAP* ld = session.get();

  const int version = LDAP_VERSION3;
  timeval networkTimeout{NETWORK_TIMEOUT_SECONDS, 0};
  timeval operationTimeout{OPERATION_TIMEOUT_SECONDS, 0};
  ldap_set_option(ld, LDAP_OPT_PROTOCOL_VERSION, &version);
  ldap_set_option(ld, LDAP_OPT_NETWORK_TIMEOUT, &networkTimeout);
  ldap_set_option(ld, LDAP_OPT_TIMEOUT, &operationTimeout);
  if (_connection.security != Security::Plain) {
    rc = setTlsOptions(ld, _connection);
    if (rc != LDAP_OPT_SUCCESS) return failure(answer, ld, LDAP_LOCAL_ERROR, "TLS options for " + uri);
  }
  if (_connection.security == Security::StartTls) {
    rc = ldap_start_tls_s(ld, nullptr, nullptr);
    if (rc != LDAP_SUCCESS) return failure(answer, ld, rc, "StartTLS on " + uri);
  }
  if (!_connection.bindDn.empty()) {
    berval credentials{_connection.password.size(), const_cast<char*>(_connection.password.data())};
    rc = ldap_sasl_bind_s(ld, _connection.bindDn.c_str(), LDAP_SASL_SIMPLE, &credentials, nullptr, nullptr,
                          nullptr);
    if (rc != LDAP_SUCCESS) return failure(answer, ld, rc, "bind as " + _connection.bindDn + " on " + uri);
  }

  LDAPMessage* rawResult = nullptr;
  rc = ldap_search_ext_s(ld, base.c_str(), scope == Scope::Base ? LDAP_SCOPE_BASE : LDAP_SCOPE_SUBTREE,
                         filter.c_str(), nullptr, 0, nullptr, nullptr, &operationTimeout, LDAP_NO_LIMIT,
                         &rawResult);
  const Message result(rawResult);
  if (rc != LDAP_SUCCESS) return failure(answer, ld, rc, "search " + filter + " under \"" + base + "\" on " + uri);
  for (LDAPMessage* entry = ldap_first_entry(ld, result.get()); entry != nullptr;
       entry = ldap_next_entry(ld, entry)) {
    appendEntry(ld, entry, answer.lines);
  }
  return answer;
}

}  // namespace TestDirectory
