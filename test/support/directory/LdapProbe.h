#ifndef TEST_DIRECTORY_LDAP_PROBE_H
#define TEST_DIRECTORY_LDAP_PROBE_H

#include <string>
#include <vector>

namespace TestDirectory {

// A libldap client that asks one question per connection: for the fixture's readiness check and
// for tests that talk to a directory themselves. TLS options go to each connection's own context,
// never to libldap's process-wide defaults, which the code under test shares.
class LdapProbe {
 public:
  enum class Security { Plain, Ldaps, StartTls };
  enum class Scope { Base, Subtree };

  struct Connection {
    std::string host = "127.0.0.1";
    int port = 0;
    Security security = Security::Plain;
    // The one CA trusted for TLS; the server's certificate is always demanded.
    std::string caFile;
    // GnuTLS priority string (Debian's libldap uses GnuTLS); empty: libldap's default.
    std::string cipherSuite;
    // Simple bind; an empty DN stays anonymous.
    std::string bindDn;
    std::string password;
  };

  struct Answer {
    // libldap's code of the step that failed (LDAP_SUCCESS, 0, when all went well) and a text
    // naming the step with libldap's explanation.
    int code = 0;
    std::string error;
    // Per entry found: "dn: <dn>", then "<attribute>: <value>" for each value.
    std::vector<std::string> lines;

    bool succeeded() const { return code == 0; }
  };

  explicit LdapProbe(const Connection& connection) : _connection(connection) {}

  // Connects, secures, binds, searches (all attributes), disconnects. Network time-out 2 s,
  // operation time-out 5 s. Never throws for what the server or the network does.
  Answer search(const std::string& base, Scope scope, const std::string& filter) const;

  // Reads the root DSE: answers once the server serves requests.
  Answer readRootDse() const { return search("", Scope::Base, "(objectClass=*)"); }

 private:
  Connection _connection;
};

}  // namespace TestDirectory

#endif
