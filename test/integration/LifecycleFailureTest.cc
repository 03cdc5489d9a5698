#include "LifecycleTest.h"

#include "Eventually.h"

#include <Poco/TemporaryFile.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace {

const std::vector<std::string> INTERCEPTED_CLASSES = {
    "ManagedElement,SystemFunctions,SecM,UserManagement",
    "ManagedElement,SystemFunctions,SecM,UserManagement,LdapAuthenticationMethod,Ldap",
    "ManagedElement,SystemFunctions,SecM,UserManagement,LdapAuthenticationMethod,Ldap,OrbelinFilter"};
const char FILE_FAILURE[] = "Failed to parse the AccessManagementComponent configuration file.";
const char ALREADY_STOPPED[] = "QivAccessManagementComponent is already stopped.";

}  // namespace

// Starts that fail, by default on a model with a Tls object, so that a start which gets far
// enough also subscribes to its changes.
class LifecycleFailureTest : public LifecycleTest {
 protected:
  explicit LifecycleFailureTest(const std::string& model = "tls.xml")
      : LifecycleTest(model), consumersBefore(framework().eventRouter().consumerCount()) {}

  // start gave up before it registered anything, and the component counts as stopped.
  void expectNothingStarted() {
    EXPECT_TRUE(framework().objectImplementers().calls().empty());
    EXPECT_TRUE(framework().interceptors().classes().empty());
    EXPECT_EQ(consumersBefore, framework().eventRouter().consumerCount());
    EXPECT_TRUE(qivea.calls().empty());
    EXPECT_EQ(0, stop());
    EXPECT_EQ(1u, log().count(4, ALREADY_STOPPED));
  }

  // What a start that failed on its component file keeps: the registration, the interceptors
  // and the Tls subscription.
  void expectLeftInPlace() {
    for (const std::string& path : CLASS_PATHS)
      EXPECT_TRUE(framework().objectImplementers().implementer(path).has_value()) << path;
    EXPECT_EQ(INTERCEPTED_CLASSES, framework().interceptors().classes());
    EXPECT_EQ(consumersBefore + 1, framework().eventRouter().consumerCount());
  }

  void expectNothingLeft() {
    for (const std::string& path : CLASS_PATHS)
      EXPECT_FALSE(framework().objectImplementers().implementer(path).has_value()) << path;
    EXPECT_TRUE(framework().interceptors().classes().empty());
    EXPECT_EQ(consumersBefore, framework().eventRouter().consumerCount());
  }

  // "register 0 <path>": operation, answer and class path of every call the registry got, in order.
  std::vector<std::string> registryCalls() {
    std::vector<std::string> calls;
    for (const Framework::ImplementerCall& call : framework().objectImplementers().calls())
      calls.push_back(call.operation + " " + std::to_string(call.result) + " " + call.classPath);
    return calls;
  }

  std::vector<std::string> expectedCalls(const std::string& operation) {
    std::vector<std::string> calls;
    for (const std::string& path : CLASS_PATHS) calls.push_back(operation + " 0 " + path);
    return calls;
  }

  // Starts on badFile: start fails on the file with everything before it left in place, and
  // stop does not clean up. After repair the next start clears the old registration before it
  // registers again, and its stop removes everything.
  void expectFileFailureLeavesItAllUntilTheNextStart(const std::string& badFile, const std::function<void()>& repair) {
    initialize(badFile);
    EXPECT_EQ(-1, start());
    EXPECT_EQ(1u, log().count(3, FILE_FAILURE));
    expectLeftInPlace();
    EXPECT_EQ(0u, log().count(TRACE_LEVEL, "Start read/set initial configuration thread"));

    EXPECT_EQ(0, stop());
    EXPECT_EQ(1u, log().count(4, ALREADY_STOPPED));
    expectLeftInPlace();
    EXPECT_EQ(expectedCalls("register"), registryCalls());

    repair();
    ASSERT_EQ(0, start());
    ASSERT_TRUE(eventually([&] { return authenticationCalls().size() == 2; }));
    EXPECT_EQ(0, stop());
    std::vector<std::string> expected = expectedCalls("register");
    for (const char* operation : {"unregister", "register", "unregister"}) {
      const std::vector<std::string> more = expectedCalls(operation);
      expected.insert(expected.end(), more.begin(), more.end());
    }
    EXPECT_EQ(expected, registryCalls());
    expectNothingLeft();
  }

