#include <Qiv/LoggingWrapper.h>
#include <Qiv/QivException.h>
#include <Qiv/Timer.h>

#include <chrono>
#include <exception>

namespace Qiv {

Timer::Timer(long startIntervalMs, long periodicIntervalMs)
    : _startInterval(startIntervalMs), _periodicInterval(periodicIntervalMs), _stopRequested(false) {}

Timer::~Timer() { stop(); }

// start() and stop() are meant for one controlling thread; the timer's own thread only reads
// _stopRequested.
void Timer::start(const AbstractTimerCallback& callback) {
  std::lock_guard<std::mutex> lock(_mutex);
  if (_thread.joinable()) throw QivException("Timer already started");
  _callback.reset(callback.clone());
  _stopRequested = false;
  _thread = std::thread(&Timer::run, this);
}

void Timer::stop() {
  {
    std::lock_guard<std::mutex> lock(_mutex);
    _stopRequested = true;
  }
  _wakeUp.notify_all();
  if (_thread.joinable()) _thread.join();
}

void Timer::run() {
  typedef std::chrono::steady_clock Clock;
  // Deadlines are counted from the previous one so that periodic timers do not drift.
  Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(_startInterval);
  std::unique_lock<std::mutex> lock(_mutex);
  for (;;) {
    if (_wakeUp.wait_until(lock, deadline, [this] { return _stopRequested; })) return;
    lock.unlock();
    try {
      _callback->invoke(*this);
    } catch (const std::exception& e) {
      QIV_LOG(3, "Timer callback failed: %s", e.what());
    } catch (...) {
      QIV_LOG(3, "Timer callback failed with an unknown exception");
    }
    lock.lock();
    if (_periodicInterval <= 0) return;
    deadline += std::chrono::milliseconds(_periodicInterval);
  }
}

}  // namespace Qiv
