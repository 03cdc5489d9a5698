#include "Entry.h"

#include <gtest/gtest.h>
#include <ldap.h>

#include <list>
#include <sstream>
#include <string>

using Ldap::Entry;
using Ldap::Mod;

namespace {

typedef std::list<std::string> Lines;

Mod* textMod(const char* type, std::initializer_list<const char*> values) {
  Mod* mod = new Mod(LDAP_MOD_ADD, type);
  for (const char* value : values) mod->append(value);
  return mod;
}

template <class Printable>
std::string printed(const Printable& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

}  // namespace

TEST(LdapEntryTest, NewEntryHoldsItsDnAndOnlyTheTerminator) {
  Entry entry("uid=alice,ou=people,dc=example,dc=com");
  EXPECT_EQ("uid=alice,ou=people,dc=example,dc=com", entry.getDn());
  ASSERT_EQ(1u, entry.getMods().size());
  EXPECT_EQ(nullptr, entry.getMods()[0]);
  EXPECT_LE(32u, entry.getMods().capacity());
}

TEST(LdapEntryTest, PushBackKeepsTheOrderAndExactlyOneTrailingNull) {
  Entry entry("cn=x");
  Mod* first = textMod("cn", {"x"});
  Mod* second = textMod("description", {"a"});
  entry.pushBack(first);
  entry.pushBack(second);
  ASSERT_EQ(3u, entry.getMods().size());
  EXPECT_EQ(first, entry.getMods()[0]);
  EXPECT_EQ(second, entry.getMods()[1]);
  EXPECT_EQ(nullptr, entry.getMods()[2]);
}

TEST(LdapEntryTest, MoreModsThanReservedStillEndInOneNull) {
  Entry entry("cn=x");
  for (int index = 0; index < 40; ++index) entry.pushBack(textMod(("a" + std::to_string(index)).c_str(), {"v"}));
  ASSERT_EQ(41u, entry.getMods().size());
  for (int index = 0; index < 40; ++index) {
    ASSERT_NE(nullptr, entry.getMods()[index]);
    EXPECT_STREQ(("a" + std::to_string(index)).c_str(), entry.getMods()[index]->getType());
  }
  EXPECT_EQ(nullptr, entry.getMods()[40]);
}

TEST(LdapEntryTest, ModsReadAsLibldapsNullTerminatedModList) {
  Entry entry("cn=x");
  entry.pushBack(textMod("cn", {"x"}));
  entry.pushBack(textMod("description", {"a", "b"}));
  LDAPMod* const* list = reinterpret_cast<LDAPMod* const*>(entry.getMods().data());
  ASSERT_NE(nullptr, list[0]);
  EXPECT_STREQ("cn", list[0]->mod_type);
  ASSERT_NE(nullptr, list[1]);
  EXPECT_STREQ("description", list[1]->mod_type);
  EXPECT_STREQ("b", list[1]->mod_values[1]);
  EXPECT_EQ(nullptr, list[2]);
}

TEST(LdapEntryTest, AttrsResultHasEveryModsLinesInOrderWithoutTheDn) {
  Entry entry("uid=carol,ou=people,dc=example,dc=com");
  entry.pushBack(textMod("uid", {"carol"}));
  entry.pushBack(textMod("attr", {"a", "b"}));
  entry.pushBack(new Mod(LDAP_MOD_ADD, "empty"));
  Lines lines = {"earlier: x"};
  entry.getAttrsResult(lines);
  EXPECT_EQ(Lines({"earlier: x", "uid: carol", "attr: a", "attr: b", "empty:"}), lines);
}

TEST(LdapEntryTest, EntryWithoutModsAddsNoLines) {
  Entry entry("cn=x");
  Lines lines;
  entry.getAttrsResult(lines);
  EXPECT_TRUE(lines.empty());
}

TEST(LdapEntryTest, StreamOutputWritesTheDnThenEachMod) {
  Entry entry("uid=carol,ou=people,dc=example,dc=com");
  entry.pushBack(textMod("attr", {"a", "b"}));
  entry.pushBack(new Mod(LDAP_MOD_ADD, "empty"));
  EXPECT_EQ("dn: uid=carol,ou=people,dc=example,dc=com\nattr: a\nattr: b\nempty:\n", printed(entry));
}

TEST(LdapEntryTest, StreamOutputOfAListFollowsEachEntryWithAnEmptyLine) {
  std::list<Entry> entries;
  entries.emplace_back("cn=one");
  entries.back().pushBack(textMod("cn", {"one"}));
  entries.emplace_back("cn=two");
  EXPECT_EQ("dn: cn=one\ncn: one\n\ndn: cn=two\n\n", printed(entries));
  EXPECT_EQ("", printed(std::list<Entry>()));
}
