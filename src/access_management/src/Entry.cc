#include "Entry.h"

namespace Ldap {

namespace {

// Entries rarely have more attributes; more only costs a reallocation.
const std::size_t RESERVED_MODS = 32;

}  // namespace

Entry::Entry(const std::string& dn) : _dn(dn) {
  _mods.reserve(RESERVED_MODS);
  _mods.push_back(nullptr);
}

Entry::~Entry() {
  for (Mod* mod : _mods) delete mod;
}

// The former terminator is the first null slot, since every Mod pushed is not null.
void Entry::pushBack(Mod* mod) {
  _mods.back() = mod;
  _mods.push_back(nullptr);
}

void Entry::getAttrsResult(std::list<std::string>& result) const {
  for (const Mod* mod : _mods) {
    if (mod != nullptr) mod->getAttrsResult(result);
  }
}

std::ostream& operator<<(std::ostream& out, const Entry& entry) {
  out << "dn: " << entry.getDn() << '\n';
  for (const Mod* mod : entry.getMods()) {
    if (mod != nullptr) out << *mod;
  }
  return out;
}

std::ostream& operator<<(std::ostream& out, const std::list<Entry>& entries) {
  for (const Entry& entry : entries) out << entry << '\n';
  return out;
}

}  // namespace Ldap
