#include "FrameworkTest.h"

#include <Framework/LogCapture.h>
#include <PymMwSpiLogTrace.h>

#include <gtest/gtest.h>

using Framework::LogCapture;

TEST(LogCapture, RecordsEveryLineInOrder) {
  LogCapture log;
  log.setEchoLevel(-1);
  log.record(3, "first", "disk full");
  log.record(8, "second", "entering");
  const auto records = log.records();
  ASSERT_EQ(2u, records.size());
  EXPECT_EQ(3, records[0].level);
  EXPECT_EQ("first", records[0].method);
  EXPECT_EQ("disk full", records[0].text);
  EXPECT_EQ(8, records[1].level);
  EXPECT_EQ("second", records[1].method);
}

TEST(LogCapture, CountsByLevelAndTextOrFragment) {
  LogCapture log;
  log.setEchoLevel(-1);
  log.record(4, "m", "LDAP server unreachable");
  log.record(4, "m", "LDAP server unreachable");
  log.record(6, "m", "LDAP server unreachable");
  log.record(6, "m", "other");
  EXPECT_EQ(2u, log.count(4, "LDAP server unreachable"));
  EXPECT_EQ(0u, log.count(3, "LDAP server unreachable"));
  EXPECT_TRUE(log.contains(6, "other"));
  EXPECT_FALSE(log.contains(4, "other"));
  EXPECT_EQ(3u, log.countContaining("unreachable"));
  log.clear();
  EXPECT_TRUE(log.records().empty());
  EXPECT_EQ(0u, log.countContaining("unreachable"));
}

TEST(LogCapture, LevelDefaultsToInfo) {
  LogCapture log;
  EXPECT_EQ(6, log.getLevel());
  log.setLevel(8);
  EXPECT_EQ(8, log.getLevel());
}

TEST(LogCapture, EchoesLinesAtOrBelowTheEchoLevelToStandardError) {
  LogCapture log;
  log.setEchoLevel(4);
  ::testing::internal::CaptureStderr();
  log.record(4, "method", "shown");
  log.record(5, "method", "hidden");
  const std::string echoed = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(std::string::npos, echoed.find("method: shown"));
  EXPECT_EQ(std::string::npos, echoed.find("hidden"));
}

class LogTables : public FrameworkTest {};

TEST_F(LogTables, LogRecordsLevelMethodAndText) {
  auto* log = lookup<PymMwSpiLog_1>(nullptr, "PymMwSpiLog", "1");
  ASSERT_NE(nullptr, log);
  log->log(PymLogWarning, "bind", "bind failed");
  log->log(PymLogError, nullptr, nullptr);
  const auto records = framework->log().records();
  ASSERT_EQ(2u, records.size());
  EXPECT_EQ(PymLogWarning, records[0].level);
  EXPECT_EQ("bind", records[0].method);
  EXPECT_EQ("bind failed", records[0].text);
  EXPECT_EQ("", records[1].text);
}

TEST_F(LogTables, GetLevelAnswersTheConfiguredLevel) {
  auto* log = lookup<PymMwSpiLog_1>(nullptr, "PymMwSpiLog", "1");
  ASSERT_NE(nullptr, log);
  EXPECT_EQ(6, log->getLevel());
  framework->log().setLevel(3);
  EXPECT_EQ(3, log->getLevel());
}

TEST_F(LogTables, TraceRecordsAtLevelEightAndIsEnabledAboveSeven) {
  auto* trace = lookup<PymMwSpiTrace_1>(nullptr, "PymMwSpiTrace", nullptr);
  ASSERT_NE(nullptr, trace);
  EXPECT_FALSE(trace->isEnabled());
  framework->log().setLevel(7);
  EXPECT_FALSE(trace->isEnabled());
  framework->log().setLevel(8);
  EXPECT_TRUE(trace->isEnabled());
  trace->trace("getRoles", "enter");
  EXPECT_TRUE(framework->log().contains(8, "enter"));
  EXPECT_EQ("getRoles", framework->log().records().back().method);
}

TEST_F(LogTables, WithoutFrameworkNothingIsWrittenAndNothingCrashes) {
  auto* log = lookup<PymMwSpiLog_1>(nullptr, "PymMwSpiLog", "1");
  auto* trace = lookup<PymMwSpiTrace_1>(nullptr, "PymMwSpiTrace", "1");
  ASSERT_NE(nullptr, log);
  ASSERT_NE(nullptr, trace);
  framework.reset();
  log->log(PymLogError, "m", "lost");
  trace->trace("m", "lost");
  EXPECT_EQ(0, log->getLevel());
  EXPECT_FALSE(trace->isEnabled());
}
