#include "ConfigurationRunnable.h"

#include "Eventually.h"
#include "FrameworkTestBase.h"
#include "LdapModel.h"
#include "QiveaStandIn.h"
#include "ScopedEnvironmentVariable.h"
#include "SecCreduStandIn.h"

#include <Poco/Condition.h>
#include <Poco/Exception.h>
#include <Poco/TemporaryFile.h>
#include <Poco/Thread.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace QivAccessManagement;

namespace {

using Args = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

const char METHOD_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";
const char NODE_CREDENTIAL_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,NodeCredential=1";
const char TRUST_CATEGORY_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,TrustCategory=1";
const char START_UP_SIGNAL_TRACE[] = "Signal that start-up is complete to AccessManagementComponent";
const char STOP_TRACE[] = "Stop Notification received. Stopping configuration runnable";
const char LOOP_TERMINATED_TRACE[] = "Select loop terminated.";

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

// A handler that does nothing for signal while the object lives, so that the signal interrupts
// a blocking call instead of acting as by default.
class ScopedSignalHandler {
 public:
  explicit ScopedSignalHandler(int signal) : _signal(signal) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigemptyset(&action.sa_mask);
    sigaction(_signal, &action, &_earlier);
  }
  ~ScopedSignalHandler() { sigaction(_signal, &_earlier, nullptr); }
  ScopedSignalHandler(const ScopedSignalHandler&) = delete;
  ScopedSignalHandler& operator=(const ScopedSignalHandler&) = delete;

 private:
  int _signal;
  struct sigaction _earlier;
};

}  // namespace

// The configuration thread on the framework stand-in, applying through the qivea stand-in.
class ConfigurationRunnableThreadTest : public FrameworkTestBase {
 protected:
  explicit ConfigurationRunnableThreadTest(const std::string& model = "ldap20.xml") : FrameworkTestBase(model) {}

  QivMgmtSpiInterfacePortal_1* portal() {
    return static_cast<QivMgmtSpiInterfacePortal_1*>(framework().accessor()->getPortal("1"));
  }

  // A thread that a failed test left running is stopped, so that the runnable outlives it.
  void TearDown() override {
    if (!thread.isRunning()) return;
    ownedRunnable->stop();
    thread.join();
  }

