#ifndef QIV_FUZZ_SCRIPTED_LDAP_TLS_WRAPPER_H
#define QIV_FUZZ_SCRIPTED_LDAP_TLS_WRAPPER_H

#include "ILdapTlsWrapper.h"

#include <cstddef>
#include <list>
#include <string>
#include <vector>

// A directory that answers the built-in lookup from a script instead of a server. Searches are
// told apart by the order the lookup makes them in: those with an attribute list are the
// authentication scope first and the roles second; those without are the user's existence
// first and the alias look-ups after it.
class ScriptedLdapTlsWrapper : public Ldap::ILdapTlsWrapper {
 public:
  using Lines = std::list<std::string>;

  ScriptedLdapTlsWrapper();

  // The count-th call (from 1) that answers a boolean answers false; 0: none does.
  void setFailingCall(std::size_t count);
  void setUserExists(bool exists);
  void addScopeLine(const std::string& line);
  void addRoleLine(const std::string& line);
  // A line of the current alias answer; nextAliasAnswer starts the answer to the next alias search.
  void addAliasLine(const std::string& line);
  void nextAliasAnswer();

  bool scopeSearched() const { return _scopeSearched; }
  const Lines& scopeLines() const { return _scopeLines; }
  const Lines& roleLines() const { return _roleLines; }

  bool setCaCertificate(const std::string& file) override;
  bool setCaCertDirectory(const std::string& dir) override;
  bool setClientCertificate(const std::string& file) override;
  bool setClientKey(const std::string& file) override;
  bool setCipherSuite(const std::string& ciphers) override;
  bool setRequireCert(Ldap::ReqCertOptionT option) override;
  bool setSynchronousTimeout(int seconds) override;
  bool setNetworkTimeout(int seconds) override;
  bool setLdapOptReferrals(bool on) override;
  bool setLdapOptServerControls() override;
  bool createNewCtx() override;
  bool connect(Ldap::TlsModeConnection mode, const std::string& host, const std::string& fallbackHost) override;
  void disconnect() override;
  bool startTls() override;
  bool bind(const std::string& dn, const std::string& password) override;
  bool ping() override;
  bool deleteEntry(const std::string& dn) override;
  Lines search(const std::string& base, Ldap::ScopeT scope, const std::string& filter,
               const Lines* attributes) override;
  // The scripted directory always answers; its failures are refusals.
  Ldap::OperationOutcome lastOutcome() const override { return Ldap::OperationOutcome(); }

 private:
  bool answer();

  std::size_t _failingCall;
  std::size_t _calls;
  bool _userExists;
  Lines _scopeLines;
  Lines _roleLines;
  std::vector<Lines> _aliasAnswers;
  std::size_t _attributeSearches;
  std::size_t _plainSearches;
  bool _scopeSearched;
};

#endif
