#include "ConfigurationRunnable.h"

#include "Eventually.h"
#include "FrameworkTestBase.h"
#include "LdapModel.h"
#include "QiveaStandIn.h"
#include "SecCreduStandIn.h"

#include <Poco/Condition.h>
#include <Poco/Thread.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace QivAccessManagement;

namespace {

using Args = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

const char METHOD_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";

// The security API's library, loaded while the object lives: the runnable's own look-up by the
// bare name then finds it.
class LoadedSecurityLibrary {
 public:
  LoadedSecurityLibrary() : _handle(dlopen(SEC_CREDU_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {}
  ~LoadedSecurityLibrary() {
    if (_handle != nullptr) dlclose(_handle);
  }
  bool loaded() const { return _handle != nullptr; }

 private:
  void* _handle;
};

}  // namespace

// The configuration thread on the framework stand-in, applying through the qivea stand-in.
class ConfigurationRunnableThreadTest : public FrameworkTestBase {
 protected:
  explicit ConfigurationRunnableThreadTest(const std::string& model = "ldap20.xml") : FrameworkTestBase(model) {}

  QivMgmtSpiInterfacePortal_1* portal() {
    return static_cast<QivMgmtSpiInterfacePortal_1*>(framework().accessor()->getPortal("1"));
  }

  // A runnable initialised as start does it, waiting on the test's condition.
  std::unique_ptr<ConfigurationRunnable> initialisedRunnable() {
    std::unique_ptr<ConfigurationRunnable> runnable(new ConfigurationRunnable);
    runnable->addExternalInterface(threadContextInterface());
    EXPECT_EQ(0, runnable->init(portal(), METHOD_DN, nullptr));
    runnable->setStartUpCondition(&condition, &mutex);
    return runnable;
  }

  // Runs the thread body as start does, waiting for the start-up signal; true when it came.
  bool runAndWaitForSignal(ConfigurationRunnable& runnable) {
    Poco::FastMutex::ScopedLock lock(mutex);
    thread.start(runnable);
    return condition.tryWait(mutex, 10000);
  }

  std::vector<Args> authenticationCalls() { return qivea.callsStartingWith("authentication"); }

  void unlockWithServer() {
    framework().model().setStringValues(METHOD_DN, "administrativeState", {"UNLOCKED"});
  }

