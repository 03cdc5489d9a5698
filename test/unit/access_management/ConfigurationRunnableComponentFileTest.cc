#include "ConfigurationRunnable.h"

#include "FrameworkTestBase.h"
#include "RecordedOperatorMessages.h"

#include <Qiv/QivException.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace QivAccessManagement;

namespace {

// A component configuration with one element holding the given child elements.
std::string document(const std::string& children) {
  return "<configuration><QivAccessManagementComponent>" + children + "</QivAccessManagementComponent></configuration>";
}

std::string element(const std::string& key, const std::string& value) { return "<" + key + ">" + value + "</" + key + ">"; }

}  // namespace

class ConfigurationRunnableComponentFileTest : public FrameworkTestBase {
 protected:
  ConfigurationRunnableComponentFileTest() { runnable.setOperatorMessages(&operatorChannel); }

  int read(const std::string& text) { return runnable.readComponentConfiguration(text.c_str()); }
  LdapConfiguration record() { return runnable.getLdapConfiguration(); }

  // A file that exists, in a directory removed with the test.
  std::string existingFile(const std::string& name) {
    char pattern[] = "/tmp/amfileXXXXXX";
    _directory = mkdtemp(pattern);
    const std::string path = _directory + "/" + name;
    std::ofstream(path) << "module";
    return path;
  }

  void TearDown() override {
    if (!_directory.empty()) {
      const std::string command = "rm -rf '" + _directory + "'";
      ASSERT_EQ(0, system(command.c_str()));
    }
  }

  RecordedOperatorMessages operatorChannel;
  ConfigurationRunnable runnable;

 private:
  std::string _directory;
};

TEST_F(ConfigurationRunnableComponentFileTest, NoConfigurationKeepsTheDefaults) {
  EXPECT_EQ(0, runnable.readComponentConfiguration(nullptr));
  EXPECT_EQ(1u, log().count(6, "No configuration provided for QivAccessManagementComponent"));
  EXPECT_EQ("/opt/qiv/lib/modules/libqiv_ldap_sm.so", record().serviceModule);
}

TEST_F(ConfigurationRunnableComponentFileTest, DocumentWithoutComponentElementKeepsTheDefaults) {
  EXPECT_EQ(0, read("<configuration><Other/></configuration>"));
  EXPECT_EQ(1u, log().count(3, "No QivAccessManagementComponent configuration found"));
  EXPECT_EQ(0, record().serverPort);
}

TEST_F(ConfigurationRunnableComponentFileTest, PortIsReadTrimmedAndCheckedForDigits) {
  EXPECT_EQ(0, read(document(element("ldapServerPort", "389"))));
  EXPECT_EQ(389, record().serverPort);
  EXPECT_EQ(1u, log().count(8, "Port number (ldapServerPort) retrieved from configuration: 389"));

  EXPECT_EQ(0, read(document(element("ldapServerPort", "  636\n "))));
  EXPECT_EQ(636, record().serverPort);
}

TEST_F(ConfigurationRunnableComponentFileTest, EmptyPortCountsAsNoPort) {
  EXPECT_EQ(0, read(document(element("ldapServerPort", "   "))));
  EXPECT_EQ(0, record().serverPort);
  EXPECT_EQ(1u, log().count(8, "No port number specified, using default port"));
}

TEST_F(ConfigurationRunnableComponentFileTest, SevenDigitPortIsInvalid) {
  EXPECT_EQ(-9, read(document(element("ldapServerPort", "1234567") + element("ldapTlsMode", "LDAPS"))));
  EXPECT_EQ(1u, log().count(4, "Validation failed - string too long: ldapServerPort=\"1234567\""));
  EXPECT_TRUE(record().configFileInvalid);
  EXPECT_EQ(0, record().serverPort);
  EXPECT_EQ(STARTTLS, record().tlsMode);  // reading stopped at the port
  EXPECT_TRUE(operatorChannel.texts.empty());
}

TEST_F(ConfigurationRunnableComponentFileTest, PortAbove16BitsWrapsWithoutRangeCheck) {
  EXPECT_EQ(0, read(document(element("ldapServerPort", "70000"))));
  EXPECT_EQ(4464, record().serverPort);
}

TEST_F(ConfigurationRunnableComponentFileTest, NonNumericPortIsInvalid) {
  EXPECT_EQ(-9, read(document(element("ldapServerPort", "38a"))));
  EXPECT_EQ(1u, log().count(4, "Validation failed - unmatched string attribute: ldapServerPort=\"38a\""));
}

