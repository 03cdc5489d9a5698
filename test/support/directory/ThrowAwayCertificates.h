#ifndef TEST_DIRECTORY_THROW_AWAY_CERTIFICATES_H
#define TEST_DIRECTORY_THROW_AWAY_CERTIFICATES_H

#include <memory>
#include <string>
#include <vector>

namespace TestDirectory {

class ChildProcess;

// A CA made on the spot with the openssl command, a server certificate for 127.0.0.1 and
// localhost that it signed, and a second CA that signed nothing. EC P-256 keys, PEM files,
// unencrypted PKCS#8 keys (GnuTLS reads them), valid for two days.
class ThrowAwayCertificates {
 public:
  // Names the files in directory; nothing is written before create().
  explicit ThrowAwayCertificates(const std::string& directory) : _directory(directory) {}

  // Creates directory and writes the files; throws std::runtime_error with openssl's output when
  // a step fails. The files stay when the object goes.
  void create() const;

  const std::string& directory() const { return _directory; }
  std::string caFile() const { return _directory + "/ca.pem"; }
  std::string otherCaFile() const { return _directory + "/other-ca.pem"; }
  std::string serverCertificateFile() const { return _directory + "/server.pem"; }
  std::string serverKeyFile() const { return _directory + "/server.key"; }

 private:
  // Starts openssl making a certificate with a fresh key for subject; its output goes to
  // <name>.log, the key to <name>.key.
  std::unique_ptr<ChildProcess> startRequest(const std::string& name, const std::string& subject,
                                             const std::string& certificateFile,
                                             const std::vector<std::string>& extraArguments) const;

  std::string _directory;
};

}  // namespace TestDirectory

#endif
