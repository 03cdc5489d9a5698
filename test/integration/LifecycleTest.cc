#include "LifecycleTest.h"

#include "Eventually.h"
#include "ScopedEnvironmentVariable.h"
#include "WithSecurityApi.h"

#include <Qiv/MoAccessorCore.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

const char METHOD_CLASS[] = "ManagedElement,SystemFunctions,SecM,UserManagement,LdapAuthenticationMethod";

long millisecondsSince(Clock::time_point start) {
  return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

}  // namespace

TEST_F(LifecycleTest, StartRegistersTheLdapClassesAndAppliesTheInitialConfiguration) {
  initialize();
  EXPECT_EQ(0, start());
  EXPECT_EQ(CLASS_PATHS, registeredPaths());
  for (const Framework::ImplementerCall& call : registrations("register")) {
    EXPECT_EQ(3, call.version);
    EXPECT_EQ("QivAccessManagementComponent", call.componentName);
  }
  ASSERT_TRUE(eventually([&] { return authenticationCalls().size() == 2; }));
  EXPECT_EQ((std::vector<Args>{{"authentication", "default", "--prepare"}, {"authentication", "default"}}),
            authenticationCalls());

  EXPECT_EQ(0, stop());
  EXPECT_EQ(CLASS_PATHS.size(), registrations("unregister").size());
  EXPECT_EQ(0, stop());
  EXPECT_EQ(1u, log().count(4, "QivAccessManagementComponent is already stopped."));
}

TEST_F(LifecycleTest, SecondStartChangesNothing) {
  initialize();
  ASSERT_EQ(0, start());
  EXPECT_EQ(0, start());
  EXPECT_EQ(1u, log().count(4, "QivAccessManagementComponent is already started."));
  EXPECT_EQ(CLASS_PATHS.size(), registrations("register").size());
}

TEST_F(LifecycleTest, AnotherAccessManagementImplementationTakesPrecedence) {
  PymMgmtSpiInterface_1 competitor = {"OtherAccessManagement", "PymMwSpiAccessManagement", "1"};
  ASSERT_TRUE(framework().portal().addInterface(&competitor));
  initialize();
  EXPECT_EQ(0, start());
  EXPECT_EQ(1u, log().count(5, "Interface PymMwSpiAccessManagement v.1 implemented - QivAccessManagementComponent will not be used"));
  EXPECT_TRUE(framework().objectImplementers().calls().empty());
  EXPECT_TRUE(qivea.calls().empty());
  EXPECT_EQ(0, stop());
  EXPECT_EQ(1u, log().count(4, "QivAccessManagementComponent is already stopped."));
}

TEST_F(LifecycleTest, OnlyVersion2RegistrationNamesBothTables) {
  ASSERT_TRUE(framework().portal().removeInterface("PymOamSpiObjectImplementerService",
                                                   "PymOamSpiRegisterObjectImplementer", "3"));
  initialize();
  EXPECT_EQ(0, start());
  EXPECT_EQ(CLASS_PATHS, registeredPaths());
  for (const Framework::ImplementerCall& call : registrations("register")) EXPECT_EQ(2, call.version);
  const auto implementer = framework().objectImplementers().implementer(CLASS_PATHS[1]);
  ASSERT_TRUE(implementer.has_value());
  EXPECT_STREQ("PymOamSpiManagedObject", reinterpret_cast<const PymMgmtSpiInterface_1*>(implementer->managedObject)->interfaceName);
  EXPECT_STREQ("3", reinterpret_cast<const PymMgmtSpiInterface_1*>(implementer->managedObject)->interfaceVersion);
  EXPECT_STREQ("PymOamSpiTransactionalResource",
               reinterpret_cast<const PymMgmtSpiInterface_1*>(implementer->transactionalResource)->interfaceName);
}

TEST_F(LifecycleTest, MissingThreadContextFailsTheStart) {
  ASSERT_TRUE(framework().portal().removeInterface("PymMgmtSpiThreadContextService", "PymMgmtSpiThreadContext", "2"));
  initialize();
  EXPECT_EQ(-1, start());
  EXPECT_TRUE(framework().objectImplementers().calls().empty());
}

TEST_F(LifecycleTest, RefusedRegistrationLeavesNothingRegistered) {
  initialize();
  framework().objectImplementers().answerNextRegister(0);
  framework().objectImplementers().answerNextRegister(-3);
  EXPECT_EQ(-3, start());
  EXPECT_EQ(1u, log().count(4, "Failed (-3) to register as an object implementer for '" + CLASS_PATHS[1] + "'"));
  EXPECT_FALSE(framework().objectImplementers().implementer(CLASS_PATHS[0]).has_value());
  EXPECT_TRUE(qivea.calls().empty());
}

