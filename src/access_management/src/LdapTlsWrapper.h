#ifndef QIV_ACCESS_MANAGEMENT_LDAP_TLS_WRAPPER_H
#define QIV_ACCESS_MANAGEMENT_LDAP_TLS_WRAPPER_H

#include "Entry.h"
#include "ILdapTlsWrapper.h"
#include "ReferralPolicy.h"
#include "SessionGuard.h"

#include <Poco/Mutex.h>

#include <list>
#include <string>

namespace Ldap {

// The component's LDAP client over libldap: one session handle with its URI list and options,
// simple bind, StartTLS, a liveness check, deletes and searches answered as "name: value" lines.
// One caller at a time; the locked operations (connect, disconnect, bind(dn, password), ping,
// deleteEntry, search and the option setters) are serialised by the wrapper's mutex.
// Each connect starts a session that ends, whatever the directory does, within the synchronous
// time-out set last: every operation waits at most for what is left of it.
class LdapTlsWrapper : public ILdapTlsWrapper {
 public:
  LdapTlsWrapper();
  // Releases the handle quietly.
  ~LdapTlsWrapper() override;
  LdapTlsWrapper(const LdapTlsWrapper&) = delete;
  LdapTlsWrapper& operator=(const LdapTlsWrapper&) = delete;

  // The setters act on the current handle, or on libldap's global defaults while there is none.
  // Each answers whether libldap took the option and logs libldap's reason at level 3 otherwise.
  bool setCaCertificate(const std::string& file) override;
  bool setCaCertDirectory(const std::string& dir) override;
  bool setClientCertificate(const std::string& file) override;
  bool setClientKey(const std::string& file) override;
  // ciphers is an OpenSSL cipher filter, translated when libldap's TLS package is another.
  bool setCipherSuite(const std::string& ciphers) override;
  bool setRequireCert(ReqCertOptionT option) override;
  bool setSynchronousTimeout(int seconds) override;
  bool setNetworkTimeout(int seconds) override;
  // Chasing on or off; followed referrals keep the session's TLS and bind identity.
  bool setLdapOptReferrals(bool on) override;
  // Sends the ManageDsaIT control, not critical, with every operation.
  bool setLdapOptServerControls() override;
  // A new TLS context from the options set so far (needed for them to take effect on a handle).
  bool createNewCtx() override;

  // Releases any earlier handle and creates one for host, then fallbackHost, with protocol
  // version 3 and TLS 1.0 at least. Nothing is sent yet. With both empty libldap's defaults
  // choose the server. True when libldap created the handle.
  bool connect(TlsModeConnection mode, const std::string& host, const std::string& fallbackHost) override;
  // Unbinds and forgets the URI list.
  void disconnect() override;
  // Only in TLS_STARTTLS mode: the StartTLS operation. False also on a session already under
  // TLS. Without a handle, connects in TLS_NONE mode first. Not locked.
  bool startTls() override;
  // Keeps dn and password for bind() and binds with them.
  bool bind(const std::string& dn, const std::string& password) override;
  // Reads the root DSE; false without handle, or when the server is down or does not answer.
  bool ping() override;
  bool deleteEntry(const std::string& dn) override;
  // The values of the entries found, in server order, as "name: value" lines; empty on failure.
  std::list<std::string> search(const std::string& base, ScopeT scope, const std::string& filter,
                                const std::list<std::string>* attributes) override;
  OperationOutcome lastOutcome() const override;

  // Simple bind with the DN and password of the last bind(dn, password); without a handle it
  // connects in TLS_NONE mode first. Not locked.
  bool bind();
  // Releases the handle and forgets DN and password. Not locked.
  void unbind();
  // Unbinds and releases the handle; verbose logs a failed unbind at level 4 and traces entry
  // and exit. Not locked.
  void freeLdapHandle(bool verbose);
  // Appends host to the URI list, prefixed with the scheme of mode unless it is a URI already.
  // Not locked; connect calls it with the lock held.
  void createURI(const std::string& host, TlsModeConnection mode);
  // The lines of every entry in order.
  std::list<std::string> getAttrsResult(const std::list<Entry>& entries) const;
  // libldap's text for a result code.
  std::string message(int rc) const;

  // The URI list of the last connect (comma-separated, primary first). Not locked.
  const std::string& getUri() const { return _uri; }

 private:
  // The frame of every option setter, under setter's name: traces entry and exit and hands value
  // to libldap as option, on the handle or on libldap's defaults while there is none, with the
  // lock held. A failure is logged at level 3 as failure followed by libldap's reason.
  bool setOption(const char* setter, int option, const void* value, const std::string& failure);
  // Before an operation on the handle: libldap's waits shortened to what is left of the session.
  // False when nothing is left.
  bool beginOperation();
  // Notes what became of the operation that libldap answered with rc.
  void endOperation(int rc);

  // Recursive: bind(dn, password) holds it when bind() connects, and connect takes it again.
  mutable Poco::Mutex _mutex;
  LDAP* _ld;
  std::string _uri;
  std::string _bindDn;
  // Clear text, in memory only; never logged.
  std::string _password;
  TlsModeConnection _tlsMode;
  // The time-outs set last; tv_sec -1 while unset.
  timeval _synchronousTimeout;
  timeval _networkTimeout;
  SessionGuard _guard;
  ReferralPolicy _referrals;
  OperationOutcome _outcome;
  // The last cipher filter translated for a GnuTLS-built libldap and its priority string (empty
  // when it was refused).
  std::string _translatedCipherFilter;
  std::string _cipherPriority;
};

}  // namespace Ldap

#endif
