#include "LdapMethod.h"

#include <Poco/TemporaryFile.h>

#include <chrono>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "AcsConfigUpdateStandIn.h"
#include "Eventually.h"
#include "FrameworkTestBase.h"
#include "InheritableDescriptors.h"
#include "StrayProcess.h"

#include <signal.h>

namespace {

typedef std::vector<std::vector<std::string>> Calls;

const int kTrace = 8;
const std::vector<std::string> kHelp = {"--help"};
const std::vector<std::string> kDeregister = {"--deregister", "LdapAuthenticationMethod"};
// The tool's time-out, and how long past it a run may take: the kill, the output, a loaded machine.
const std::chrono::seconds kTimeout(30);
const std::chrono::seconds kBoundAfterTimeout(5);
const char kTimedOutRegistration[] =
    "Poco exception when running acs-config-update --register: Timeout: acs-config-update did not end in time";
// The smallest file the stand-in takes for a registration: a framework file.
const char kFrameworkFile[] =
    "[GENERAL]\nVERSION = ACS_IFREG-1\n[SSSD]\nldap_uri = ldap://ldap.example.com:389\n[UAI_SERVICE_MODULE]\n";

class LdapMethodTest : public FrameworkTestBase {
 protected:
  LdapMethodTest() : acs(ACS_CONFIG_UPDATE_PROGRAM) {}

  // A framework configuration file with content, to be registered.
  std::string writeConfigFile(const std::string& content = kFrameworkFile) {
    std::ofstream(configFile.path()) << content;
    return configFile.path();
  }

  std::vector<std::string> registerCall(const std::string& path) const {
    return {"--register", "LdapAuthenticationMethod", "-f", path};
  }

  // Waits until the stand-in has recorded count calls; false after ten seconds.
  bool waitForCalls(std::size_t count) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (acs.calls().size() < count) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
  }

  AcsConfigUpdateStandIn acs;
  Poco::TemporaryFile configFile;
  QivAccessManagement::LdapMethod method;
};

TEST_F(LdapMethodTest, WithoutTheToolTheAvailabilityCheckFailsThroughTheExceptionPath) {
  acs.uninstall();
  EXPECT_FALSE(method.isSecAaFwAvailable());
  EXPECT_EQ(1u, log().count(3, "exception when running acs-config-update --help"));
  EXPECT_EQ(0u, log().count(kTrace, " << SEC AA is not available"));
  EXPECT_TRUE(acs.calls().empty());
}

TEST_F(LdapMethodTest, WithoutTheToolRegistrationGivesMinusTwo) {
  const std::string path = writeConfigFile();
  acs.uninstall();
  EXPECT_EQ(-2, method.registerLdapServiceModule(path));
  EXPECT_EQ(1u, log().count(kTrace, " >> Registering ldap method in AA framework using " + path));
  EXPECT_EQ(1u, log().count(3, "exception when running acs-config-update --help"));
  EXPECT_TRUE(acs.calls().empty());
}

TEST_F(LdapMethodTest, WithoutTheToolDeregistrationGivesMinusTwo) {
  acs.uninstall();
  EXPECT_EQ(-2, method.deregisterLdapServiceModule());
  EXPECT_EQ(1u, log().count(kTrace, " >> Deregistering ldap method from AA framework"));
  EXPECT_EQ(1u, log().count(3, "exception when running acs-config-update --help"));
  EXPECT_TRUE(acs.calls().empty());
}

TEST_F(LdapMethodTest, HelpExitingWithZeroMeansAvailable) {
  EXPECT_TRUE(method.isSecAaFwAvailable());
  EXPECT_EQ(1u, log().count(kTrace, " << SEC AA is available"));
  EXPECT_EQ(Calls({kHelp}), acs.calls());
}

TEST_F(LdapMethodTest, HelpExitingWithOneMeansAvailable) {
  acs.script("help", 1, "usage: acs-config-update ...");
  EXPECT_TRUE(method.isSecAaFwAvailable());
  EXPECT_EQ(1u, log().count(kTrace, " << SEC AA is available"));
}

TEST_F(LdapMethodTest, HelpExitingAboveOneMeansNotAvailable) {
  acs.script("help", 2, "acs-config-update: security framework not running");
  EXPECT_FALSE(method.isSecAaFwAvailable());
  EXPECT_EQ(1u, log().count(kTrace, " << SEC AA is not available"));
  EXPECT_EQ(0u, log().countAtLevel(3));
}