TEST_F(LifecycleTest, StartWithoutWaitReturnsBeforeTheThreadIsDone) {
  qivea.script("authentication", "delay-ms", "1500");
  initialize(componentFile("0"));
  const Clock::time_point started = Clock::now();
  EXPECT_EQ(0, start());
  EXPECT_LT(millisecondsSince(started), 1400);
  EXPECT_TRUE(eventually([&] { return authenticationCalls().size() == 2; }));
}

TEST_F(LifecycleTest, StartWaitsForTheInitialConfiguration) {
  qivea.script("authentication", "delay-ms", "300");
  initialize(componentFile("10"));
  EXPECT_EQ(0, start());
  EXPECT_EQ(2u, authenticationCalls().size());
  EXPECT_EQ(1u, log().count(8, "Signal received from configuration thread. Initial configuration has been read and set"));
}

TEST_F(LifecycleTest, TimeOutStopsTheComponentAndJoinsTheThread) {
  qivea.script("authentication", "delay-ms", "2500");
  initialize(componentFile("1"));
  const Clock::time_point started = Clock::now();
  EXPECT_EQ(-1, start());
  const long elapsed = millisecondsSince(started);
  EXPECT_GE(elapsed, 900);
  EXPECT_LT(elapsed, 9000);  // the wait, then the join of a thread blocked in qivea
  EXPECT_EQ(1u, log().count(3, "Timeout when waiting for reading/setting of initial configuration. Aborting component start-up."));
  EXPECT_EQ(1u, log().count(8, "successfully stopped Read and set initial configuration thread"));
  EXPECT_EQ(CLASS_PATHS.size(), registrations("unregister").size());
  EXPECT_EQ(0, stop());
  EXPECT_EQ(1u, log().count(4, "QivAccessManagementComponent is already stopped."));
}

TEST_F(LifecycleTest, InvalidTimeOutFailsTheStart) {
  initialize(componentFile("-1"));
  EXPECT_EQ(-1, start());
  EXPECT_EQ(1u, log().count(3, "Failed to parse the AccessManagementComponent configuration file."));
}

TEST_F(LifecycleTest, StartAgainAfterStopRegistersAgain) {
  initialize();
  ASSERT_EQ(0, start());
  ASSERT_TRUE(eventually([&] { return authenticationCalls().size() == 2; }));
  ASSERT_EQ(0, stop());
  ASSERT_EQ(0, start());
  EXPECT_EQ(2 * CLASS_PATHS.size(), registrations("register").size());
  EXPECT_TRUE(eventually([&] { return authenticationCalls().size() == 4; }));
}

TEST_F(LifecycleTest, BuiltInAuthorizationSetsLdapNoInitWhileStarted) {
  ScopedEnvironmentVariable unset("LDAPNOINIT");
  initialize("<QivAccessManagementComponent><useBuiltInAuthorization>true</useBuiltInAuthorization>"
             "</QivAccessManagementComponent>");
  ASSERT_EQ(0, start());
  ASSERT_NE(nullptr, std::getenv("LDAPNOINIT"));
  EXPECT_STREQ("true", std::getenv("LDAPNOINIT"));
  ASSERT_TRUE(eventually([&] { return authenticationCalls().size() == 2; }));
  ASSERT_EQ(0, stop());
  EXPECT_EQ(nullptr, std::getenv("LDAPNOINIT"));
  ASSERT_EQ(0, start());
  ASSERT_NE(nullptr, std::getenv("LDAPNOINIT"));
  EXPECT_STREQ("true", std::getenv("LDAPNOINIT"));
  ASSERT_EQ(0, stop());
  EXPECT_EQ(nullptr, std::getenv("LDAPNOINIT"));
}

// Registration and unregistration are traced with the version of the registration interface in
// use: 3 while the framework offers it, otherwise 2.
class LifecycleRegistrationTraceTest : public LifecycleTest, public ::testing::WithParamInterface<int> {
 protected:
  std::vector<std::string> registrationTraces() {
    std::vector<std::string> traces;
    for (const Framework::LogRecord& record : log().records()) {
      const bool registration = record.text.rfind("Registering (", 0) == 0 ||
                                record.text.rfind("Unregistering (", 0) == 0 ||
                                record.text.find(" registered itself successfully as object implementer for '") !=
                                    std::string::npos;
      if (record.level == TRACE_LEVEL && registration) traces.push_back(record.text);
    }
    return traces;
  }
};

