#ifndef QIV_TIMER_H
#define QIV_TIMER_H

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace Qiv {

class Timer;

// What a Timer calls when it fires.
class AbstractTimerCallback {
 public:
  virtual ~AbstractTimerCallback() = default;
  virtual void invoke(Timer& timer) const = 0;
  virtual AbstractTimerCallback* clone() const = 0;
};

// Calls a member function of an object.
template <class C>
class TimerCallback : public AbstractTimerCallback {
 public:
  typedef void (C::*Callback)(Timer&);

  TimerCallback(C& object, Callback method) : _object(&object), _method(method) {}
  void invoke(Timer& timer) const override { (_object->*_method)(timer); }
  AbstractTimerCallback* clone() const override { return new TimerCallback(*this); }

 private:
  C* _object;
  Callback _method;
};

// Fires after startIntervalMs on a thread of its own, then every periodicIntervalMs (0: once).
// stop() cancels a timer that has not fired and waits for a callback that is running; the
// thread never outlives stop() or the destructor. Not to be stopped from its own callback.
class Timer {
 public:
  explicit Timer(long startIntervalMs = 0, long periodicIntervalMs = 0);
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  // Starts the timer with a copy of callback. Throws QivException when already started.
  void start(const AbstractTimerCallback& callback);
  void stop();

 private:
  void run();

  long _startInterval;
  long _periodicInterval;
  std::unique_ptr<AbstractTimerCallback> _callback;
  std::mutex _mutex;
  std::condition_variable _wakeUp;
  bool _stopRequested;
  std::thread _thread;
};

}  // namespace Qiv

#endif
