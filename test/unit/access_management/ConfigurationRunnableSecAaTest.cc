#include "ConfigurationRunnable.h"

#include "AcsConfigUpdateStandIn.h"
#include "Eventually.h"
#include "FileProbe.h"
#include "FileSizeLimit.h"
#include "FrameworkTestBase.h"
#include "LdapModel.h"
#include "QiveaStandIn.h"
#include "ScopedEnvironmentVariable.h"
#include "SecCreduStandIn.h"

#include <Poco/File.h>
#include <Poco/TemporaryFile.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/stat.h>

#include <fstream>
#include <future>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using namespace QivAccessManagement;

namespace {

using Args = std::vector<std::string>;
using Calls = std::vector<Args>;

const char METHOD_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";
const char PASSWORD[] = "Secret-Bind-Word";
const int kTrace = 8;
const Args kHelp = {"--help"};
const Args kDeregister = {"--deregister", "LdapAuthenticationMethod"};

bool exists(const std::string& path) { return Poco::File(path).exists(); }

// The runnable's thread body on a thread of its own, stopped and joined however the test ends.
class RunningThread {
 public:
  explicit RunningThread(ConfigurationRunnable& runnable) : _runnable(runnable), _thread([this] { _runnable.run(); }) {}
  ~RunningThread() {
    _runnable.stop();
    _thread.join();
  }
  RunningThread(const RunningThread&) = delete;
  RunningThread& operator=(const RunningThread&) = delete;

 private:
  ConfigurationRunnable& _runnable;
  std::thread _thread;
};

}  // namespace

// The runnable applying configurations through the security framework: the stand-ins of
// "acs-config-update" and qivea on PATH, qivea's PSO clear path in a directory of the test's own.
class ConfigurationRunnableSecAaTest : public FrameworkTestBase {
 protected:
  explicit ConfigurationRunnableSecAaTest(const std::string& model = "ldap20.xml") : FrameworkTestBase(model) {
    Poco::File(certificates()).createDirectories();
    Poco::File(certificates() + "/trusted").createDirectories();
    std::ofstream(certificates() + "/node.pem") << "node certificate\n";
    std::ofstream(certificates() + "/node.key") << "node key\n";
    std::ofstream(certificates() + "/trusted/ca.pem") << "CA\n";
  }

  std::string clearPath() const { return _root.path() + "/clear"; }
  std::string acsDirectory() const { return clearPath() + "/sec-acs"; }
  std::string frameworkFile() const { return acsDirectory() + "/LdapSecAa.cfg"; }
  std::string serviceModuleFile() const { return acsDirectory() + "/LdapSm.cfg"; }
  std::string certificates() const { return _root.path() + "/certificates"; }

  Args registerCall() const { return {"--register", "LdapAuthenticationMethod", "-f", frameworkFile()}; }

  // A valid configuration over LDAPS with a node credential and a trust category.
  LdapConfiguration unlocked() const {
    LdapConfiguration config;
    config.administrativeState = UNLOCKED;
    config.ldapIpAddress = "10.0.0.1";
    config.useTls = true;
    config.tlsMode = LDAPS;
    config.baseDn = "dc=example,dc=com";
    config.bindDn = "cn=reader,dc=example,dc=com";
    config.bindPassword = PASSWORD;
    config.cipherFilter = "HIGH:@STRENGTH";
    config.nodeCredential.nodeCertFileName = certificates() + "/node.pem";
    config.nodeCredential.nodeKeyFileName = certificates() + "/node.key";
    config.trustCategory.trustCatDirName = certificates() + "/trusted";
    return config;
  }

  // The file the framework (or the service module) should get for config: the certificate
  // paths those of the store, the service module the record's.
  std::string expectedText(const LdapConfiguration& config, bool framework) const {
    LdapConfigFileProducer producer(config.serviceModule);
    const std::string store = acsDirectory() + "/cert";
    producer.setTlsCertificate(store + "/node.pem");
    producer.setTlsKey(store + "/node.key");
    producer.setCaCertDir(store + "/trusted");
    std::ostringstream text;
    EXPECT_EQ(0, framework ? producer.writeSecAaConfig(text, config) : producer.writeLdapSmConfig(text, config));
    return text.str();
  }

