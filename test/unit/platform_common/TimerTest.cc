#include "DirectoryEntries.h"
#include "Eventually.h"

#include <Qiv/QivException.h>
#include <Qiv/Timer.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <iterator>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using ::testing::HasSubstr;

typedef std::chrono::steady_clock Clock;

// The tasks before a test starts threads of its own. A runtime may start a helper thread at the
// process's first thread creation (ThreadSanitizer does); one thread started and joined first
// puts it among these, so what a test counts afterwards are only the threads it started.
std::set<std::string> tasksBeforeOwnThreads() {
  std::thread([] {}).join();
  return directoryEntries("/proc/self/task");
}

// The tasks that are not among before.
std::set<std::string> startedSince(const std::set<std::string>& before) {
  std::set<std::string> started;
  const std::set<std::string> now = directoryEntries("/proc/self/task");
  std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                      std::inserter(started, started.end()));
  return started;
}

// Records every firing: when and on which thread.
class Recorder {
 public:
  void onTimer(Qiv::Timer&) {
    std::lock_guard<std::mutex> lock(_mutex);
    _times.push_back(Clock::now());
    _threads.push_back(std::this_thread::get_id());
    _fired.notify_all();
  }

  void onTimerThrow(Qiv::Timer& timer) {
    onTimer(timer);
    throw std::runtime_error("callback failure");
  }

  bool waitFor(std::size_t count, std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(_mutex);
    return _fired.wait_for(lock, limit, [&] { return _times.size() >= count; });
  }

  std::size_t count() {
    std::lock_guard<std::mutex> lock(_mutex);
    return _times.size();
  }

  std::vector<Clock::time_point> times() {
    std::lock_guard<std::mutex> lock(_mutex);
    return _times;
  }

  std::vector<std::thread::id> threads() {
    std::lock_guard<std::mutex> lock(_mutex);
    return _threads;
  }

 private:
  std::mutex _mutex;
  std::condition_variable _fired;
  std::vector<Clock::time_point> _times;
  std::vector<std::thread::id> _threads;
};

TEST(TimerTest, FiresOnceOnAnotherThreadAfterTheInterval) {
  Recorder recorder;
  Qiv::Timer timer(100, 0);
  const Clock::time_point started = Clock::now();
  timer.start(Qiv::TimerCallback<Recorder>(recorder, &Recorder::onTimer));
  ASSERT_TRUE(recorder.waitFor(1, std::chrono::seconds(5)));
  const auto elapsed = recorder.times()[0] - started;
  EXPECT_GE(elapsed, std::chrono::milliseconds(100));
  EXPECT_LT(elapsed, std::chrono::milliseconds(2000));
  EXPECT_NE(std::this_thread::get_id(), recorder.threads()[0]);

  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(1u, recorder.count());
  timer.stop();
}

TEST(TimerTest, PeriodicFiresRepeatedly) {
  Recorder recorder;
  Qiv::Timer timer(10, 30);
  const Clock::time_point started = Clock::now();
  timer.start(Qiv::TimerCallback<Recorder>(recorder, &Recorder::onTimer));
  ASSERT_TRUE(recorder.waitFor(4, std::chrono::seconds(5)));
  timer.stop();
  // The fourth firing is due 10 + 3 * 30 ms after the start.
  EXPECT_GE(recorder.times()[3] - started, std::chrono::milliseconds(100));
  const std::size_t afterStop = recorder.count();
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(afterStop, recorder.count());
}

TEST(TimerTest, StopBeforeFiringCancels) {
  Recorder recorder;
  Qiv::Timer timer(200, 0);
  timer.start(Qiv::TimerCallback<Recorder>(recorder, &Recorder::onTimer));
  const Clock::time_point stopping = Clock::now();
  timer.stop();
  EXPECT_LT(Clock::now() - stopping, std::chrono::milliseconds(150));
  std::this_thread::sleep_for(std::chrono::milliseconds(400));
  EXPECT_EQ(0u, recorder.count());
}

TEST(TimerTest, NoThreadLeftAfterStop) {
  Recorder recorder;
  const std::set<std::string> before = tasksBeforeOwnThreads();
  ASSERT_FALSE(before.empty());
  Qiv::Timer timer(1000, 0);
  timer.start(Qiv::TimerCallback<Recorder>(recorder, &Recorder::onTimer));
  EXPECT_EQ(1u, startedSince(before).size());
  timer.stop();
  // The joined thread's task entry may linger a moment after join returns.
  EXPECT_TRUE(eventually([&] { return startedSince(before).empty(); }));
}

TEST(TimerTest, DestructorStops) {
  Recorder recorder;
  const std::set<std::string> before = tasksBeforeOwnThreads();
  {
    Qiv::Timer timer(200, 0);
    timer.start(Qiv::TimerCallback<Recorder>(recorder, &Recorder::onTimer));
    EXPECT_EQ(1u, startedSince(before).size());
  }
  EXPECT_TRUE(eventually([&] { return startedSince(before).empty(); }));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(0u, recorder.count());
}

TEST(TimerTest, StartTwiceThrows) {
  Recorder recorder;
  Qiv::Timer timer(1000, 0);
  const Qiv::TimerCallback<Recorder> callback(recorder, &Recorder::onTimer);
  timer.start(callback);
  EXPECT_THROW(timer.start(callback), Qiv::QivException);
  timer.stop();
}

TEST(TimerTest, RestartsAfterStop) {
  Recorder recorder;
  Qiv::Timer timer(10, 0);
  const Qiv::TimerCallback<Recorder> callback(recorder, &Recorder::onTimer);
  timer.start(callback);
  ASSERT_TRUE(recorder.waitFor(1, std::chrono::seconds(5)));
  timer.stop();
  timer.start(callback);
  ASSERT_TRUE(recorder.waitFor(2, std::chrono::seconds(5)));
  timer.stop();
}

TEST(TimerTest, ThrowingCallbackDoesNotEndPeriodicTimer) {
  Recorder recorder;
  Qiv::Timer timer(5, 5);
  testing::internal::CaptureStderr();
  timer.start(Qiv::TimerCallback<Recorder>(recorder, &Recorder::onTimerThrow));
  EXPECT_TRUE(recorder.waitFor(3, std::chrono::seconds(5)));
  timer.stop();
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("3 run: Timer callback failed: callback failure\n"));
}

TEST(TimerTest, StopBeforeStartDoesNotPreventStart) {
  Recorder recorder;
  Qiv::Timer timer(10, 0);
  timer.stop();
  timer.start(Qiv::TimerCallback<Recorder>(recorder, &Recorder::onTimer));
  EXPECT_TRUE(recorder.waitFor(1, std::chrono::seconds(5)));
}

}  // namespace
