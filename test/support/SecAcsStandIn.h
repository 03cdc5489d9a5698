#ifndef TEST_SEC_ACS_STAND_IN_H
#define TEST_SEC_ACS_STAND_IN_H

#include "ScopedEnvironmentVariable.h"

#include <Poco/File.h>
#include <Poco/TemporaryFile.h>

#include <cstddef>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

// A fresh control directory for the stand-in of "libsec_acs_api.so.1", named by SEC_ACS_HOME
// while the object lives; its files script what the library answers (see sec_acs_api.h).
// Loading the library is left to the test.
class SecAcsStandIn {
 public:
  typedef std::vector<std::string> Call;

  SecAcsStandIn() : _variable("SEC_ACS_HOME", _home.path()) { Poco::File(_home.path() + "/fail").createDirectories(); }

  std::string home() const { return _home.path(); }

  // Replaces the "users" file: each user with its roles, in order.
  void setUsers(const std::vector<std::pair<std::string, std::vector<std::string>>>& users) {
    std::string text;
    for (const auto& user : users) {
      text += user.first + ":";
      for (std::size_t i = 0; i < user.second.size(); ++i) text += (i == 0 ? "" : ",") + user.second[i];
      text += "\n";
    }
    writeUsers(text);
  }

  // Replaces the "users" file with text as it stands.
  void writeUsers(const std::string& text) { write("users", text); }

  // From now on function returns status without doing its work.
  void fail(const std::string& function, int status) { write("fail/" + function, std::to_string(status) + "\n"); }
  // From now on the role get at index returns status.
  void failRoleGet(unsigned index, int status) {
    write("fail/acs_uai_user_data_role_get", std::to_string(status) + " " + std::to_string(index) + "\n");
  }
  void heal(const std::string& function) { Poco::File(home() + "/fail/" + function).remove(); }

  // Every recorded call, each as its tab-separated fields, in the order of the calls.
  std::vector<Call> calls() const {
    std::vector<Call> result;
    std::ifstream file(home() + "/calls");
    for (std::string line; std::getline(file, line);) {
      Call call;
      std::string::size_type start = 0;
      for (std::string::size_type end = line.find('\t'); end != std::string::npos; end = line.find('\t', start)) {
        call.push_back(line.substr(start, end - start));
        start = end + 1;
      }
      call.push_back(line.substr(start));
      result.push_back(call);
    }
    return result;
  }

  // How many recorded calls were made to function.
  std::size_t callCount(const std::string& function) const {
    std::size_t count = 0;
    for (const Call& call : calls()) count += call.front() == function ? 1 : 0;
    return count;
  }

  // Forgets the calls recorded so far.
  void clearCalls() { write("calls", ""); }

 private:
  void write(const std::string& name, const std::string& text) { std::ofstream(home() + "/" + name) << text; }

  Poco::TemporaryFile _home;
  ScopedEnvironmentVariable _variable;
};

#endif