  // runnable with config as its current record, registered; the result.
  int registerWith(ConfigurationRunnable& runnable, const LdapConfiguration& config) {
    runnable.ldapConfigurationUpdated(&config);
    return runnable.registerLdapModule();
  }

  // A runnable initialised as start does it, on the framework's portal; run() then applies the
  // initial configuration, with no start-up signal and, without the security API, no loop.
  std::unique_ptr<ConfigurationRunnable> initialisedRunnable() {
    auto* portal = static_cast<QivMgmtSpiInterfacePortal_1*>(framework().accessor()->getPortal("1"));
    std::unique_ptr<ConfigurationRunnable> runnable(new ConfigurationRunnable);
    runnable->addExternalInterface(threadContextInterface());
    EXPECT_EQ(0, runnable->init(portal, METHOD_DN, nullptr));
    return runnable;
  }

  void unlockModel() { framework().model().setStringValues(METHOD_DN, "administrativeState", {"UNLOCKED"}); }

  std::vector<Args> registerCalls() const {
    std::vector<Args> result;
    for (const Args& call : acs.calls())
      if (call.front() == "--register") result.push_back(call);
    return result;
  }

 private:
  Poco::TemporaryFile _root;

 protected:
  // acs-config-update makes its directory the whole PATH; qivea goes before it.
  AcsConfigUpdateStandIn acs{ACS_CONFIG_UPDATE_PROGRAM};
  QiveaStandIn qivea{QIVEA_DIR};
  ScopedEnvironmentVariable psoClear{"QIVEA_PSO_CLEAR", clearPath()};
  ConfigurationRunnable runnable;
};

TEST_F(ConfigurationRunnableSecAaTest, RegistrationLaysOutTheDirectoryAndRegistersTheFrameworkFile) {
  const LdapConfiguration config = unlocked();
  EXPECT_EQ(0, registerWith(runnable, config));
  EXPECT_EQ(Calls({kHelp, registerCall()}), acs.calls());
  EXPECT_EQ("registered " + frameworkFile(), acs.state());
  EXPECT_EQ(expectedText(config, true), FileProbe::text(frameworkFile()));
  EXPECT_EQ(FileProbe::text(frameworkFile()), acs.registeredCopy());
  EXPECT_EQ(expectedText(config, false), FileProbe::text(serviceModuleFile()));
  EXPECT_EQ(0640u, FileProbe::mode(frameworkFile()));
  EXPECT_EQ(0640u, FileProbe::mode(serviceModuleFile()));
  EXPECT_EQ("node key\n", FileProbe::text(acsDirectory() + "/cert/node.key"));
  EXPECT_EQ(0640u, FileProbe::mode(acsDirectory() + "/cert/trusted/ca.pem"));
  EXPECT_EQ(Calls({{"pso", "clear"}}), qivea.calls());
  EXPECT_EQ(1u, log().count(kTrace, "Setting service module to: /opt/qiv/lib/modules/libqiv_ldap_sm.so "));
  EXPECT_EQ(0u, log().countAtLevel(3));
  EXPECT_EQ(0u, log().countContaining(PASSWORD));
}

TEST_F(ConfigurationRunnableSecAaTest, FrameworkFileIsRegisteredBeforeTheServiceModuleFileExists) {
  acs.setDelay("register", 1000);
  std::future<int> result = std::async(std::launch::async, [&] { return registerWith(runnable, unlocked()); });
  // While the tool still answers the registration, the service module's file must not exist.
  ASSERT_TRUE(eventually([&] { return acs.calls().size() == 2; }));
  EXPECT_EQ(registerCall(), acs.calls().back());
  EXPECT_TRUE(exists(frameworkFile()));
  EXPECT_FALSE(exists(serviceModuleFile()));
  EXPECT_EQ(0, result.get());
  EXPECT_TRUE(exists(serviceModuleFile()));
}

