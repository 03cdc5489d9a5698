#include "NssWrapperGroups.h"
#include "QiveaStandIn.h"
#include "ScopedEnvironmentVariable.h"
#include "SecAcsStandIn.h"
#include "SlapdInstance.h"

#include <Poco/File.h>
#include <Poco/Pipe.h>
#include <Poco/PipeStream.h>
#include <Poco/Process.h>
#include <Poco/StreamCopier.h>
#include <Poco/TemporaryFile.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

namespace {

using Args = std::vector<std::string>;

const char METHOD_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1";
const char LDAP_DN[] = "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1";
const char FILTER_DN[] =
    "ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1,Ldap=1,Filter=1";

// What start applies for the fixture's LOCKED configuration, prepared then committed.
const std::vector<Args> INITIAL_CALLS = {{"authentication", "default", "--prepare"}, {"authentication", "default"}};

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Commands joined into amhost's command-line form: ";" words between them.
Args commandLine(const std::vector<Args>& commands) {
  Args words;
  for (const Args& command : commands) {
    if (!words.empty()) words.push_back(";");
    words.insert(words.end(), command.begin(), command.end());
  }
  return words;
}

// A valid configuration that unlocks LDAP.
const std::vector<Args> VALID_UNLOCK = {{"set", METHOD_DN, "administrativeState", "UNLOCKED"},
                                        {"set", LDAP_DN, "ldapIpAddress", "192.0.2.10"},
                                        {"set", LDAP_DN, "fallbackLdapIpAddress", "2001:db8::7"},
                                        {"set", LDAP_DN, "serverPort", "636"},
                                        {"set", LDAP_DN, "baseDn", "dc=operator,dc=example"},
                                        {"set", LDAP_DN, "useReferrals", "true"}};

std::vector<Args> concat(std::vector<Args> first, const std::vector<Args>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

}  // namespace

// The built amhost run as a person runs it, on a copy of a fixture model, with the qivea stand-in
// first on PATH.
class AmhostTest : public ::testing::Test {
 protected:
  AmhostTest() {
    Poco::File(directory.path()).createDirectories();
    Poco::File(std::string(QIV_FIXTURES_DIR) + "/models/ldap20.xml").copyTo(model());
    // start waits until the initial configuration has been applied.
    std::ofstream(componentFile())
        << "<QivAccessManagementComponent><ldapInitConfigTimeout>10</ldapInitConfigTimeout>"
           "</QivAccessManagementComponent>";
  }

  std::string model() const { return directory.path() + "/model.xml"; }
  std::string componentFile() const { return directory.path() + "/component.xml"; }

  // amhost with arguments exactly as given, standard input fed and closed.
  static Outcome runRaw(const Args& arguments, const std::string& input = "") {
    Poco::Pipe in, out, err;
    Poco::ProcessHandle process = Poco::Process::launch(AMHOST, arguments, &in, &out, &err);
    Poco::PipeOutputStream(in) << input;
    in.close(Poco::Pipe::CLOSE_WRITE);
    Outcome outcome{0, "", ""};
    // Both streams at once, so that neither can fill up while the other is read.
    std::thread errorReader([&] {
      Poco::PipeInputStream stream(err);
      Poco::StreamCopier::copyToString(stream, outcome.err);
    });
    Poco::PipeInputStream outStream(out);
    Poco::StreamCopier::copyToString(outStream, outcome.out);
    errorReader.join();
    outcome.status = process.wait();
    return outcome;
  }

  // amhost on the model with the component file, quiet log, then the commands.
  Outcome run(const std::vector<Args>& commands) const {
    Args arguments = {"--model", model(), "--component-config", componentFile(), "--log-level", "-1"};
    const Args words = commandLine(commands);
    arguments.insert(arguments.end(), words.begin(), words.end());
    return runRaw(arguments);
  }

  Outcome runInput(const std::string& input) const {
    return runRaw({"--model", model(), "--component-config", componentFile(), "--log-level", "-1"}, input);
  }