  const std::size_t consumersBefore;
};

TEST_F(LifecycleFailureTest, StartFailsWithoutTheTransactionInterface) {
  ASSERT_TRUE(framework().portal().removeInterface("PymOamSpiTransactionService", "PymOamSpiTransaction", "2"));
  initialize();
  EXPECT_EQ(-1, start());
  EXPECT_EQ(1u, log().count(4, "Failed (-2) to get interface PymOamSpiTransaction v.2 implemented by "
                               "PymOamSpiTransactionService"));
  expectNothingStarted();
}

TEST_F(LifecycleFailureTest, StartFailsWithoutEitherRegistrationInterface) {
  for (const char* version : {"3", "2"}) {
    ASSERT_TRUE(framework().portal().removeInterface("PymOamSpiObjectImplementerService",
                                                     "PymOamSpiRegisterObjectImplementer", version));
  }
  initialize();
  EXPECT_EQ(-1, start());
  // Version 2 was asked for after version 3.
  EXPECT_EQ(1u, log().count(4, "Failed (-2) to get interface PymOamSpiRegisterObjectImplementer v.2 implemented by null"));
  expectNothingStarted();
}

TEST_F(LifecycleFailureTest, InvalidStartUpWaitLeavesTheRegistrationUntilTheNextStart) {
  expectFileFailureLeavesItAllUntilTheNextStart(componentFile("30s"), [&] {
    // The framework hands over a corrected file by terminating and initialising the component.
    ASSERT_EQ(0, library->terminate());
    initialize(componentFile("0"));
  });
}

TEST_F(LifecycleFailureTest, MissingServiceModuleLeavesTheRegistrationUntilTheNextStart) {
  Poco::TemporaryFile serviceModule;
  expectFileFailureLeavesItAllUntilTheNextStart(
      "<QivAccessManagementComponent><serviceModule>" + serviceModule.path() +
          "</serviceModule></QivAccessManagementComponent>",
      [&] { ASSERT_TRUE(serviceModule.createFile()); });
}

// One look-up of the portal that fails with a code of the portal's own.
struct RefusedLookUp {
  const char* interfaceName;
  const char* interfaceVersion;
  PymReturnT code;
};

class LifecycleLookUpFailureTest : public LifecycleFailureTest, public ::testing::WithParamInterface<RefusedLookUp> {};

TEST_P(LifecycleLookUpFailureTest, StartReturnsThePortalsCode) {
  framework().portal().answerNextGetInterface(GetParam().interfaceName, GetParam().interfaceVersion, GetParam().code);
  initialize();
  EXPECT_EQ(GetParam().code, start());
  expectNothingStarted();
}

INSTANTIATE_TEST_SUITE_P(CmRouterAndTransactionMaster, LifecycleLookUpFailureTest,
                         ::testing::Values(RefusedLookUp{"PymOamSpiManagedObject", "3", -7},
                                           RefusedLookUp{"PymOamSpiTransactionMaster", "2", -8}),
                         [](const ::testing::TestParamInfo<RefusedLookUp>& info) {
                           return std::string(info.param.interfaceName);
                         });

// A model before Ldap 2.0, which takes the LDAP port and TLS mode from the component file.
class LifecycleFailureOnPre20ModelTest : public LifecycleFailureTest {
 protected:
  LifecycleFailureOnPre20ModelTest() : LifecycleFailureTest("pre20.xml") {}
};

TEST_F(LifecycleFailureOnPre20ModelTest, InvalidTlsModeFailsTheInitialReadButNotTheStart) {
  initialize("<QivAccessManagementComponent><ldapTlsMode>ldaps</ldapTlsMode></QivAccessManagementComponent>");
  EXPECT_EQ(0, start());
  EXPECT_EQ(1u, log().count(3, "Validation failed, TlsMode has invalid value (ldaps)"));
  // The configuration thread, not start, finds the file unusable for this model.
  EXPECT_TRUE(eventually([&] { return log().count(3, FILE_FAILURE) == 1; }));
  EXPECT_TRUE(authenticationCalls().empty());
  EXPECT_EQ(0, stop());
  EXPECT_EQ(0u, log().count(4, ALREADY_STOPPED));
}