TEST_F(ConfigurationRunnableSecAaTest, PsoClearPathThatCannotBeAskedEndsTheRegistration) {
  qivea.answer("pso clear", 2, "", "no persistent storage");
  EXPECT_EQ(-2, registerWith(runnable, unlocked()));
  EXPECT_EQ(1u, log().count(3, "Failed to get PSO clear path (-2)"));
  qivea.answer("pso clear", 1, "", "no persistent storage");
  EXPECT_EQ(-1, runnable.registerLdapModule());
  EXPECT_EQ(1u, log().count(3, "Failed to get PSO clear path (-1)"));
  EXPECT_TRUE(acs.calls().empty());
  EXPECT_FALSE(exists(clearPath()));
}

TEST_F(ConfigurationRunnableSecAaTest, DirectoryThatCannotBeCreatedEndsTheRegistration) {
  const std::string orphan = clearPath() + "/missing";
  qivea.answer("pso clear", 0, orphan + "\n");
  EXPECT_EQ(-1, registerWith(runnable, unlocked()));
  EXPECT_EQ(1u, log().count(3, "Failed to create directory: " + orphan + "/sec-acs (2)"));
  EXPECT_EQ(1u, log().count(3, "Failed to create directory (-1)"));
  EXPECT_TRUE(acs.calls().empty());
}

TEST_F(ConfigurationRunnableSecAaTest, CertificateStoreThatCannotBeFilledEndsTheRegistration) {
  LdapConfiguration config = unlocked();
  config.trustCategory.trustCatDirName = certificates() + "/gone";
  EXPECT_EQ(-1, registerWith(runnable, config));
  EXPECT_EQ(1u, log().count(3, "Failed to copy certificate (File not found: " + certificates() + "/gone)"));
  EXPECT_EQ(1u, log().count(3, "Failed to create certificate storage (-1)"));
  // What was written before the failure stays.
  EXPECT_EQ("node certificate\n", FileProbe::text(acsDirectory() + "/cert/node.pem"));
  EXPECT_FALSE(exists(frameworkFile()));
  EXPECT_TRUE(acs.calls().empty());
}

TEST_F(ConfigurationRunnableSecAaTest, FrameworkFileThatCannotBeWrittenEndsTheRegistration) {
  {
    const FileSizeLimit limit(512);
    ASSERT_TRUE(limit.isSet());
    EXPECT_EQ(-1, registerWith(runnable, unlocked()));
  }
  EXPECT_EQ(1u, log().count(3, "Failed to write ACS Configuration file (" + frameworkFile() + ") (-1)"));
  EXPECT_EQ(512u, FileProbe::text(frameworkFile()).size());
  EXPECT_TRUE(exists(acsDirectory() + "/cert/node.pem"));
  EXPECT_TRUE(acs.calls().empty());
  EXPECT_FALSE(exists(serviceModuleFile()));
}

TEST_F(ConfigurationRunnableSecAaTest, RefusedRegistrationLeavesTheFrameworkFileOnly) {
  acs.script("register", 1, "LdapAuthenticationMethod: refused");
  EXPECT_EQ(-1, registerWith(runnable, unlocked()));
  EXPECT_EQ(1u, log().count(3, "Failed to register service module (-1)"));
  EXPECT_EQ(Calls({kHelp, registerCall()}), acs.calls());
  EXPECT_EQ(0640u, FileProbe::mode(frameworkFile()));
  EXPECT_FALSE(exists(serviceModuleFile()));
}

TEST_F(ConfigurationRunnableSecAaTest, WithoutTheToolRegistrationAndDeregistrationGiveMinusTwo) {
  acs.uninstall();
  EXPECT_EQ(-2, registerWith(runnable, unlocked()));
  EXPECT_EQ(1u, log().count(3, "Failed to register service module (-2)"));
  EXPECT_TRUE(exists(frameworkFile()));
  EXPECT_FALSE(exists(serviceModuleFile()));
  EXPECT_EQ(-2, runnable.deregisterLdapModule());
  EXPECT_EQ(2u, log().count(3, "exception when running acs-config-update --help"));
}

