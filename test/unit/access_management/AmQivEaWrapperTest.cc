#include "AmQivEaWrapper.h"

#include "DirectoryEntries.h"
#include "Eventually.h"
#include "FrameworkTestBase.h"
#include "InheritableDescriptors.h"
#include "QiveaStandIn.h"
#include "ScopedEnvironmentVariable.h"
#include "StrayProcess.h"

#include <Qiv/QivException.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <signal.h>
#include <sys/wait.h>

using namespace QivAccessManagement;

namespace {

typedef std::vector<std::string> Args;
typedef std::chrono::steady_clock Clock;

// Short, to keep the suite fast: only children meant to be killed meet it.
const unsigned TIMEOUT_MS = 300;
// Generous: a healthy stand-in never comes near it, even on a loaded machine.
const unsigned NO_TIMEOUT_MS = 20000;
// How long past its time-out a killed invocation may take: the kill, the output's drain, a loaded
// machine.
const long BOUND_AFTER_TIMEOUT_MS = 5000;
// More than a pipe holds.
const char PIPE_OVERFLOW_BYTES[] = "1048576";
// Poco's wait result for a child ended by SIGKILL.
const int KILLED_STATUS = 256 + SIGKILL;

const std::string PASSWORD = "S3cr3t-Pw!";

// True when this process has no child at all, running or zombie; reaps nothing.
bool hasNoChild() {
  siginfo_t info;
  return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1 && errno == ECHILD;
}

// Whether pid names no process any more, within bound.
bool isGoneWithin(int pid, std::chrono::milliseconds bound) {
  return eventually([pid] { return ::kill(pid, 0) == -1 && errno == ESRCH; }, bound);
}

long millisecondsSince(Clock::time_point start) {
  return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

}  // namespace

class AmQivEaWrapperTest : public FrameworkTestBase {
 protected:
  // The pid of the last child, from the launch trace.
  int launchedPid() {
    const std::string prefix = "Launch QIV-EA process with pid ";
    int pid = 0;
    for (const Framework::LogRecord& record : log().records()) {
      if (record.level == 8 && record.text.compare(0, prefix.size(), prefix) == 0) pid = std::stoi(record.text.substr(prefix.size()));
    }
    return pid;
  }

  // Log and trace lines, at any level, that hold text.
  std::vector<std::string> linesHolding(const std::string& text) {
    std::vector<std::string> lines;
    for (const Framework::LogRecord& record : log().records()) {
      if (record.text.find(text) != std::string::npos) lines.push_back(record.text);
    }
    return lines;
  }

  // "authentication ldap" as the configuration thread sends it, the password on the line.
  static Args ldapCommand(const std::string& bindPassword) {
    return {"authentication", "ldap", "--uri=ldaps://[2001:db8::1]:636", "--useTls", "--tls-mode=LDAPS",
            "--base-dn=dc=example,dc=com", "--login-attribute=uid", "--bind-dn=cn=reader,dc=example,dc=com",
            "--bind-password=" + bindPassword};
  }

  QiveaStandIn qivea{QIVEA_DIR};
  AmQivEaWrapper wrapper;
};

// --- invoke: results, output and the process protocol ---

TEST_F(AmQivEaWrapperTest, SuccessReplacesTheOutputWithWhatTheChildPrinted) {
  std::string output = "stale";
  EXPECT_EQ(0, wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS));
  EXPECT_EQ("1.4.0\n", output);
  EXPECT_EQ(1u, log().count(8, "Invoking: qivea spi-revision"));
  EXPECT_EQ(1u, log().count(8, "Launch QIV-EA process with pid " + std::to_string(launchedPid())));
  EXPECT_EQ(1u, log().count(8, "QIV-EA process return value: 0"));
  EXPECT_EQ(1u, log().count(8, "1.4.0\n"));
  EXPECT_EQ(0u, log().countAtLevel(3) + log().countAtLevel(4));
}

TEST_F(AmQivEaWrapperTest, ArgumentsReachTheChildWordForWord) {
  qivea.answer("authentication ldap", 0, "");
  const Args args = {"authentication", "ldap",       "--base-dn=ou=People, dc=example", "with\ttab",
                     "two\nlines",     "",           "\xc3\xbcmlaut",                   "'single' \"double\"",
                     "a=b=c",          "  padded  "};
  std::string output;
  ASSERT_EQ(0, wrapper.invoke(args, output, NO_TIMEOUT_MS));
  EXPECT_EQ(std::vector<Args>{args}, qivea.calls());
}

