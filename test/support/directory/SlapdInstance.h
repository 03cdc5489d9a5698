#ifndef TEST_DIRECTORY_SLAPD_INSTANCE_H
#define TEST_DIRECTORY_SLAPD_INSTANCE_H

#include <string>

namespace TestDirectory {

// A throw-away OpenLDAP slapd (Debian's /usr/sbin/slapd) on free loopback ports, configured from
// files it writes into its own temporary directory: the project's schema for the orbelin
// attributes, the sample entries of test/fixtures/ldap, and TLS from a throw-away CA (LDAPS on
// its own port, StartTLS on the plain port). The constructor returns once both ports answer and
// throws std::runtime_error (with slapd's output) when it could not start. The destructor stops
// slapd by its pid and removes the directory, also when a test failed. slapd is a direct child that
// gets SIGTERM when the thread that constructed the instance ends (so a crashed test leaves no
// server behind): construct and destroy it on a thread that outlives it.
class SlapdInstance {
 public:
  struct Options {
    // GnuTLS priority string for slapd's TLSCipherSuite (olcTLSCipherSuite); empty keeps its default.
    std::string cipherSuite;
    // LDIF file loaded after the base entries (suffix, people/groups/roleAliases containers,
    // the reader); empty: the project's sample users, test/fixtures/ldap/sample.ldif.
    std::string ldifFile;
    // Where the schema, the base entries and the sample users lie; empty: test/fixtures/ldap.
    std::string fixturesDirectory;
    // Another instance's certificates directory (certificatesDirectory()), so that both servers
    // are signed by one CA; empty: a CA of its own.
    std::string certificatesDirectory;
    // Only the reader may read entries; anonymous sessions see none.
    bool readerOnly = false;
  };

  SlapdInstance();
  explicit SlapdInstance(const Options& options);
  ~SlapdInstance();
  SlapdInstance(const SlapdInstance&) = delete;
  SlapdInstance& operator=(const SlapdInstance&) = delete;

  static const char* host() { return "127.0.0.1"; }
  int plainPort() const;
  int ldapsPort() const;
  // "127.0.0.1:<port>", as the component's configuration composes a server address.
  std::string plainAddress() const;
  std::string ldapsAddress() const;

  // The CA that signed the server certificate, and one that did not.
  std::string caFile() const;
  std::string otherCaFile() const;

  // The sample directory: suffix, administrator DN and its password, a user that may bind.
  static const char* baseDn() { return "dc=example,dc=com"; }
  static const char* rootDn() { return "cn=admin,dc=example,dc=com"; }
  static const char* rootPassword() { return "secret"; }
  static const char* roleAliasesBaseDn() { return "ou=roleAliases,dc=example,dc=com"; }
  // Part of the base entries, so present whatever Options::ldifFile holds; may read all but passwords.
  static const char* readerDn() { return "cn=reader,dc=example,dc=com"; }
  static const char* readerPassword() { return "readerpw"; }

  std::string directory() const;
  // The CA, the server certificate and its key, for Options::certificatesDirectory.
  std::string certificatesDirectory() const;
  int pid() const;

  // Stops slapd now; the destructor does nothing more than remove the directory afterwards.
  void stop();

  // A port on the loopback address that nothing listens on (for unreachable servers).
  static int unusedPort();

 private:
  class Impl;
  Impl* _impl;
};

}  // namespace TestDirectory

#endif
