#ifndef TEST_NSS_WRAPPER_GROUPS_H
#define TEST_NSS_WRAPPER_GROUPS_H

#include <Poco/File.h>
#include <Poco/TemporaryFile.h>

#include <gtest/gtest.h>

#include <grp.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

extern char** environ;

// A group and a user database of a test's own, which getgrnam and its kin read through Debian's
// libnss-wrapper instead of the machine's (never touched). The wrapper is preloaded, so only a
// process started with it sees the databases: a program the test starts (environment()), or the
// test itself run again in a child process (rerunWithDatabases()). Add every entry before either.
class NssWrapperGroups {
 public:
  typedef std::vector<std::pair<std::string, std::string>> Environment;

  // A group that every database holds, so that a process can tell that the wrapper works.
  static constexpr const char* PROBE_GROUP = "nss-wrapper-probe";
  static constexpr gid_t PROBE_GID = 61999;

  // Databases with root and nobody and their groups. In the child process of
  // rerunWithDatabases the object takes over the files the test's own process made.
  NssWrapperGroups() : _rerun(std::getenv(RERUN_VARIABLE) != nullptr) {
    if (_rerun) {
      _passwdFile = std::getenv("NSS_WRAPPER_PASSWD");
      _groupFile = std::getenv("NSS_WRAPPER_GROUP");
    } else {
      _directory.reset(new Poco::TemporaryFile);
      Poco::File(_directory->path()).createDirectories();
      _passwdFile = _directory->path() + "/passwd";
      _groupFile = _directory->path() + "/group";
    }
    addUser("root", 0, 0);
    addUser("nobody", 65534, 65534);
    addGroup("root", 0);
    addGroup("nogroup", 65534);
    addGroup(PROBE_GROUP, PROBE_GID);
  }

  NssWrapperGroups(const NssWrapperGroups&) = delete;
  NssWrapperGroups& operator=(const NssWrapperGroups&) = delete;

  // members: user names separated by commas.
  void addGroup(const std::string& name, gid_t gid, const std::string& members = "") {
    _groups += name + ":x:" + std::to_string(gid) + ":" + members + "\n";
    std::ofstream(_groupFile) << _groups;
  }

  void addUser(const std::string& name, uid_t uid, gid_t gid) {
    _users += name + ":x:" + std::to_string(uid) + ":" + std::to_string(gid) + ":" + name + ":/nonexistent:/bin/false\n";
    std::ofstream(_passwdFile) << _users;
  }

  // What a process must find in its environment at start to see the databases. A sanitizer
  // build is told not to insist on coming first among the loaded libraries.
  Environment environment() const {
    return {{"LD_PRELOAD", joined(std::getenv("LD_PRELOAD"), ":", NSS_WRAPPER_LIBRARY)},
            {"NSS_WRAPPER_PASSWD", _passwdFile},
            {"NSS_WRAPPER_GROUP", _groupFile},
            {"ASAN_OPTIONS", joined(std::getenv("ASAN_OPTIONS"), ":", "verify_asan_link_order=0")}};
  }

  // In the test's own process: runs the current test again, alone, in a child process that
  // sees the databases (the test program with a filter naming the test; its output goes to the
  // test's), adds a failure unless that child ran the test and it passed, and returns true. In
  // that child: returns false, after checking that the databases are the ones in use, and the
  // test goes on with its checks there.
  bool rerunWithDatabases() {
    if (_rerun) {
      EXPECT_NE(nullptr, ::getgrnam(PROBE_GROUP)) << "libnss-wrapper is not in use";
      if (const char* ranFile = std::getenv(RAN_VARIABLE)) std::ofstream(ranFile) << "ran\n";
      return false;
    }
    const std::string ranFile = _directory->path() + "/ran";
    Environment variables = environment();
    variables.emplace_back(RERUN_VARIABLE, "1");
    variables.emplace_back(RAN_VARIABLE, ranFile);
    EXPECT_EQ(0, runTestProgram(variables)) << "the test failed where it sees the databases";
    EXPECT_TRUE(Poco::File(ranFile).exists()) << "the test did not run where it sees the databases";
    return true;
  }

 private:
  static constexpr const char* RERUN_VARIABLE = "QIV_TEST_NSS_WRAPPER_RERUN";
  static constexpr const char* RAN_VARIABLE = "QIV_TEST_NSS_WRAPPER_RAN";

  static std::string joined(const char* earlier, const char* separator, const std::string& added) {
    return earlier != nullptr && *earlier != '\0' ? std::string(earlier) + separator + added : added;
  }

  // The test program with a filter naming the current test and this environment changed by
  // variables; its exit status, or -1 when it could not be run or did not exit.
  static int runTestProgram(const Environment& variables) {
    char program[PATH_MAX] = {};
    if (::readlink("/proc/self/exe", program, sizeof program - 1) <= 0) return -1;
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string filter = std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
    // Only the child's failures are printed.
    std::string brief = "--gtest_brief=1";
    std::vector<char*> argv = {program, &filter[0], &brief[0], nullptr};

    std::map<std::string, std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
      const std::string text = *entry;
      const std::string::size_type equals = text.find('=');
      if (equals != std::string::npos) merged[text.substr(0, equals)] = text.substr(equals + 1);
    }
    // A shard of another run would leave the test out.
    merged.erase("GTEST_SHARD_INDEX");
    merged.erase("GTEST_TOTAL_SHARDS");
    for (const auto& variable : variables) merged[variable.first] = variable.second;
    std::vector<std::string> texts;
    for (const auto& variable : merged) texts.push_back(variable.first + "=" + variable.second);
    std::vector<char*> envp;
    for (std::string& text : texts) envp.push_back(&text[0]);
    envp.push_back(nullptr);

    std::fflush(stdout);
    pid_t child = 0;
    if (::posix_spawn(&child, program, nullptr, nullptr, argv.data(), envp.data()) != 0) return -1;
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
  }

  const bool _rerun;
  std::unique_ptr<Poco::TemporaryFile> _directory;
  std::string _passwdFile;
  std::string _groupFile;
  std::string _users;
  std::string _groups;
};

#endif