TEST_F(AmQivEaWrapperTest, EmptyArgumentListRunsTheProgramWithoutArguments) {
  std::string output = "untouched";
  EXPECT_EQ(-1, wrapper.invoke({}, output, NO_TIMEOUT_MS));
  EXPECT_EQ(std::vector<Args>{Args{}}, qivea.calls());
  EXPECT_EQ("untouched", output);
  EXPECT_EQ(1u, log().count(8, "Invoking: qivea "));
  EXPECT_EQ(1u, log().count(3, "qivea: no command given; see qivea --help\n"));
}

TEST_F(AmQivEaWrapperTest, FailureLeavesTheOutputUntouchedAndDoesNotReadStandardOutput) {
  qivea.answer("spi-revision", 1, "printed anyway\n", "database locked\n");
  std::string output = "untouched";
  EXPECT_EQ(-1, wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS));
  EXPECT_EQ("untouched", output);
  EXPECT_EQ(1u, log().count(8, "QIV-EA process return value: 1"));
  EXPECT_TRUE(linesHolding("printed anyway").empty());
}

TEST_F(AmQivEaWrapperTest, ErrorTextIsAnError) {
  qivea.answer("spi-revision", 1, "", "database locked\n");
  std::string output;
  EXPECT_EQ(-1, wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS));
  EXPECT_EQ(1u, log().count(3, "database locked\n"));
  EXPECT_EQ(0u, log().countAtLevel(4));
}

TEST_F(AmQivEaWrapperTest, UnknownCommandIsOnlyAWarning) {
  std::string output;
  EXPECT_EQ(-1, wrapper.invoke({"frobnicate", "now"}, output, NO_TIMEOUT_MS));
  EXPECT_EQ(1u, log().count(4, "qivea: unknown command: frobnicate\n"));
  EXPECT_EQ(0u, log().countAtLevel(3));
}

TEST_F(AmQivEaWrapperTest, ScriptedUnknownCommandOfAnOlderProgramIsOnlyAWarning) {
  qivea.script("pso clear", "unknown-command");
  std::string path = "untouched";
  EXPECT_EQ(-1, wrapper.getQivPsoClearPath(path, NO_TIMEOUT_MS));
  EXPECT_EQ("untouched", path);
  EXPECT_EQ(1u, log().count(4, "qivea: unknown command: pso clear\n"));
  EXPECT_EQ(0u, log().countAtLevel(3));
}

TEST_F(AmQivEaWrapperTest, FailureWithoutErrorTextLogsNothing) {
  qivea.answer("spi-revision", 3, "");
  std::string output;
  EXPECT_EQ(-1, wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS));
  EXPECT_EQ(0u, log().countAtLevel(3) + log().countAtLevel(4));
}

class AmQivEaWrapperExitStatusTest : public AmQivEaWrapperTest, public ::testing::WithParamInterface<std::pair<int, int>> {};

TEST_P(AmQivEaWrapperExitStatusTest, ExitStatusOfTheChildIsMapped) {
  qivea.answer("spi-revision", GetParam().first, "", "failed\n");
  std::string output = "untouched";
  EXPECT_EQ(GetParam().second, wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS));
  EXPECT_EQ(1u, log().count(8, "QIV-EA process return value: " + std::to_string(GetParam().first)));
  EXPECT_EQ("untouched", output);
}

INSTANTIATE_TEST_SUITE_P(EveryStatusOfTheTableAndBeyond, AmQivEaWrapperExitStatusTest,
                         ::testing::Values(std::make_pair(1, -1), std::make_pair(2, -2), std::make_pair(3, -1),
                                           std::make_pair(4, -1), std::make_pair(5, -1), std::make_pair(6, -1),
                                           std::make_pair(7, -1), std::make_pair(8, -9), std::make_pair(9, -1),
                                           std::make_pair(255, -1)));

TEST_F(AmQivEaWrapperTest, ExitStatusTable) {
  const int expected[] = {0, -1, -2, -1, -1, -1, -1, -1, -9};
  for (int status = 0; status < 9; ++status) EXPECT_EQ(expected[status], wrapper.map_qivea_rc_to_qiv_rc(status)) << status;
  EXPECT_EQ(-1, wrapper.map_qivea_rc_to_qiv_rc(9));
  EXPECT_EQ(-1, wrapper.map_qivea_rc_to_qiv_rc(255));
  EXPECT_EQ(-1, wrapper.map_qivea_rc_to_qiv_rc(-1));
  EXPECT_EQ(-1, wrapper.map_qivea_rc_to_qiv_rc(-2));
  EXPECT_EQ(-1, wrapper.map_qivea_rc_to_qiv_rc(INT_MIN));
}

