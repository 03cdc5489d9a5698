#include "LdapMethod.h"

#include "SpawnedProcess.h"

#include <Poco/Exception.h>
#include <Poco/Pipe.h>
#include <Qiv/LoggingWrapper.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>

namespace QivAccessManagement {

namespace {

const char kTool[] = "acs-config-update";
const std::size_t kErrorOutputLimit = 8192;

// Reads both pipes to their end, so that the tool never blocks on a full pipe, and keeps the
// first kErrorOutputLimit bytes of standard error.
void drain(Poco::Pipe& outPipe, Poco::Pipe& errPipe, std::string& errorOutput) {
  pollfd fds[] = {{outPipe.readHandle(), POLLIN, 0}, {errPipe.readHandle(), POLLIN, 0}};
  Poco::Pipe* pipes[] = {&outPipe, &errPipe};
  char buffer[kErrorOutputLimit];
  while (fds[0].fd != -1 || fds[1].fd != -1) {
    if (::poll(fds, 2, -1) == -1) {
      if (errno == EINTR) continue;
      throw Poco::SystemException("cannot wait for the output of", kTool);
    }
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd == -1 || fds[i].revents == 0) continue;
      const int count = pipes[i]->readBytes(buffer, sizeof buffer);
      if (count == 0) {
        fds[i].fd = -1;  // poll skips negative descriptors
      } else if (pipes[i] == &errPipe) {
        errorOutput.append(buffer, std::min(static_cast<std::size_t>(count), kErrorOutputLimit - errorOutput.size()));
      }
    }
  }
}

}  // namespace

bool LdapMethod::isSecAaFwAvailable() const {
  try {
    std::string errorOutput;
    const int status = runTool({"--help"}, errorOutput);
    if (status == 0 || status == 1) {
      QIV_TRACE(" << SEC AA is available");
      return true;
    }
    QIV_TRACE(" << SEC AA is not available");
  } catch (...) {
    QIV_LOG(3, "exception when running acs-config-update --help");
  }
  return false;
}

int LdapMethod::registerLdapServiceModule(const std::string& configPath) const {
  QIV_TRACE(" >> Registering ldap method in AA framework using %s", configPath.c_str());
  return changeRegistration({"--register", "LdapAuthenticationMethod", "-f", configPath},
                            "Registering LDAP service module in ACS SDK failed (%d) output: %s",
                            "Poco exception when running acs-config-update --register: %s");
}

int LdapMethod::deregisterLdapServiceModule() const {
  QIV_TRACE(" >> Deregistering ldap method from AA framework");
  return changeRegistration({"--deregister", "LdapAuthenticationMethod"},
                            "Deregistering LDAP service module from ACS SDK failed (%d) output: %s",
                            "Poco::Exception when running acs-config-update --deregister: %s");
}

int LdapMethod::changeRegistration(const std::vector<std::string>& args, const char* failureFormat,
                                   const char* exceptionFormat) const {
  if (!isSecAaFwAvailable()) return -2;
  try {
    std::string errorOutput;
    const int status = runTool(args, errorOutput);
    if (status == 0) return 0;
    QIV_LOG(6, failureFormat, status, errorOutput.c_str());
  } catch (const Poco::Exception& e) {
    QIV_LOG(3, exceptionFormat, e.displayText().c_str());
  }
  return -1;
}

int LdapMethod::runTool(const std::vector<std::string>& args, std::string& errorOutput) {
  Poco::Pipe outPipe;
  Poco::Pipe errPipe;
  SpawnedProcess tool(kTool, args, outPipe, errPipe);
  drain(outPipe, errPipe, errorOutput);
  return tool.wait();
}

}  // namespace QivAccessManagement
