#include "AuthorizationCommand.h"

#include "CommandFailure.h"
#include "Files.h"

#include <sstream>

#include <unistd.h>

namespace Qivea {

namespace {

const char USER_OPTION[] = "--userId=";

// The value of --userId= among the blank-separated words of arguments.
std::string userOf(const std::string& arguments) {
  std::istringstream words(arguments);
  std::string word;
  while (words >> word) {
    if (word.compare(0, sizeof USER_OPTION - 1, USER_OPTION) == 0) return word.substr(sizeof USER_OPTION - 1);
  }
  throw CommandFailure(CommandFailure::INVALID_ARGUMENT, "authorization ldap search needs --userId=<user>");
}

}  // namespace

int AuthorizationCommand::run(const std::vector<std::string>& args) const {
  if (args.size() < 2 || args[0] != "ldap" || args[1] != "search") {
    throw CommandFailure(CommandFailure::GENERAL, "unknown command: authorization" + (args.empty() ? "" : " " + args[0]));
  }
  if (args.size() != 3) {
    throw CommandFailure(CommandFailure::INVALID_ARGUMENT, "authorization ldap search takes exactly one argument");
  }
  const std::string user = userOf(args[2]);
  std::string users;
  readFile(_home.file("users"), users);
  std::istringstream lines(users);
  std::string line;
  while (std::getline(lines, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    const std::string::size_type colon = line.find(':');
    if (colon != std::string::npos && line.substr(0, colon) == user) {
      writeAll(STDOUT_FILENO, line.substr(colon + 1));
      return 0;
    }
  }
  throw CommandFailure(CommandFailure::NO_SUCH_USER, "no such user: " + user);
}

}  // namespace Qivea