TEST_F(AmQivEaWrapperTest, ChildEndedBySignalFails) {
  qivea.script("spi-revision", "stdout", "1.4.0\n");
  qivea.script("spi-revision", "signal", std::to_string(SIGSEGV));
  std::string output = "untouched";
  EXPECT_EQ(-1, wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS));
  EXPECT_EQ("untouched", output);
  EXPECT_EQ(1u, log().count(3, "QIV-EA process " + std::to_string(launchedPid()) + " was ended by signal " +
                                   std::to_string(SIGSEGV)));
}

TEST_F(AmQivEaWrapperTest, ProgramMissingFromThePathFails) {
  ScopedEnvironmentVariable path("PATH", qivea.home());
  std::string output = "untouched";
  EXPECT_EQ(-1, wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS));
  EXPECT_EQ("untouched", output);
  EXPECT_TRUE(qivea.calls().empty());
}

// --- the watchdog ---

TEST_F(AmQivEaWrapperTest, ChildFillingTheOutputPipeBlocksUntilTheTimerKillsIt) {
  qivea.script("spi-revision", "stdout-bytes", PIPE_OVERFLOW_BYTES);
  std::string output = "untouched";
  const Clock::time_point start = Clock::now();
  // Killed, the child reports a non-zero status: mapped like any other failure.
  EXPECT_EQ(-1, wrapper.invoke({"spi-revision"}, output, TIMEOUT_MS));
  EXPECT_GE(millisecondsSince(start), static_cast<long>(TIMEOUT_MS));
  EXPECT_EQ("untouched", output);
  EXPECT_EQ(1u, log().count(4, "Timer has expired, killing process (pid " + std::to_string(launchedPid()) + ")"));
  EXPECT_EQ(1u, log().count(8, "QIV-EA process return value: " + std::to_string(KILLED_STATUS)));
}

TEST_F(AmQivEaWrapperTest, OutputWithinThePipeIsReadAfterTheExit) {
  qivea.script("spi-revision", "stdout-bytes", "4096");
  std::string output;
  EXPECT_EQ(0, wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS));
  EXPECT_EQ(std::string(4096, 'x'), output);
}

TEST_F(AmQivEaWrapperTest, HangingChildIsKilledWithEverythingItStarted) {
  qivea.script("authentication default", "grandchild", "30");
  qivea.script("authentication default", "hang");
  std::string output = "untouched";
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(-1, wrapper.invoke({"authentication", "default"}, output, TIMEOUT_MS));
  EXPECT_GE(millisecondsSince(start), static_cast<long>(TIMEOUT_MS));
  EXPECT_EQ("untouched", output);
  const int grandchild = qivea.grandchildPid();
  ASSERT_GT(grandchild, 0);
  EXPECT_TRUE(isGoneWithin(grandchild, std::chrono::milliseconds(5000))) << "grandchild " << grandchild << " lives on";
  EXPECT_TRUE(isGoneWithin(launchedPid(), std::chrono::milliseconds(0)));
}

TEST_F(AmQivEaWrapperTest, KilledChildsErrorTextIsLoggedAsUsual) {
  qivea.script("authentication default", "stderr", "LDAP server does not answer\n");
  qivea.script("authentication default", "hang");
  std::string output = "untouched";
  EXPECT_EQ(-1, wrapper.invoke({"authentication", "default"}, output, TIMEOUT_MS));
  EXPECT_EQ("untouched", output);
  EXPECT_EQ(1u, log().count(3, "LDAP server does not answer\n"));
  EXPECT_EQ(1u, log().count(8, "QIV-EA process return value: " + std::to_string(KILLED_STATUS)));
}

TEST_F(AmQivEaWrapperTest, PsoClearPathHonoursItsTimeOut) {
  qivea.script("pso clear", "hang");
  std::string path = "untouched";
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(-1, wrapper.getQivPsoClearPath(path, TIMEOUT_MS));
  EXPECT_LT(millisecondsSince(start), static_cast<long>(NO_TIMEOUT_MS));
  EXPECT_EQ("untouched", path);
  EXPECT_EQ(1u, log().count(4, "Timer has expired, killing process (pid " + std::to_string(launchedPid()) + ")"));
}

TEST_F(AmQivEaWrapperTest, ChildThatLeftItsGroupIsKilledAtTheTimeOutAllTheSame) {
  // Out of its own process group the kill of the group misses the child: its pid does not.
  qivea.script("spi-revision", "leave-group");
  qivea.script("spi-revision", "delay-ms", "20000");
  qivea.script("spi-revision", "stdout", "1.4.0\n");
  std::string output = "untouched";
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(-1, wrapper.invoke({"spi-revision"}, output, TIMEOUT_MS));
  EXPECT_LT(millisecondsSince(start), static_cast<long>(TIMEOUT_MS) + BOUND_AFTER_TIMEOUT_MS);
  EXPECT_EQ("untouched", output);
  EXPECT_EQ(1u, log().count(8, "QIV-EA process return value: " + std::to_string(KILLED_STATUS)));
  EXPECT_EQ(1u, log().count(4, "Timer has expired, killing process (pid " + std::to_string(launchedPid()) + ")"));
  EXPECT_EQ(1u, linesHolding("Could not kill the process group of pid " + std::to_string(launchedPid())).size());
}

