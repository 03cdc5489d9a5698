#include "LdapProbe.h"

#include <Poco/Pipe.h>
#include <Poco/PipeStream.h>
#include <Poco/Process.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ldap.h>
#include <signal.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

namespace TestDirectory {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// The built slapd-instance, started with its standard output and error on one pipe; a test that
// fails half-way still ends it (and so its slapd) on the way out.
class ToolRun {
 public:
  explicit ToolRun(const std::vector<std::string>& arguments)
      : _handle(Poco::Process::launch(SLAPD_INSTANCE, arguments, nullptr, &_output, &_output)), _stream(_output) {}
  ~ToolRun() {
    if (Poco::Process::isRunning(_handle)) {
      ::kill(_handle.id(), SIGTERM);
      _handle.wait();
    }
  }
  ToolRun(const ToolRun&) = delete;
  ToolRun& operator=(const ToolRun&) = delete;

  std::string nextLine() {
    std::string line;
    std::getline(_stream, line);
    return line;
  }
  std::string restOfOutput() { return std::string(std::istreambuf_iterator<char>(_stream), {}); }
  void signal(int number) const { ::kill(_handle.id(), number); }
  int exitStatus() const { return _handle.wait(); }

 private:
  Poco::Pipe _output;
  Poco::ProcessHandle _handle;
  Poco::PipeInputStream _stream;
};

// "run", the options, then sh running script.
std::vector<std::string> runShell(const std::string& script, const std::vector<std::string>& options = {}) {
  std::vector<std::string> arguments{"run"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.insert(arguments.end(), {"--", "sh", "-c", script});
  return arguments;
}

// The script prints its variables, then searches alice over LDAPS as the administrator, once
// trusting the instance's CA and once the other CA.
const char* const EXPORT_SCRIPT = R"sh(
env | grep '^LDAP_' | sort
ldaps="ldaps://$LDAP_HOST:$LDAP_LDAPS_PORT"
LDAPTLS_REQCERT=demand LDAPTLS_CACERT="$LDAP_CA_FILE" ldapsearch -x -LLL -H "$ldaps" \
  -D "$LDAP_ROOT_DN" -w "$LDAP_ROOT_PASSWORD" -b "$LDAP_BASE_DN" "(uid=alice)" dn
LDAPTLS_REQCERT=demand LDAPTLS_CACERT="$LDAP_OTHER_CA_FILE" ldapsearch -x -LLL -H "$ldaps" \
  -b "$LDAP_BASE_DN" "(uid=alice)" dn >/dev/null 2>&1 || echo "other CA refused"
exit 7
)sh";

TEST(SlapdInstanceToolTest, RunGivesTheCommandTheDirectoryAndEndsWithItsStatus) {
  ToolRun tool(runShell(EXPORT_SCRIPT));

  const std::string output = tool.restOfOutput();

  EXPECT_EQ(7, tool.exitStatus()) << output;
  EXPECT_THAT(output, HasSubstr("LDAP_BASE_DN=dc=example,dc=com\n"));
  EXPECT_THAT(output, HasSubstr("LDAP_HOST=127.0.0.1\n"));
  EXPECT_THAT(output, HasSubstr("LDAP_READER_DN=cn=reader,dc=example,dc=com\nLDAP_READER_PASSWORD=readerpw\n"));
  EXPECT_THAT(output, HasSubstr("LDAP_ROLE_ALIASES_BASE_DN=ou=roleAliases,dc=example,dc=com\n"));
  EXPECT_THAT(output, HasSubstr("LDAP_ROOT_DN=cn=admin,dc=example,dc=com\nLDAP_ROOT_PASSWORD=secret\n"));
  EXPECT_THAT(output, HasSubstr("LDAP_OTHER_CA_FILE=/"));
  EXPECT_THAT(output, HasSubstr("LDAP_PLAIN_PORT="));
  EXPECT_THAT(output, HasSubstr("dn: uid=alice,ou=people,dc=example,dc=com\n"));
  EXPECT_THAT(output, HasSubstr("other CA refused\n"));
}

TEST(SlapdInstanceToolTest, DirectoryIsGoneWhenTheCommandHasEnded) {
  ToolRun tool(runShell("echo \"$LDAP_PLAIN_PORT\"; echo \"$LDAP_CA_FILE\""));

  const int port = std::stoi(tool.nextLine());
  const std::string caFile = tool.nextLine();

  EXPECT_EQ(0, tool.exitStatus());
  ASSERT_FALSE(caFile.empty());
  // The CA file lies in the instance's own directory, which has gone with it.
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(caFile).parent_path()));
  LdapProbe::Connection connection;
  connection.port = port;
  EXPECT_EQ(LDAP_SERVER_DOWN, LdapProbe(connection).readRootDse().code);
}

TEST(SlapdInstanceToolTest, CommandEndedBySignalGives128PlusTheSignal) {
  ToolRun tool(runShell("kill -KILL $$"));

  EXPECT_EQ(128 + SIGKILL, tool.exitStatus());
}

