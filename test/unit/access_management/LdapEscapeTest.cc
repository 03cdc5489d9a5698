#include "LdapEscape.h"

#include <gtest/gtest.h>

#include <string>

using QivAccessManagement::LdapEscape;

namespace {

TEST(LdapEscapeTest, FilterValueEscapesTheFilterSpecials) {
  EXPECT_EQ("\\2a", LdapEscape::filterValue("*"));
  EXPECT_EQ("a\\2a\\29\\28uid=\\2a", LdapEscape::filterValue("a*)(uid=*"));
  EXPECT_EQ("\\5c\\28\\29", LdapEscape::filterValue("\\()"));
  EXPECT_EQ("a\\00b", LdapEscape::filterValue(std::string("a\0b", 3)));
}

TEST(LdapEscapeTest, FilterValueKeepsEverythingElse) {
  EXPECT_EQ("", LdapEscape::filterValue(""));
  EXPECT_EQ("bob.smith-1_x=y,z+\"#<>; ", LdapEscape::filterValue("bob.smith-1_x=y,z+\"#<>; "));
  EXPECT_EQ("J\xC3\xB6rg", LdapEscape::filterValue("J\xC3\xB6rg"));
}

TEST(LdapEscapeTest, DnValueEscapesTheDnSpecials) {
  EXPECT_EQ("a\\,b\\+c\\\"d\\\\e\\<f\\>g\\;h", LdapEscape::dnValue("a,b+c\"d\\e<f>g;h"));
  EXPECT_EQ("x\\,ou=other", LdapEscape::dnValue("x,ou=other"));
  EXPECT_EQ("a\\00b", LdapEscape::dnValue(std::string("a\0b", 3)));
}

TEST(LdapEscapeTest, DnValueEscapesLeadingHashAndBlanksAtTheEnds) {
  EXPECT_EQ("\\#a#", LdapEscape::dnValue("#a#"));
  EXPECT_EQ("\\ a b\\ ", LdapEscape::dnValue(" a b "));
  EXPECT_EQ("\\ ", LdapEscape::dnValue(" "));
  EXPECT_EQ("\\  \\ ", LdapEscape::dnValue("   "));
}

TEST(LdapEscapeTest, DnValueKeepsEverythingElse) {
  EXPECT_EQ("", LdapEscape::dnValue(""));
  EXPECT_EQ("admin=x*()", LdapEscape::dnValue("admin=x*()"));
}

}  // namespace
