#include "ScriptedLdapTlsWrapper.h"

ScriptedLdapTlsWrapper::ScriptedLdapTlsWrapper()
    : _failingCall(0),
      _calls(0),
      _userExists(true),
      _aliasAnswers(1),
      _attributeSearches(0),
      _plainSearches(0),
      _scopeSearched(false) {}

void ScriptedLdapTlsWrapper::setFailingCall(std::size_t count) { _failingCall = count; }

void ScriptedLdapTlsWrapper::setUserExists(bool exists) { _userExists = exists; }

void ScriptedLdapTlsWrapper::addScopeLine(const std::string& line) { _scopeLines.push_back(line); }

void ScriptedLdapTlsWrapper::addRoleLine(const std::string& line) { _roleLines.push_back(line); }

void ScriptedLdapTlsWrapper::addAliasLine(const std::string& line) { _aliasAnswers.back().push_back(line); }

void ScriptedLdapTlsWrapper::nextAliasAnswer() { _aliasAnswers.emplace_back(); }

bool ScriptedLdapTlsWrapper::answer() { return ++_calls != _failingCall; }

bool ScriptedLdapTlsWrapper::setCaCertificate(const std::string&) { return answer(); }
bool ScriptedLdapTlsWrapper::setCaCertDirectory(const std::string&) { return answer(); }
bool ScriptedLdapTlsWrapper::setClientCertificate(const std::string&) { return answer(); }
bool ScriptedLdapTlsWrapper::setClientKey(const std::string&) { return answer(); }
bool ScriptedLdapTlsWrapper::setCipherSuite(const std::string&) { return answer(); }
bool ScriptedLdapTlsWrapper::setRequireCert(Ldap::ReqCertOptionT) { return answer(); }
bool ScriptedLdapTlsWrapper::setSynchronousTimeout(int) { return answer(); }
bool ScriptedLdapTlsWrapper::setNetworkTimeout(int) { return answer(); }
bool ScriptedLdapTlsWrapper::setLdapOptReferrals(bool) { return answer(); }
bool ScriptedLdapTlsWrapper::setLdapOptServerControls() { return answer(); }
bool ScriptedLdapTlsWrapper::createNewCtx() { return answer(); }
bool ScriptedLdapTlsWrapper::connect(Ldap::TlsModeConnection, const std::string&, const std::string&) {
  return answer();
}
void ScriptedLdapTlsWrapper::disconnect() {}
bool ScriptedLdapTlsWrapper::startTls() { return answer(); }
bool ScriptedLdapTlsWrapper::bind(const std::string&, const std::string&) { return answer(); }
bool ScriptedLdapTlsWrapper::ping() { return answer(); }
bool ScriptedLdapTlsWrapper::deleteEntry(const std::string&) { return answer(); }

ScriptedLdapTlsWrapper::Lines ScriptedLdapTlsWrapper::search(const std::string& base, Ldap::ScopeT scope,
                                                             const std::string& filter, const Lines* attributes) {
  if (attributes != nullptr && !attributes->empty()) {
    if (_attributeSearches++ == 0) {
      _scopeSearched = true;
      return _scopeLines;
    }
    return _roleLines;
  }
  if (_plainSearches++ == 0) return _userExists ? Lines{"uid: " + filter} : Lines();
  const std::size_t alias = _plainSearches - 2;
  return alias < _aliasAnswers.size() ? _aliasAnswers[alias] : Lines();
}
