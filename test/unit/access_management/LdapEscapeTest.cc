#include "LdapEscape.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

using QivAccessManagement::LdapEscape;

namespace {

// A value and what one of the escapes makes of it.
struct Escaping {
  std::string (*escape)(const std::string&);
  std::string value;
  std::string escaped;
};

std::ostream& operator<<(std::ostream& out, const Escaping& escaping) {
  return out << (escaping.escape == &LdapEscape::filterValue ? "filterValue" : "dnValue") << " of \""
             << escaping.value << "\"";
}

Escaping filterValue(const std::string& value, const std::string& escaped) {
  return {&LdapEscape::filterValue, value, escaped};
}

Escaping dnValue(const std::string& value, const std::string& escaped) { return {&LdapEscape::dnValue, value, escaped}; }

class LdapEscapeTest : public ::testing::TestWithParam<Escaping> {};

TEST_P(LdapEscapeTest, EscapesTheValue) { EXPECT_EQ(GetParam().escaped, GetParam().escape(GetParam().value)); }

INSTANTIATE_TEST_SUITE_P(FilterValueEscapesTheFilterSpecials, LdapEscapeTest,
                         ::testing::Values(filterValue("*", "\\2a"), filterValue("a*)(uid=*", "a\\2a\\29\\28uid=\\2a"),
                                           filterValue("\\()", "\\5c\\28\\29"),
                                           filterValue(std::string("a\0b", 3), "a\\00b")));

INSTANTIATE_TEST_SUITE_P(FilterValueKeepsEverythingElse, LdapEscapeTest,
                         ::testing::Values(filterValue("", ""),
                                           filterValue("bob.smith-1_x=y,z+\"#<>; ", "bob.smith-1_x=y,z+\"#<>; "),
                                           filterValue("J\xC3\xB6rg", "J\xC3\xB6rg")));

INSTANTIATE_TEST_SUITE_P(DnValueEscapesTheDnSpecials, LdapEscapeTest,
                         ::testing::Values(dnValue("a,b+c\"d\\e<f>g;h", "a\\,b\\+c\\\"d\\\\e\\<f\\>g\\;h"),
                                           dnValue("x,ou=other", "x\\,ou=other"),
                                           dnValue(std::string("a\0b", 3), "a\\00b")));

INSTANTIATE_TEST_SUITE_P(DnValueEscapesLeadingHashAndBlanksAtTheEnds, LdapEscapeTest,
                         ::testing::Values(dnValue("#a#", "\\#a#"), dnValue(" a b ", "\\ a b\\ "), dnValue(" ", "\\ "),
                                           dnValue("   ", "\\  \\ ")));

INSTANTIATE_TEST_SUITE_P(DnValueKeepsEverythingElse, LdapEscapeTest,
                         ::testing::Values(dnValue("", ""), dnValue("admin=x*()", "admin=x*()")));

}  // namespace
