#include <Qiv/QivException.h>
#include <Qiv/RegularExpression.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using ::testing::HasSubstr;

const char* const PORT_PATTERN = "(^[0-9]+$|SERVER_PORT_NOT_SET + $)";

// REG_EXTENDED | REG_NEWLINE | REG_NOSUB
const int PORT_OPTIONS = 13;

TEST(RegularExpressionTest, OptionValuesAreTheRegcompFlags) {
  EXPECT_EQ(REG_EXTENDED | REG_NEWLINE | REG_NOSUB, PORT_OPTIONS);
  EXPECT_EQ(2, REG_ICASE);
}

TEST(RegularExpressionTest, PortPatternAcceptsNumbers) {
  const Qiv::RegularExpression port(PORT_PATTERN, PORT_OPTIONS);
  EXPECT_TRUE(port.match("389"));
  EXPECT_TRUE(port.match("65535"));
  EXPECT_TRUE(port.match("0"));
}

TEST(RegularExpressionTest, PortPatternRejectsOtherText) {
  const Qiv::RegularExpression port(PORT_PATTERN, PORT_OPTIONS);
  EXPECT_FALSE(port.match("12a"));
  EXPECT_FALSE(port.match(""));
  EXPECT_FALSE(port.match("a12"));
  EXPECT_FALSE(port.match("-1"));
}

// " + $" asks for one or more blanks followed by one more blank at the end.
TEST(RegularExpressionTest, PortPatternAcceptsPlaceholder) {
  const Qiv::RegularExpression port(PORT_PATTERN, PORT_OPTIONS);
  EXPECT_TRUE(port.match("SERVER_PORT_NOT_SET  "));
  EXPECT_TRUE(port.match("SERVER_PORT_NOT_SET    "));
  EXPECT_FALSE(port.match("SERVER_PORT_NOT_SET "));
  EXPECT_FALSE(port.match("SERVER_PORT_NOT_SET"));
}

TEST(RegularExpressionTest, NewlineOptionAnchorsPerLine) {
  const Qiv::RegularExpression port(PORT_PATTERN, PORT_OPTIONS);
  EXPECT_TRUE(port.match("x\n389"));
  const Qiv::RegularExpression wholeText(PORT_PATTERN, REG_EXTENDED | REG_NOSUB);
  EXPECT_FALSE(wholeText.match("x\n389"));
}

TEST(RegularExpressionTest, IgnoreCase) {
  const Qiv::RegularExpression plain("^admin$", REG_EXTENDED);
  const Qiv::RegularExpression folded("^admin$", REG_EXTENDED | REG_ICASE);
  EXPECT_FALSE(plain.match("ADMIN"));
  EXPECT_TRUE(folded.match("ADMIN"));
}

TEST(RegularExpressionTest, BasicSyntaxWithoutExtended) {
  const Qiv::RegularExpression basic("a\\{2\\}", 0);
  EXPECT_TRUE(basic.match("baab"));
  EXPECT_FALSE(basic.match("bab"));
}

TEST(RegularExpressionTest, MatchesFromOffset) {
  const Qiv::RegularExpression digits("^[0-9]+$", REG_EXTENDED | REG_NOSUB);
  EXPECT_FALSE(digits.match("abc123"));
  EXPECT_TRUE(digits.match("abc123", 3));
  EXPECT_FALSE(digits.match("abc123", 2));
}

TEST(RegularExpressionTest, OffsetAtOrBeyondEnd) {
  const Qiv::RegularExpression empty("^$", REG_EXTENDED);
  EXPECT_TRUE(empty.match("abc", 3));
  EXPECT_FALSE(empty.match("abc", 4));
  const Qiv::RegularExpression any(".*", REG_EXTENDED);
  EXPECT_FALSE(any.match("abc", std::string::npos));
}

TEST(RegularExpressionTest, InvalidPatternThrowsWithRegcompText) {
  const std::string pattern = "([0-9]+";
  regex_t probe;
  const int rc = regcomp(&probe, pattern.c_str(), REG_EXTENDED);
  ASSERT_NE(0, rc);
  std::vector<char> expected(regerror(rc, &probe, nullptr, 0));
  regerror(rc, &probe, expected.data(), expected.size());
  ASSERT_GT(std::string(expected.data()).size(), 0u);

  try {
    Qiv::RegularExpression broken(pattern, REG_EXTENDED);
    FAIL() << "no exception";
  } catch (const Qiv::QivException& e) {
    EXPECT_THAT(e.what(), HasSubstr(expected.data()));
    EXPECT_THAT(e.what(), HasSubstr(pattern));
  }
}

TEST(RegularExpressionTest, InvalidBracketThrows) {
  EXPECT_THROW(Qiv::RegularExpression("[a-", REG_EXTENDED | REG_NOSUB), Qiv::QivException);
}

}  // namespace