  QiveaStandIn qivea{QIVEA_DIR};
  Poco::Condition condition;
  Poco::FastMutex mutex;
  Poco::Thread thread;
};

class ConfigurationRunnableThreadWithoutMethodTest : public ConfigurationRunnableThreadTest {
 protected:
  ConfigurationRunnableThreadWithoutMethodTest() : ConfigurationRunnableThreadTest("no-ldap-auth-method.xml") {}
};

TEST_F(ConfigurationRunnableThreadTest, InitNeedsAPortalAndTheMethodsDn) {
  ConfigurationRunnable runnable;
  EXPECT_EQ(-1, runnable.init(nullptr, METHOD_DN, nullptr));
  EXPECT_EQ(-1, runnable.init(portal(), "", nullptr));
  EXPECT_EQ(2u, log().count(8, "Invalid arguments"));
  EXPECT_EQ(ConfigurationRunnable::STATE_CREATED, runnable.getState());
  EXPECT_EQ(0, runnable.init(portal(), METHOD_DN, "<QivAccessManagementComponent ldapServerPort=\"1389\"/>"));
  EXPECT_EQ(ConfigurationRunnable::STATE_INITIALISED, runnable.getState());
  EXPECT_EQ(0, runnable.readComponentConfiguration());
  EXPECT_EQ(1389, runnable.getLdapConfiguration().serverPort);
}

TEST_F(ConfigurationRunnableThreadTest, InitReadsWhetherTheBuiltInAuthorizationIsWanted) {
  ConfigurationRunnable runnable;
  const auto init = [&](const char* config) { return runnable.init(portal(), METHOD_DN, config); };
  EXPECT_EQ(0, init("<c><QivAccessManagementComponent><useBuiltInAuthorization> true </useBuiltInAuthorization>"
                    "</QivAccessManagementComponent></c>"));
  EXPECT_TRUE(runnable.getUseQivAuthorization());
  EXPECT_EQ(0, init("<QivAccessManagementComponent useBuiltInAuthorization=\"false\"/>"));
  EXPECT_FALSE(runnable.getUseQivAuthorization());
  EXPECT_EQ(0, init("<QivAccessManagementComponent useBuiltInAuthorization=\"true\"/>"));
  EXPECT_TRUE(runnable.getUseQivAuthorization());
  // Each start reads it anew: no setting, an invalid one or no document means the default.
  EXPECT_EQ(0, init(nullptr));
  EXPECT_FALSE(runnable.getUseQivAuthorization());
  EXPECT_EQ(0, init("<QivAccessManagementComponent useBuiltInAuthorization=\"true\"/>"));
  EXPECT_EQ(0, init("<QivAccessManagementComponent useBuiltInAuthorization=\"TRUE\"/>"));
  EXPECT_EQ(1u, log().count(3, "Validation failed, useBuiltInAuthorization has invalid value (TRUE)"));
  EXPECT_FALSE(runnable.getUseQivAuthorization());
  EXPECT_EQ(0, init("<QivAccessManagementComponent useBuiltInAuthorization=\"true\">"));
  EXPECT_FALSE(runnable.getUseQivAuthorization());
  EXPECT_EQ(0, init("<other useBuiltInAuthorization=\"true\"/>"));
  EXPECT_FALSE(runnable.getUseQivAuthorization());
}

TEST_F(ConfigurationRunnableThreadTest, RunWithoutInitDoesNothing) {
  ConfigurationRunnable runnable;
  runnable.run();
  EXPECT_EQ(1u, log().count(3, "Not initialized!"));
  EXPECT_TRUE(qivea.calls().empty());
}

TEST_F(ConfigurationRunnableThreadWithoutMethodTest, ReadFailureGivesNoSignalAndNoLoop) {
  auto runnable = initialisedRunnable();
  Poco::FastMutex::ScopedLock lock(mutex);
  thread.start(*runnable);
  EXPECT_FALSE(condition.tryWait(mutex, 300));
  thread.join();
  EXPECT_EQ(ConfigurationRunnable::STATE_READ_FAILED, runnable->getState());
  EXPECT_FALSE(runnable->isSecApiOpRunning());
  EXPECT_TRUE(authenticationCalls().empty());
}

TEST_F(ConfigurationRunnableThreadTest, LockedConfigurationIsAppliedAsTheDefaultMethodWithoutValidation) {
  auto runnable = initialisedRunnable();
  ASSERT_TRUE(runAndWaitForSignal(*runnable));
  thread.join();
  EXPECT_EQ((std::vector<Args>{{"authentication", "default", "--prepare"}, {"authentication", "default"}}),
            authenticationCalls());
  EXPECT_TRUE(runnable->isInitialConfigurationSet());
  EXPECT_EQ(0u, log().countContaining("Validation"));
  EXPECT_EQ(1u, log().count(6, "Using QIV LDAP implementation"));
  EXPECT_EQ(1u, log().count(8, "Initial LDAP configuration set"));
  EXPECT_EQ(1u, log().count(8, "Signal that start-up is complete to AccessManagementComponent"));
}

TEST_F(ConfigurationRunnableThreadTest, WithoutSecurityApiTheThreadEndsAfterTheInitialConfiguration) {
  auto runnable = initialisedRunnable();
  ASSERT_TRUE(runAndWaitForSignal(*runnable));
  thread.join();
  EXPECT_EQ(ConfigurationRunnable::STATE_CONFIGURATION_SET, runnable->getState());
  EXPECT_FALSE(runnable->isSecApiOpRunning());
  EXPECT_EQ(1u, log().count(8, "SEC API is not available"));
}

TEST_F(ConfigurationRunnableThreadTest, InvalidUnlockedConfigurationIsNotAppliedButStillSignalled) {
  unlockWithServer();
  framework().model().setStringValues(LdapModel::LDAP_DN, "ldapIpAddress", {});
  auto runnable = initialisedRunnable();
  ASSERT_TRUE(runAndWaitForSignal(*runnable));
  thread.join();
  EXPECT_EQ(ConfigurationRunnable::STATE_INVALID, runnable->getState());
  EXPECT_TRUE(runnable->isRunning());
  EXPECT_EQ(1u, log().count(3, "Invalid initial LDAP configuration!"));
  EXPECT_EQ(1u, log().count(3, "Unable to set initial configuration!"));
  EXPECT_TRUE(authenticationCalls().empty());
  EXPECT_FALSE(runnable->isInitialConfigurationSet());
}

TEST_F(ConfigurationRunnableThreadTest, ValidUnlockedConfigurationIsPreparedThenApplied) {
  unlockWithServer();
  auto runnable = initialisedRunnable();
  ASSERT_TRUE(runAndWaitForSignal(*runnable));
  thread.join();
  const std::vector<Args> calls = authenticationCalls();
  ASSERT_EQ(2u, calls.size());
  // The fixture's server, port and bind DN, without a password.
  EXPECT_EQ((Args{"authentication", "ldap", "--prepare", "--uri=ldap://127.0.0.1:389", "--base-dn=dc=example,dc=com",
                  "--login-attribute=uid", "--bind-dn=cn=admin,dc=example,dc=com"}),
            calls[0]);
  EXPECT_EQ((Args{"authentication", "ldap", "--uri=ldap://127.0.0.1:389", "--base-dn=dc=example,dc=com",
                  "--login-attribute=uid", "--bind-dn=cn=admin,dc=example,dc=com"}),
            calls[1]);
  EXPECT_TRUE(runnable->isInitialConfigurationSet());
  EXPECT_FALSE(runnable->isRunning());
}

// With the security API's library loaded: the select loop.
class ConfigurationRunnableLoopTest : public ConfigurationRunnableThreadTest {
 protected:
  void SetUp() override { ASSERT_TRUE(library.loaded()); }

