#include "ThrowAwayCertificates.h"

#include "ChildProcess.h"

#include <filesystem>

namespace TestDirectory {

void ThrowAwayCertificates::create() const {
  std::filesystem::create_directories(_directory);
  const std::vector<std::string> caExtensions{"-addext", "basicConstraints=critical,CA:TRUE", "-addext",
                                              "keyUsage=critical,keyCertSign,cRLSign"};
  // The two CAs are independent: made side by side, as every instance's start waits for them.
  const std::unique_ptr<ChildProcess> ca = startRequest("ca", "/CN=Throw-away test CA", caFile(), caExtensions);
  const std::unique_ptr<ChildProcess> otherCa =
      startRequest("other-ca", "/CN=Unrelated throw-away test CA", otherCaFile(), caExtensions);
  ca->waitForSuccess();
  otherCa->waitForSuccess();
  startRequest("server", "/CN=127.0.0.1", serverCertificateFile(),
               {"-CA", caFile(), "-CAkey", _directory + "/ca.key", "-addext",
                "subjectAltName=IP:127.0.0.1,DNS:localhost", "-addext", "basicConstraints=critical,CA:FALSE",
                "-addext", "keyUsage=critical,digitalSignature", "-addext", "extendedKeyUsage=serverAuth"})
      ->waitForSuccess();
}

std::unique_ptr<ChildProcess> ThrowAwayCertificates::startRequest(
    const std::string& name, const std::string& subject, const std::string& certificateFile,
    const std::vector<std::string>& extraArguments) const {
  // No configuration file: what the machine's openssl.cnf adds must not change the certificates.
  std::vector<std::string> arguments{"req",   "-config", "/dev/null", "-x509", "-newkey", "ec",
                                     "-pkeyopt", "ec_paramgen_curve:P-256", "-noenc", "-days", "2",
                                     "-subj", subject, "-keyout", _directory + "/" + name + ".key",
                                     "-out", certificateFile};
  arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
  return std::unique_ptr<ChildProcess>(new ChildProcess("openssl", arguments, _directory + "/" + name + ".log"));
}

}  // namespace TestDirectory
