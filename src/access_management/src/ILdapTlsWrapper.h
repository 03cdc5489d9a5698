#ifndef QIV_ACCESS_MANAGEMENT_I_LDAP_TLS_WRAPPER_H
#define QIV_ACCESS_MANAGEMENT_I_LDAP_TLS_WRAPPER_H

#include "OperationOutcome.h"

#include <list>
#include <string>

namespace Ldap {

// How a connection is secured; the values are fixed.
enum TlsModeConnection { TLS_LDAPS = 0, TLS_STARTTLS = 1, TLS_NONE = 2 };

// Whether the server's certificate is required; values outside 0..4 mean REQCERT_DEMAND.
enum ReqCertOptionT { REQCERT_DEMAND = 0, REQCERT_ALLOW = 1, REQCERT_TRY = 2, REQCERT_NEVER = 3, REQCERT_HARD = 4 };

// Search scope; values other than 1 and 2 mean SCOPE_BASE.
enum ScopeT { SCOPE_BASE = 0, SCOPE_ONELEVEL = 1, SCOPE_SUBTREE = 2 };

// The LDAP client as the built-in role lookup uses it, so that a test double can stand in.
// Every operation reports success as a boolean; a search answers flat "name: value" lines.
class ILdapTlsWrapper {
 public:
  virtual ~ILdapTlsWrapper() = default;
  virtual bool setCaCertificate(const std::string& file) = 0;
  virtual bool setCaCertDirectory(const std::string& dir) = 0;
  virtual bool setClientCertificate(const std::string& file) = 0;
  virtual bool setClientKey(const std::string& file) = 0;
  virtual bool setCipherSuite(const std::string& ciphers) = 0;
  virtual bool setRequireCert(ReqCertOptionT option) = 0;
  virtual bool setSynchronousTimeout(int seconds) = 0;
  virtual bool setNetworkTimeout(int seconds) = 0;
  virtual bool setLdapOptReferrals(bool on) = 0;
  virtual bool setLdapOptServerControls() = 0;
  virtual bool createNewCtx() = 0;
  // host and fallbackHost are "address:port" (IPv6 in brackets) or whole URIs; either may be empty.
  virtual bool connect(TlsModeConnection mode, const std::string& host, const std::string& fallbackHost) = 0;
  virtual void disconnect() = 0;
  virtual bool startTls() = 0;
  virtual bool bind(const std::string& dn, const std::string& password) = 0;
  virtual bool ping() = 0;
  virtual bool deleteEntry(const std::string& dn) = 0;
  // attributes null or empty: all attributes. A failed search answers an empty list.
  virtual std::list<std::string> search(const std::string& base, ScopeT scope, const std::string& filter,
                                        const std::list<std::string>* attributes) = 0;
  // What became of the last bind, startTls, ping, deleteEntry or search: tells a search that
  // found nothing from one that got no answer.
  virtual OperationOutcome lastOutcome() const = 0;
};

}  // namespace Ldap

#endif
