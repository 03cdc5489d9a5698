// libFuzzer target: the built-in role lookup (AmLdap) over a directory whose answers the input
// scripts: the configuration's fields, the user, the authentication-scope lines, the role lines,
// the alias answers and which client call fails. A scope line shorter than its attribute name
// must raise std::out_of_range and nothing else may leave the lookup; the lookup's lock must be
// free afterwards whatever happened; the roles must come sorted, once each, and every kept role
// value must be the value or its part after the first colon.
#include "FuzzScript.h"
#include "InspectableAmLdap.h"
#include "LdapConfigurationScript.h"
#include "ScriptedLdapTlsWrapper.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

using QivAccessManagement::LdapConfiguration;

namespace {

const std::string SCOPE_PREFIX = "orbelinUserAuthenticationScope: ";

[[noreturn]] void finding(const std::string& what) {
  std::fprintf(stderr, "contract violated: %s\n", what.c_str());
  std::abort();
}

bool hasShortScopeLine(const ScriptedLdapTlsWrapper& directory) {
  for (const std::string& line : directory.scopeLines()) {
    if (line.size() < SCOPE_PREFIX.size()) return true;
  }
  return false;
}

void requireUnlocked(InspectableAmLdap& lookup, const char* after) {
  if (!lookup.mutex.tryLock()) finding(std::string("the lookup's mutex is still held after ") + after);
  lookup.mutex.unlock();
}

// What the lookup answered once it returned (rather than threw).
void checkAnswer(InspectableAmLdap& lookup, const ScriptedLdapTlsWrapper& directory, bool userExists, int rc,
                 const std::string& answer) {
  if (rc != 0 && rc != -1 && rc != -2) finding("result " + std::to_string(rc));
  if (rc == -2 && userExists) finding("-2 for a user the directory has");
  if (rc != 0) {
    if (!answer.empty()) finding("roles \"" + answer + "\" with result " + std::to_string(rc));
    return;
  }
  if (!std::is_sorted(lookup.roles.begin(), lookup.roles.end())) finding("roles not sorted");
  if (std::adjacent_find(lookup.roles.begin(), lookup.roles.end()) != lookup.roles.end()) finding("a role twice");
  std::string joined;
  for (const std::string& role : lookup.roles) {
    if (role.empty()) finding("an empty role kept");
    joined += (joined.empty() ? "" : ",") + role;
  }
  if (joined != answer) finding("answer \"" + answer + "\" is not the roles joined: \"" + joined + "\"");
  // Each scope line without its prefix, whatever the prefix said.
  auto targetType = lookup.targetTypes.begin();
  for (const std::string& line : directory.scopeLines()) {
    if (targetType == lookup.targetTypes.end() || *targetType != line.substr(SCOPE_PREFIX.size()))
      finding("target types are not the scope lines without their prefix");
    ++targetType;
  }
  if (targetType != lookup.targetTypes.end()) finding("more target types than scope lines");
}

// A role value is either dropped, kept whole, or kept after its first colon.
void checkParsed(const std::string& value, const std::string& kept) {
  if (kept.empty() || kept == value) return;
  const std::string::size_type colon = value.find(':');
  if (colon == std::string::npos || kept != value.substr(colon + 1))
    finding("\"" + value + "\" parsed into \"" + kept + "\"");
}

// The role lines once more, one by one, now with the node types of the configuration whatever
// its filter type, against the target types the lookup left.
void parseRoleLinesDirectly(InspectableAmLdap& lookup, const LdapConfiguration& config,
                            const ScriptedLdapTlsWrapper& directory) {
  lookup.nodeTypes.clear();
  lookup.createNodeTypeList(config.nodeType, &config);
  for (const std::string& nodeType : lookup.nodeTypes) {
    if (nodeType.empty() || nodeType.find(':') != std::string::npos) finding("node type \"" + nodeType + "\"");
  }
  for (const std::string& line : directory.roleLines()) {
    checkParsed(line, lookup.parseRoleLine(line, &config));
    const std::string trimmed = lookup.trim(line);
    if (!trimmed.empty() && (std::string(" \t\n").find(trimmed.front()) != std::string::npos ||
                             std::string(" \t\n").find(trimmed.back()) != std::string::npos))
      finding("trim left a blank at an end of \"" + trimmed + "\"");
    const std::size_t before = lookup.roles.size();
    if (!lookup.fetchRoles(&config, {line})) finding("fetchRoles answered false for a line");
    if (lookup.roles.size() > before + 1) finding("one line gave more than one role");
  }
  if (lookup.fetchRoles(&config, {})) finding("fetchRoles answered true without lines");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  LdapConfiguration config;
  ScriptedLdapTlsWrapper directory;
  std::string user = "bob";
  bool userExists = true;
  const FuzzScript script(data, size);
  for (const FuzzScript::Record& record : script.records()) {
    const std::string& key = record.first;
    const std::string& value = record.second;
    if (LdapConfigurationScript::apply(config, key, value)) continue;
    if (key == "user") {
      user = value;
    } else if (key == "missing") {
      userExists = false;
    } else if (key == "fail") {
      directory.setFailingCall(static_cast<std::size_t>(FuzzScript::number(value)));
    } else if (key == "scope") {
      directory.addScopeLine(value);
    } else if (key == "role") {
      directory.addRoleLine(value);
    } else if (key == "alias") {
      directory.addAliasLine(value);
    } else if (key == "next-alias") {
      directory.nextAliasAnswer();
    }
  }
  directory.setUserExists(userExists);

  InspectableAmLdap lookup(&directory);
  std::string answer;
  int rc = 0;
  try {
    rc = lookup.authorizationLdap(&config, user, answer);
  } catch (const std::out_of_range& error) {
    if (!directory.scopeSearched() || !hasShortScopeLine(directory))
      finding(std::string("std::out_of_range without a short scope line: ") + error.what());
    if (std::string(error.what()).rfind("basic_string::substr", 0) != 0)
      finding(std::string("std::out_of_range other than substr's: ") + error.what());
    requireUnlocked(lookup, "a short scope line");
    parseRoleLinesDirectly(lookup, config, directory);
    return 0;
  } catch (const std::exception& error) {
    finding(std::string("exception left the lookup: ") + error.what());
  } catch (...) {
    finding("non-standard exception left the lookup");
  }
  if (directory.scopeSearched() && hasShortScopeLine(directory)) finding("a short scope line did not throw");
  requireUnlocked(lookup, "the lookup");
  checkAnswer(lookup, directory, userExists, rc, answer);
  parseRoleLinesDirectly(lookup, config, directory);
  return 0;
}
