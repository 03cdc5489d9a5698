#include "CommandWords.h"

#include <stdexcept>

namespace Amhost {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

}  // namespace

CommandWords::Command CommandWords::fromLine(const std::string& line) {
  Command words;
  std::string::size_type position = 0;
  while (true) {
    while (position < line.size() && isBlank(line[position])) ++position;
    if (position == line.size() || (words.empty() && line[position] == '#')) return words;
    std::string word;
    if (line[position] == '"') {
      ++position;
      while (position < line.size() && line[position] != '"') {
        if (line[position] == '\\' && position + 1 < line.size()) ++position;
        word += line[position++];
      }
      if (position == line.size()) throw std::invalid_argument("unterminated quote in: " + line);
      ++position;
    } else {
      while (position < line.size() && !isBlank(line[position])) word += line[position++];
    }
    words.push_back(word);
  }
}

std::vector<CommandWords::Command> CommandWords::fromArguments(const std::vector<std::string>& arguments) {
  std::vector<Command> commands(1);
  for (const std::string& argument : arguments) {
    if (argument == ";") {
      commands.emplace_back();
    } else {
      commands.back().push_back(argument);
    }
  }
  std::vector<Command> result;
  for (Command& command : commands)
    if (!command.empty()) result.push_back(std::move(command));
  return result;
}

std::string CommandWords::quote(const std::string& word) {
  if (!word.empty() && word[0] != '"' && word.find_first_of(" \t\r") == std::string::npos) return word;
  std::string quoted = "\"";
  for (char c : word) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

}  // namespace Amhost