// A helper that qivea leaves in the background holding its output: the child exits 0 at once.
TEST_F(AmQivEaWrapperTest, GrandchildHoldingTheOutputIsKilledWithTheGroupAtTheTimeOut) {
  const StrayProcess grandchild([this] { return qivea.grandchildPid(); }, "qivea");
  qivea.script("spi-revision", "grandchild", "20");
  qivea.script("spi-revision", "grandchild-keeps-output");
  qivea.script("spi-revision", "stdout", "1.4.0\n");
  std::string output = "untouched";
  const Clock::time_point start = Clock::now();
  // The child exited 0, but not within the time: a time-out.
  EXPECT_EQ(-11, wrapper.invoke({"spi-revision"}, output, TIMEOUT_MS));
  EXPECT_LT(millisecondsSince(start), static_cast<long>(TIMEOUT_MS) + BOUND_AFTER_TIMEOUT_MS);
  EXPECT_EQ("untouched", output);
  EXPECT_EQ(1u, log().count(8, "QIV-EA process return value: 0"));
  EXPECT_EQ(1u, log().count(4, "Timer has expired, killing process (pid " + std::to_string(launchedPid()) + ")"));
  ASSERT_GT(qivea.grandchildPid(), 0);
  EXPECT_TRUE(isGoneWithin(qivea.grandchildPid(), std::chrono::milliseconds(5000)));
}

TEST_F(AmQivEaWrapperTest, RoleSearchWhoseHelperOutsideTheGroupHoldsTheOutputEndsAtTheTimeOut) {
  const StrayProcess grandchild([this] { return qivea.grandchildPid(); }, "qivea");
  qivea.script("authorization ldap", "grandchild", "20");
  qivea.script("authorization ldap", "grandchild-keeps-output");
  qivea.script("authorization ldap", "grandchild-leaves-group");
  qivea.script("authorization ldap", "stdout", "SystemAdministrator");
  std::string roles = "untouched";
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(-11, wrapper.authorizationLdap(" --userId=alice --filterType=1", roles, TIMEOUT_MS));
  EXPECT_LT(millisecondsSince(start), static_cast<long>(TIMEOUT_MS) + BOUND_AFTER_TIMEOUT_MS);
  EXPECT_EQ("untouched", roles);
  EXPECT_EQ(1u, log().count(4, "Timer has expired, killing process (pid " + std::to_string(launchedPid()) + ")"));
  // Nothing reaches a process in a group of its own; only the wait for it ends.
  EXPECT_TRUE(grandchild.isRunning());
}

TEST_F(AmQivEaWrapperTest, RefusedCommandWhoseHelperOutsideTheGroupHoldsTheErrorOutputEndsAtTheTimeOut) {
  const StrayProcess grandchild([this] { return qivea.grandchildPid(); }, "qivea");
  qivea.script("authentication default", "grandchild", "20");
  qivea.script("authentication default", "grandchild-keeps-output");
  qivea.script("authentication default", "grandchild-leaves-group");
  qivea.answer("authentication default", 1, "", "qivea: refused\n");
  const Clock::time_point start = Clock::now();
  try {
    wrapper.configureAuthentication({"authentication", "default"}, TIMEOUT_MS);
    ADD_FAILURE() << "no exception";
  } catch (const Qiv::QivException& e) {
    EXPECT_STREQ("Failed to invoke: qivea authentication default, result: -1", e.what());
  }
  EXPECT_LT(millisecondsSince(start), static_cast<long>(TIMEOUT_MS) + BOUND_AFTER_TIMEOUT_MS);
  EXPECT_EQ(1u, log().count(8, "QIV-EA process return value: 1"));
  // What the child wrote before it exited is still logged.
  EXPECT_EQ(1u, log().count(3, "qivea: refused\n"));
  EXPECT_TRUE(grandchild.isRunning());
}

TEST_F(AmQivEaWrapperTest, TimerThatDidNotFireLeavesTheResultAlone) {
  qivea.script("spi-revision", "delay-ms", "50");
  qivea.script("spi-revision", "stdout", "1.4.0\n");
  std::string output;
  EXPECT_EQ(0, wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS));
  EXPECT_EQ("1.4.0\n", output);
  EXPECT_EQ(0u, linesHolding("Timer has expired").size());
}

