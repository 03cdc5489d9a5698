// libFuzzer target: how amhost reads what a person gives it. The input is command lines as they
// come on standard input; the words of the first line, then those of each further line after a
// ";" word, are also amhost's arguments. Each line goes through the word splitter, the command
// syntax check and, for set/unset/get, the DN and the values as the framework parses them
// (against the attribute's definition in the fixture model, or one of every type). Only
// std::invalid_argument may leave the parsers; a parsed value must print and read back as
// itself, and a printed value must come back from a command line word for word.
#include "CommandSyntax.h"
#include "CommandWords.h"
#include "HostOptions.h"
#include "LogLevel.h"

#include <Framework/AttributeDefinition.h>
#include <Framework/Dn.h>
#include <Framework/ModelStore.h>
#include <Framework/ValueCodec.h>
#include <Framework/ValueText.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

using Amhost::CommandWords;
using Framework::AttributeDefinition;
using Framework::AttributeValue;

namespace {

const char BLANKS[] = " \t\r";

[[noreturn]] void finding(const std::string& what) {
  std::fprintf(stderr, "contract violated: %s\n", what.c_str());
  std::abort();
}

AttributeDefinition definition(const std::string& name, PymMoValueType type, bool sequence = false) {
  AttributeDefinition result;
  result.name = name;
  result.type = type;
  result.sequence = sequence;
  return result;
}

// One attribute of each type the framework reads from text, named after its type, and a
// structure that nests the others.
const std::vector<AttributeDefinition>& typedDefinitions() {
  static const std::vector<AttributeDefinition> definitions = [] {
    std::vector<AttributeDefinition> result;
    for (const char* name : {"int8", "int16", "int32", "int64", "uint8", "uint16", "uint32", "uint64", "string", "bool",
                             "reference", "enum"}) {
      PymMoValueType type = PymMoValueType_String;
      AttributeDefinition::typeFromName(name, type);
      result.push_back(definition(name, type, true));
    }
    result.back().literals = {{"LOCKED", 0}, {"UNLOCKED", 1}, {"MINUS", -7}};
    AttributeDefinition inner = definition("inner", PymMoValueType_Struct);
    inner.members = {result.back(), definition("names", PymMoValueType_String, true)};
    AttributeDefinition outer = definition("struct", PymMoValueType_Struct, true);
    outer.members = {definition("dn", PymMoValueType_Reference), definition("levels", PymMoValueType_Int32, true),
                     definition("password", PymMoValueType_String), inner};
    result.push_back(outer);
    return result;
  }();
  return definitions;
}

const Framework::ModelStore& fixtureModel() {
  static Framework::ModelStore* model = [] {
    Framework::ModelStore* store = new Framework::ModelStore;
    store->loadFile(QIV_FIXTURES_DIR "/models/ldap20.xml");
    return store;
  }();
  return *model;
}

// The definition amhost would write dn's attribute with, else the typed one its name picks.
AttributeDefinition definitionFor(const std::string& dn, const std::string& attribute) {
  const std::optional<AttributeDefinition> modelled = fixtureModel().attributeDefinition(dn, attribute);
  if (modelled.has_value()) return *modelled;
  const std::vector<AttributeDefinition>& typed = typedDefinitions();
  const AttributeDefinition* named = AttributeDefinition::find(typed, attribute);
  if (named != nullptr) return *named;
  std::size_t hash = 0;
  for (const char c : attribute) hash = hash * 31 + static_cast<unsigned char>(c);
  return typed[hash % typed.size()];
}

std::string joined(const CommandWords::Command& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + CommandWords::quote(word);
  return line;
}

// A command of words, printed as amhost quotes them after a first word, reads back the same.
void checkQuotedReadBack(const CommandWords::Command& words) {
  CommandWords::Command command{"set"};
  command.insert(command.end(), words.begin(), words.end());
  if (CommandWords::fromLine(joined(command)) != command) finding("quoted words did not read back: " + joined(command));
}

void checkDn(const std::string& dn) {
  std::string path;
  try {
    path = Framework::Dn::classPath(dn);
  } catch (const std::invalid_argument&) {
    return;
  }
  if (std::count(path.begin(), path.end(), ',') != std::count(dn.begin(), dn.end(), ','))
    finding("class path \"" + path + "\" of \"" + dn + "\" lost or gained an element");
  std::string slashed = "/" + path;
  std::replace(slashed.begin(), slashed.end(), ',', '/');
  if (Framework::Dn::implementerPath(dn) != slashed) finding("implementer path of \"" + dn + "\"");
  const std::string parent = Framework::Dn::parent(dn);
  if (dn.compare(0, parent.size(), parent) != 0) finding("parent of \"" + dn + "\" is not its beginning");
}

// The values of a set, as the framework's operator path reads them, printed and read again.
void checkValues(const std::string& dn, const std::string& attribute, const std::vector<std::string>& texts) {
  const AttributeDefinition attributeDefinition = definitionFor(dn, attribute);
  std::vector<AttributeValue> values;
  try {
    values = Framework::ValueText::parseAll(attributeDefinition, texts);
  } catch (const std::invalid_argument&) {
    return;
  }
  if (values.size() != texts.size()) finding("a value lost or gained in parsing");
  const std::vector<std::string> printed = Framework::ValueText::formatAll(attributeDefinition, values);
  std::vector<AttributeValue> reread;
  try {
    reread = Framework::ValueText::parseAll(attributeDefinition, printed);
  } catch (const std::invalid_argument& error) {
    finding(std::string("a printed value does not read back: ") + error.what());
  }
  if (reread != values) finding("a printed value reads back as another value");
  if (Framework::ValueText::formatAll(attributeDefinition, reread) != printed) finding("printing is not stable");
  // Strings and references are the text itself, up to the first NUL (the SPI's values are C strings).
  if (attributeDefinition.type == PymMoValueType_String || attributeDefinition.type == PymMoValueType_Reference) {
    for (std::size_t index = 0; index < texts.size(); ++index) {
      if (values[index].scalar != texts[index].c_str()) finding("a string value is not its text");
    }
  }
  const Framework::ValueCodec::ContainerPtr container = Framework::ValueCodec::toContainer(attributeDefinition, values);
  if (Framework::ValueCodec::fromContainer(attributeDefinition, *container) != values)
    finding("a value changed on its way through the framework's container");
  CommandWords::Command words{dn, attribute};
  words.insert(words.end(), printed.begin(), printed.end());
  checkQuotedReadBack(words);
}

void checkCommand(const CommandWords::Command& command) {
  std::string error;
  const bool known = Amhost::CommandSyntax::check(command, error);
  if (!known && error.empty()) finding("a refused command without a reason");
  int level = 0;
  if (known && command[0] == "log-level" && !Amhost::LogLevel::parse(command[1], level))
    finding("log-level accepted with a bad level");
  checkQuotedReadBack(command);
  if ((command[0] == "set" || command[0] == "unset" || command[0] == "get") && command.size() >= 3) {
    checkDn(command[1]);
    if (command[0] == "set") checkValues(command[1], command[2], {command.begin() + 3, command.end()});
  }
}

// A line as amhost reads it from standard input.
CommandWords::Command readLine(const std::string& line) {
  CommandWords::Command command;
  try {
    command = CommandWords::fromLine(line);
  } catch (const std::invalid_argument&) {
    if (line.find('"') == std::string::npos) finding("an unterminated quote without a quote: " + line);
    return command;
  }
  const std::string::size_type first = line.find_first_not_of(BLANKS);
  if (command.empty() && first != std::string::npos && line[first] != '#') finding("words lost from: " + line);
  for (const std::string& word : command) {
    if (word.find_first_of(BLANKS) != std::string::npos && line.find('"') == std::string::npos)
      finding("a blank inside an unquoted word of: " + line);
  }
  return command;
}

void checkLogLevel(const std::string& word) {
  int level = 42;
  const bool parsed = Amhost::LogLevel::parse(word, level);
  const bool valid = word == "-1" || (word.size() == 1 && word[0] >= '0' && word[0] <= '9');
  if (parsed != valid) finding("log level \"" + word + "\" " + (parsed ? "accepted" : "refused"));
  if (parsed && level != std::atoi(word.c_str())) finding("log level \"" + word + "\" read as another number");
}

// The words as amhost's arguments.
void checkArguments(const std::vector<std::string>& arguments) {
  std::vector<const char*> argv{"amhost"};
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  Amhost::HostOptions options;
  std::string error;
  if (!Amhost::HostOptions::parse(static_cast<int>(argv.size()), argv.data(), options, error)) {
    if (error.empty()) finding("refused arguments without a reason");
    return;
  }
  if (!options.help && options.modelFile.empty()) finding("arguments accepted without a model");
  for (const CommandWords::Command& command : options.commands) {
    if (command.empty() || std::find(command.begin(), command.end(), ";") != command.end())
      finding("an empty command or a \";\" inside one");
  }
  const std::vector<CommandWords::Command> commands = CommandWords::fromArguments(arguments);
  std::vector<std::string> flattened;
  for (const CommandWords::Command& command : commands) {
    if (command.empty()) finding("fromArguments kept an empty command");
    flattened.insert(flattened.end(), command.begin(), command.end());
  }
  std::vector<std::string> words = arguments;
  words.erase(std::remove(words.begin(), words.end(), ";"), words.end());
  if (flattened != words) finding("fromArguments lost or reordered words");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> arguments;
  try {
    std::string::size_type position = 0;
    while (position <= input.size()) {
      std::string::size_type end = input.find('\n', position);
      if (end == std::string::npos) end = input.size();
      const CommandWords::Command command = readLine(input.substr(position, end - position));
      position = end + 1;
      if (!arguments.empty()) arguments.push_back(";");
      arguments.insert(arguments.end(), command.begin(), command.end());
      for (const std::string& word : command) checkLogLevel(word);
      if (!command.empty()) checkCommand(command);
    }
    checkArguments(arguments);
  } catch (const std::exception& error) {
    finding(std::string("exception left the parsing: ") + error.what());
  }
  return 0;
}