TEST_F(ConfigurationRunnableSecAaTest, ServiceModuleFileThatCannotBeWrittenComesAfterTheRegistration) {
  LdapConfiguration config = unlocked();
  // Only the service module's file holds the filter: it alone outgrows the limit.
  config.filter = std::string(8000, 'f');
  {
    const FileSizeLimit limit(4096);
    ASSERT_TRUE(limit.isSet());
    EXPECT_EQ(-1, registerWith(runnable, config));
  }
  EXPECT_EQ(1u, log().count(3, "Failed to write LDAP service module configuration (" + serviceModuleFile() + ") (-1)"));
  EXPECT_EQ("registered " + frameworkFile(), acs.state());
  EXPECT_EQ(expectedText(config, true), FileProbe::text(frameworkFile()));
  EXPECT_EQ(4096u, FileProbe::text(serviceModuleFile()).size());
}

TEST_F(ConfigurationRunnableSecAaTest, UnlockedUpdateTakesTheRecordAndRegistersAgain) {
  LdapConfiguration config = unlocked();
  ASSERT_EQ(0, runnable.updateConfigurationUsingSecAA(config));
  config.baseDn = "dc=changed";
  EXPECT_EQ(0, runnable.updateConfigurationUsingSecAA(config));
  EXPECT_EQ("dc=changed", runnable.getLdapConfiguration().baseDn);
  EXPECT_TRUE(runnable.isInitialConfigurationSet());
  EXPECT_EQ(2u, registerCalls().size());
  EXPECT_EQ(expectedText(config, false), FileProbe::text(serviceModuleFile()));
  EXPECT_EQ(2u, log().count(kTrace, "Configuration update, administrativeState UNLOCKED - register again Ldap Module"));
}

TEST_F(ConfigurationRunnableSecAaTest, LockedUpdateDeregisters) {
  ASSERT_EQ(0, runnable.updateConfigurationUsingSecAA(unlocked()));
  EXPECT_EQ(0, runnable.updateConfigurationUsingSecAA(LdapConfiguration()));
  EXPECT_EQ(Calls({kHelp, registerCall(), kHelp, kDeregister}), acs.calls());
  EXPECT_EQ("", acs.state());
  EXPECT_EQ(LOCKED, runnable.getLdapConfiguration().administrativeState);
  EXPECT_EQ(1u, log().count(kTrace, "Configuration update, administrativeState LOCKED - deregister Ldap Module"));
}

TEST_F(ConfigurationRunnableSecAaTest, UpdateGivesTheResultOfItsStep) {
  acs.script("deregister", 3, "in use");
  EXPECT_EQ(-1, runnable.updateConfigurationUsingSecAA(LdapConfiguration()));
  acs.script("register", 1, "refused");
  EXPECT_EQ(-1, runnable.updateConfigurationUsingSecAA(unlocked()));
  EXPECT_EQ(1u, log().count(3, "Failed to register service module (-1)"));
}

TEST_F(ConfigurationRunnableSecAaTest, UnlockedModelIsRegisteredAtStart) {
  unlockModel();
  auto runnable = initialisedRunnable();
  runnable->run();
  EXPECT_EQ(ConfigurationRunnable::STATE_CONFIGURATION_SET, runnable->getState());
  EXPECT_TRUE(runnable->isUsingSecAaFramework());
  EXPECT_FALSE(runnable->isRunning());
  EXPECT_EQ(1u, log().count(6, "Using SEC AA FW"));
  EXPECT_EQ((std::vector<Args>{{"authentication", "default"}}), qivea.callsStartingWith("authentication"));
  EXPECT_EQ(std::vector<Args>{registerCall()}, registerCalls());
  EXPECT_EQ(FileProbe::text(frameworkFile()), acs.registeredCopy());
  EXPECT_NE(std::string::npos, acs.registeredCopy().find("\nldap_uri = ldap://127.0.0.1:389\n"));
  EXPECT_TRUE(exists(serviceModuleFile()));
}