// --- the fixed commands ---

TEST_F(AmQivEaWrapperTest, SpiRevisionKeepsTheLineEnd) {
  std::string revision;
  EXPECT_EQ(0, wrapper.getQiveaSpiRevision(revision, NO_TIMEOUT_MS));
  EXPECT_EQ("1.4.0\n", revision);
  EXPECT_EQ(std::vector<Args>{Args{"spi-revision"}}, qivea.calls());
  EXPECT_EQ(1u, log().count(8, " << qivea spi-revision returned: '1.4.0\n'"));
}

TEST_F(AmQivEaWrapperTest, SpiRevisionOfAnOlderProgram) {
  ScopedEnvironmentVariable revisionVariable("QIVEA_SPI_REVISION", "1.1.0");
  std::string revision;
  EXPECT_EQ(0, wrapper.getQiveaSpiRevision(revision, NO_TIMEOUT_MS));
  EXPECT_EQ("1.1.0\n", revision);
}

TEST_F(AmQivEaWrapperTest, PsoClearPathIsTheDirectoryWithoutLineEnd) {
  std::string path;
  EXPECT_EQ(0, wrapper.getQivPsoClearPath(path, NO_TIMEOUT_MS));
  EXPECT_EQ(qivea.home() + "/pso/clear", path);
  EXPECT_TRUE(Poco::File(path).isDirectory());
  EXPECT_EQ((std::vector<Args>{Args{"pso", "clear"}}), qivea.calls());
  EXPECT_EQ(1u, log().count(8, " << qivea pso clear returned: '" + path + "'"));
}

TEST_F(AmQivEaWrapperTest, PsoClearPathLosesEveryLineFeedWhereverItStands) {
  qivea.answer("pso clear", 0, "\n/var/pso/\nclear\n\n");
  std::string path;
  EXPECT_EQ(0, wrapper.getQivPsoClearPath(path, NO_TIMEOUT_MS));
  EXPECT_EQ("/var/pso/clear", path);
}

TEST_F(AmQivEaWrapperTest, AuthorizationSearchSendsTheCallersTextAsOneArgument) {
  qivea.setUsers("# user:roles\nbob:guest\nalice:SystemAdministrator,SystemReadOnly\n");
  const std::string arguments = " --userId=alice --filterType=3 --filter=(cn=*) --type=x --useTls --tls-mode=LDAPS";
  std::string roles;
  EXPECT_EQ(0, wrapper.authorizationLdap(arguments, roles, NO_TIMEOUT_MS));
  EXPECT_EQ("SystemAdministrator,SystemReadOnly", roles);
  EXPECT_EQ((std::vector<Args>{Args{"authorization", "ldap", "search", arguments}}), qivea.calls());
  EXPECT_EQ(1u, log().count(8, " >> " + arguments));
  EXPECT_EQ(1u, log().count(8, " << User has the following roles: 'SystemAdministrator,SystemReadOnly'"));
}

TEST_F(AmQivEaWrapperTest, AuthorizationSearchForAnUnknownUserGivesNoSuchObject) {
  qivea.setUsers("alice:SystemAdministrator\n");
  std::string roles = "untouched";
  EXPECT_EQ(-2, wrapper.authorizationLdap(" --userId=mallory --filterType=1", roles, NO_TIMEOUT_MS));
  EXPECT_EQ("untouched", roles);
  EXPECT_EQ(1u, log().count(3, "qivea: no such user: mallory\n"));
}

TEST_F(AmQivEaWrapperTest, ConfigureAuthenticationAppliesTheCommandLine) {
  const Args args = ldapCommand(PASSWORD);
  EXPECT_NO_THROW(wrapper.configureAuthentication(args, NO_TIMEOUT_MS));
  EXPECT_EQ(std::vector<Args>{args}, qivea.calls());
  const std::string masked = "authentication ldap --uri=ldaps://[2001:db8::1]:636 --useTls --tls-mode=LDAPS "
                             "--base-dn=dc=example,dc=com --login-attribute=uid "
                             "--bind-dn=cn=reader,dc=example,dc=com --bind-password=****";
  EXPECT_EQ(1u, log().count(8, " >> " + masked + " timeout (ms): 20000"));
  EXPECT_EQ(1u, log().count(8, " << Succeeded to set authentication '" + masked + "'"));
  EXPECT_EQ("method=ldap\nuri=ldaps://[2001:db8::1]:636\nuseTls=true\ntls-mode=LDAPS\nbase-dn=dc=example,dc=com\n"
            "login-attribute=uid\nbind-dn=cn=reader,dc=example,dc=com\nbind-password=****\n",
            qivea.authenticationState());
}

