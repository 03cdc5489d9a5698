#ifndef TEST_LIBLDAP_DEFAULTS_H
#define TEST_LIBLDAP_DEFAULTS_H

#include <ldap.h>
#include <sys/time.h>

#include <map>
#include <string>

// libldap's process-wide default options, which an LDAP client without a session handle
// changes. The static members read them; an object puts back, when it goes, those a test may
// change as they were when it was made, so that the tests of one process do not see each other's
// settings.
class LibldapDefaults {
 public:
  LibldapDefaults() {
    for (int option : STRING_OPTIONS) {
      char* value = nullptr;
      ldap_get_option(nullptr, option, &value);
      if (value != nullptr) _strings[option] = value;
      ldap_memfree(value);
    }
    _requireCert = number(LDAP_OPT_X_TLS_REQUIRE_CERT);
    _referrals = number(LDAP_OPT_REFERRALS);
    _timeout = seconds(LDAP_OPT_TIMEOUT);
    _networkTimeout = seconds(LDAP_OPT_NETWORK_TIMEOUT);
    ldap_get_option(nullptr, LDAP_OPT_SERVER_CONTROLS, &_controls);
  }

  ~LibldapDefaults() {
    for (int option : STRING_OPTIONS) {
      const auto saved = _strings.find(option);
      ldap_set_option(nullptr, option, saved != _strings.end() ? saved->second.c_str() : nullptr);
    }
    ldap_set_option(nullptr, LDAP_OPT_X_TLS_REQUIRE_CERT, &_requireCert);
    ldap_set_option(nullptr, LDAP_OPT_REFERRALS, _referrals != 0 ? LDAP_OPT_ON : LDAP_OPT_OFF);
    // A negative number of seconds is libldap's "no time-out".
    const timeval timeout = {_timeout, 0};
    ldap_set_option(nullptr, LDAP_OPT_TIMEOUT, &timeout);
    const timeval networkTimeout = {_networkTimeout, 0};
    ldap_set_option(nullptr, LDAP_OPT_NETWORK_TIMEOUT, &networkTimeout);
    ldap_set_option(nullptr, LDAP_OPT_SERVER_CONTROLS, _controls);
    ldap_controls_free(_controls);
  }

  LibldapDefaults(const LibldapDefaults&) = delete;
  LibldapDefaults& operator=(const LibldapDefaults&) = delete;

  // A string option's default; "(null)" when unset.
  static std::string text(int option) {
    char* value = nullptr;
    ldap_get_option(nullptr, option, &value);
    const std::string text = value != nullptr ? value : "(null)";
    ldap_memfree(value);
    return text;
  }

  // An int option's default; -99 when libldap gives none.
  static int number(int option) {
    int value = -99;
    ldap_get_option(nullptr, option, &value);
    return value;
  }

  // Seconds of a time-out default; -1 when none is set.
  static time_t seconds(int option) {
    timeval* value = nullptr;
    ldap_get_option(nullptr, option, &value);
    const time_t seconds = value != nullptr ? value->tv_sec : -1;
    ldap_memfree(value);
    return seconds;
  }

 private:
  static constexpr int STRING_OPTIONS[] = {LDAP_OPT_X_TLS_CACERTFILE, LDAP_OPT_X_TLS_CACERTDIR, LDAP_OPT_X_TLS_CERTFILE,
                                           LDAP_OPT_X_TLS_KEYFILE, LDAP_OPT_X_TLS_CIPHER_SUITE};

  std::map<int, std::string> _strings;
  int _requireCert;
  int _referrals;
  time_t _timeout;
  time_t _networkTimeout;
  LDAPControl** _controls = nullptr;
};

#endif
