#include "Mod.h"

#include "StrDup.h"

#include <gtest/gtest.h>
#include <ldap.h>

#include <cstring>
#include <list>
#include <sstream>
#include <string>

using Ldap::Mod;
using Ldap::StrDup;

namespace {

typedef std::list<std::string> Lines;

const char* textAt(const Mod& mod, unsigned index) { return static_cast<const char*>(mod.getValues()[index]); }

const berval* binaryAt(const Mod& mod, unsigned index) { return static_cast<const berval*>(mod.getValues()[index]); }

Lines linesOf(const Mod& mod) {
  Lines lines;
  mod.getAttrsResult(lines);
  return lines;
}

std::string printed(const Mod& mod) {
  std::ostringstream out;
  out << mod;
  return out.str();
}

// The used slots hold values, every slot from count on is null.
void expectSlots(const Mod& mod, unsigned count) {
  for (unsigned index = 0; index < mod.getCapacity(); ++index) {
    if (index < count) {
      EXPECT_NE(nullptr, mod.getValues()[index]) << "slot " << index;
    } else {
      EXPECT_EQ(nullptr, mod.getValues()[index]) << "slot " << index;
    }
  }
}

}  // namespace

TEST(StrDupTest, CopiesTheTextWithItsTerminatorIntoANewArray) {
  const char text[] = "uid=alice";
  char* copy = StrDup(text);
  ASSERT_NE(nullptr, copy);
  EXPECT_NE(text, copy);
  EXPECT_STREQ(text, copy);
  delete[] copy;

  char* empty = StrDup("");
  ASSERT_NE(nullptr, empty);
  EXPECT_EQ('\0', empty[0]);
  delete[] empty;
}

TEST(StrDupTest, NullGivesNull) { EXPECT_EQ(nullptr, StrDup(nullptr)); }

TEST(LdapModTest, ConstructionCopiesTheTypeAndStartsWithoutValues) {
  char type[] = "memberUid";
  Mod mod(LDAP_MOD_REPLACE, type);
  EXPECT_EQ(LDAP_MOD_REPLACE, mod.getOp());
  ASSERT_NE(nullptr, mod.getType());
  EXPECT_NE(static_cast<const char*>(type), mod.getType());
  type[0] = 'X';
  EXPECT_STREQ("memberUid", mod.getType());
  EXPECT_EQ(nullptr, mod.getValues());
  EXPECT_EQ(0u, mod.getCapacity());
}

TEST(LdapModTest, NullTypeStaysNull) {
  Mod mod(LDAP_MOD_ADD, nullptr);
  EXPECT_EQ(nullptr, mod.getType());
  EXPECT_FALSE(mod.isType("cn"));
  EXPECT_EQ(Lines({":"}), linesOf(mod));
}

TEST(LdapModTest, ThreeValuesFitInFourSlotsAndTheFourthDoublesTheCapacityToEight) {
  Mod mod(LDAP_MOD_ADD, "attr");
  mod.append("a");
  EXPECT_EQ(4u, mod.getCapacity());
  expectSlots(mod, 1);
  mod.append("b");
  mod.append("c");
  EXPECT_EQ(4u, mod.getCapacity());
  expectSlots(mod, 3);

  mod.append("d");
  EXPECT_EQ(8u, mod.getCapacity());
  expectSlots(mod, 4);
  EXPECT_STREQ("a", textAt(mod, 0));
  EXPECT_STREQ("b", textAt(mod, 1));
  EXPECT_STREQ("c", textAt(mod, 2));
  EXPECT_STREQ("d", textAt(mod, 3));
}

TEST(LdapModTest, TheLastSlotStaysNullAsTheArrayKeepsDoubling) {
  Mod mod(LDAP_MOD_ADD, "attr");
  for (int value = 0; value < 7; ++value) mod.append(std::to_string(value).c_str());
  EXPECT_EQ(8u, mod.getCapacity());
  expectSlots(mod, 7);
  mod.append("7");
  EXPECT_EQ(16u, mod.getCapacity());
  expectSlots(mod, 8);
  for (unsigned index = 0; index < 8; ++index) EXPECT_EQ(std::to_string(index), textAt(mod, index));
}

// What a hostile directory may send: the slots keep their policy however many values arrive
// (and arrive in constant time each; bench/ faults measures it).
TEST(LdapModTest, HundredThousandValuesKeepTheirOrderAndTheSlotPolicy) {
  Mod mod(LDAP_MOD_ADD, "attr");
  const unsigned count = 100000;
  for (unsigned value = 0; value < count; ++value) mod.append(std::to_string(value).c_str());
  EXPECT_EQ(131072u, mod.getCapacity());
  expectSlots(mod, count);
  for (unsigned index = 0; index < count; index += 9973) EXPECT_EQ(std::to_string(index), textAt(mod, index));
  EXPECT_EQ(std::to_string(count - 1), textAt(mod, count - 1));
  mod.clear();
  mod.append("again");
  EXPECT_EQ(4u, mod.getCapacity());
  expectSlots(mod, 1);
}

TEST(LdapModTest, TextValuesAreCopies) {
  char value[] = "admin";
  Mod mod(LDAP_MOD_ADD, "memberUid");
  mod.append(value);
  EXPECT_NE(static_cast<const char*>(value), textAt(mod, 0));
  value[0] = 'X';
  EXPECT_STREQ("admin", textAt(mod, 0));
  EXPECT_EQ(LDAP_MOD_ADD, mod.getOp());
}