TEST_F(ConfigurationRunnableSecAaTest, LockedModelIsDeregisteredAtStart) {
  auto runnable = initialisedRunnable();
  runnable->run();
  EXPECT_EQ(ConfigurationRunnable::STATE_CONFIGURATION_SET, runnable->getState());
  EXPECT_EQ(Calls({kHelp, kHelp, kDeregister}), acs.calls());
  EXPECT_TRUE(qivea.callsStartingWith("authentication").empty());
  EXPECT_FALSE(exists(clearPath()));
}

TEST_F(ConfigurationRunnableSecAaTest, RegistrationThatFailsAtStartLeavesTheConfigurationUnset) {
  unlockModel();
  acs.script("register", 1, "refused");
  auto runnable = initialisedRunnable();
  runnable->run();
  EXPECT_EQ(ConfigurationRunnable::STATE_INVALID, runnable->getState());
  EXPECT_TRUE(runnable->isRunning());
  EXPECT_EQ(1u, log().count(3, "Failed to register LDAP SM in SEC AA FW: -1"));
  EXPECT_EQ(1u, log().count(3, "Unable to set initial configuration!"));
}

TEST_F(ConfigurationRunnableSecAaTest, InvalidUnlockedModelIsNotRegisteredAtStart) {
  unlockModel();
  framework().model().setStringValues(LdapModel::LDAP_DN, "ldapIpAddress", {});
  auto runnable = initialisedRunnable();
  runnable->run();
  EXPECT_EQ(ConfigurationRunnable::STATE_INVALID, runnable->getState());
  EXPECT_TRUE(registerCalls().empty());
  EXPECT_EQ(0u, log().countContaining("Failed to register LDAP SM"));
}

// With the security API's library loaded: a certificate event on the security framework's path.
class ConfigurationRunnableSecAaLoopTest : public ConfigurationRunnableSecAaTest {
 protected:
  ConfigurationRunnableSecAaLoopTest() : _library(dlopen(SEC_CREDU_LIBRARY, RTLD_NOW | RTLD_LOCAL), &dlclose) {}

  void SetUp() override { ASSERT_NE(nullptr, _library.get()) << dlerror(); }

  SecCreduStandIn security;

 private:
  std::unique_ptr<void, int (*)(void*)> _library;
};

TEST_F(ConfigurationRunnableSecAaLoopTest, ChangedCertificatesAreCopiedAndRegisteredAgain) {
  unlockModel();
  framework().model().setStringValues(LdapModel::LDAP_DN, "nodeCredential",
                                      {"ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,NodeCredential=1"});
  framework().model().setStringValues(LdapModel::LDAP_DN, "trustCategory",
                                      {"ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,TrustCategory=1"});
  security.setNodeCertFileName(certificates() + "/node.pem");
  security.setNodeKeyFileName(certificates() + "/node.key");
  security.setTrustCatDirName(certificates() + "/trusted");
  auto runnable = initialisedRunnable();
  RunningThread thread(*runnable);
  ASSERT_TRUE(eventually([&] { return runnable->getState() == ConfigurationRunnable::STATE_LOOP_RUNNING; }));
  EXPECT_EQ("node certificate\n", FileProbe::text(acsDirectory() + "/cert/node.pem"));

  std::ofstream(certificates() + "/renewed.pem") << "renewed certificate\n";
  security.setNodeCertFileName(certificates() + "/renewed.pem");
  security.sendEvent("changed");
  EXPECT_TRUE(eventually([&] { return registerCalls().size() == 2 && exists(serviceModuleFile()); }));
  EXPECT_EQ("renewed certificate\n", FileProbe::text(acsDirectory() + "/cert/renewed.pem"));
  EXPECT_FALSE(exists(acsDirectory() + "/cert/node.pem"));
  EXPECT_NE(std::string::npos, acs.registeredCopy().find("ldap_tls_cert = " + acsDirectory() + "/cert/renewed.pem\n"));
  EXPECT_EQ((std::vector<Args>{{"authentication", "default"}}), qivea.callsStartingWith("authentication"));
}

