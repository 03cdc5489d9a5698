#include <Qiv/QivException.h>
#include <gtest/gtest.h>

#include <string>

namespace {

TEST(QivExceptionTest, FormatsMessageWithDefaultCode) {
  const Qiv::QivException e("Failed to read '%s' (%d)", "userLabel", -2);
  EXPECT_STREQ("Failed to read 'userLabel' (-2)", e.what());
  EXPECT_EQ(-1, e.code());
}

TEST(QivExceptionTest, KeepsGivenCode) {
  const Qiv::QivException e(42, "code %d", 42);
  EXPECT_EQ(42, e.code());
  EXPECT_STREQ("code 42", e.what());
}

TEST(QivExceptionTest, LongMessageIsNotTruncated) {
  const std::string part(10000, 'x');
  const Qiv::QivException e("<%s|%s>", part.c_str(), part.c_str());
  EXPECT_EQ("<" + part + "|" + part + ">", std::string(e.what()));
}

TEST(QivExceptionTest, EmptyMessage) {
  const Qiv::QivException e("%s", "");
  EXPECT_STREQ("", e.what());
}

TEST(QivExceptionTest, CaughtAsStdException) {
  try {
    throw Qiv::QivException(7, "boom");
  } catch (const std::exception& e) {
    EXPECT_STREQ("boom", e.what());
    return;
  }
  FAIL() << "not caught as std::exception";
}

}  // namespace