  // A running loop, after the start-up signal.
  std::unique_ptr<ConfigurationRunnable> runningLoop() {
    auto runnable = initialisedRunnable();
    EXPECT_TRUE(runAndWaitForSignal(*runnable));
    EXPECT_TRUE(eventually([&] { return runnable->getState() == ConfigurationRunnable::STATE_LOOP_RUNNING; }));
    return runnable;
  }

  SecCreduStandIn security;
  LoadedSecurityLibrary library;
};

TEST_F(ConfigurationRunnableLoopTest, StopWhileWaitingInSelectEndsTheThreadWithinASecond) {
  auto runnable = runningLoop();
  ASSERT_TRUE(runnable->isSecApiOpRunning());
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // into select
  const Clock::time_point stopped = Clock::now();
  runnable->stop();
  thread.join();
  EXPECT_LT(Clock::now() - stopped, std::chrono::seconds(1));
  EXPECT_FALSE(runnable->isSecApiOpRunning());
  EXPECT_FALSE(runnable->isInitialConfigurationSet());
  EXPECT_EQ(1u, log().count(8, "Stop Notification received. Stopping configuration runnable"));
}

TEST_F(ConfigurationRunnableLoopTest, ResubscriptionIsAnsweredByTheThread) {
  auto runnable = runningLoop();
  runnable->setNodeCredentialMoRef("ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,NodeCredential=2");
  runnable->setTrustCategoryMoRef("ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,TrustCategory=2");
  EXPECT_TRUE(runnable->requestResubscription());
  EXPECT_EQ((std::vector<std::string>{"ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,NodeCredential=2",
                                      "ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,TrustCategory=2"}),
            security.subscription());
  EXPECT_EQ(1u, log().count(8, "Read 1 byte sent from configuration runnable thread for _subscribeCompleteNotification"));
  runnable->stop();
  thread.join();
}

TEST_F(ConfigurationRunnableLoopTest, ChangedCertificatesAreAppliedAgain) {
  framework().model().setStringValues(LdapModel::LDAP_DN, "nodeCredential",
                                      {"ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,NodeCredential=1"});
  framework().model().setStringValues(LdapModel::LDAP_DN, "trustCategory",
                                      {"ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,TrustCategory=1"});
  security.setNodeCertFileName("/certs/node.pem");
  security.setNodeKeyFileName("/certs/node.key");
  security.setTrustCatDirName("/certs/trusted");
  auto runnable = runningLoop();
  EXPECT_EQ("/certs/node.pem", runnable->getLdapConfiguration().nodeCredential.nodeCertFileName);
  const std::size_t before = authenticationCalls().size();

  security.setNodeCertFileName("/certs/renewed.pem");
  security.sendEvent("changed");
  ASSERT_TRUE(eventually([&] { return authenticationCalls().size() == before + 2; }));
  EXPECT_EQ(1u, log().count(8, "Certificate or key contents changed in CertM"));
  EXPECT_EQ("/certs/renewed.pem", runnable->getLdapConfiguration().nodeCredential.nodeCertFileName);
  runnable->stop();
  thread.join();
}