TEST_P(LifecycleRegistrationTraceTest, EveryClassPathIsTracedWithTheVersionInUse) {
  const std::string version = std::to_string(GetParam());
  if (GetParam() == 2) {
    ASSERT_TRUE(framework().portal().removeInterface("PymOamSpiObjectImplementerService",
                                                     "PymOamSpiRegisterObjectImplementer", "3"));
  }
  initialize();
  ASSERT_EQ(0, start());
  ASSERT_EQ(0, stop());
  std::vector<std::string> expected;
  for (const std::string& path : CLASS_PATHS) {
    expected.push_back("Registering (" + path + ") with OI SPI V" + version);
    expected.push_back("QivAccessManagementComponent registered itself successfully as object implementer for '" +
                       path + "'");
  }
  for (std::size_t i = 0; i < CLASS_PATHS.size(); ++i)
    expected.push_back("Unregistering (QivAccessManagementComponent) with OI SPI V" + version);
  EXPECT_EQ(expected, registrationTraces());
}

INSTANTIATE_TEST_SUITE_P(RegistrationInterface, LifecycleRegistrationTraceTest, ::testing::Values(3, 2),
                         [](const ::testing::TestParamInfo<int>& info) { return "V" + std::to_string(info.param); });

// A model before Ldap 2.0: an Ldap object and its Filter, but no OrbelinFilter.
class LifecycleWithoutOrbelinFilterTest : public LifecycleTest {
 protected:
  LifecycleWithoutOrbelinFilterTest() : LifecycleTest("pre20.xml") {}
};

TEST_F(LifecycleWithoutOrbelinFilterTest, RegistersTheOtherThreeClassesOnly) {
  initialize();
  EXPECT_EQ(0, start());
  const std::vector<std::string> withoutOrbelinFilter(CLASS_PATHS.begin(), CLASS_PATHS.begin() + 3);
  EXPECT_EQ(withoutOrbelinFilter, registeredPaths());
  for (const std::string& path : withoutOrbelinFilter)
    EXPECT_TRUE(framework().objectImplementers().implementer(path).has_value()) << path;
  EXPECT_FALSE(framework().objectImplementers().implementer(CLASS_PATHS[3]).has_value());
  EXPECT_EQ(0, stop());
  EXPECT_EQ(3u, registrations("unregister").size());
}

class LifecycleWithoutMethodTest : public LifecycleTest {
 protected:
  LifecycleWithoutMethodTest() : LifecycleTest("no-ldap-auth-method.xml") {}
};

TEST_F(LifecycleWithoutMethodTest, RunsWithoutObjectImplementationOrThread) {
  initialize();
  EXPECT_EQ(0, start());
  EXPECT_EQ(1u, log().count(4, std::string("Could not find any instance of ('") + METHOD_CLASS +
                                   "'), will not try to register as object implementer!"));
  EXPECT_TRUE(framework().objectImplementers().calls().empty());
  EXPECT_EQ(0, stop());
  EXPECT_TRUE(framework().objectImplementers().calls().empty());
  EXPECT_EQ(0u, log().count(4, "QivAccessManagementComponent is already stopped."));
  EXPECT_TRUE(qivea.calls().empty() || authenticationCalls().empty());
}

// With the security API's library loaded: the thread waits in select until stopped.
using LifecycleWithSecurityApiTest = WithSecurityApi<LifecycleTest>;

TEST_F(LifecycleWithSecurityApiTest, StopWhileTheThreadWaitsInSelectEndsItWithinASecond) {
  initialize(componentFile("10"));
  ASSERT_EQ(0, start());
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  const Clock::time_point stopping = Clock::now();
  EXPECT_EQ(0, stop());
  EXPECT_LT(millisecondsSince(stopping), 1000);
  EXPECT_EQ(1u, log().count(8, "Stop Notification received. Stopping configuration runnable"));
  // The thread may have ended before stop looked at it; either way it was not left running.
  EXPECT_EQ(0u, log().count(4, "QivAccessManagementComponent failed to join its Read and set initial configuration thread!"));
}

class LifecycleWithTlsTest : public LifecycleTest {
 protected:
  LifecycleWithTlsTest() : LifecycleTest("tls.xml") {}
};

TEST_F(LifecycleWithTlsTest, CipherFilterChangeIsStoredWhileTlsIsOff) {
  initialize(componentFile("10"));
  ASSERT_EQ(0, start());
  EXPECT_EQ(1u, log().count(8, "Tls DN exists , subscribing to the events on Tls DN"));
  const std::size_t callsBefore = authenticationCalls().size();
  {
    Qiv::MoAccessor accessor(1, 60);
    std::vector<PymMoAttributeValue_3> value(1);
    value[0].theString = "HIGH";
    PymMoAttributeValueContainer_3 container = {PymMoValueType_String, 1, value.data()};
    accessor.setSeqAttr("ManagedElement=1,SystemFunctions=1,SecM=1,Tls=1", "cipherFilter", container);
    accessor.commit();
  }
  EXPECT_EQ(1u, log().count(8, "Not reconfiguring with cipherFilter HIGH:@STRENGTH since useTls set to false"));
  EXPECT_EQ(callsBefore, authenticationCalls().size());
}