TEST_F(AmQivEaWrapperTest, ConfigureAuthenticationFailureThrowsWithTheMaskedLineAndResult) {
  qivea.answer("authentication default", 8, "", "invalid\n");
  try {
    wrapper.configureAuthentication({"authentication", "default", "--prepare"}, NO_TIMEOUT_MS);
    FAIL() << "no exception";
  } catch (const Qiv::QivException& e) {
    EXPECT_STREQ("Failed to invoke: qivea authentication default --prepare, result: -9", e.what());
  }
  EXPECT_EQ(1u, log().count(3, "Failed to invoke QIV-EA, return code: -9"));
  EXPECT_EQ(0u, linesHolding("Succeeded to set authentication").size());
}

TEST_F(AmQivEaWrapperTest, ConfigureAuthenticationOfAKilledChildThrows) {
  qivea.script("authentication default", "hang");
  try {
    wrapper.configureAuthentication({"authentication", "default"}, TIMEOUT_MS);
    FAIL() << "no exception";
  } catch (const Qiv::QivException& e) {
    EXPECT_STREQ("Failed to invoke: qivea authentication default, result: -1", e.what());
  }
  EXPECT_EQ(1u, log().count(3, "Failed to invoke QIV-EA, return code: -1"));
}

// --- the stand-in answers what the component sends ---

TEST_F(AmQivEaWrapperTest, DryRunLeavesTheAppliedConfigurationAsItWas) {
  wrapper.configureAuthentication({"authentication", "default"}, NO_TIMEOUT_MS);
  Args dryRun = ldapCommand(PASSWORD);
  dryRun.insert(dryRun.begin() + 2, "--prepare");
  EXPECT_NO_THROW(wrapper.configureAuthentication(dryRun, NO_TIMEOUT_MS));
  EXPECT_EQ("method=default\n", qivea.authenticationState());
}

TEST_F(AmQivEaWrapperTest, PasswordFileIsReadButNotKept) {
  const std::string passwordFile = qivea.home() + "/.ldap.secret.tmp";
  std::ofstream(passwordFile) << PASSWORD << "\n";
  EXPECT_NO_THROW(wrapper.configureAuthentication({"authentication", "ldap", "--uri=ldap://10.0.0.1:389",
                                                   "--base-dn=dc=example,dc=com", "--login-attribute=uid",
                                                   "--password-file=" + passwordFile},
                                                  NO_TIMEOUT_MS));
  EXPECT_EQ("method=ldap\nuri=ldap://10.0.0.1:389\nbase-dn=dc=example,dc=com\nlogin-attribute=uid\npassword-file=" +
                passwordFile + "\n",
            qivea.authenticationState());
}

TEST_F(AmQivEaWrapperTest, OptionNewerThanTheProgramIsAnInvalidValue) {
  ScopedEnvironmentVariable revisionVariable("QIVEA_SPI_REVISION", "1.1.0");
  EXPECT_THROW(wrapper.configureAuthentication({"authentication", "ldap", "--base-dn=dc=example,dc=com",
                                                "--login-attribute=uid", "--password-file=/tmp/.ldap.secret.tmp"},
                                               NO_TIMEOUT_MS),
               Qiv::QivException);
  EXPECT_EQ(1u, log().count(3, "qivea: option --password-file needs SPI revision 1.2, this is 1.1.0\n"));
  EXPECT_EQ(1u, log().count(3, "Failed to invoke QIV-EA, return code: -9"));
  EXPECT_EQ("", qivea.authenticationState());
}

// --- passwords ---

TEST_F(AmQivEaWrapperTest, PasswordReachesTheChildButNoLogLineNorException) {
  wrapper.configureAuthentication(ldapCommand(PASSWORD), NO_TIMEOUT_MS);
  qivea.setUsers("alice:SystemReadOnly\n");
  std::string roles;
  wrapper.authorizationLdap(" --userId=alice --filterType=1 --bindPassword=" + PASSWORD + " --useTls", roles, NO_TIMEOUT_MS);
  // A program that echoes its command line, on either stream.
  qivea.answer("spi-revision", 0, "--bindPassword=" + PASSWORD + "\n");
  std::string output;
  wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS);
  qivea.answer("authentication ldap", 1, "", "cannot bind with --bind-password=" + PASSWORD + "\n");
  std::string exceptionText;
  try {
    wrapper.configureAuthentication(ldapCommand(PASSWORD), NO_TIMEOUT_MS);
  } catch (const Qiv::QivException& e) {
    exceptionText = e.what();
  }

  ASSERT_EQ(4u, qivea.calls().size());
  EXPECT_EQ("--bind-password=" + PASSWORD, qivea.calls()[0].back());
  EXPECT_EQ(" --userId=alice --filterType=1 --bindPassword=" + PASSWORD + " --useTls", qivea.calls()[1].back());
  EXPECT_EQ("--bindPassword=" + PASSWORD + "\n", output);
  EXPECT_EQ(std::vector<std::string>{}, linesHolding(PASSWORD));
  EXPECT_EQ(std::string::npos, exceptionText.find(PASSWORD)) << exceptionText;
  EXPECT_NE(std::string::npos, exceptionText.find("--bind-password=****")) << exceptionText;
  EXPECT_EQ(1u, log().count(8, " >>  --userId=alice --filterType=1 --bindPassword=**** --useTls"));
  EXPECT_EQ(1u, log().count(8, "--bindPassword=****\n"));
  EXPECT_EQ(1u, log().count(3, "cannot bind with --bind-password=****\n"));
}

