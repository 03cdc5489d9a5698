#ifndef QIV_ACCESS_MANAGEMENT_AM_QIV_EA_WRAPPER_TIMEOUT_H
#define QIV_ACCESS_MANAGEMENT_AM_QIV_EA_WRAPPER_TIMEOUT_H

#include <atomic>

namespace Qiv {
class Timer;
}

namespace QivAccessManagement {

// The watchdog of one child run (qivea's invoke, an acs-config-update run): what the timer's
// thread and the waiting thread share. Lives on the stack of the call and must outlive the timer
// that calls onTimer.
class AmQivEaWrapperTimeout {
 public:
  // qivea's watchdog: a warning "Timer has expired, killing process (pid %d)".
  AmQivEaWrapperTimeout();
  // A watchdog whose expiry is logged at level with expiredFormat, a literal with one %d, the pid.
  AmQivEaWrapperTimeout(int level, const char* expiredFormat);
  AmQivEaWrapperTimeout(const AmQivEaWrapperTimeout&) = delete;
  AmQivEaWrapperTimeout& operator=(const AmQivEaWrapperTimeout&) = delete;

  // The child to kill; set before the timer starts.
  void setProcessId(int processId);
  // True once onTimer ran, whether or not its kill reached anything.
  bool isExpired() const;

  // Runs on the timer's thread: kills the child's whole process group (the negated pid), so
  // that whatever the child started dies with it, and the child itself, should it have left that
  // group; then marks the time-out. A failed kill of the group is only logged. The caller keeps
  // the child unreaped until the timer stopped, so the pid names no other process.
  void onTimer(Qiv::Timer& timer);

 private:
  const int _level;
  const char* const _expiredFormat;
  std::atomic<int> _processId;
  std::atomic<bool> _expired;
};

}  // namespace QivAccessManagement

#endif
