#include "CommandSyntax.h"

#include "LogLevel.h"

#include <cstddef>
#include <vector>

namespace Amhost {

namespace {

struct Syntax {
  const char* name;
  std::size_t minimumArguments;
  std::size_t maximumArguments;
  const char* arguments;
};

const std::size_t ANY = static_cast<std::size_t>(-1);

const std::vector<Syntax>& commandSyntax() {
  static const std::vector<Syntax> syntax = {
      {"start", 0, 0, ""},          {"stop", 0, 0, ""},
      {"set", 2, ANY, " DN ATTRIBUTE [VALUE...]"},
      {"unset", 2, 2, " DN ATTRIBUTE"},
      {"get", 2, 2, " DN ATTRIBUTE"},
      {"commit", 0, 0, ""},         {"abort", 0, 0, ""},
      {"begin", 1, 1, " NAME"},     {"use", 1, 1, " NAME"},
      {"roles", 1, 2, " USER [METHOD]"},
      {"show", 0, 0, ""},           {"files", 0, 0, ""},
      {"log-level", 1, 1, " N"},
      {"encrypt", 1, 1, " TEXT"},   {"help", 0, 0, ""},
      {"quit", 0, 0, ""}};
  return syntax;
}

}  // namespace

bool CommandSyntax::check(const CommandWords::Command& command, std::string& error) {
  for (const Syntax& syntax : commandSyntax()) {
    if (command[0] != syntax.name) continue;
    const std::size_t arguments = command.size() - 1;
    if (arguments < syntax.minimumArguments || arguments > syntax.maximumArguments) {
      error = std::string("usage: ") + syntax.name + syntax.arguments;
      return false;
    }
    int level = 0;
    if (command[0] == "log-level" && !LogLevel::parse(command[1], level)) {
      error = "log-level needs a number from -1 to 9, not \"" + command[1] + "\"";
      return false;
    }
    return true;
  }
  error = "unknown command \"" + command[0] + "\" (help lists the commands)";
  return false;
}

}  // namespace Amhost
