#ifndef ACS_CONFIG_UPDATE_TOOL_HOME_H
#define ACS_CONFIG_UPDATE_TOOL_HOME_H

#include <chrono>
#include <ostream>
#include <string>
#include <vector>

namespace AcsConfigUpdate {

// The directory that ACS_CONFIG_UPDATE_HOME names, where the stand-in records its calls, reads
// what a test or a person scripted and keeps its registration. Its files:
//   calls/<n>        one file per call, numbered from 1: the arguments, each ended by a NUL byte
//   descriptors/<n>  when the directory exists: the descriptors call <n> found open ("0 1 2")
//   <sub>.delay      milliseconds to wait before answering (sub: help, register, deregister)
//   <sub>.grandchild present: then start a grandchild in a process group of its own that keeps
//                    this program's standard output and error open for <content> seconds
//                    (default 30), as a helper left in the background would; its pid goes to
//                    grandchild.pid
//   <sub>.hang       present: then write this program's pid to <sub>.pid and sleep until killed
//   <sub>.exit       present: answer with that exit status, writing <sub>.stdout and
//                    <sub>.stderr as they are, and do nothing else
//   state            "registered <file>" while LdapAuthenticationMethod is registered
//   LdapAuthenticationMethod.cfg   a copy of the registered file
// Without the variable nothing is recorded, scripted or kept.
class ToolHome {
 public:
  ToolHome();

  void recordCall(const std::vector<std::string>& args) const;
  std::chrono::milliseconds delay(const std::string& subcommand) const;
  // Starts the grandchild that subcommand's script asks for, if any.
  void startGrandchild(const std::string& subcommand) const;
  // Whether subcommand is scripted to hang; its pid is then recorded.
  bool hangs(const std::string& subcommand) const;
  // True when subcommand's answer is scripted; the scripted output is then written and status set.
  bool answerAsScripted(const std::string& subcommand, std::ostream& out, std::ostream& err, int& status) const;
  void keepRegistration(const std::string& method, const std::string& configFile) const;
  void clearRegistration(const std::string& method) const;

 private:
  bool exists(const std::string& name) const;
  // Empty when the file cannot be read.
  std::string read(const std::string& name) const;
  std::string path(const std::string& name) const;

  std::string _home;
};

}  // namespace AcsConfigUpdate

#endif