TEST_F(ConfigurationRunnableSecAaLoopTest, CertificateFileNameWithAControlCharacterIsNotWrittenAnywhere) {
  unlockModel();
  framework().model().setStringValues(LdapModel::LDAP_DN, "nodeCredential",
                                      {"ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,NodeCredential=1"});
  framework().model().setStringValues(LdapModel::LDAP_DN, "trustCategory",
                                      {"ManagedElement=1,SystemFunctions=1,SecM=1,CertM=1,TrustCategory=1"});
  security.setNodeCertFileName(certificates() + "/node.pem");
  security.setNodeKeyFileName(certificates() + "/node.key");
  security.setTrustCatDirName(certificates() + "/trusted");
  auto runnable = initialisedRunnable();
  RunningThread thread(*runnable);
  ASSERT_TRUE(eventually([&] { return runnable->getState() == ConfigurationRunnable::STATE_LOOP_RUNNING; }));
  const std::string registered = acs.registeredCopy();

  std::ofstream(certificates() + "/renewed\r.pem") << "renewed certificate\n";
  security.setNodeCertFileName(certificates() + "/renewed\r.pem");
  security.sendEvent("changed");
  ASSERT_TRUE(eventually(
      [&] { return log().count(3, "Not applying the configuration: it holds a value that validation refuses") == 1; }));
  EXPECT_EQ(1u,
            log().count(4, "Validation failed - nodeCredential certificate file must not contain a control character"));
  EXPECT_EQ(1u, registerCalls().size());
  EXPECT_EQ(registered, acs.registeredCopy());
  EXPECT_EQ(registered, FileProbe::text(frameworkFile()));
  EXPECT_FALSE(exists(acsDirectory() + "/cert/renewed\r.pem"));
}

// The Tls MO's cipher list changing, on both paths.
class ConfigurationRunnableCipherTest : public ConfigurationRunnableSecAaTest {
 protected:
  ConfigurationRunnableCipherTest() : ConfigurationRunnableSecAaTest("tls.xml") {}

  static constexpr const char* MODEL_FILTER =
      "ECDHE-RSA-AES256-GCM-SHA384:ECDHE-RSA-AES128-GCM-SHA256";

  // A runnable on the adaptation program's path (no acs-config-update), initialised with qivea
  // at revision, with config as its current record.
  std::unique_ptr<ConfigurationRunnable> qiveaPath(const std::string& revision, const LdapConfiguration& config) {
    acs.uninstall();
    ScopedEnvironmentVariable spiRevision("QIVEA_SPI_REVISION", revision);
    auto runnable = initialisedRunnable();
    runnable->ldapConfigurationUpdated(&config);
    return runnable;
  }

  std::vector<Args> authenticationCalls() const { return qivea.callsStartingWith("authentication"); }

  LdapConfiguration withModelFilter(LdapConfiguration config) const {
    config.cipherFilter = std::string(MODEL_FILTER) + ":@STRENGTH";
    return config;
  }

  static std::string traced(const std::string& text) { return std::to_string(kTrace) + " " + text; }

  // What cipherReconfiguration itself wrote, in order, as "LEVEL text".
  std::vector<std::string> reconfigurationLines() {
    std::vector<std::string> lines;
    for (const Framework::LogRecord& record : log().records())
      if (record.method == "cipherReconfiguration") lines.push_back(std::to_string(record.level) + " " + record.text);
    return lines;
  }

 private:
  std::string passwordDirectory() {
    Poco::File(_passwordDirectory.path()).createDirectories();
    return _passwordDirectory.path();
  }

  // The password file the qivea path writes goes to a directory of the test's own, not to /tmp
  // where other runs read theirs.
  Poco::TemporaryFile _passwordDirectory;
  ScopedEnvironmentVariable _tmpdir{"TMPDIR", passwordDirectory()};
};

TEST_F(ConfigurationRunnableCipherTest, SameCipherListSendsNothing) {
  auto runnable = qiveaPath("1.4.0", withModelFilter(unlocked()));
  runnable->cipherReconfiguration(MODEL_FILTER);
  EXPECT_TRUE(authenticationCalls().empty());
  EXPECT_EQ((std::vector<std::string>{traced(" >> "),
                                      traced(std::string("Not reconfiguring with cipherFilter ") + MODEL_FILTER +
                                             ":@STRENGTH since same as already set filter"),
                                      traced(" << ")}),
            reconfigurationLines());
}

