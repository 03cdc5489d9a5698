#ifndef TEST_QIVEA_STAND_IN_H
#define TEST_QIVEA_STAND_IN_H

#include "CallRecord.h"
#include "ScopedEnvironmentVariable.h"

#include <Poco/File.h>
#include <Poco/TemporaryFile.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// The "qivea" stand-in first on PATH, with a fresh QIVEA_HOME, while the object lives: reads the
// calls it recorded and scripts its answers ("qivea --help" tells the files).
class QiveaStandIn {
 public:
  // programDirectory holds the built qivea.
  explicit QiveaStandIn(const std::string& programDirectory)
      : _path("PATH", programDirectory + ":" + currentPath()), _homeVariable("QIVEA_HOME", home()) {
    // A temporary name can come round again (pids are reused): start from an empty home.
    Poco::File root(_root.path());
    if (root.exists()) root.remove(true);
    Poco::File(home()).createDirectories();
  }

  std::string home() const { return _root.path() + "/home"; }

  // Removes the home at once, for a process that ends without running destructors.
  void removeHome() const {
    Poco::File root(_root.path());
    if (root.exists()) root.remove(true);
  }

  // Every call's arguments, word for word, in the order of the calls.
  std::vector<std::vector<std::string>> calls() const {
    std::vector<std::vector<std::string>> result;
    for (const std::string& name : recordNames("calls")) {
      result.push_back(parseCallRecord(read("calls/" + name)));
    }
    return result;
  }

  // From now on every call also records which descriptors it found open.
  void recordDescriptors() const { Poco::File(home() + "/descriptors").createDirectories(); }

  // What each call since recordDescriptors found open ("0 1 2\n"), in the order of the calls.
  std::vector<std::string> descriptorRecords() const {
    std::vector<std::string> result;
    for (const std::string& name : recordNames("descriptors")) result.push_back(read("descriptors/" + name));
    return result;
  }

  // The recorded calls whose first argument is word, in order.
  std::vector<std::vector<std::string>> callsStartingWith(const std::string& word) const {
    std::vector<std::vector<std::string>> result;
    for (const std::vector<std::string>& call : calls())
      if (!call.empty() && call[0] == word) result.push_back(call);
    return result;
  }

  // Adds file (with content) to the script of key, the first word or the first two words of a
  // command line: "stdout", "stderr", "exit", "delay-ms", "hang", "grandchild",
  // "grandchild-keeps-output", "grandchild-leaves-group", "stdout-bytes", "unknown-command",
  // "leave-group", "signal".
  void script(const std::string& key, const std::string& file, const std::string& content = "") const {
    Poco::File(home() + "/script/" + key).createDirectories();
    write("script/" + key + "/" + file, content);
  }

  // The answer of key: these texts and this exit status, nothing else.
  void answer(const std::string& key, int exitStatus, const std::string& standardOutput,
              const std::string& standardError = "") const {
    script(key, "stdout", standardOutput);
    script(key, "stderr", standardError);
    script(key, "exit", std::to_string(exitStatus));
  }

  // Users for "authorization ldap search", one "user:role1,role2" line each.
  void setUsers(const std::string& lines) const { write("users", lines); }

  // The configuration the last applied "authentication" command left, "" when none was.
  std::string authenticationState() const { return read("authentication.state"); }

  // Pid of the grandchild the last script started, 0 when none did.
  int grandchildPid() const { return std::atoi(read("grandchild.pid").c_str()); }

 private:
  static std::string currentPath() {
    const char* path = std::getenv("PATH");
    return path != nullptr ? path : "/usr/bin:/bin";
  }

  // The complete records in directory (of the home), in the order of the calls.
  std::vector<std::string> recordNames(const std::string& directory) const {
    std::vector<std::string> names;
    const Poco::File records(home() + "/" + directory);
    if (records.exists()) records.list(names);
    // Hidden names are records still being written.
    names.erase(std::remove_if(names.begin(), names.end(), [](const std::string& name) { return name[0] == '.'; }),
                names.end());
    std::sort(names.begin(), names.end());
    return names;
  }

  std::string read(const std::string& name) const {
    std::ifstream file(home() + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }

  void write(const std::string& name, const std::string& text) const {
    std::ofstream(home() + "/" + name, std::ios::binary) << text;
  }

  Poco::TemporaryFile _root;
  ScopedEnvironmentVariable _path;
  ScopedEnvironmentVariable _homeVariable;
};

#endif