// Passwords that a mask ending at the first blank, or at a text that looks like an option, would
// show in part.
class AmQivEaWrapperPasswordTest : public AmQivEaWrapperTest, public ::testing::WithParamInterface<std::string> {
 protected:
  // ldapCommand's line as logged: the whole password masked.
  static std::string maskedLdapCommand() {
    return "authentication ldap --uri=ldaps://[2001:db8::1]:636 --useTls --tls-mode=LDAPS "
           "--base-dn=dc=example,dc=com --login-attribute=uid --bind-dn=cn=reader,dc=example,dc=com "
           "--bind-password=****";
  }
};

TEST_P(AmQivEaWrapperPasswordTest, CommandLineShowsNoPartOfThePasswordInAnyLineOrException) {
  const std::string password = GetParam();
  // A program that echoes the password on standard output when it succeeds.
  qivea.answer("authentication ldap", 0, "applied --bind-password=" + password + " and " + password + "\n");
  wrapper.configureAuthentication(ldapCommand(password), NO_TIMEOUT_MS);
  // And on standard error when it fails.
  qivea.answer("authentication ldap", 1, "", "cannot bind with --bind-password=" + password + " (" + password + ")\n");
  std::string exceptionText;
  try {
    wrapper.configureAuthentication(ldapCommand(password), NO_TIMEOUT_MS);
  } catch (const Qiv::QivException& e) {
    exceptionText = e.what();
  }

  ASSERT_EQ(2u, qivea.calls().size());
  EXPECT_EQ("--bind-password=" + password, qivea.calls()[0].back());
  EXPECT_EQ(2u, log().count(8, " >> " + maskedLdapCommand() + " timeout (ms): 20000"));
  EXPECT_EQ(2u, log().count(8, "Invoking: qivea " + maskedLdapCommand()));
  EXPECT_EQ(1u, log().count(8, " << Succeeded to set authentication '" + maskedLdapCommand() + "'"));
  EXPECT_EQ(1u, log().count(8, "applied --bind-password=**** and ****\n"));
  EXPECT_EQ(1u, log().count(3, "cannot bind with --bind-password=**** (****)\n"));
  EXPECT_EQ(1u, log().count(3, "Failed to invoke QIV-EA, return code: -1"));
  EXPECT_EQ("Failed to invoke: qivea " + maskedLdapCommand() + ", result: -1", exceptionText);
  EXPECT_EQ(std::vector<std::string>{}, linesHolding(password));
  EXPECT_EQ("--bind-password=****", wrapper.serialize({"--bind-password=" + password}));
}

INSTANTIATE_TEST_SUITE_P(BlanksOptionsQuotesEqualsAndStars, AmQivEaWrapperPasswordTest,
                         ::testing::Values("S3cret Ph4se", "Pw1 --useTls", "\"Qu0ted\" 'as w3ll'", "a=b=c --bind-password=d",
                                           "*St4r* *", "  lead1ng and tra1ling  "));

TEST_F(AmQivEaWrapperTest, EmptyArgumentListSerializesToTheEmptyString) { EXPECT_EQ("", wrapper.serialize({})); }

TEST_F(AmQivEaWrapperTest, SerializeJoinsWithSingleBlanks) {
  EXPECT_EQ("spi-revision", wrapper.serialize({"spi-revision"}));
  EXPECT_EQ("authentication ldap  --prepare", wrapper.serialize({"authentication", "ldap", "", "--prepare"}));
}

TEST_F(AmQivEaWrapperTest, PasswordBeforeAnotherOptionIsMaskedAndTheOptionKept) {
  EXPECT_EQ("authentication ldap --bind-password=**** --base-dn=dc=example,dc=com",
            wrapper.serialize({"authentication", "ldap", "--bind-password=" + PASSWORD, "--base-dn=dc=example,dc=com"}));
}