TEST_F(ConfigurationRunnableCipherTest, NewCipherListIsPreparedThenApplied) {
  auto runnable = qiveaPath("1.4.0", withModelFilter(unlocked()));
  runnable->cipherReconfiguration("HIGH");
  const std::vector<Args> calls = authenticationCalls();
  ASSERT_EQ(2u, calls.size());
  // The dry run first, then the update itself.
  EXPECT_EQ("--prepare", calls[0][2]);
  EXPECT_EQ(calls[1].end(), std::find(calls[1].begin(), calls[1].end(), "--prepare"));
  EXPECT_NE(calls[0].end(), std::find(calls[0].begin(), calls[0].end(), "--cipherFilter=HIGH:@STRENGTH"));
  EXPECT_NE(calls[1].end(), std::find(calls[1].begin(), calls[1].end(), "--cipherFilter=HIGH:@STRENGTH"));
  EXPECT_EQ((std::vector<std::string>{traced(" >> "), traced("Reconfiguring with cipherFilter HIGH:@STRENGTH"),
                                      traced(" << ")}),
            reconfigurationLines());
  // Appended even to a list that ends with the suffix already.
  runnable->cipherReconfiguration("HIGH:@STRENGTH");
  EXPECT_EQ("HIGH:@STRENGTH:@STRENGTH", runnable->getLdapConfiguration().cipherFilter);
}

TEST_F(ConfigurationRunnableCipherTest, WithoutTlsTheListIsStoredAndALaterSwitchSendsIt) {
  LdapConfiguration config = withModelFilter(unlocked());
  config.useTls = false;
  auto runnable = qiveaPath("1.4.0", config);
  runnable->cipherReconfiguration("HIGH");
  EXPECT_TRUE(authenticationCalls().empty());
  EXPECT_EQ(
      (std::vector<std::string>{traced(" >> "),
                                traced("Not reconfiguring with cipherFilter HIGH:@STRENGTH since useTls set to false"),
                                traced(" << ")}),
            reconfigurationLines());
  EXPECT_EQ("HIGH:@STRENGTH", runnable->getLdapConfiguration().cipherFilter);
  // The next applied configuration (as a transaction edits it) switches TLS on.
  LdapConfiguration edited = runnable->getLdapConfiguration();
  edited.useTls = true;
  ASSERT_EQ(0, runnable->prepareUpdateConfiguration(edited));
  const Args prepared = authenticationCalls().back();
  EXPECT_NE(prepared.end(), std::find(prepared.begin(), prepared.end(), "--cipherFilter=HIGH:@STRENGTH"));
}

TEST_F(ConfigurationRunnableCipherTest, QiveaOlderThanRevision12GetsNothingAndNothingIsStored) {
  auto runnable = qiveaPath("1.1.0", withModelFilter(unlocked()));
  runnable->cipherReconfiguration("HIGH");
  EXPECT_TRUE(authenticationCalls().empty());
  EXPECT_EQ(std::string(MODEL_FILTER) + ":@STRENGTH", runnable->getLdapConfiguration().cipherFilter);
  EXPECT_EQ((std::vector<std::string>{traced(" >> "),
                                      traced("Qivea is not supported , not reconfiguring the cipher filter"),
                                      traced(" << ")}),
            reconfigurationLines());
}

class CipherListWithAControlCharacterTest : public ConfigurationRunnableCipherTest,
                                            public ::testing::WithParamInterface<char> {};

TEST_P(CipherListWithAControlCharacterTest, IsRefusedAndThePreviousListKept) {
  auto runnable = qiveaPath("1.4.0", withModelFilter(unlocked()));
  runnable->cipherReconfiguration(std::string("HIGH") + GetParam() + "ldap_tls_reqcert = never");
  EXPECT_TRUE(authenticationCalls().empty());
  EXPECT_EQ(std::string(MODEL_FILTER) + ":@STRENGTH", runnable->getLdapConfiguration().cipherFilter);
  EXPECT_EQ((std::vector<std::string>{traced(" >> "),
                                      std::string("3 Validation failed - cipherFilter must not contain a control "
                                                  "character, keeping cipherFilter ") +
                                          MODEL_FILTER + ":@STRENGTH",
                                      traced(" << ")}),
            reconfigurationLines());
  // The next list without one is taken as usual.
  runnable->cipherReconfiguration("HIGH");
  EXPECT_EQ(2u, authenticationCalls().size());
  EXPECT_EQ("HIGH:@STRENGTH", runnable->getLdapConfiguration().cipherFilter);
}