TEST_F(ConfigurationRunnableComponentFileTest, TlsModeIsCaseSensitive) {
  EXPECT_EQ(0, read(document(element("ldapTlsMode", "LDAPS"))));
  EXPECT_EQ(LDAPS, record().tlsMode);
  EXPECT_EQ(0, read(document(element("ldapTlsMode", "STARTTLS"))));
  EXPECT_EQ(STARTTLS, record().tlsMode);
  EXPECT_FALSE(record().configFileInvalid);

  EXPECT_EQ(-9, read(document(element("ldapTlsMode", "ldaps"))));
  EXPECT_EQ(1u, log().count(3, "Validation failed, TlsMode has invalid value (ldaps)"));
  EXPECT_TRUE(record().configFileInvalid);
}

TEST_F(ConfigurationRunnableComponentFileTest, TimeoutValues) {
  EXPECT_EQ(0, read(document(element("ldapInitConfigTimeout", "30"))));
  EXPECT_EQ(30, runnable.getInitConfigTimeoutValue());
  EXPECT_EQ(1u, log().count(8, "Initialize configuration timeout value (ldapInitConfigTimeout) retrieved from configuration: 30"));

  EXPECT_EQ(0, read(document(element("ldapInitConfigTimeout", "65537"))));
  EXPECT_EQ(1, runnable.getInitConfigTimeoutValue());

  try {
    read(document(element("ldapInitConfigTimeout", "-1")));
    FAIL() << "a negative time-out must throw";
  } catch (const Qiv::QivException& e) {
    EXPECT_STREQ("Provided value for configuration parameter 'ldapInitConfigTimeout' is negative. Value: -1", e.what());
  }
  try {
    read(document(element("ldapInitConfigTimeout", "30s")));
    FAIL() << "a time-out that is not a number must throw";
  } catch (const Qiv::QivException& e) {
    EXPECT_STREQ("Failed to parse string to integer: '30s'.", e.what());
  }
  EXPECT_EQ(1u, log().count(3, "Failed convert string to integer - 30s"));
}

TEST_F(ConfigurationRunnableComponentFileTest, AbsentOrEmptyTimeoutMeansAsynchronousStartUp) {
  EXPECT_EQ(0, read(document("")));
  EXPECT_EQ(1u, log().count(8, "No 'ldapInitConfigTimeout' parameter found in configuration file, start-up will be asynchronous"));
  EXPECT_EQ(0, read(document(element("ldapInitConfigTimeout", " "))));
  EXPECT_EQ(1u, log().count(8, "No value found for parameter 'ldapInitConfigTimeout' in configuration file, start-up will be asynchronous"));
  EXPECT_EQ(0, runnable.getInitConfigTimeoutValue());
}

TEST_F(ConfigurationRunnableComponentFileTest, StringToIntAcceptsOnlyAWholeNumber) {
  EXPECT_EQ(12, runnable.stringToInt("12"));
  EXPECT_EQ(-5, runnable.stringToInt("-5"));
  EXPECT_EQ(12, runnable.stringToInt("  12"));
  for (const char* bad : {"12a", "12 ", "", "99999999999"}) EXPECT_THROW(runnable.stringToInt(bad), Qiv::QivException) << bad;
}

TEST_F(ConfigurationRunnableComponentFileTest, FirstOfTwoComponentElementsWins) {
  EXPECT_EQ(0, read("<c><QivAccessManagementComponent><ldapServerPort>1389</ldapServerPort></QivAccessManagementComponent>"
                    "<QivAccessManagementComponent><ldapServerPort>2389</ldapServerPort></QivAccessManagementComponent></c>"));
  EXPECT_EQ(1389, record().serverPort);
  EXPECT_EQ(1u, log().count(4, "Multiple QivAccessManagementComponent configurations found (using first)"));
}

TEST_F(ConfigurationRunnableComponentFileTest, ValuesMayBeAttributesOfTheComponentElement) {
  EXPECT_EQ(0, read("<QivAccessManagementComponent ldapServerPort=\" 1636 \" ldapTlsMode=\"LDAPS\" ldapInitConfigTimeout=\"5\"/>"));
  EXPECT_EQ(1636, record().serverPort);
  EXPECT_EQ(LDAPS, record().tlsMode);
  EXPECT_EQ(5, runnable.getInitConfigTimeoutValue());
}

