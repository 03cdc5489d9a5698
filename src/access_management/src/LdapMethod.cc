#include "LdapMethod.h"

#include "AmQivEaWrapperTimeout.h"
#include "ChildOutputReader.h"
#include "SpawnedProcess.h"

#include <Poco/Exception.h>
#include <Poco/Pipe.h>
#include <Qiv/LoggingWrapper.h>
#include <Qiv/Timer.h>

#include <chrono>

namespace QivAccessManagement {

namespace {

const char kTool[] = "acs-config-update";
const std::size_t kErrorOutputLimit = 8192;
// As long as qivea gets: the tool runs under the configuration lock that role queries wait for.
const unsigned kTimeoutMs = 30000;

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
  AmQivEaWrapperTimeout watchdog(3, "Timer has expired, killing acs-config-update (pid %d)");
  SpawnedProcess tool(kTool, args, outPipe, errPipe);
  // Declared after the tool: on an exception it is stopped before the tool is killed and reaped.
  Qiv::Timer timer(static_cast<long>(kTimeoutMs), 0);
  watchdog.setProcessId(tool.id());
  const ChildOutputReader reader(watchdog, std::chrono::steady_clock::now() + std::chrono::milliseconds(kTimeoutMs));
  timer.start(Qiv::TimerCallback<AmQivEaWrapperTimeout>(watchdog, &AmQivEaWrapperTimeout::onTimer));
  // Both pipes are read while the tool runs, so that it never blocks on a full one; standard
  // output is read and dropped.
  std::string output;
  reader.read({{outPipe.readHandle(), &output, 0}, {errPipe.readHandle(), &errorOutput, kErrorOutputLimit}});
  // Unreaped until the watchdog is stopped, so that its kill cannot reach a reused pid.
  tool.waitForExit();
  timer.stop();
  const int status = tool.wait();
  if (watchdog.isExpired()) throw Poco::TimeoutException(std::string(kTool) + " did not end in time");
  return status;
}

}  // namespace QivAccessManagement