  Poco::TemporaryFile directory;
  QiveaStandIn qivea{QIVEA_DIR};
};

TEST_F(AmhostTest, ValidUnlockIsPreparedThenAppliedWordForWord) {
  const Outcome outcome = run(concat({{"start"}}, concat(VALID_UNLOCK, {{"commit"}})));
  EXPECT_EQ(0, outcome.status) << outcome.err;
  EXPECT_EQ("started\ncommitted\n", outcome.out);
  EXPECT_EQ("", outcome.err);
  const Args prepared = {"authentication",
                         "ldap",
                         "--prepare",
                         "--uri=ldap://192.0.2.10:636",
                         "--uri=ldap://[2001:db8::7]:636",
                         "--useReferrals",
                         "--base-dn=dc=operator,dc=example",
                         "--login-attribute=uid",
                         "--bind-dn=cn=admin,dc=example,dc=com"};
  Args committed = prepared;
  committed.erase(committed.begin() + 2);
  EXPECT_EQ(concat(INITIAL_CALLS, {prepared, committed}), qivea.callsStartingWith("authentication"));
}

TEST_F(AmhostTest, InvalidConfigurationIsRefusedWithTheOperatorTextsInRuleOrder) {
  const std::string before = readFile(model());
  const Outcome outcome = run({{"start"},
                               {"set", METHOD_DN, "administrativeState", "UNLOCKED"},
                               {"unset", LDAP_DN, "ldapIpAddress"},
                               {"set", LDAP_DN, "tlsClientCertificate", "/cert.pem"},
                               {"set", FILTER_DN, "filter", "(uid=*)"},
                               {"set", LDAP_DN, "filterType", "FLEXIBLE"},
                               {"commit"}});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("started\n"
            "operator: Validation failed - either both tls-client-certificate and tls-client-key should be set or none\n"
            "operator: Validation failed - Mandatory Attributes ldapIpAddress, useTls and baseDn must be set\n"
            "operator: Validation failed - both filter and type attributes should be set if filterType=FLEXIBLE\n",
            outcome.out);
  EXPECT_EQ("error: commit refused (code -9)\n", outcome.err);
  EXPECT_EQ(INITIAL_CALLS, qivea.callsStartingWith("authentication"));
  EXPECT_EQ(before, readFile(model()));
}

TEST_F(AmhostTest, CommittedChangeIsInTheModelFileAndTheNextRunSeesIt) {
  const Outcome first = run({{"start"}, {"set", LDAP_DN, "baseDn", "dc=persisted"}, {"commit"}});
  ASSERT_EQ(0, first.status) << first.err;
  EXPECT_NE(std::string::npos, readFile(model()).find("<value attribute=\"baseDn\">dc=persisted</value>"));
  const Outcome second = run({{"get", LDAP_DN, "baseDn"}});
  EXPECT_EQ(0, second.status) << second.err;
  EXPECT_EQ("dc=persisted\n", second.out);
}

TEST_F(AmhostTest, RolesAnswerThroughQiveaWithTheRecordedArgumentString) {
  qivea.setUsers("alice:admin,operator\n");
  const Outcome outcome = run(concat(concat({{"start"}}, VALID_UNLOCK), {{"commit"}, {"roles", "alice"}}));
  EXPECT_EQ(0, outcome.status) << outcome.err;
  EXPECT_EQ("started\ncommitted\nadmin\noperator\n", outcome.out);
  EXPECT_EQ((std::vector<Args>{{"authorization", "ldap", "search",
                                " --userId=alice --filterType=1 --bindDn=cn=admin,dc=example,dc=com"}}),
            qivea.callsStartingWith("authorization"));
}

TEST_F(AmhostTest, RolesOfTheStoppedComponentAreRefusedWithItsCode) {
  const Outcome outcome = run({{"roles", "alice"}});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("", outcome.out);
  EXPECT_EQ("error: getRoles answered 2\n", outcome.err);
}

TEST_F(AmhostTest, ShowPrintsTheConfigurationButNeverThePassword) {
  const Outcome encrypted = run({{"encrypt", "s3cret-word"}});
  ASSERT_EQ(0, encrypted.status) << encrypted.err;
  const std::string cipherText = encrypted.out.substr(0, encrypted.out.find('\n'));
  ASSERT_FALSE(cipherText.empty());
  const Outcome outcome = run({{"start"},
                               {"set", LDAP_DN, "bindPassword", "{password=" + cipherText + "}"},
                               {"commit"},
                               {"show"}});
  EXPECT_EQ(0, outcome.status) << outcome.err;
  EXPECT_NE(std::string::npos, outcome.out.find(std::string("\n") + LDAP_DN + "\n  ldapIpAddress = 127.0.0.1\n"));
  EXPECT_NE(std::string::npos, outcome.out.find("\n  bindPassword = ****\n"));
  EXPECT_NE(std::string::npos, outcome.out.find("\n  fallbackLdapIpAddress (unset)\n"));
  EXPECT_EQ(std::string::npos, outcome.out.find("s3cret-word"));
  EXPECT_EQ(std::string::npos, outcome.out.find(cipherText));
  EXPECT_EQ(std::string::npos, outcome.err.find("s3cret-word"));
}

TEST_F(AmhostTest, SecondTransactionWritingWhileTheFirstHoldsTheLockIsRefused) {
  const Outcome outcome = run({{"start"},
                               {"begin", "A"},
                               {"set", LDAP_DN, "baseDn", "dc=a"},
                               {"begin", "B"},
                               {"set", LDAP_DN, "baseDn", "dc=b"}});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("started\noperator: MO locked for editing by an other user\n", outcome.out);
  EXPECT_EQ("error: write refused (code -1)\n", outcome.err);
}

TEST_F(AmhostTest, HolderOfTheLockCommitsAfterGoingBackToIt) {
  const Outcome outcome = run({{"start"},
                               {"begin", "A"},
                               {"set", LDAP_DN, "baseDn", "dc=a"},
                               {"begin", "B"},
                               {"use", "A"},
                               {"commit"},
                               {"get", LDAP_DN, "baseDn"}});
  EXPECT_EQ(0, outcome.status) << outcome.err;
  EXPECT_EQ("started\ncommitted\ndc=a\n", outcome.out);
}

TEST_F(AmhostTest, StandardInputRunsOneCommandPerLineWithQuotedWords) {
  const Outcome outcome = runInput(std::string("# a comment\n\nstart\nset ") + LDAP_DN +
                                   " baseDn \"dc=with blank\"\ncommit\nget " + LDAP_DN + " baseDn\n");
  EXPECT_EQ(0, outcome.status) << outcome.err;
  EXPECT_EQ("started\ncommitted\n\"dc=with blank\"\n", outcome.out);
}

TEST_F(AmhostTest, ScriptOnStandardInputStopsAtTheFirstFailure) {
  const Outcome outcome = runInput(std::string("set ") + LDAP_DN + " serverPort abc\nget " + LDAP_DN + " baseDn\n");
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("", outcome.out);
  EXPECT_EQ(0u, outcome.err.find("error: "));
  EXPECT_NE(std::string::npos, outcome.err.find("serverPort"));
}

TEST_F(AmhostTest, UnknownObjectIsACommandFailureNamingIt) {
  const Outcome outcome = run({{"set", "ManagedElement=1,Nothing=1", "baseDn", "x"}});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("error: no object \"ManagedElement=1,Nothing=1\"\n", outcome.err);
}

TEST_F(AmhostTest, MalformedDnIsACommandFailure) {
  const Outcome outcome = run({{"set", "not a dn", "baseDn", "x"}});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ(0u, outcome.err.find("error: "));
  EXPECT_NE(std::string::npos, outcome.err.find("not a dn"));
}

TEST_F(AmhostTest, UnknownAttributeIsACommandFailureNamingIt) {
  const Outcome outcome = run({{"unset", LDAP_DN, "noSuchAttribute"}});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ(std::string("error: \"") + LDAP_DN + "\" has no attribute \"noSuchAttribute\"\n", outcome.err);
}

TEST_F(AmhostTest, ValueThatDoesNotFitIsACommandFailure) {
  const Outcome outcome = run({{"set", METHOD_DN, "administrativeState", "HALF_OPEN"}});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ(0u, outcome.err.find("error: "));
  EXPECT_NE(std::string::npos, outcome.err.find("HALF_OPEN"));
}

TEST_F(AmhostTest, CommitWithoutTransactionFails) {
  const Outcome outcome = run({{"commit"}});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("error: no open transaction\n", outcome.err);
}

TEST_F(AmhostTest, MissingModelOptionIsAUsageError) {
  const Outcome outcome = runRaw({"start"});
  EXPECT_EQ(2, outcome.status);
  EXPECT_EQ("amhost: --model FILE is required\nTry: amhost --help\n", outcome.err);
}

TEST_F(AmhostTest, UnknownOptionIsAUsageError) {
  const Outcome outcome = runRaw({"--model", model(), "--verbose", "start"});
  EXPECT_EQ(2, outcome.status);
  EXPECT_EQ("amhost: unknown option --verbose\nTry: amhost --help\n", outcome.err);
}

TEST_F(AmhostTest, CommandsAreCheckedBeforeAnythingIsLoaded) {
  const Outcome outcome = runRaw({"--model", directory.path() + "/missing.xml", "start", ";", "frobnicate"});
  EXPECT_EQ(2, outcome.status);
  EXPECT_EQ("amhost: unknown command \"frobnicate\" (help lists the commands)\n", outcome.err);
}

TEST_F(AmhostTest, WrongNumberOfWordsIsAUsageError) {
  const Outcome outcome = run({{"start"}, {"unset", LDAP_DN}});
  EXPECT_EQ(2, outcome.status);
  EXPECT_EQ("", outcome.out);
  EXPECT_EQ("amhost: usage: unset DN ATTRIBUTE\n", outcome.err);
}

TEST_F(AmhostTest, UnterminatedQuoteOnStandardInputIsAUsageError) {
  const Outcome outcome = runInput("roles \"alice\n");
  EXPECT_EQ(2, outcome.status);
  EXPECT_EQ("amhost: unterminated quote in: roles \"alice\n", outcome.err);
}

TEST_F(AmhostTest, ModelThatCannotBeLoadedGivesItsOwnStatus) {
  const Outcome outcome = runRaw({"--model", directory.path() + "/missing.xml", "show"});
  EXPECT_EQ(3, outcome.status);
  EXPECT_EQ(0u, outcome.err.find("amhost: "));
  EXPECT_NE(std::string::npos, outcome.err.find("missing.xml"));
}

TEST_F(AmhostTest, HelpPrintsTheUsage) {
  const Outcome outcome = runRaw({"--help"});
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ(0u, outcome.out.find("usage: amhost --model FILE"));
  EXPECT_NE(std::string::npos, outcome.out.find("exit status:"));
}

// amhost with the component's own LDAP client, against a throw-away directory.
class AmhostBuiltInTest : public AmhostTest {
 protected:
  AmhostBuiltInTest() {
    std::ofstream(componentFile()) << "<QivAccessManagementComponent><ldapInitConfigTimeout>10</ldapInitConfigTimeout>"
                                      "<useBuiltInAuthorization>true</useBuiltInAuthorization>"
                                      "</QivAccessManagementComponent>";
  }

