#ifndef FRAMEWORK_EVENT_ROUTER_H
#define FRAMEWORK_EVENT_ROUTER_H

#include <Framework/LogCapture.h>
#include <Framework/ScriptedAnswers.h>
#include <PymOamSpiCmEvent.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Framework {

// The event service ("QivOamSpiEventRouter" "1"): consumers subscribe to an event type with
// filters, and notifications reach them on the router's own thread. For configuration-change
// notifications a "PymOamSpiCmEvent_FilterTypeRegExp_1" filter selects events by DN (POSIX
// extended expression); a consumer gets only the events its filters match. Thread-safe.
class EventRouter {
 public:
  static const char CM_NOTIFICATION[];
  static const char REGEXP_FILTER[];

  explicit EventRouter(LogCapture& log);
  // Joins the router's thread.
  ~EventRouter();
  EventRouter(const EventRouter&) = delete;
  EventRouter& operator=(const EventRouter&) = delete;

  PymReturnT registerConsumer(QivOamSpiEventConsumer_1* consumer, unsigned long* handle);
  // PymNotExist for an unknown handle; the filter is copied.
  PymReturnT addSubscription(unsigned long handle, const char* eventType, PymNameValuePair** filter);
  // Removes the consumer and its subscriptions; PymNotExist when unknown.
  PymReturnT unregisterConsumer(unsigned long handle, QivOamSpiEventConsumer_1* consumer, PymNameValuePair** filter);

  // Hands a configuration-change notification to every consumer with a matching subscription,
  // on the router's thread, and returns once all of them were called. The notification stays the
  // caller's. Not to be called from a consumer's notify.
  void deliver(const PymOamSpiCmEvent_Notification_1& notification);

  std::size_t consumerCount() const;

  // Test hook: the next addSubscription answers code and subscribes nothing (queued, one per
  // call), as a router short of resources would.
  void answerNextAddSubscription(PymReturnT code);

  // The "QivOamSpiEventRouter" "1" table of "QivOamSpiEventService".
  static std::vector<PymMgmtSpiInterface_1*> interfaces();

 private:
  struct Subscription {
    std::string eventType;
    std::vector<std::pair<std::string, std::string>> filter;
  };
  struct Consumer {
    QivOamSpiEventConsumer_1* table;
    std::vector<Subscription> subscriptions;
  };

  void run();
  // Calls every consumer whose subscriptions match; on the router's thread.
  void notifyConsumers(const PymOamSpiCmEvent_Notification_1& notification);
  static bool matches(const Subscription& subscription, const char* dn);

  LogCapture& _log;
  mutable std::mutex _mutex;
  std::map<unsigned long, Consumer> _consumers;
  unsigned long _nextHandle;
  ScriptedAnswers _addSubscriptionAnswers;

  // One delivery at a time is handed to the router's thread.
  std::mutex _deliveryMutex;
  std::condition_variable _wakeUp;
  const PymOamSpiCmEvent_Notification_1* _pending;
  bool _delivered;
  bool _stopping;
  std::thread _thread;
};

}  // namespace Framework

#endif