TEST(LdapModTest, BinaryValuesMarkTheOperationAndKeepTheirBytesLengthCounted) {
  const char data[] = {'a', '\0', 'b'};
  Mod mod(LDAP_MOD_ADD, "photo");
  mod.append(data, 3);
  EXPECT_EQ(LDAP_MOD_ADD | LDAP_MOD_BVALUES, mod.getOp());
  EXPECT_TRUE(mod.isOperation(LDAP_MOD_ADD));
  const berval* value = binaryAt(mod, 0);
  ASSERT_NE(nullptr, value);
  EXPECT_EQ(3u, value->bv_len);
  EXPECT_NE(static_cast<const char*>(data), value->bv_val);
  EXPECT_EQ(std::string(data, 3), std::string(value->bv_val, value->bv_len));
  EXPECT_EQ(Lines({std::string("photo: a\0b", 10)}), linesOf(mod));
}

TEST(LdapModTest, BinaryValueOfLengthZeroOrWithoutDataIsEmptyAndHasNoBytes) {
  Mod mod(LDAP_MOD_ADD, "photo");
  mod.append("ignored", 0);
  mod.append(nullptr, 5);
  mod.append("x", 1);
  for (unsigned index = 0; index < 2; ++index) {
    const berval* value = binaryAt(mod, index);
    ASSERT_NE(nullptr, value);
    EXPECT_EQ(0u, value->bv_len);
    EXPECT_EQ(nullptr, value->bv_val);
  }
  EXPECT_EQ(Lines({"photo: ", "photo: ", "photo: x"}), linesOf(mod));
  EXPECT_EQ(4u, mod.getCapacity());
}

TEST(LdapModTest, BinaryValuesFollowTheSameSlotPolicy) {
  Mod mod(LDAP_MOD_ADD, "photo");
  for (char value = 'a'; value < 'e'; ++value) mod.append(&value, 1);
  EXPECT_EQ(8u, mod.getCapacity());
  expectSlots(mod, 4);
  EXPECT_EQ(Lines({"photo: a", "photo: b", "photo: c", "photo: d"}), linesOf(mod));
}

TEST(LdapModTest, IsOperationComparesTheLowThreeBits) {
  Mod replace(LDAP_MOD_REPLACE | LDAP_MOD_BVALUES, "cn");
  EXPECT_TRUE(replace.isOperation(LDAP_MOD_REPLACE));
  EXPECT_FALSE(replace.isOperation(LDAP_MOD_ADD));
  EXPECT_FALSE(replace.isOperation(LDAP_MOD_REPLACE | LDAP_MOD_BVALUES));
  Mod del(LDAP_MOD_DELETE | 0x10, "cn");
  EXPECT_TRUE(del.isOperation(LDAP_MOD_DELETE));
}

TEST(LdapModTest, IsTypeComparesTheWholeName) {
  Mod mod(LDAP_MOD_ADD, "memberUid");
  EXPECT_TRUE(mod.isType("memberUid"));
  EXPECT_FALSE(mod.isType("memberuid"));
  EXPECT_FALSE(mod.isType("member"));
  EXPECT_FALSE(mod.isType(nullptr));
}

TEST(LdapModTest, AttrsResultHasOneLinePerValueInOrderAfterWhatTheListHeld) {
  Mod mod(LDAP_MOD_ADD, "attr");
  mod.append("a");
  mod.append("b");
  Lines lines = {"earlier: x"};
  mod.getAttrsResult(lines);
  EXPECT_EQ(Lines({"earlier: x", "attr: a", "attr: b"}), lines);
}

TEST(LdapModTest, AttributeWithoutValuesGivesTheNameAndAColon) {
  Mod mod(LDAP_MOD_ADD, "attr");
  EXPECT_EQ(Lines({"attr:"}), linesOf(mod));
  EXPECT_EQ("attr:\n", printed(mod));
}

TEST(LdapModTest, StreamOutputWritesOneLinePerValue) {
  Mod mod(LDAP_MOD_ADD, "attr");
  mod.append("a");
  mod.append("b");
  EXPECT_EQ("attr: a\nattr: b\n", printed(mod));
}

TEST(LdapModTest, StreamOutputWritesBinaryValuesByteForByte) {
  const char data[] = {'\x01', '\0', '\xff'};
  Mod mod(LDAP_MOD_ADD, "blob");
  mod.append(data, 3);
  EXPECT_EQ(std::string("blob: \x01\0\xff\n", 10), printed(mod));
}

TEST(LdapModTest, ClearReleasesEverythingAndTheModCanBeFilledAgain) {
  Mod mod(LDAP_MOD_ADD, "photo");
  mod.append("x", 1);
  mod.clear();
  EXPECT_EQ(0, mod.getOp());
  EXPECT_EQ(nullptr, mod.getType());
  EXPECT_EQ(nullptr, mod.getValues());
  EXPECT_EQ(0u, mod.getCapacity());

  mod.append("text");
  EXPECT_EQ(4u, mod.getCapacity());
  EXPECT_STREQ("text", textAt(mod, 0));
  EXPECT_EQ(0, mod.getOp());
}

TEST(LdapModTest, ReadsAsLibldapsLdapMod) {
  Mod mod(LDAP_MOD_DELETE, "memberUid");
  mod.append("alice");
  mod.append("bob");
  const LDAPMod* view = reinterpret_cast<const LDAPMod*>(&mod);
  EXPECT_EQ(LDAP_MOD_DELETE, view->mod_op);
  EXPECT_EQ(mod.getType(), view->mod_type);
  ASSERT_NE(nullptr, view->mod_values);
  EXPECT_STREQ("alice", view->mod_values[0]);
  EXPECT_STREQ("bob", view->mod_values[1]);
  EXPECT_EQ(nullptr, view->mod_values[2]);
}