  std::vector<Args> unlockAt(int port) const {
    return {{"start"},
            {"set", METHOD_DN, "administrativeState", "UNLOCKED"},
            {"set", LDAP_DN, "serverPort", std::to_string(port)},
            {"set", LDAP_DN, "baseDn", TestDirectory::SlapdInstance::baseDn()},
            {"unset", LDAP_DN, "bindDn"},
            {"commit"}};
  }

  TestDirectory::SlapdInstance directory;
};

TEST_F(AmhostBuiltInTest, RolesComeFromTheDirectory) {
  const Outcome outcome = run(concat(unlockAt(directory.plainPort()), {{"roles", "alice"}}));
  EXPECT_EQ(0, outcome.status) << outcome.err;
  EXPECT_EQ("started\ncommitted\nadmin\nops\n", outcome.out);
  EXPECT_TRUE(qivea.callsStartingWith("authorization").empty());
}

TEST_F(AmhostBuiltInTest, RefusedQueryPrintsWhatItLoggedAndItsCode) {
  const Outcome outcome = run(concat(unlockAt(TestDirectory::SlapdInstance::unusedPort()), {{"roles", "alice"}}));
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("started\ncommitted\n", outcome.out);
  EXPECT_NE(std::string::npos, outcome.err.find("log 8 openLdapConnection: No TLS\n")) << outcome.err;
  EXPECT_NE(std::string::npos, outcome.err.find("log 8 openLdapConnection: Ping failed\n")) << outcome.err;
  EXPECT_NE(std::string::npos, outcome.err.find("log 3 getRoles: getRoles failed (-1)\n")) << outcome.err;
  const std::string last = "error: getRoles answered -1\n";
  ASSERT_GE(outcome.err.size(), last.size());
  EXPECT_EQ(last, outcome.err.substr(outcome.err.size() - last.size()));
}

// amhost as a node with the security framework, the PSO clear path in a directory of the test's
// own. amhost and what it starts see a group database with "sec-uai-users" (libnss-wrapper);
// the stand-ins record what they were asked in homes of the test's own.
class AmhostSecurityFrameworkTest : public AmhostTest {
 protected:
  AmhostSecurityFrameworkTest() : _umask(::umask(022)) {
    groups.addGroup("sec-uai-users", 4242);
    secAcs.setUsers({{"alice", {"admin", "operator"}}});
    Poco::File(acsHome.path()).createDirectories();
    for (const auto& variable : groups.environment())
      _environment.emplace_back(new ScopedEnvironmentVariable(variable.first, variable.second));
  }