TEST_F(AmQivEaWrapperTest, PasswordAtTheEndOfTheLineIsMaskedToTheEnd) {
  EXPECT_EQ("authentication ldap --bind-password=****", wrapper.serialize({"authentication", "ldap", "--bind-password=a=b;c"}));
}

TEST_F(AmQivEaWrapperTest, HidePasswordMasksEveryOccurrenceOfBothSpellings) {
  std::string text = " --userId=alice --bindPassword=one --useTls\r\n--bind-password=two\rnext --bind-password= empty";
  wrapper.hidePassword(text);
  EXPECT_EQ(" --userId=alice --bindPassword=**** --useTls\r\n--bind-password=****\rnext --bind-password=**** empty", text);
}

TEST_F(AmQivEaWrapperTest, HidePasswordLeavesOtherTextAlone) {
  std::string text = "--bind-dn=cn=admin --password-file=/tmp/.ldap.secret.tmp bind-password=x";
  wrapper.hidePassword(text);
  EXPECT_EQ("--bind-dn=cn=admin --password-file=/tmp/.ldap.secret.tmp bind-password=x", text);
}

// --- isIPv6 ---

TEST_F(AmQivEaWrapperTest, IsIPv6OnlyForABareIPv6Address) {
  EXPECT_TRUE(isIPv6("::1"));
  EXPECT_TRUE(isIPv6("2001:db8::636"));
  EXPECT_TRUE(isIPv6("::ffff:10.0.0.1"));
  EXPECT_FALSE(isIPv6("[::1]"));
  EXPECT_FALSE(isIPv6("10.0.0.1"));
  EXPECT_FALSE(isIPv6("ldap.example.com"));
  EXPECT_FALSE(isIPv6("[2001:db8::1]:636"));
  EXPECT_FALSE(isIPv6(""));
}

// --- resources ---

TEST_F(AmQivEaWrapperTest, ThousandInvocationsLeaveNoDescriptorThreadOrChild) {
  std::string output;
  ASSERT_EQ(0, wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS));
  const std::set<std::string> descriptors = directoryEntries("/proc/self/fd");
  const std::set<std::string> threads = directoryEntries("/proc/self/task");

  int failures = 0;
  for (int i = 0; i < 1000; ++i) {
    if (wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS) != 0 || output != "1.4.0\n") ++failures;
  }

  EXPECT_EQ(0, failures);
  EXPECT_EQ(descriptors, directoryEntries("/proc/self/fd"));
  EXPECT_EQ(threads, directoryEntries("/proc/self/task"));
  EXPECT_TRUE(hasNoChild());
}

TEST_F(AmQivEaWrapperTest, ChildFindsOnlyTheStandardDescriptorsOpen) {
  const InheritableDescriptors inheritable;
  ASSERT_TRUE(inheritable.areInheritable());
  qivea.recordDescriptors();
  std::string output;
  ASSERT_EQ(0, wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS));
  qivea.answer("spi-revision", 1, "", "failed\n");
  ASSERT_EQ(-1, wrapper.invoke({"spi-revision"}, output, NO_TIMEOUT_MS));
  EXPECT_EQ(std::vector<std::string>(2, "0 1 2\n"), qivea.descriptorRecords());
}

TEST_F(AmQivEaWrapperTest, TimedOutInvocationLeavesNoDescriptorThreadOrChild) {
  qivea.script("spi-revision", "hang");
  std::string output;
  const std::set<std::string> descriptors = directoryEntries("/proc/self/fd");
  const std::set<std::string> threads = directoryEntries("/proc/self/task");
  EXPECT_EQ(-1, wrapper.invoke({"spi-revision"}, output, TIMEOUT_MS));
  EXPECT_EQ(descriptors, directoryEntries("/proc/self/fd"));
  EXPECT_EQ(threads, directoryEntries("/proc/self/task"));
  EXPECT_TRUE(hasNoChild());
}

TEST_F(AmQivEaWrapperTest, ConcurrentInvocationsAreIndependent) {
  std::vector<std::string> revisions(4);
  std::vector<int> results(revisions.size(), -100);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < revisions.size(); ++i) {
    threads.emplace_back([this, i, &revisions, &results] {
      results[i] = wrapper.getQiveaSpiRevision(revisions[i], NO_TIMEOUT_MS);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::vector<int>(revisions.size(), 0), results);
  EXPECT_EQ(std::vector<std::string>(revisions.size(), "1.4.0\n"), revisions);
  EXPECT_EQ(revisions.size(), qivea.calls().size());
}