  // A runnable initialised as start does it, waiting on the test's condition. Owned by the
  // fixture.
  ConfigurationRunnable* initialisedRunnable() {
    ownedRunnable.reset(new ConfigurationRunnable);
    ownedRunnable->addExternalInterface(threadContextInterface());
    EXPECT_EQ(0, ownedRunnable->init(portal(), METHOD_DN, nullptr));
    ownedRunnable->setStartUpCondition(&condition, &mutex);
    return ownedRunnable.get();
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

  // The Ldap MO's nodeCredential or trustCategory without value.
  void clearReference(const std::string& attribute) {
    framework().model().setStringValues(LdapModel::LDAP_DN, attribute, {});
  }

  // Whether the thread ended by itself.
  bool threadEnds() { return thread.tryJoin(10000); }

  std::unique_ptr<ConfigurationRunnable> ownedRunnable;
  QiveaStandIn qivea{QIVEA_DIR};
  Poco::Condition condition;
  Poco::FastMutex mutex;
  Poco::Thread thread;
};

class ConfigurationRunnableThreadWithoutMethodTest : public ConfigurationRunnableThreadTest {
 protected:
  ConfigurationRunnableThreadWithoutMethodTest() : ConfigurationRunnableThreadTest("no-ldap-auth-method.xml") {}
};

// A model whose administrativeState is a plain number, so that states beyond LOCKED and
// UNLOCKED can be stored.
class ConfigurationRunnableThreadNumericStateTest : public ConfigurationRunnableThreadTest {
 protected:
  ConfigurationRunnableThreadNumericStateTest()
      : ConfigurationRunnableThreadTest("ldap20-numeric-administrative-state.xml") {}
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

TEST_F(ConfigurationRunnableThreadTest, FailedInitUndoesAnEarlierOneSoThatRunReadsNothing) {
  ConfigurationRunnable runnable;
  ASSERT_EQ(0, runnable.init(portal(), METHOD_DN, nullptr));
  ASSERT_EQ(ConfigurationRunnable::STATE_INITIALISED, runnable.getState());
  EXPECT_EQ(-1, runnable.init(nullptr, METHOD_DN, nullptr));
  EXPECT_EQ(ConfigurationRunnable::STATE_CREATED, runnable.getState());
  const std::size_t callsBefore = qivea.calls().size();
  runnable.run();
  EXPECT_EQ(1u, log().count(3, "Not initialized!"));
  EXPECT_EQ(0u, log().count(8, "Reading initial LDAP configuration..."));
  EXPECT_EQ(callsBefore, qivea.calls().size());
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
  EXPECT_EQ(1u, log().count(8, START_UP_SIGNAL_TRACE));
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

TEST_F(ConfigurationRunnableThreadNumericStateTest, AdministrativeStateNeitherLockedNorUnlockedIsInvalid) {
  framework().model().setStringValues(METHOD_DN, "administrativeState", {"2"});
  auto runnable = initialisedRunnable();
  ASSERT_TRUE(runAndWaitForSignal(*runnable));
  ASSERT_TRUE(threadEnds());
  EXPECT_EQ(1u, log().count(3, "Invalid administrativeState (2)!"));
  EXPECT_EQ(1u, log().count(3, "Unable to set initial configuration!"));
  EXPECT_EQ(ConfigurationRunnable::STATE_INVALID, runnable->getState());
  EXPECT_EQ(0u, log().countContaining("Validation"));
  EXPECT_TRUE(authenticationCalls().empty());
  EXPECT_FALSE(runnable->isInitialConfigurationSet());
}

TEST_F(ConfigurationRunnableThreadTest, StandardExceptionEscapingTheInitialApplyIsLoggedAsFatal) {
  auto runnable = initialisedRunnable();
  // A qivea that may not be executed (created without any execute bit): launching it throws the
  // process library's exception, which nothing on the way catches.
  Poco::TemporaryFile directory;
  directory.createDirectories();
  std::ofstream(directory.path() + "/qivea") << "#!/bin/sh\n";
  {
    const ScopedEnvironmentVariable path("PATH", directory.path());
    thread.start(*runnable);
    ASSERT_TRUE(threadEnds());
  }
  EXPECT_EQ(1u, log().count(3, std::string("FATAL std Exception: ") + Poco::SystemException("qivea").what()));
  EXPECT_EQ(0u, log().count(8, "Initial LDAP configuration set"));
  EXPECT_FALSE(runnable->isInitialConfigurationSet());
}

// With the security API's library loaded: the select loop.
class ConfigurationRunnableLoopTest : public ConfigurationRunnableThreadTest {
 protected:
  void SetUp() override { ASSERT_TRUE(library.loaded()); }

  // A running loop, after the start-up signal.
  ConfigurationRunnable* runningLoop() {
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
  EXPECT_EQ(1u, log().count(8, STOP_TRACE));
  // stop() left the state at stopped, not at the loop's.
  EXPECT_EQ(0u, log().count(8, LOOP_TERMINATED_TRACE));
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
  framework().model().setStringValues(LdapModel::LDAP_DN, "nodeCredential", {NODE_CREDENTIAL_DN});
  framework().model().setStringValues(LdapModel::LDAP_DN, "trustCategory", {TRUST_CATEGORY_DN});
  security.setNodeCertFileName("/certs/node.pem");
  security.setNodeKeyFileName("/certs/node.key");
  security.setTrustCatDirName("/certs/trusted");
  auto runnable = runningLoop();
  EXPECT_EQ(1u, log().count(8, "subscribed to Sec Api for nodeCredential and trustCategory"));
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

TEST_F(ConfigurationRunnableLoopTest, WithoutReferencesNothingIsSubscribed) {
  clearReference("nodeCredential");
  clearReference("trustCategory");
  auto runnable = runningLoop();
  EXPECT_EQ(1u, log().count(8, "NodeCred Mo Ref and TrustCat Mo Ref not set in initial configuration"));
  EXPECT_EQ(0u, log().count(4, "NodeCred Mo Ref or TrustCat Mo Ref not set in initial configuration"));
  EXPECT_TRUE(security.subscription().empty());
  runnable->stop();
  thread.join();
}

// The Ldap MO with only one of its two references.
class ConfigurationRunnableOneReferenceTest : public ConfigurationRunnableLoopTest,
                                              public ::testing::WithParamInterface<const char*> {};

TEST_P(ConfigurationRunnableOneReferenceTest, OneReferenceAloneIsAWarningAndNoSubscription) {
  clearReference(GetParam());
  auto runnable = runningLoop();
  EXPECT_EQ(1u, log().count(4, "NodeCred Mo Ref or TrustCat Mo Ref not set in initial configuration"));
  EXPECT_EQ(0u, log().count(8, "NodeCred Mo Ref and TrustCat Mo Ref not set in initial configuration"));
  EXPECT_TRUE(security.subscription().empty());
  runnable->stop();
  thread.join();
}

INSTANTIATE_TEST_SUITE_P(EitherReferenceMissing, ConfigurationRunnableOneReferenceTest,
                         ::testing::Values("nodeCredential", "trustCategory"));

TEST_F(ConfigurationRunnableLoopTest, UnavailableSecurityApiIsAWarningAndNoLoop) {
  security.setAvailable(false);
  auto runnable = initialisedRunnable();
  ASSERT_TRUE(runAndWaitForSignal(*runnable));
  ASSERT_TRUE(threadEnds());
  EXPECT_EQ(1u, log().count(4, "Sec Api is not available"));
  EXPECT_TRUE(security.subscription().empty());
  EXPECT_EQ(1u, log().count(8, "SEC API is not available"));
  EXPECT_EQ(ConfigurationRunnable::STATE_CONFIGURATION_SET, runnable->getState());
  EXPECT_FALSE(runnable->isSecApiOpRunning());
}

TEST_F(ConfigurationRunnableLoopTest, RefusedSubscriptionIsAWarningAndTheLoopStillRuns) {
  security.setSubscribeFails(true);
  auto runnable = runningLoop();
  EXPECT_EQ(1u, log().count(4, "Subscription to Sec Api for nodeCredential and trustCategory failed"));
  EXPECT_EQ(0u, log().count(8, "subscribed to Sec Api for nodeCredential and trustCategory"));
  EXPECT_EQ((std::vector<std::string>{NODE_CREDENTIAL_DN, TRUST_CATEGORY_DN}), security.subscription());
  // Still serving.
  EXPECT_TRUE(runnable->requestResubscription());
  runnable->stop();
  thread.join();
}

TEST_F(ConfigurationRunnableLoopTest, SecurityApiGoingAwayEndsTheThreadInTheLoopState) {
  auto runnable = runningLoop();
  security.setAvailable(false);
  ASSERT_TRUE(threadEnds());
  EXPECT_EQ(1u, log().count(4, "sec api is not available"));
  EXPECT_EQ(ConfigurationRunnable::STATE_LOOP_RUNNING, runnable->getState());
  EXPECT_EQ(0u, log().count(8, LOOP_TERMINATED_TRACE));
  EXPECT_EQ(0u, log().count(8, STOP_TRACE));
  // Nobody would answer: a re-subscription must not wait.
  ASSERT_FALSE(runnable->isSecApiOpRunning());
  EXPECT_FALSE(runnable->requestResubscription());
}

TEST_F(ConfigurationRunnableLoopTest, InterruptedSelectIsAWarningAndTheLoopGoesOn) {
  // Ignored by default, so a late one harms nothing once the handler is gone.
  const int signal = SIGWINCH;
  const ScopedSignalHandler handler(signal);
  auto runnable = runningLoop();
  // A signal that arrives while the thread is not in select interrupts nothing: one at a time
  // until one did.
  bool interrupted = false;
  for (int attempt = 0; attempt < 10 && !interrupted; ++attempt) {
    ASSERT_EQ(0, pthread_kill(thread.tid(), signal));
    interrupted =
        eventually([&] { return log().count(4, "Interrupt signal caught") > 0; }, std::chrono::milliseconds(1500));
  }
  ASSERT_TRUE(interrupted);
  // Still serving, and still ending on request.
  EXPECT_TRUE(runnable->requestResubscription());
  runnable->stop();
  ASSERT_TRUE(threadEnds());
  EXPECT_EQ(1u, log().count(4, "Interrupt signal caught"));
}

TEST_F(ConfigurationRunnableLoopTest, FailingSelectIsAnErrorAndEndsTheLoop) {
  auto runnable = runningLoop();
  security.setEventChannelBroken(true);
  // Wakes the loop, whose dispatch then closes the descriptor it goes on to wait on.
  security.sendEvent("changed");
  ASSERT_TRUE(threadEnds());
  EXPECT_EQ(1u, log().count(3, std::string("Select call returned: -1 (") + std::strerror(EBADF) + ")."));
  EXPECT_EQ(1u, log().count(8, LOOP_TERMINATED_TRACE));
  EXPECT_EQ(ConfigurationRunnable::STATE_CONFIGURATION_SET, runnable->getState());
  EXPECT_EQ(0u, log().count(8, STOP_TRACE));
  ASSERT_FALSE(runnable->isSecApiOpRunning());
  EXPECT_FALSE(runnable->requestResubscription());
}

TEST_F(ConfigurationRunnableLoopTest, StopBeforeTheLoopEndsItAtItsFirstTurn) {
  auto runnable = initialisedRunnable();
  {
    Poco::FastMutex::ScopedLock lock(mutex);
    thread.start(*runnable);
    // Traced just before the thread takes the start-up mutex, which the test holds: the stop
    // comes after the initial configuration and before the loop.
    ASSERT_TRUE(eventually([&] { return log().count(8, START_UP_SIGNAL_TRACE) == 1; }));
    runnable->stop();
    ASSERT_TRUE(condition.tryWait(mutex, 10000));
  }
  ASSERT_TRUE(threadEnds());
  EXPECT_EQ(1u, log().count(8, STOP_TRACE));
  EXPECT_EQ(1u, log().count(8, LOOP_TERMINATED_TRACE));
  EXPECT_EQ(ConfigurationRunnable::STATE_CONFIGURATION_SET, runnable->getState());
  EXPECT_FALSE(runnable->isSecApiOpRunning());
}
