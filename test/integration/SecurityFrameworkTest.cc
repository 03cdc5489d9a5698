#include "AcsConfigUpdateStandIn.h"
#include "Eventually.h"
#include "FileProbe.h"
#include "LoadedComponentTest.h"
#include "NssWrapperGroups.h"
#include "ScopedEnvironmentVariable.h"
#include "SecAcsStandIn.h"

#include <Framework/OperatorTransaction.h>
#include <Poco/File.h>
#include <Poco/TemporaryFile.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using Args = std::vector<std::string>;
using Strings = std::vector<std::string>;

const char METHOD_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";
const char LDAP_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1";
const char TLS_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,Tls=1";
const char COMPONENT_FILE[] =
    "<QivAccessManagementComponent><ldapInitConfigTimeout>10</ldapInitConfigTimeout></QivAccessManagementComponent>";
const char PASSWORD[] = "Bind-Secret-7";
const gid_t SERVICE_GROUP = 4242;

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::string::size_type at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

}  // namespace

// The built library on a node with the security framework: "acs-config-update" and qivea on
// PATH, qivea's PSO clear path in a directory of the test's own, the user-authorization
// library's stand-in loaded (so that the component's open by name finds it) and knowing alice,
// and a group database with "sec-uai-users" for the tests that run again where it is seen.
class SecurityFrameworkTest : public LoadedComponentTest {
 protected:
  explicit SecurityFrameworkTest(const std::string& model = "ldap20.xml")
      : LoadedComponentTest(model),
        _umask(::umask(022)),
        _userAuthorization(dlopen(SEC_ACS_LIBRARY, RTLD_NOW | RTLD_LOCAL), &dlclose) {
    groups.addGroup("sec-uai-users", SERVICE_GROUP);
    secAcs.setUsers({{"alice", {"admin", "operator"}}});
    Poco::File(caDirectory.path()).createDirectories();
    std::ofstream(caFile()) << "CA certificate\n";
  }

  // The component stops, and goes, before the stand-ins it uses.
  ~SecurityFrameworkTest() override {
    if (descriptor != nullptr) descriptor->stop(PymStateChangeShutdown);
    descriptor = nullptr;
    library.reset();
    ::umask(_umask);
  }

  void SetUp() override { ASSERT_NE(nullptr, _userAuthorization.get()) << dlerror(); }

  void start() {
    initialize(COMPONENT_FILE);
    ASSERT_EQ(0, descriptor->start(PymStateChangeStartup));
  }

  std::string acsDirectory() const { return clearPath.path() + "/sec-acs"; }
  std::string frameworkFile() const { return acsDirectory() + "/LdapSecAa.cfg"; }
  std::string serviceModuleFile() const { return acsDirectory() + "/LdapSm.cfg"; }
  std::string caFile() const { return caDirectory.path() + "/ca.pem"; }
  Args registerCall() const { return {"--register", "LdapAuthenticationMethod", "-f", frameworkFile()}; }

  struct Write {
    std::string dn;
    std::string attribute;
    Strings values;
  };

  // One operator transaction with these writes; the commit's code.
  PymReturnT commitWrites(const std::vector<Write>& writes) {
    Framework::OperatorTransaction transaction(framework());
    for (const Write& write : writes)
      EXPECT_EQ(PymOk, transaction.setText(write.dn, write.attribute, write.values)) << write.attribute;
    return transaction.commit();
  }

  // LDAP unlocked, with the bind password and a CA certificate.
  PymReturnT unlock() {
    return commitWrites({{METHOD_DN, "administrativeState", {"UNLOCKED"}},
                         {LDAP_DN, "ldapIpAddress", {"192.0.2.10"}},
                         {LDAP_DN, "baseDn", {"dc=operator,dc=example"}},
                         {LDAP_DN, "bindPassword", {"{password=" + framework().crypto().encrypt(PASSWORD) + "}"}},
                         {LDAP_DN, "tlsCaCertificate", {caFile()}}});
  }

  // alice's roles as the framework asks for them, or the refusal's code.
  PymReturnT rolesOfAlice(Strings& found) {
    const char** roles = nullptr;
    const PymReturnT result = accessManagement->getRoles("LDAP", "alice", &roles);
    if (result != 0) return result;
    for (const char** role = roles; *role != nullptr; ++role) found.push_back(*role);
    EXPECT_EQ(0, accessManagement->freeRoles("LDAP", roles));
    return result;
  }

