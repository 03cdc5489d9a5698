#include "LdapTlsWrapper.h"

#include "CipherPriorityTranslator.h"

#include <Qiv/LoggingWrapper.h>

#include <dlfcn.h>
#include <ldap.h>
#include <sys/time.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

namespace Ldap {

namespace {

// libldap and its TLS library keep global state (default options, the TLS library's
// initialisation) that they never release. Unloading them with the component would lose it on
// every unload of the component, so the first wrapper keeps libldap loaded for the process's life.
void keepLibldapLoaded() {
  static std::once_flag once;
  std::call_once(once, [] {
    Dl_info library;
    if (dladdr(reinterpret_cast<void*>(&ldap_initialize), &library) != 0 && library.dli_fname != nullptr)
      dlopen(library.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
  });
}

const int UNSET = -1;
const char LDAPS_SCHEME[] = "ldaps://";
const char LDAP_SCHEME[] = "ldap://";
// TLS 1.0: the oldest servers in the field still speak nothing newer.
const int TLS_PROTOCOL_MIN = 0x301;
const char MANAGE_DSA_IT_OID[] = "2.16.840.1.113730.3.4.2";
// The control list's block: room for far more controls than the one sent.
const std::size_t CONTROL_LIST_BYTES = 260;

bool startsWith(const std::string& text, const char* prefix) {
  return text.compare(0, std::strlen(prefix), prefix) == 0;
}

int requireCertValue(ReqCertOptionT option) {
  switch (option) {
    case REQCERT_ALLOW:
      return LDAP_OPT_X_TLS_ALLOW;
    case REQCERT_TRY:
      return LDAP_OPT_X_TLS_TRY;
    case REQCERT_NEVER:
      return LDAP_OPT_X_TLS_NEVER;
    case REQCERT_HARD:
      return LDAP_OPT_X_TLS_HARD;
    default:
      return LDAP_OPT_X_TLS_DEMAND;
  }
}

int scopeValue(ScopeT scope) {
  switch (scope) {
    case SCOPE_ONELEVEL:
      return LDAP_SCOPE_ONELEVEL;
    case SCOPE_SUBTREE:
      return LDAP_SCOPE_SUBTREE;
    default:
      return LDAP_SCOPE_BASE;
  }
}

// A time-out of whole seconds, as libldap takes it.
timeval wholeSeconds(int seconds) {
  timeval timeout;
  timeout.tv_sec = seconds;
  timeout.tv_usec = 0;
  return timeout;
}

const char* nullIfEmpty(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

// The entry's attributes that have values, each as one Mod.
void readAttributes(LDAP* ld, LDAPMessage* found, Entry& entry) {
  BerElement* ber = nullptr;
  for (char* name = ldap_first_attribute(ld, found, &ber); name != nullptr;
       name = ldap_next_attribute(ld, found, ber)) {
    berval** values = ldap_get_values_len(ld, found, name);
    if (values != nullptr && values[0] != nullptr) {
      Mod* mod = new Mod(LDAP_MOD_ADD, name);
      entry.pushBack(mod);
      for (int index = 0; values[index] != nullptr; ++index) {
        mod->append(values[index]->bv_val, static_cast<unsigned>(values[index]->bv_len));
      }
    }
    ldap_value_free_len(values);
    ldap_memfree(name);
  }
  ber_free(ber, 0);
}

}  // namespace

LdapTlsWrapper::LdapTlsWrapper()
    : _ld(nullptr),
      _tlsMode(TLS_NONE),
      _synchronousTimeout(wholeSeconds(UNSET)),
      _networkTimeout(wholeSeconds(UNSET)),
      _referrals(_tlsMode, _bindDn, _password) {
  keepLibldapLoaded();
}

LdapTlsWrapper::~LdapTlsWrapper() { freeLdapHandle(false); }

bool LdapTlsWrapper::setCaCertificate(const std::string& file) {
  return setOption(__FUNCTION__, LDAP_OPT_X_TLS_CACERTFILE, file.c_str(), "Couldn't set CA cert (" + file + "): ");
}

bool LdapTlsWrapper::setCaCertDirectory(const std::string& dir) {
  return setOption(__FUNCTION__, LDAP_OPT_X_TLS_CACERTDIR, dir.c_str(),
                   "Couldn't set CA cert directory (" + dir + "): ");
}

bool LdapTlsWrapper::setClientCertificate(const std::string& file) {
  return setOption(__FUNCTION__, LDAP_OPT_X_TLS_CERTFILE, file.c_str(), "Couldn't set client cert (" + file + "): ");
}

bool LdapTlsWrapper::setClientKey(const std::string& file) {
  return setOption(__FUNCTION__, LDAP_OPT_X_TLS_KEYFILE, file.c_str(), "Couldn't set client key (" + file + "): ");
}

bool LdapTlsWrapper::setCipherSuite(const std::string& ciphers) {
  const std::string failure = "Couldn't set cipher suite (" + ciphers + "): ";
  // The filter is in OpenSSL's syntax; a libldap built with GnuTLS takes a priority string.
  Poco::Mutex::ScopedLock lock(_mutex);
  std::string refusal;
  if (CipherPriorityTranslator::isLibldapTlsOpenSsl()) {
    return setOption(__FUNCTION__, LDAP_OPT_X_TLS_CIPHER_SUITE, ciphers.c_str(), failure);
  }
  // Every lookup sets the same filter: it is translated once, not on each connection.
  if (ciphers != _translatedCipherFilter || _cipherPriority.empty()) {
    _cipherPriority.clear();
    if (CipherPriorityTranslator::translate(ciphers, _cipherPriority, refusal)) _translatedCipherFilter = ciphers;
  }
  if (!_cipherPriority.empty()) {
    return setOption(__FUNCTION__, LDAP_OPT_X_TLS_CIPHER_SUITE, _cipherPriority.c_str(), failure);
  }
  QIV_TRACE(" >> ");
  QIV_LOG(3, "%s%s", failure.c_str(), refusal.c_str());
  QIV_TRACE(" << ");
  return false;
}

bool LdapTlsWrapper::setRequireCert(ReqCertOptionT option) {
  const int value = requireCertValue(option);
  return setOption(__FUNCTION__, LDAP_OPT_X_TLS_REQUIRE_CERT, &value, "Couldn't set require-cert flag: ");
}

bool LdapTlsWrapper::setSynchronousTimeout(int seconds) {
  const timeval timeout = wholeSeconds(seconds);
  const bool set = setOption(__FUNCTION__, LDAP_OPT_TIMEOUT, &timeout, "Couldn't set timeout: ");
  if (set) _synchronousTimeout = timeout;
  return set;
}

bool LdapTlsWrapper::setNetworkTimeout(int seconds) {
  const timeval timeout = wholeSeconds(seconds);
  const bool set = setOption(__FUNCTION__, LDAP_OPT_NETWORK_TIMEOUT, &timeout, "Couldn't set network timeout: ");
  if (set) _networkTimeout = timeout;
  return set;
}

// libldap reads the option's value itself as the switch, so off is handed as null.
bool LdapTlsWrapper::setLdapOptReferrals(bool on) {
  return setOption(__FUNCTION__, LDAP_OPT_REFERRALS, on ? LDAP_OPT_ON : LDAP_OPT_OFF,
                   "Couldn't set ldap opt referals ");
}

// libldap copies the list, so the control may live on the stack and the list is freed at once.
bool LdapTlsWrapper::setLdapOptServerControls() {
  LDAPControl** controls = static_cast<LDAPControl**>(std::malloc(CONTROL_LIST_BYTES));
  if (controls == nullptr) {
    QIV_TRACE(" >> ");
    QIV_LOG(3, "Couldn't allocate memory to set ldap opt server controls ");
    QIV_TRACE(" << ");
    return false;
  }
  LDAPControl manageDsaIt;
  manageDsaIt.ldctl_oid = const_cast<char*>(MANAGE_DSA_IT_OID);
  manageDsaIt.ldctl_value.bv_len = 0;
  manageDsaIt.ldctl_value.bv_val = nullptr;
  manageDsaIt.ldctl_iscritical = 0;
  controls[0] = &manageDsaIt;
  controls[1] = nullptr;
  const bool set =
      setOption(__FUNCTION__, LDAP_OPT_SERVER_CONTROLS, controls, "Couldn't set ldap opt server controls ");
  std::free(controls);
  return set;
}

bool LdapTlsWrapper::createNewCtx() {
  const int client = 0;
  return setOption(__FUNCTION__, LDAP_OPT_X_TLS_NEWCTX, &client, "Couldn't create new SSL context ");
}

bool LdapTlsWrapper::setOption(const char* setter, int option, const void* value, const std::string& failure) {
  Qiv::LoggingWrapper::log_printf(setter, Qiv::LoggingWrapper::TRACE, " >> ");
  Poco::Mutex::ScopedLock lock(_mutex);
  const int rc = ldap_set_option(_ld, option, value);
  if (rc != LDAP_SUCCESS) Qiv::LoggingWrapper::log_printf(setter, 3, "%s%s", failure.c_str(), message(rc).c_str());
  Qiv::LoggingWrapper::log_printf(setter, Qiv::LoggingWrapper::TRACE, " << ");
  return rc == LDAP_SUCCESS;
}

bool LdapTlsWrapper::connect(TlsModeConnection mode, const std::string& host, const std::string& fallbackHost) {
  QIV_TRACE(" >> ");
  Poco::Mutex::ScopedLock lock(_mutex);
  _tlsMode = mode;
  if (_ld != nullptr) freeLdapHandle(true);
  _uri.clear();
  if (!host.empty()) createURI(host, mode);
  if (!fallbackHost.empty()) createURI(fallbackHost, mode);
  _outcome = OperationOutcome();
  _guard.start(_synchronousTimeout.tv_sec > 0 ? static_cast<int>(_synchronousTimeout.tv_sec) : 0);
  const int rc = ldap_initialize(&_ld, _uri.c_str());
  if (_ld != nullptr) {
    const int version = LDAP_VERSION3;
    ldap_set_option(_ld, LDAP_OPT_PROTOCOL_VERSION, &version);
    ldap_set_option(_ld, LDAP_OPT_X_TLS_PROTOCOL_MIN, &TLS_PROTOCOL_MIN);
    _guard.attach(_ld);
    _referrals.attach(_ld);
  }
  QIV_TRACE(" << ");
  return rc == LDAP_SUCCESS;
}

void LdapTlsWrapper::disconnect() {
  QIV_TRACE(" >> ");
  Poco::Mutex::ScopedLock lock(_mutex);
  if (_ld != nullptr) unbind();
  _uri.clear();
  QIV_TRACE(" << ");
}

// A session already under TLS answers LDAP_LOCAL_ERROR: the StartTLS that was asked for did not
// happen, so it is reported as a failure on purpose, though only traced.
bool LdapTlsWrapper::startTls() {
  QIV_TRACE(" >> ");
  if (_ld == nullptr) connect(TLS_NONE, "", "");
  bool started = true;
  if (_tlsMode == TLS_STARTTLS) {
    const int rc = beginOperation() ? ldap_start_tls_s(_ld, nullptr, nullptr) : LDAP_TIMEOUT;
    endOperation(rc);
    started = rc == LDAP_SUCCESS;
    if (rc == LDAP_LOCAL_ERROR) {
      QIV_TRACE("TLS is already inplace.");
    } else if (rc != LDAP_SUCCESS) {
      QIV_LOG(3, "Can't start starttls for connection : %s", message(rc).c_str());
    }
  }
  QIV_TRACE(" << ");
  return started;
}

bool LdapTlsWrapper::bind(const std::string& dn, const std::string& password) {
  QIV_TRACE(" >> ");
  Poco::Mutex::ScopedLock lock(_mutex);
  _bindDn = dn;
  _password = password;
  const bool bound = bind();
  QIV_TRACE(" << ");
  return bound;
}

bool LdapTlsWrapper::ping() {
  QIV_TRACE(" >> ");
  Poco::Mutex::ScopedLock lock(_mutex);
  bool alive = false;
  if (_ld == nullptr) {
    QIV_TRACE("LDAP handle not set");
  } else {
    LDAPMessage* result = nullptr;
    const int rc = beginOperation() ? ldap_search_ext_s(_ld, nullptr, LDAP_SCOPE_BASE, nullptr, nullptr, 0, nullptr,
                                                        nullptr, nullptr, 0, &result)
                                    : LDAP_TIMEOUT;
    if (result != nullptr) ldap_msgfree(result);
    endOperation(rc);
    // A server that does not answer is as good as down.
    alive = _outcome.answered();
    if (!alive) QIV_TRACE("LDAP server %s is down", _uri.c_str());
  }
  QIV_TRACE(" << ");
  return alive;
}

bool LdapTlsWrapper::deleteEntry(const std::string& dn) {
  QIV_TRACE(" >> ");
  Poco::Mutex::ScopedLock lock(_mutex);
  const int rc = _ld == nullptr   ? LDAP_PARAM_ERROR
                 : beginOperation() ? ldap_delete_ext_s(_ld, dn.c_str(), nullptr, nullptr)
                                    : LDAP_TIMEOUT;
  endOperation(rc);
  const bool deleted = rc == LDAP_SUCCESS;
  QIV_TRACE(" << ");
  return deleted;
}

// A failed search is not logged: the caller decides whether an empty answer is an error. libldap
// aborts on a null handle, so a search without one fails here.
std::list<std::string> LdapTlsWrapper::search(const std::string& base, ScopeT scope, const std::string& filter,
                                              const std::list<std::string>* attributes) {
  QIV_TRACE(" >> ");
  Poco::Mutex::ScopedLock lock(_mutex);
  std::vector<char*> names;
  if (attributes != nullptr) {
    for (const std::string& attribute : *attributes) names.push_back(const_cast<char*>(attribute.c_str()));
  }
  names.push_back(nullptr);
  char** requested = names.size() > 1 ? names.data() : nullptr;

  LDAPMessage* result = nullptr;
  const int rc = _ld == nullptr   ? LDAP_PARAM_ERROR
                 : beginOperation() ? ldap_search_ext_s(_ld, nullIfEmpty(base), scopeValue(scope), nullIfEmpty(filter),
                                                        requested, 0, nullptr, nullptr, nullptr, 0, &result)
                                    : LDAP_TIMEOUT;
  endOperation(rc);
  std::list<Entry> entries;
  if (rc == LDAP_SUCCESS && ldap_count_entries(_ld, result) != 0) {
    for (LDAPMessage* found = ldap_first_entry(_ld, result); found != nullptr; found = ldap_next_entry(_ld, found)) {
      char* dn = ldap_get_dn(_ld, found);
      entries.emplace_back(dn != nullptr ? dn : "");
      readAttributes(_ld, found, entries.back());
      ldap_memfree(dn);
    }
  }
  if (result != nullptr) ldap_msgfree(result);
  std::list<std::string> lines = getAttrsResult(entries);
  QIV_TRACE(" << ");
  return lines;
}

bool LdapTlsWrapper::bind() {
  QIV_TRACE(" >> ");
  if (_ld == nullptr) connect(TLS_NONE, "", "");
  QIV_TRACE("Binding using DN: %s", _bindDn.c_str());
  berval credentials;
  credentials.bv_len = _password.size();
  credentials.bv_val = const_cast<char*>(_password.data());
  // libldap aborts on a null handle, which a failed connect leaves.
  const int rc = _ld == nullptr   ? LDAP_PARAM_ERROR
                 : beginOperation() ? ldap_sasl_bind_s(_ld, _bindDn.c_str(), LDAP_SASL_SIMPLE, &credentials,
                                                       nullptr, nullptr, nullptr)
                                    : LDAP_TIMEOUT;
  endOperation(rc);
  QIV_TRACE(" << ");
  return rc == LDAP_SUCCESS;
}

void LdapTlsWrapper::unbind() {
  QIV_TRACE(" >> ");
  freeLdapHandle(true);
  _bindDn.clear();
  _password.clear();
  _ld = nullptr;
  QIV_TRACE(" << ");
}

void LdapTlsWrapper::freeLdapHandle(bool verbose) {
  if (verbose) QIV_TRACE(" >> ");
  if (_ld != nullptr) {
    const int rc = ldap_unbind_ext_s(_ld, nullptr, nullptr);
    if (rc != LDAP_SUCCESS && verbose) QIV_LOG(4, "Couldn't unbind LDAP connection: %s", message(rc).c_str());
    _ld = nullptr;
  }
  if (verbose) QIV_TRACE(" << ");
}

void LdapTlsWrapper::createURI(const std::string& host, TlsModeConnection mode) {
  QIV_TRACE(" >> ");
  const bool isUri = host.size() > 7 && (startsWith(host, LDAPS_SCHEME) || startsWith(host, LDAP_SCHEME));
  const std::string address = isUri ? host : (mode == TLS_LDAPS ? LDAPS_SCHEME : LDAP_SCHEME) + host;
  if (_uri.empty()) {
    _uri = address;
  } else {
    _uri += "," + address;
  }
  QIV_TRACE(" << ");
}

std::list<std::string> LdapTlsWrapper::getAttrsResult(const std::list<Entry>& entries) const {
  QIV_TRACE(" >> ");
  std::list<std::string> lines;
  for (const Entry& entry : entries) entry.getAttrsResult(lines);
  QIV_TRACE(" << ");
  return lines;
}

std::string LdapTlsWrapper::message(int rc) const { return ldap_err2string(rc); }

OperationOutcome LdapTlsWrapper::lastOutcome() const {
  Poco::Mutex::ScopedLock lock(_mutex);
  return _outcome;
}

bool LdapTlsWrapper::beginOperation() {
  _guard.beginOperation();
  if (_guard.expired()) return false;
  const timeval synchronous = _guard.bounded(_synchronousTimeout);
  if (synchronous.tv_sec >= 0) ldap_set_option(_ld, LDAP_OPT_TIMEOUT, &synchronous);
  const timeval network = _guard.bounded(_networkTimeout);
  if (network.tv_sec >= 0) ldap_set_option(_ld, LDAP_OPT_NETWORK_TIMEOUT, &network);
  return true;
}

// A result code from the server is an answer, whatever it says; libldap's own codes are not.
void LdapTlsWrapper::endOperation(int rc) {
  _outcome = OperationOutcome();
  if (rc >= 0 && !_guard.silenceMet()) return;
  const bool silent = _guard.silenceMet() || rc == LDAP_TIMEOUT;
  _outcome.kind = silent ? OperationOutcome::NO_ANSWER : OperationOutcome::REFUSED;
  _outcome.server = _guard.server().empty() ? _uri : _guard.server();
  _outcome.reason = message(rc);
}

}  // namespace Ldap
