#ifndef QIV_ACCESS_MANAGEMENT_CIPHER_PRIORITY_TRANSLATOR_H
#define QIV_ACCESS_MANAGEMENT_CIPHER_PRIORITY_TRANSLATOR_H

#include <string>

namespace Ldap {

// Turns a cipher filter written in OpenSSL's cipher-list syntax into a GnuTLS priority string,
// for a libldap that does its TLS with GnuTLS and so takes priority strings in its cipher-suite
// option. Stateless; any thread may call it.
//
// OpenSSL expands the filter into its suites; each suite's key exchange, cipher and MAC become
// GnuTLS items, and the protocol versions are those the suites can run under (TLS 1.0 at the
// lowest, SSL 3.0 never). GnuTLS allows every combination of the listed items, so the string
// allows the filter's suites and as little more as such a product can: combinations of items that
// the filter kept apart. Anonymous and null-cipher suites, PSK and SRP suites (libldap has no
// credentials for them) and suites whose cipher or MAC GnuTLS does not have (ARIA, GOST) are
// left out.
//
// TLS 1.3 suites are configured apart from the filter in OpenSSL, which keeps its TLS 1.3 list
// whatever the filter says. A priority string, however, shares its cipher items between the
// versions, so of that list only the suites whose cipher one of the filter's own suites already
// uses are allowed (and TLS 1.3 with them): TLS 1.3 never widens what the filter allows in the
// older versions.
class CipherPriorityTranslator {
 public:
  // The priority string for filter in priority, and true, when the filter allows at least one
  // suite that is kept (see above). Otherwise false, with priority untouched and a short text
  // saying why in reason: OpenSSL's own for a filter it rejects.
  static bool translate(const std::string& filter, std::string& priority, std::string& reason);

  // True when libldap does its TLS with OpenSSL and takes the filter as it is; also when libldap
  // does not say which TLS package it uses.
  static bool isLibldapTlsOpenSsl();
};

}  // namespace Ldap

#endif