TEST(SlapdInstanceToolTest, TermToTheToolReachesTheCommandAndStopsTheDirectory) {
  ToolRun tool(runShell("trap 'echo got TERM; exit 5' TERM; echo \"$LDAP_CA_FILE\"; while :; do sleep 0.05; done"));
  const std::string caFile = tool.nextLine();
  ASSERT_TRUE(std::filesystem::exists(caFile));

  tool.signal(SIGTERM);

  EXPECT_THAT(tool.restOfOutput(), HasSubstr("got TERM\n"));
  EXPECT_EQ(5, tool.exitStatus());
  EXPECT_FALSE(std::filesystem::exists(caFile));
}

TEST(SlapdInstanceToolTest, CipherSuiteOptionReachesSlapd) {
  const std::string script = R"sh(
for suite in NORMAL:-CIPHER-ALL:+AES-256-GCM NORMAL:-CIPHER-ALL:+AES-128-GCM; do
  LDAPTLS_CIPHER_SUITE=$suite LDAPTLS_CACERT="$LDAP_CA_FILE" ldapsearch -x -LLL \
    -H "ldaps://$LDAP_HOST:$LDAP_LDAPS_PORT" -b "$LDAP_BASE_DN" "(uid=alice)" dn >/dev/null 2>&1 \
    && echo "$suite accepted" || echo "$suite refused"
done
)sh";
  ToolRun tool(runShell(script, {"--cipher-suite", "NORMAL:-CIPHER-ALL:+AES-128-GCM"}));

  const std::string output = tool.restOfOutput();

  EXPECT_EQ(0, tool.exitStatus()) << output;
  EXPECT_THAT(output, HasSubstr("NORMAL:-CIPHER-ALL:+AES-256-GCM refused\n"));
  EXPECT_THAT(output, HasSubstr("NORMAL:-CIPHER-ALL:+AES-128-GCM accepted\n"));
}

TEST(SlapdInstanceToolTest, LdifOptionReplacesTheSampleUsers) {
  const std::string script = R"sh(
for filter in '(uid=*)' '(objectClass=organizationalUnit)'; do
  ldapsearch -x -LLL -H "ldap://$LDAP_HOST:$LDAP_PLAIN_PORT" -b "$LDAP_BASE_DN" "$filter" dn
done
)sh";
  // An empty file: the base entries only.
  ToolRun tool(runShell(script, {"--ldif", "/dev/null"}));

  const std::string output = tool.restOfOutput();

  EXPECT_EQ(0, tool.exitStatus()) << output;
  EXPECT_THAT(output, Not(HasSubstr("uid=")));
  EXPECT_THAT(output, HasSubstr("dn: ou=people,dc=example,dc=com\n"));
}

TEST(SlapdInstanceToolTest, CommandThatDoesNotExistGives127) {
  ToolRun tool({"run", "--", "/nonexistent/command"});

  const std::string output = tool.restOfOutput();

  EXPECT_EQ(127, tool.exitStatus());
  EXPECT_THAT(output, HasSubstr("cannot execute /nonexistent/command"));
}

TEST(SlapdInstanceToolTest, SlapdThatCannotStartGives125AndItsOutput) {
  ToolRun tool({"run", "--cipher-suite", "NO-SUCH-PRIORITY", "--", "sh", "-c", "echo command ran"});

  const std::string output = tool.restOfOutput();

  EXPECT_EQ(125, tool.exitStatus());
  EXPECT_THAT(output, HasSubstr("could not set cipher list NO-SUCH-PRIORITY"));
  EXPECT_THAT(output, Not(HasSubstr("command ran")));
}

TEST(SlapdInstanceToolTest, HelpNamesTheCommandLineAndTheVariables) {
  ToolRun tool({"--help"});

  const std::string output = tool.restOfOutput();

  EXPECT_EQ(0, tool.exitStatus());
  EXPECT_THAT(output, HasSubstr("slapd-instance run [--ldif FILE] [--cipher-suite PRIORITY] -- COMMAND"));
  for (const char* variable : {"LDAP_PLAIN_PORT", "LDAP_LDAPS_PORT", "LDAP_CA_FILE", "LDAP_OTHER_CA_FILE",
                               "LDAP_BASE_DN", "LDAP_ROOT_DN", "LDAP_ROOT_PASSWORD", "LDAP_ROLE_ALIASES_BASE_DN"}) {
    EXPECT_THAT(output, HasSubstr(variable));
  }
}

class SlapdInstanceToolUsageTest : public ::testing::TestWithParam<std::vector<std::string>> {};

TEST_P(SlapdInstanceToolUsageTest, IsRefusedWithStatus2) {
  ToolRun tool(GetParam());

  const std::string output = tool.restOfOutput();

  EXPECT_EQ(2, tool.exitStatus());
  EXPECT_THAT(output, HasSubstr("Try: slapd-instance --help"));
}

INSTANTIATE_TEST_SUITE_P(CommandLines, SlapdInstanceToolUsageTest,
                         ::testing::Values(std::vector<std::string>{}, std::vector<std::string>{"start"},
                                           std::vector<std::string>{"run"},
                                           std::vector<std::string>{"run", "--"},
                                           std::vector<std::string>{"run", "sh"},
                                           std::vector<std::string>{"run", "--ldif"},
                                           std::vector<std::string>{"run", "--port", "1", "--", "sh"}));

}  // namespace
}  // namespace TestDirectory
