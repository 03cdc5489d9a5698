#ifndef BENCH_BARE_LDAP_LOOKUP_H
#define BENCH_BARE_LDAP_LOOKUP_H

#include <string>
#include <vector>

namespace Bench {

// The least a client must do with libldap to answer the component's built-in role query for a
// filter-type-2 user on a node without node types: the same session options, TLS set-up and
// directory operations, one fresh session per lookup, and no more than that. Anonymous (no bind).
class BareLdapLookup {
 public:
  enum class Security { NONE, LDAPS, STARTTLS };

  struct Settings {
    std::string uri;  // "ldap://host:port" or "ldaps://host:port"
    Security security;
    std::string caFile;       // the CA that signed the server's certificate (TLS only)
    std::string cipherSuite;  // the cipher-suite option as libldap takes it (TLS only)
    std::string baseDn;
  };

  explicit BareLdapLookup(Settings settings);

  // The cipher-suite option as the component hands it to libldap for its cipher filter: the
  // filter itself, or the GnuTLS priority string the filter translates to when libldap does TLS
  // with GnuTLS. Throws std::runtime_error when the filter translates to nothing.
  static std::string cipherSuiteFor(const std::string& filter);

  // The roles user holds, sorted and without duplicates, from a session of its own. Throws
  // std::runtime_error naming the libldap call that failed, or when the user does not exist.
  std::vector<std::string> roles(const std::string& user) const;

 private:
  Settings _settings;
};

}  // namespace Bench

#endif