  std::vector<Args> registerCalls() const {
    std::vector<Args> result;
    for (const Args& call : acs.calls())
      if (call.front() == "--register") result.push_back(call);
    return result;
  }

  // acs-config-update makes its directory the whole PATH; qivea goes before it.
  AcsConfigUpdateStandIn acs{ACS_CONFIG_UPDATE_PROGRAM};
  ScopedEnvironmentVariable path{"PATH", std::string(QIVEA_DIR) + ":" + std::getenv("PATH")};
  Poco::TemporaryFile clearPath;
  ScopedEnvironmentVariable psoClear{"QIVEA_PSO_CLEAR", clearPath.path()};
  Poco::TemporaryFile caDirectory;
  SecAcsStandIn secAcs;
  NssWrapperGroups groups;

 private:
  const mode_t _umask;
  std::unique_ptr<void, int (*)(void*)> _userAuthorization;
};

TEST_F(SecurityFrameworkTest, UnlockingLaysOutTheFilesWithTheirModesAndGroup) {
  if (groups.rerunWithDatabases()) return;
  start();
  acs.setDelay("register", 1000);
  std::future<PymReturnT> committed = std::async(std::launch::async, [&] { return unlock(); });
  // While the tool answers the registration, the service module's file does not exist yet.
  ASSERT_TRUE(eventually([&] { return !registerCalls().empty(); }));
  EXPECT_EQ(std::vector<Args>{registerCall()}, registerCalls());
  EXPECT_TRUE(Poco::File(frameworkFile()).exists());
  EXPECT_FALSE(Poco::File(serviceModuleFile()).exists());
  ASSERT_EQ(PymOk, committed.get());

  const struct stat directory = FileProbe::status(acsDirectory());
  EXPECT_EQ(02750u, directory.st_mode & 07777);
  EXPECT_EQ(SERVICE_GROUP, directory.st_gid);
  for (const std::string& file : {frameworkFile(), serviceModuleFile(), acsDirectory() + "/cert/ca.pem"}) {
    const struct stat status = FileProbe::status(file);
    EXPECT_TRUE(S_ISREG(status.st_mode)) << file;
    EXPECT_EQ(0640u, status.st_mode & 07777) << file;
    EXPECT_EQ(SERVICE_GROUP, status.st_gid) << file;
  }
  // The store is made with the process's umask and inherits group and set-group-id bit.
  const struct stat store = FileProbe::status(acsDirectory() + "/cert");
  EXPECT_TRUE(S_ISDIR(store.st_mode));
  EXPECT_EQ(02755u, store.st_mode & 07777);
  EXPECT_EQ(SERVICE_GROUP, store.st_gid);
  EXPECT_EQ(FileProbe::text(frameworkFile()), acs.registeredCopy());
  EXPECT_NE(std::string::npos, acs.registeredCopy().find("\nldap_tls_cacert = " + acsDirectory() + "/cert/ca.pem\n"));
}

TEST_F(SecurityFrameworkTest, LockingAgainDeregistersAndRolesStillComeFromTheServiceModule) {
  start();
  ASSERT_EQ(PymOk, unlock());
  ASSERT_EQ("registered " + frameworkFile(), acs.state());
  EXPECT_EQ(PymOk, commitWrites({{METHOD_DN, "administrativeState", {"LOCKED"}}}));
  const Args deregister = {"--deregister", "LdapAuthenticationMethod"};
  EXPECT_EQ(deregister, acs.calls().back());
  EXPECT_EQ("", acs.state());
  Strings roles;
  EXPECT_EQ(0, rolesOfAlice(roles));
  EXPECT_EQ((Strings{"admin", "operator"}), roles);
  EXPECT_EQ(1u, secAcs.callCount("acs_uai_user_session_start"));
  EXPECT_TRUE(qivea.callsStartingWith("authorization").empty());
}

TEST_F(SecurityFrameworkTest, UnlockedModelIsRegisteredAtStartAndRolesAreAnsweredAtOnce) {
  framework().model().setStringValues(METHOD_DN, "administrativeState", {"UNLOCKED"});
  start();
  EXPECT_EQ(std::vector<Args>{registerCall()}, registerCalls());
  EXPECT_TRUE(Poco::File(serviceModuleFile()).exists());
  Strings roles;
  EXPECT_EQ(0, rolesOfAlice(roles));
  EXPECT_EQ((Strings{"admin", "operator"}), roles);
  EXPECT_EQ(0u, log().count(4, "Not able to get user roles at this moment!"));
}

