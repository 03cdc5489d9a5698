#include <Qiv/LoggingWrapper.h>
#include <Qiv/Portal.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "FakeFramework.h"

namespace {

using ::testing::HasSubstr;

class LoggingWrapperTest : public FakeFrameworkTest {};

TEST_F(LoggingWrapperTest, WritesUpToTheFrameworkLevel) {
  logLevel = PymLogInfo;
  Qiv::LoggingWrapper::log_printf("configure", 6, "%s=%d", "port", 389);
  Qiv::LoggingWrapper::log_printf("configure", 7, "debug %d", 1);
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ(6, lines[0].level);
  EXPECT_EQ("configure", lines[0].method);
  EXPECT_EQ("port=389", lines[0].text);
  EXPECT_FALSE(lines[0].traced);
  EXPECT_TRUE(Qiv::LoggingWrapper::isEnabled(6));
  EXPECT_FALSE(Qiv::LoggingWrapper::isEnabled(7));
}

TEST_F(LoggingWrapperTest, FollowsLevelChanges) {
  logLevel = PymLogError;
  QIV_LOG(4, "warning dropped");
  logLevel = PymLogDebug;
  QIV_LOG(7, "debug kept");
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ(7, lines[0].level);
  EXPECT_EQ("debug kept", lines[0].text);
  EXPECT_EQ("TestBody", lines[0].method);
}

TEST_F(LoggingWrapperTest, TraceOnlyWhileTraceIsEnabled) {
  logLevel = 9;
  traceEnabled = false;
  QIV_TRACE("dropped %d", 1);
  EXPECT_FALSE(Qiv::LoggingWrapper::isEnabled(Qiv::LoggingWrapper::TRACE));
  EXPECT_TRUE(lines.empty());

  traceEnabled = true;
  QIV_TRACE("kept %d", 2);
  EXPECT_TRUE(Qiv::LoggingWrapper::isEnabled(Qiv::LoggingWrapper::TRACE));
  ASSERT_EQ(1u, lines.size());
  EXPECT_TRUE(lines[0].traced);
  EXPECT_EQ("kept 2", lines[0].text);
  EXPECT_EQ("TestBody", lines[0].method);
}

TEST_F(LoggingWrapperTest, TraceIgnoresTheLogLevel) {
  logLevel = PymLogError;
  traceEnabled = true;
  Qiv::LoggingWrapper::log_printf("poll", Qiv::LoggingWrapper::TRACE, "tick");
  ASSERT_EQ(1u, lines.size());
  EXPECT_TRUE(lines[0].traced);
  EXPECT_EQ("poll", lines[0].method);
}

TEST_F(LoggingWrapperTest, NoTraceInterfaceMeansNoTrace) {
  offered.erase("PymMwSpiTrace");
  attach();
  traceEnabled = true;
  EXPECT_FALSE(Qiv::LoggingWrapper::isEnabled(Qiv::LoggingWrapper::TRACE));
  QIV_TRACE("dropped");
  EXPECT_TRUE(lines.empty());
}

TEST_F(LoggingWrapperTest, LongMessageIsNotTruncated) {
  const std::string big(6000, 'a');
  QIV_LOG(3, "[%s]", big.c_str());
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ("[" + big + "]", lines[0].text);
}

TEST_F(LoggingWrapperTest, LooksInterfacesUpOnce) {
  QIV_LOG(3, "first");
  const std::size_t afterFirst = lookups.size();
  EXPECT_EQ(2u, afterFirst);
  QIV_LOG(3, "second");
  Qiv::LoggingWrapper::isEnabled(8);
  EXPECT_EQ(afterFirst, lookups.size());
  EXPECT_EQ(2u, lines.size());
}

TEST_F(LoggingWrapperTest, AsksForLogVersion1AndAnyTrace) {
  Qiv::LoggingWrapper::isEnabled(3);
  EXPECT_THAT(lookups, ::testing::UnorderedElementsAre("-|PymMwSpiLog|1", "-|PymMwSpiTrace|-"));
}

TEST_F(LoggingWrapperTest, ForgetsFrameworkAfterDetach) {
  QIV_LOG(6, "attached");
  ASSERT_EQ(1u, lines.size());

  detach();
  EXPECT_FALSE(Qiv::LoggingWrapper::isEnabled(6));
  EXPECT_TRUE(Qiv::LoggingWrapper::isEnabled(4));
  testing::internal::CaptureStderr();
  Qiv::LoggingWrapper::log_printf("shutdown", 3, "lost %s", "link");
  Qiv::LoggingWrapper::log_printf("shutdown", 6, "not shown");
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ("3 shutdown: lost link\n", err);
  EXPECT_EQ(1u, lines.size());
}

TEST_F(LoggingWrapperTest, FindsNewFrameworkAfterAttach) {
  detach();
  EXPECT_FALSE(Qiv::LoggingWrapper::isEnabled(6));
  attach();
  EXPECT_TRUE(Qiv::LoggingWrapper::isEnabled(6));
  QIV_LOG(6, "back");
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ("back", lines[0].text);
}

TEST_F(LoggingWrapperTest, ResetLooksUpAgain) {
  QIV_LOG(3, "one");
  offered.erase("PymMwSpiLog");
  QIV_LOG(3, "still cached");
  EXPECT_EQ(2u, lines.size());
  Qiv::LoggingWrapper::reset();
  testing::internal::CaptureStderr();
  QIV_LOG(3, "to stderr");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("3 TestBody: to stderr"));
  EXPECT_EQ(2u, lines.size());
}

TEST_F(LoggingWrapperTest, ConcurrentLinesSurviveResets) {
  const int threads = 4;
  const int linesPerThread = 2000;
  std::vector<std::thread> writers;
  testing::internal::CaptureStderr();
  for (int t = 0; t < threads; ++t) {
    writers.emplace_back([t] {
      for (int i = 0; i < linesPerThread; ++i) Qiv::LoggingWrapper::log_printf("worker", 3, "%d/%d", t, i);
    });
  }
  for (int i = 0; i < 200; ++i) {
    Qiv::LoggingWrapper::reset();
    std::this_thread::yield();
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  EXPECT_EQ(static_cast<std::size_t>(threads * linesPerThread), lines.size());
  EXPECT_EQ(1u, countLines(3, "3/1999"));
}

TEST(LoggingWrapperWithoutFrameworkTest, ErrorsAndWarningsGoToStandardError) {
  Qiv::Portal::instance().setAccessor(nullptr);
  EXPECT_TRUE(Qiv::LoggingWrapper::isEnabled(3));
  EXPECT_TRUE(Qiv::LoggingWrapper::isEnabled(4));
  EXPECT_FALSE(Qiv::LoggingWrapper::isEnabled(5));
  EXPECT_FALSE(Qiv::LoggingWrapper::isEnabled(Qiv::LoggingWrapper::TRACE));
  const std::string big(5000, 'z');
  testing::internal::CaptureStderr();
  Qiv::LoggingWrapper::log_printf("start", 4, "w%d", 1);
  Qiv::LoggingWrapper::log_printf("start", 5, "notice");
  Qiv::LoggingWrapper::log_printf("start", Qiv::LoggingWrapper::TRACE, "trace");
  Qiv::LoggingWrapper::log_printf("start", 3, "%s", big.c_str());
  EXPECT_EQ("4 start: w1\n3 start: " + big + "\n", testing::internal::GetCapturedStderr());
}

}  // namespace
