// libFuzzer target: Ldap::Mod and Ldap::Entry, the records a search result is built from, with
// text and binary values of any length and content, NULs included. Whatever went in must come
// out of the value slots, the flattened "type: value" lines and the stream output, with the
// value array null-terminated and doubled as it fills; a mismatch, a crash or a sanitizer report
// is a finding.
#include "Entry.h"
#include "FuzzScript.h"
#include "Mod.h"

#include <ldap.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <sstream>
#include <string>
#include <vector>

using Ldap::Entry;
using Ldap::Mod;

namespace {

const int BINARY = LDAP_MOD_BVALUES;

// What the fuzz target put into one Mod.
struct PutIn {
  Mod* mod;
  int op;
  bool typeIsNull;
  std::string type;
  bool binary;
  std::vector<std::string> values;
};

[[noreturn]] void finding(const std::string& what) {
  std::fprintf(stderr, "contract violated: %s\n", what.c_str());
  std::abort();
}

// "OP TYPE": the operation as a number, the attribute name as a C string sees it.
PutIn newMod(const std::string& value, bool nullType) {
  const std::string::size_type blank = value.find(' ');
  PutIn put{nullptr, static_cast<int>(FuzzScript::number(value)), nullType, std::string(), false, {}};
  if (!nullType) put.type = std::string(blank == std::string::npos ? "" : value.c_str() + blank + 1);
  // Text values need an operation without the binary mark: a Mod holds one kind only.
  put.op &= ~BINARY;
  put.mod = new Mod(put.op, nullType ? nullptr : put.type.c_str());
  return put;
}

std::list<std::string> expectedLines(const PutIn& put) {
  const std::string name = put.typeIsNull ? "" : put.type;
  if (put.values.empty()) return {name + ":"};
  std::list<std::string> lines;
  for (const std::string& value : put.values) lines.push_back(name + ": " + value);
  return lines;
}

unsigned expectedCapacity(std::size_t values) {
  if (values == 0) return 0;
  unsigned capacity = 4;
  while (capacity - 1 < values) capacity *= 2;
  return capacity;
}

void checkSlots(const PutIn& put) {
  const Mod& mod = *put.mod;
  if (mod.getCapacity() != expectedCapacity(put.values.size()))
    finding("capacity " + std::to_string(mod.getCapacity()) + " for " + std::to_string(put.values.size()) + " values");
  if (put.values.empty()) {
    if (mod.getValues() != nullptr) finding("a value array without values");
    return;
  }
  for (unsigned index = 0; index < mod.getCapacity(); ++index) {
    const void* slot = mod.getValues()[index];
    if (index >= put.values.size()) {
      if (slot != nullptr) finding("slot " + std::to_string(index) + " past the values is not null");
      continue;
    }
    if (slot == nullptr) finding("slot " + std::to_string(index) + " of a value is null");
    const std::string& value = put.values[index];
    if (!put.binary) {
      if (std::strcmp(static_cast<const char*>(slot), value.c_str()) != 0) finding("text value changed");
      continue;
    }
    const berval* binary = static_cast<const berval*>(slot);
    if (binary->bv_len != value.size()) finding("binary value length changed");
    if (value.empty() ? binary->bv_val != nullptr : std::memcmp(binary->bv_val, value.data(), value.size()) != 0)
      finding("binary value bytes changed");
  }
}

void checkMod(const PutIn& put) {
  const Mod& mod = *put.mod;
  const int op = put.binary ? put.op | BINARY : put.op;
  if (mod.getOp() != op) finding("op " + std::to_string(mod.getOp()) + ", expected " + std::to_string(op));
  for (int operation = 0; operation < 8; ++operation) {
    if (mod.isOperation(operation) != (operation == (op & LDAP_MOD_OP))) finding("isOperation");
  }
  if (put.typeIsNull != (mod.getType() == nullptr)) finding("type null or not as constructed");
  if (!put.typeIsNull && put.type != mod.getType()) finding("type changed");
  if (mod.isType(put.type.c_str()) == put.typeIsNull || mod.isType(nullptr) || mod.isType((put.type + "x").c_str()))
    finding("isType");
  checkSlots(put);
  std::list<std::string> lines;
  mod.getAttrsResult(lines);
  if (lines != expectedLines(put)) finding("flattened lines differ from the values put in");
  std::ostringstream printed;
  printed << mod;
  std::string expected;
  for (const std::string& line : lines) expected += line + "\n";
  if (printed.str() != expected) finding("stream output differs from the flattened lines");
}

void checkEntry(const Entry& entry, const std::string& dn, const std::vector<PutIn>& mods) {
  if (entry.getDn() != dn) finding("dn changed");
  const std::vector<Mod*>& held = entry.getMods();
  if (held.size() != mods.size() + 1 || held.back() != nullptr) finding("mods not followed by exactly one null");
  std::list<std::string> expected;
  std::string printedMods;
  for (std::size_t index = 0; index < mods.size(); ++index) {
    if (held[index] != mods[index].mod) finding("mods out of order");
    checkMod(mods[index]);
    expected.splice(expected.end(), expectedLines(mods[index]));
    std::ostringstream printed;
    printed << *mods[index].mod;
    printedMods += printed.str();
  }
  std::list<std::string> lines{"before"};
  entry.getAttrsResult(lines);
  expected.push_front("before");
  if (lines != expected) finding("entry lines are not its mods' lines after what the list held");
  std::ostringstream printed;
  printed << entry;
  if (printed.str() != "dn: " + dn + "\n" + printedMods) finding("entry stream output");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  std::list<Entry> entries;
  std::vector<std::string> dns;
  std::vector<std::vector<PutIn>> mods;
  const FuzzScript script(data, size);
  for (const FuzzScript::Record& record : script.records()) {
    const std::string& key = record.first;
    const std::string& value = record.second;
    if (key == "entry" || entries.empty()) {
      entries.emplace_back(key == "entry" ? value : std::string());
      dns.push_back(entries.back().getDn());
      mods.emplace_back();
      if (key == "entry") continue;
    }
    if (key == "mod" || key == "mod-null-type") {
      mods.back().push_back(newMod(value, key == "mod-null-type"));
      entries.back().pushBack(mods.back().back().mod);
      continue;
    }
    if (mods.back().empty()) continue;
    PutIn& put = mods.back().back();
    const bool binary = key == "binary" || key == "binary-null";
    if (key == "clear") {
      put.mod->clear();
      put = PutIn{put.mod, 0, true, std::string(), false, {}};
    } else if (key == "text" && !put.binary) {
      put.mod->append(value.c_str());
      put.values.push_back(value.c_str());
    } else if (binary && (put.values.empty() || put.binary)) {
      const unsigned length = key == "binary" ? static_cast<unsigned>(value.size())
                                              : static_cast<unsigned>(FuzzScript::number(value));
      put.mod->append(key == "binary" ? value.data() : nullptr, length);
      put.binary = true;
      put.values.push_back(key == "binary" ? value : std::string());
    }
  }
  std::size_t index = 0;
  std::string expected;
  for (const Entry& entry : entries) {
    checkEntry(entry, dns[index], mods[index]);
    std::ostringstream printed;
    printed << entry;
    expected += printed.str() + "\n";
    ++index;
  }
  std::ostringstream printed;
  printed << entries;
  if (printed.str() != expected) finding("stream output of the entry list");
  return 0;
}