TEST_F(SecurityFrameworkTest, BindPasswordStandsOnlyWhereTheTemplatesPutIt) {
  start();
  ASSERT_EQ(PymOk, unlock());
  EXPECT_EQ(0u, log().countContaining(PASSWORD));
  const std::string line = std::string("\nldap_default_authtok = ") + PASSWORD + "\n";
  for (const std::string& file : {frameworkFile(), serviceModuleFile()}) {
    EXPECT_EQ(1u, occurrences(FileProbe::text(file), PASSWORD)) << file;
    EXPECT_EQ(1u, occurrences(FileProbe::text(file), line)) << file;
  }
  std::vector<std::string> entries;
  Poco::File(acsDirectory() + "/cert").list(entries);
  for (const std::string& entry : entries)
    EXPECT_EQ(0u, occurrences(FileProbe::text(acsDirectory() + "/cert/" + entry), PASSWORD)) << entry;
  for (const Args& call : qivea.calls())
    for (const std::string& argument : call) EXPECT_EQ(std::string::npos, argument.find(PASSWORD)) << argument;
}

TEST_F(SecurityFrameworkTest, RefusedRegistrationFailsTheCommitAndKeepsWhatWasWritten) {
  start();
  acs.script("register", 1, "LdapAuthenticationMethod: refused");
  EXPECT_EQ(-1, unlock());
  EXPECT_EQ(1u, log().count(3, "Failed to register service module (-1)"));
  EXPECT_TRUE(Poco::File(frameworkFile()).exists());
  EXPECT_FALSE(Poco::File(serviceModuleFile()).exists());
}

TEST_F(SecurityFrameworkTest, KeyInjectedThroughALineFeedIsRefusedAndNoFileIsWritten) {
  start();
  ASSERT_EQ(PymOk, unlock());
  const std::string frameworkText = FileProbe::text(frameworkFile());
  const std::string serviceModuleText = FileProbe::text(serviceModuleFile());
  Framework::OperatorTransaction transaction(framework());
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "roleAliasesBaseDn",
                                       {"ou=aliases,dc=operator,dc=example\ntls_reqcert = never"}));
  ASSERT_EQ(PymOk, transaction.setText(LDAP_DN, "baseDn", {"dc=operator,dc=example\nldap_tls_cacert = /tmp/attacker-ca.pem"}));
  EXPECT_EQ(PymValidationFailed, transaction.commit());
  EXPECT_EQ((Strings{"@qivnbi@Validation failed - baseDn must not contain a control character",
                     "@qivnbi@Validation failed - roleAliasesBaseDn must not contain a control character"}),
            transaction.operatorMessages());
  EXPECT_EQ(1u, registerCalls().size());
  EXPECT_EQ(frameworkText, FileProbe::text(frameworkFile()));
  EXPECT_EQ(serviceModuleText, FileProbe::text(serviceModuleFile()));
  EXPECT_EQ(Strings{"dc=operator,dc=example"}, framework().model().stringValues(LDAP_DN, "baseDn"));
}

// With the Tls object: its cipher list reaches the security framework's files.
class SecurityFrameworkWithTlsTest : public SecurityFrameworkTest {
 protected:
  SecurityFrameworkWithTlsTest() : SecurityFrameworkTest("tls.xml") {}
};

TEST_F(SecurityFrameworkWithTlsTest, CipherChangeRewritesTheFilesAndRegistersAgain) {
  framework().model().setStringValues(METHOD_DN, "administrativeState", {"UNLOCKED"});
  framework().model().setStringValues(LDAP_DN, "useTls", {"true"});
  // An adaptation program too old for cipher lists does not matter on this path.
  ScopedEnvironmentVariable revision("QIVEA_SPI_REVISION", "1.1.0");
  start();
  ASSERT_EQ(1u, registerCalls().size());
  ASSERT_EQ(PymOk, commitWrites({{TLS_DN, "cipherFilter", {"HIGH"}}}));
  EXPECT_EQ(2u, registerCalls().size());
  EXPECT_NE(std::string::npos, acs.registeredCopy().find("\nldap_tls_cipher_suite = HIGH:@STRENGTH\n"));
  EXPECT_NE(std::string::npos, FileProbe::text(serviceModuleFile()).find("\nldap_tls_cipher_suite = HIGH:@STRENGTH\n"));
}