TEST_F(LdapMethodTest, RegistrationHandsTheFileToTheTool) {
  const std::string path = writeConfigFile();
  EXPECT_EQ(0, method.registerLdapServiceModule(path));
  EXPECT_EQ(Calls({kHelp, registerCall(path)}), acs.calls());
  EXPECT_EQ("registered " + path, acs.state());
  EXPECT_EQ(kFrameworkFile, acs.registeredCopy());
  EXPECT_EQ(1u, log().count(kTrace, " >> Registering ldap method in AA framework using " + path));
}

TEST_F(LdapMethodTest, RefusedRegistrationLogsTheToolsStandardError) {
  const std::string path = writeConfigFile();
  acs.script("register", 1, "LdapAuthenticationMethod: invalid configuration", "ignored");
  EXPECT_EQ(-1, method.registerLdapServiceModule(path));
  EXPECT_EQ(1u, log().count(6,
                            "Registering LDAP service module in ACS SDK failed (1) output: "
                            "LdapAuthenticationMethod: invalid configuration"));
  EXPECT_EQ(Calls({kHelp, registerCall(path)}), acs.calls());
  EXPECT_EQ("", acs.state());
}

TEST_F(LdapMethodTest, RegistrationOfAMissingFileIsRefusedByTheTool) {
  const std::string path = configFile.path() + ".missing";
  EXPECT_EQ(-1, method.registerLdapServiceModule(path));
  EXPECT_EQ(1u, log().count(6,
                            "Registering LDAP service module in ACS SDK failed (1) output: "
                            "acs-config-update: cannot read configuration file " +
                                path + "\n"));
}

TEST_F(LdapMethodTest, RegistrationOfAFileThatIsNoFrameworkFileIsRefusedByTheTool) {
  const std::string path = writeConfigFile("ldapServer=ldap.example.com\n");
  EXPECT_EQ(-1, method.registerLdapServiceModule(path));
  EXPECT_EQ(1u, log().count(6,
                            "Registering LDAP service module in ACS SDK failed (1) output: acs-config-update: " + path +
                                " is no LDAP framework file: line 1: text before the first section\n"));
  EXPECT_EQ("", acs.state());
}

TEST_F(LdapMethodTest, RegistrationLogsOnlyTheFirst8192BytesOfStandardError) {
  std::string errorOutput;
  while (errorOutput.size() < 100000) errorOutput += std::to_string(errorOutput.size()) + " ";
  acs.script("register", 4, errorOutput, std::string(100000, 'o'));
  EXPECT_EQ(-1, method.registerLdapServiceModule(writeConfigFile()));
  EXPECT_EQ(1u, log().count(
                    6, "Registering LDAP service module in ACS SDK failed (4) output: " + errorOutput.substr(0, 8192)));
}

TEST_F(LdapMethodTest, RegistrationWithoutTheFrameworkGivesMinusTwo) {
  acs.script("help", 2);
  EXPECT_EQ(-2, method.registerLdapServiceModule(writeConfigFile()));
  EXPECT_EQ(Calls({kHelp}), acs.calls());
}

TEST_F(LdapMethodTest, ToolVanishingBeforeRegistrationIsAPocoException) {
  acs.setDelay("help", 200);
  std::future<int> result =
      std::async(std::launch::async, [&] { return method.registerLdapServiceModule(writeConfigFile()); });
  ASSERT_TRUE(waitForCalls(1));
  acs.uninstall();
  EXPECT_EQ(-1, result.get());
  EXPECT_EQ(1u, log().count(3,
                            "Poco exception when running acs-config-update --register: "
                            "File not found: acs-config-update"));
  EXPECT_EQ(Calls({kHelp}), acs.calls());
}

TEST_F(LdapMethodTest, ToolFindsOnlyTheStandardDescriptorsOpen) {
  const InheritableDescriptors inheritable;
  ASSERT_TRUE(inheritable.areInheritable());
  acs.recordDescriptors();
  ASSERT_EQ(0, method.registerLdapServiceModule(writeConfigFile()));
  EXPECT_EQ(std::vector<std::string>(2, "0 1 2\n"), acs.descriptorRecords());
}

