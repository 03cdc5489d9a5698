#ifndef QIV_ACCESS_MANAGEMENT_ENTRY_H
#define QIV_ACCESS_MANAGEMENT_ENTRY_H

#include "Mod.h"

#include <list>
#include <ostream>
#include <string>
#include <vector>

namespace Ldap {

// One directory entry as a search returned it: its DN and the attributes that had values.
class Entry {
 public:
  explicit Entry(const std::string& dn);
  // Deletes every Mod it owns.
  ~Entry();
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

  // Takes ownership of mod (not null) and adds it after the others.
  void pushBack(Mod* mod);

  // Appends the lines of each Mod in order (see Mod::getAttrsResult); the DN is not among them.
  void getAttrsResult(std::list<std::string>& result) const;

  const std::string& getDn() const { return _dn; }
  // The Mods in order, always followed by exactly one null, so that the data reads as an
  // LDAPMod** list.
  const std::vector<Mod*>& getMods() const { return _mods; }

 private:
  std::vector<Mod*> _mods;
  std::string _dn;
};

// "dn: <dn>\n", then each Mod.
std::ostream& operator<<(std::ostream& out, const Entry& entry);
// Each entry followed by an empty line.
std::ostream& operator<<(std::ostream& out, const std::list<Entry>& entries);

}  // namespace Ldap

#endif
