#ifndef QIV_ACCESS_MANAGEMENT_AM_QIV_EA_WRAPPER_TIMEOUT_H
#define QIV_ACCESS_MANAGEMENT_AM_QIV_EA_WRAPPER_TIMEOUT_H

#include <atomic>

namespace Qiv {
class Timer;
}

namespace QivAccessManagement {

// The watchdog of one AmQivEaWrapper::invoke: what the timer's thread and the waiting thread
// share. Lives on the stack of the call and must outlive the timer that calls onTimer.
class AmQivEaWrapperTimeout {
 public:
  AmQivEaWrapperTimeout();
  AmQivEaWrapperTimeout(const AmQivEaWrapperTimeout&) = delete;
  AmQivEaWrapperTimeout& operator=(const AmQivEaWrapperTimeout&) = delete;

  // The child to kill; set before the timer starts.
  void setProcessId(int processId);
  // True once onTimer ran, whether or not its kill reached anything.
  bool isExpired() const;

  // Runs on the timer's thread: kills the child's whole process group (the negated pid), so
  // that whatever the child started dies with it, then marks the time-out. A failed kill is
  // only logged.
  void onTimer(Qiv::Timer& timer);

 private:
  std::atomic<int> _processId;
  std::atomic<bool> _expired;
};

}  // namespace QivAccessManagement

#endif