INSTANTIATE_TEST_SUITE_P(ControlCharacters, CipherListWithAControlCharacterTest,
                         ::testing::Values('\n', '\r', '\0', '\x01', '\x1f', '\x7f'));

TEST_F(ConfigurationRunnableCipherTest, RecordThatValidationRefusesIsNotAppliedForANewList) {
  // As an UNLOCKED initial read that failed validation leaves the record.
  LdapConfiguration config = withModelFilter(unlocked());
  config.baseDn = "dc=example,dc=com\nldap_tls_reqcert = never";
  auto runnable = qiveaPath("1.4.0", config);
  runnable->cipherReconfiguration("HIGH");
  EXPECT_TRUE(authenticationCalls().empty());
  EXPECT_EQ(1u, log().count(4, "Validation failed - baseDn must not contain a control character"));
  EXPECT_EQ(1u, log().count(3, "Not applying the configuration: it holds a value that validation refuses"));
  EXPECT_EQ((std::vector<std::string>{traced(" >> "), traced(" << ")}), reconfigurationLines());
  EXPECT_TRUE(operatorMessages().empty());
}

TEST_F(ConfigurationRunnableCipherTest, RecordWithAUriForAnAddressIsNotAppliedForANewList) {
  LdapConfiguration config = withModelFilter(unlocked());
  config.ldapIpAddress = "ldap://10.0.0.1";
  auto runnable = qiveaPath("1.4.0", config);
  runnable->cipherReconfiguration("HIGH");
  EXPECT_TRUE(authenticationCalls().empty());
  EXPECT_EQ(1u, log().count(4, "Validation failed - ldapIpAddress must be a host name or an IP address, not "
                               "\"ldap://10.0.0.1\""));
  EXPECT_EQ(1u, log().count(3, "Not applying the configuration: it holds a value that validation refuses"));
}

TEST_F(ConfigurationRunnableCipherTest, OnTheFrameworkPathAnOlderQiveaDoesNotMatter) {
  unlockModel();
  framework().model().setStringValues(LdapModel::LDAP_DN, "useTls", {"true"});
  ScopedEnvironmentVariable spiRevision("QIVEA_SPI_REVISION", "1.1.0");
  auto runnable = initialisedRunnable();
  runnable->run();
  ASSERT_EQ(1u, registerCalls().size());
  runnable->cipherReconfiguration("HIGH");
  EXPECT_EQ(2u, registerCalls().size());
  EXPECT_EQ((std::vector<std::string>{traced(" >> "), traced("Reconfiguring with cipherFilter HIGH:@STRENGTH"),
                                      traced(" << ")}),
            reconfigurationLines());
  EXPECT_NE(std::string::npos, FileProbe::text(frameworkFile()).find("\nldap_tls_cipher_suite = HIGH:@STRENGTH\n"));
  EXPECT_NE(std::string::npos, FileProbe::text(serviceModuleFile()).find("\nldap_tls_cipher_suite = HIGH:@STRENGTH\n"));
  EXPECT_EQ("HIGH:@STRENGTH", runnable->getLdapConfiguration().cipherFilter);
}

// Nothing but the framework stand-in, so that the dying child leaves no files behind.
class ConfigurationRunnableWithoutTlsTest : public FrameworkTestBase {};

TEST_F(ConfigurationRunnableWithoutTlsTest, CipherReconfigurationWithoutTheTlsObjectIsAProgrammingError) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ConfigurationRunnable runnable;
  EXPECT_DEATH(runnable.cipherReconfiguration("HIGH"), "_tlsDnExists == true");
}