TEST_F(LdapMethodTest, DeregistrationTakesTheRegistrationBack) {
  const std::string path = writeConfigFile();
  ASSERT_EQ(0, method.registerLdapServiceModule(path));
  EXPECT_EQ(0, method.deregisterLdapServiceModule());
  EXPECT_EQ(Calls({kHelp, registerCall(path), kHelp, kDeregister}), acs.calls());
  EXPECT_EQ("", acs.state());
  EXPECT_EQ(1u, log().count(kTrace, " >> Deregistering ldap method from AA framework"));
}

TEST_F(LdapMethodTest, RefusedDeregistrationLogsTheToolsStandardError) {
  acs.script("deregister", 3, "LdapAuthenticationMethod is in use");
  EXPECT_EQ(-1, method.deregisterLdapServiceModule());
  EXPECT_EQ(1u, log().count(6,
                            "Deregistering LDAP service module from ACS SDK failed (3) output: "
                            "LdapAuthenticationMethod is in use"));
  EXPECT_EQ(Calls({kHelp, kDeregister}), acs.calls());
}

TEST_F(LdapMethodTest, DeregistrationWithoutTheFrameworkGivesMinusTwo) {
  acs.script("help", 127);
  EXPECT_EQ(-2, method.deregisterLdapServiceModule());
  EXPECT_EQ(Calls({kHelp}), acs.calls());
}

TEST_F(LdapMethodTest, ToolVanishingBeforeDeregistrationIsAPocoException) {
  acs.setDelay("help", 200);
  std::future<int> result = std::async(std::launch::async, [&] { return method.deregisterLdapServiceModule(); });
  ASSERT_TRUE(waitForCalls(1));
  acs.uninstall();
  EXPECT_EQ(-1, result.get());
  EXPECT_EQ(1u, log().count(3,
                            "Poco::Exception when running acs-config-update --deregister: "
                            "File not found: acs-config-update"));
}

// The two tests below wait for the tool's fixed 30 s time-out.

TEST_F(LdapMethodTest, HangingToolIsKilledWithItsGroupAfterThirtySecondsAndTheRegistrationFails) {
  // Left running only by a test that fails.
  const StrayProcess hungTool([this] { return acs.hungPid("register"); }, "acs-config-update");
  acs.hang("register");
  const auto start = std::chrono::steady_clock::now();
  std::future<int> result =
      std::async(std::launch::async, [&] { return method.registerLdapServiceModule(writeConfigFile()); });
  const bool ended = result.wait_for(kTimeout + kBoundAfterTimeout) == std::future_status::ready;
  EXPECT_TRUE(ended) << "the registration still waits for the hung tool";
  if (!ended) hungTool.kill();
  EXPECT_EQ(-1, result.get());
  EXPECT_GE(std::chrono::steady_clock::now() - start, kTimeout);
  const int pid = acs.hungPid("register");
  ASSERT_GT(pid, 0);
  EXPECT_EQ(1u, log().count(3, "Timer has expired, killing acs-config-update (pid " + std::to_string(pid) + ")"));
  EXPECT_EQ(1u, log().count(3, kTimedOutRegistration));
  EXPECT_EQ(-1, ::kill(pid, 0));
  EXPECT_EQ("", acs.state());
}

TEST_F(LdapMethodTest, HelperOutsideTheGroupHoldingTheToolsOutputCannotHoldTheRegistrationPastThirtySeconds) {
  const StrayProcess grandchild([this] { return acs.grandchildPid(); }, "acs-config-update");
  acs.leaveGrandchild("register", 120);
  acs.script("register", 0);
  const auto start = std::chrono::steady_clock::now();
  std::future<int> result =
      std::async(std::launch::async, [&] { return method.registerLdapServiceModule(writeConfigFile()); });
  const bool ended = result.wait_for(kTimeout + kBoundAfterTimeout) == std::future_status::ready;
  EXPECT_TRUE(ended) << "the registration still reads the helper's output";
  if (!ended) grandchild.kill();
  // The tool said yes, but not within the time: the run failed.
  EXPECT_EQ(-1, result.get());
  EXPECT_GE(std::chrono::steady_clock::now() - start, kTimeout);
  EXPECT_EQ(1u, log().countContaining("Timer has expired, killing acs-config-update (pid "));
  EXPECT_EQ(1u, log().count(3, kTimedOutRegistration));
  // Out of the tool's group, the helper is out of the watchdog's reach: only the wait for it ends.
  EXPECT_TRUE(grandchild.isRunning());
}

}  // namespace
