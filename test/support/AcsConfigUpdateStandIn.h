#ifndef TEST_ACS_CONFIG_UPDATE_STAND_IN_H
#define TEST_ACS_CONFIG_UPDATE_STAND_IN_H

#include "CallRecord.h"
#include "ScopedEnvironmentVariable.h"

#include <Poco/File.h>
#include <Poco/TemporaryFile.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// The stand-in of "acs-config-update", linked into a fresh directory that is the whole PATH while
// the object lives, with a fresh home (ACS_CONFIG_UPDATE_HOME) where it records its calls and
// reads its scripts. Subcommands are named "help", "register" and "deregister".
class AcsConfigUpdateStandIn {
 public:
  explicit AcsConfigUpdateStandIn(const std::string& program)
      : _path("PATH", binDirectory()), _homeVariable("ACS_CONFIG_UPDATE_HOME", home()) {
    Poco::File(home()).createDirectories();
    Poco::File(binDirectory()).createDirectories();
    Poco::File(program).linkTo(installedProgram(), Poco::File::LINK_SYMBOLIC);
  }

  // Takes the program off PATH, leaving PATH and the home as they are.
  void uninstall() { Poco::File(installedProgram()).remove(); }

  // From now on subcommand writes the given texts and exits with exitStatus, doing nothing else.
  void script(const std::string& subcommand, int exitStatus, const std::string& standardError = "",
              const std::string& standardOutput = "") {
    write(subcommand + ".exit", std::to_string(exitStatus));
    write(subcommand + ".stderr", standardError);
    write(subcommand + ".stdout", standardOutput);
  }

  void setDelay(const std::string& subcommand, int milliseconds) {
    write(subcommand + ".delay", std::to_string(milliseconds));
  }

  // From now on subcommand never answers: it sleeps until killed.
  void hang(const std::string& subcommand) { write(subcommand + ".hang", ""); }

  // Pid of the last run of subcommand that hung, 0 when none did.
  int hungPid(const std::string& subcommand) const { return std::atoi(read(subcommand + ".pid").c_str()); }

  // From now on subcommand first starts a grandchild, outside its process group, that keeps its
  // standard output and error open for seconds.
  void leaveGrandchild(const std::string& subcommand, int seconds) {
    write(subcommand + ".grandchild", std::to_string(seconds));
  }

  // Pid of the last grandchild started, 0 when none was.
  int grandchildPid() const { return std::atoi(read("grandchild.pid").c_str()); }

  // Every call's arguments, word for word, in the order of the calls.
  std::vector<std::vector<std::string>> calls() const {
    std::vector<std::vector<std::string>> result;
    for (int number = 1; Poco::File(home() + "/calls/" + std::to_string(number)).exists(); ++number) {
      result.push_back(parseCallRecord(read("calls/" + std::to_string(number))));
    }
    return result;
  }

  // From now on every call also records which descriptors it found open.
  void recordDescriptors() const { Poco::File(home() + "/descriptors").createDirectories(); }

  // What each call since recordDescriptors found open ("0 1 2\n"), in the order of the calls.
  std::vector<std::string> descriptorRecords() const {
    std::vector<std::string> result;
    for (int number = 1; Poco::File(home() + "/descriptors/" + std::to_string(number)).exists(); ++number) {
      result.push_back(read("descriptors/" + std::to_string(number)));
    }
    return result;
  }

  // "registered <file>" while a method is registered, empty otherwise.
  std::string state() const {
    std::string text = read("state");
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
  }

  // The stand-in's copy of the registered file, empty when there is none.
  std::string registeredCopy() const { return read("LdapAuthenticationMethod.cfg"); }

  std::string home() const { return _root.path() + "/home"; }

 private:
  std::string binDirectory() const { return _root.path() + "/bin"; }
  std::string installedProgram() const { return binDirectory() + "/acs-config-update"; }

  std::string read(const std::string& name) const {
    std::ifstream file(home() + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }

  void write(const std::string& name, const std::string& text) {
    std::ofstream(home() + "/" + name, std::ios::binary) << text;
  }

  Poco::TemporaryFile _root;
  ScopedEnvironmentVariable _path;
  ScopedEnvironmentVariable _homeVariable;
};

#endif