TEST_F(ConfigurationRunnableComponentFileTest, ChildElementWinsOverAttribute) {
  EXPECT_EQ(0, read("<QivAccessManagementComponent ldapServerPort=\"1\"><ldapServerPort>2</ldapServerPort></QivAccessManagementComponent>"));
  EXPECT_EQ(2, record().serverPort);
}

TEST_F(ConfigurationRunnableComponentFileTest, DocumentThatIsNotXmlIsAnErrorAndChangesNothing) {
  EXPECT_EQ(-1, read("<QivAccessManagementComponent>\n<ldapServerPort>389</ldapServerPort>\n<oops></QivAccessManagementComponent>"));
  const auto records = log().records();
  ASSERT_FALSE(records.empty());
  const Framework::LogRecord& error = records.back();
  EXPECT_EQ(3, error.level);
  EXPECT_EQ(0u, error.text.find("Failed to parse the QivAccessManagementComponent configuration: ")) << error.text;
  EXPECT_NE(std::string::npos, error.text.find("line 3")) << error.text;
  const LdapConfiguration config = record();
  EXPECT_EQ(0, config.serverPort);
  EXPECT_FALSE(config.configFileInvalid);
  EXPECT_EQ(-1, read("not xml at all"));
}

TEST_F(ConfigurationRunnableComponentFileTest, ServiceModuleThatExistsIsTaken) {
  const std::string module = existingFile("libqiv_ldap_sm.so");
  EXPECT_EQ(0, read(document(element("serviceModule", " " + module + " "))));
  EXPECT_EQ(module, record().serviceModule);
  EXPECT_EQ(1u, log().count(8, "Service module (serviceModule) retrieved from configuration: " + module));
}

TEST_F(ConfigurationRunnableComponentFileTest, MissingServiceModuleFailsAndKeepsWhatWasReadBefore) {
  EXPECT_EQ(-1, read(document(element("ldapServerPort", "1389") + element("serviceModule", "/nonexistent/libsm.so") +
                              element("ldapInitConfigTimeout", "7"))));
  EXPECT_EQ(1u, log().count(3, "Service module from configuration does not exist(serviceModule): \"/nonexistent/libsm.so\""));
  EXPECT_EQ("/opt/qiv/lib/modules/libqiv_ldap_sm.so", record().serviceModule);
  EXPECT_EQ(1389, record().serverPort);
  EXPECT_EQ(0, runnable.getInitConfigTimeoutValue());
}

TEST_F(ConfigurationRunnableComponentFileTest, EmptyOrAbsentServiceModuleKeepsTheDefault) {
  EXPECT_EQ(0, read(document("")));
  EXPECT_EQ(1u, log().count(8, "No service module specified, using default: "));
  EXPECT_EQ(0, read(document(element("serviceModule", ""))));
  EXPECT_EQ(1u, log().count(8, "Service module (serviceModule) retrieved from configuration but empty, using default:  "));
  EXPECT_EQ("/opt/qiv/lib/modules/libqiv_ldap_sm.so", record().serviceModule);
}

TEST_F(ConfigurationRunnableComponentFileTest, ServiceModuleThatCannotBeWrittenCountsAsMissing) {
  const std::string module = existingFile("readonly.so");
  ASSERT_EQ(0, chmod(module.c_str(), 0644));
  ASSERT_EQ(0, chmod(module.substr(0, module.rfind('/')).c_str(), 0755));
  // Root may write anything, so the check runs as an unprivileged user in a child process.
  const pid_t child = fork();
  ASSERT_NE(-1, child);
  if (child == 0) {
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(2);
    const int result = read(document(element("serviceModule", module)));
    const bool logged =
        log().count(3, "Service module from configuration does not exist(serviceModule): \"" + module + "\"") == 1;
    _exit(result == -1 && logged ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST_F(ConfigurationRunnableComponentFileTest, BuiltInAuthorizationIsNotPartOfTheComponentFile) {
  // init reads it; the component file's other values do not depend on it.
  EXPECT_EQ(0, read(document(element("useBuiltInAuthorization", "TRUE"))));
  EXPECT_EQ(0u, log().count(3, "Validation failed, useBuiltInAuthorization has invalid value (TRUE)"));
  EXPECT_FALSE(record().configFileInvalid);
  EXPECT_EQ(0, read(document(element("useBuiltInAuthorization", "true"))));
  EXPECT_FALSE(runnable.getUseQivAuthorization());
}