  ~AmhostSecurityFrameworkTest() override { ::umask(_umask); }

  Outcome runOnNode(const std::vector<Args>& commands) const {
    Args arguments = {"--model", model(), "--component-config", componentFile(), "--log-level", "-1",
                      "--security-framework", psoClear.path()};
    const Args words = commandLine(commands);
    arguments.insert(arguments.end(), words.begin(), words.end());
    return runRaw(arguments);
  }

  // The calls acs-config-update recorded, each as its words joined by blanks.
  std::vector<std::string> acsCalls() const {
    std::vector<std::string> calls;
    for (int number = 1; Poco::File(acsHome.path() + "/calls/" + std::to_string(number)).exists(); ++number) {
      std::string call = readFile(acsHome.path() + "/calls/" + std::to_string(number));
      for (char& c : call) c = c == '\0' ? ' ' : c;
      calls.push_back(call);
    }
    return calls;
  }

  NssWrapperGroups groups;
  SecAcsStandIn secAcs;
  Poco::TemporaryFile psoClear;
  Poco::TemporaryFile acsHome;
  ScopedEnvironmentVariable acsHomeVariable{"ACS_CONFIG_UPDATE_HOME", acsHome.path()};

 private:
  const mode_t _umask;
  std::vector<std::unique_ptr<ScopedEnvironmentVariable>> _environment;
};

TEST_F(AmhostSecurityFrameworkTest, UnlockedNodeShowsTheFilesTheComponentWroteAndAnswersRoles) {
  const Outcome outcome =
      runOnNode(concat(concat({{"start"}}, VALID_UNLOCK), {{"commit"}, {"files"}, {"roles", "alice"}}));
  EXPECT_EQ(0, outcome.status) << outcome.err;
  EXPECT_EQ("started\ncommitted\n"
            "2750 sec-uai-users sec-acs/\n"
            "0640 sec-uai-users sec-acs/LdapSecAa.cfg\n"
            "0640 sec-uai-users sec-acs/LdapSm.cfg\n"
            "2755 sec-uai-users sec-acs/cert/\n"
            "admin\noperator\n",
            outcome.out);
  const std::string frameworkFile = psoClear.path() + "/sec-acs/LdapSecAa.cfg";
  EXPECT_EQ((std::vector<std::string>{"--help ", "--help ", "--deregister LdapAuthenticationMethod ", "--help ",
                                      "--register LdapAuthenticationMethod -f " + frameworkFile + " "}),
            acsCalls());
  EXPECT_NE(std::string::npos, readFile(frameworkFile).find("\nldap_uri = ldap://192.0.2.10:636, ldap://[2001:db8::7]:636\n"));
  EXPECT_TRUE(qivea.callsStartingWith("authorization").empty());
}

TEST_F(AmhostSecurityFrameworkTest, FilesNeedsTheSecurityFramework) {
  const Outcome outcome = run({{"files"}});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("error: files needs --security-framework DIR\n", outcome.err);
}
