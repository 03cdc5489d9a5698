#include <Framework/EventRouter.h>

#include <Framework/CString.h>
#include <Framework/ManagementFramework.h>
#include <PymMwSpiLogTrace.h>
#include <Qiv/QivException.h>
#include <Qiv/RegularExpression.h>

#include <regex.h>

namespace Framework {

namespace {

PymReturnT registerConsumer(QivOamSpiEventConsumer_1* consumer, unsigned long* handle) {
  return ManagementFramework::withCurrent(
      [&](ManagementFramework& framework) { return framework.eventRouter().registerConsumer(consumer, handle); });
}

PymReturnT addSubscription(unsigned long handle, const char* eventType, PymNameValuePair** filter) {
  return ManagementFramework::withCurrent(
      [&](ManagementFramework& framework) { return framework.eventRouter().addSubscription(handle, eventType, filter); });
}

PymReturnT unregisterConsumer(unsigned long handle, QivOamSpiEventConsumer_1* consumer, PymNameValuePair** filter) {
  return ManagementFramework::withCurrent([&](ManagementFramework& framework) {
    return framework.eventRouter().unregisterConsumer(handle, consumer, filter);
  });
}

QivOamSpiEventRouter_1 routerTable = {{"QivOamSpiEventService", "QivOamSpiEventRouter", "1"},
                                      registerConsumer,
                                      addSubscription,
                                      unregisterConsumer};

}  // namespace

const char EventRouter::CM_NOTIFICATION[] = "PymOamSpiCmEvent_Notification_1";
const char EventRouter::REGEXP_FILTER[] = "PymOamSpiCmEvent_FilterTypeRegExp_1";

EventRouter::EventRouter(LogCapture& log)
    : _log(log), _nextHandle(1), _pending(nullptr), _delivered(false), _stopping(false), _thread(&EventRouter::run, this) {}

EventRouter::~EventRouter() {
  {
    std::lock_guard<std::mutex> lock(_deliveryMutex);
    _stopping = true;
  }
  _wakeUp.notify_all();
  _thread.join();
}

PymReturnT EventRouter::registerConsumer(QivOamSpiEventConsumer_1* consumer, unsigned long* handle) {
  if (consumer == nullptr || consumer->notify == nullptr || handle == nullptr) return PymInvalidParameter;
  std::lock_guard<std::mutex> lock(_mutex);
  *handle = _nextHandle++;
  _consumers[*handle] = Consumer{consumer, {}};
  return PymOk;
}

PymReturnT EventRouter::addSubscription(unsigned long handle, const char* eventType, PymNameValuePair** filter) {
  std::lock_guard<std::mutex> lock(_mutex);
  if (const std::optional<PymReturnT> answer = _addSubscriptionAnswers.take()) return *answer;
  if (eventType == nullptr) return PymInvalidParameter;
  Subscription subscription{eventType, {}};
  for (PymNameValuePair** pair = filter; pair != nullptr && *pair != nullptr; ++pair)
    subscription.filter.emplace_back(CString::orEmpty((*pair)->name), CString::orEmpty((*pair)->value));
  const auto found = _consumers.find(handle);
  if (found == _consumers.end()) return PymNotExist;
  found->second.subscriptions.push_back(subscription);
  return PymOk;
}

PymReturnT EventRouter::unregisterConsumer(unsigned long handle, QivOamSpiEventConsumer_1* consumer,
                                           PymNameValuePair** filter) {
  std::lock_guard<std::mutex> lock(_mutex);
  const auto found = _consumers.find(handle);
  if (found == _consumers.end() || found->second.table != consumer) return PymNotExist;
  _consumers.erase(found);
  return PymOk;
}

void EventRouter::deliver(const PymOamSpiCmEvent_Notification_1& notification) {
  std::unique_lock<std::mutex> lock(_deliveryMutex);
  _wakeUp.wait(lock, [&] { return _pending == nullptr; });
  _pending = &notification;
  _delivered = false;
  _wakeUp.notify_all();
  _wakeUp.wait(lock, [&] { return _delivered; });
  _pending = nullptr;
  _wakeUp.notify_all();
}

std::size_t EventRouter::consumerCount() const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _consumers.size();
}

void EventRouter::answerNextAddSubscription(PymReturnT code) {
  std::lock_guard<std::mutex> lock(_mutex);
  _addSubscriptionAnswers.push(code);
}

std::vector<PymMgmtSpiInterface_1*> EventRouter::interfaces() { return {&routerTable.base}; }

void EventRouter::run() {
  std::unique_lock<std::mutex> lock(_deliveryMutex);
  for (;;) {
    _wakeUp.wait(lock, [&] { return _stopping || (_pending != nullptr && !_delivered); });
    if (_stopping) return;
    const PymOamSpiCmEvent_Notification_1* notification = _pending;
    lock.unlock();
    notifyConsumers(*notification);
    lock.lock();
    _delivered = true;
    _wakeUp.notify_all();
  }
}

void EventRouter::notifyConsumers(const PymOamSpiCmEvent_Notification_1& notification) {
  std::vector<std::pair<unsigned long, Consumer>> consumers;
  {
    std::lock_guard<std::mutex> lock(_mutex);
    consumers.assign(_consumers.begin(), _consumers.end());
  }
  for (const auto& [handle, consumer] : consumers) {
    for (const Subscription& subscription : consumer.subscriptions) {
      if (subscription.eventType != CM_NOTIFICATION) continue;
      std::vector<PymOamSpiCmEvent_1*> events;
      for (PymOamSpiCmEvent_1** event = notification.events; event != nullptr && *event != nullptr; ++event)
        if (matches(subscription, (*event)->dn)) events.push_back(*event);
      if (events.empty()) continue;
      events.push_back(nullptr);
      PymOamSpiCmEvent_Notification_1 selected = {notification.txHandle, events.data()};
      std::vector<PymNameValuePair> pairs;
      for (const auto& [name, value] : subscription.filter)
        pairs.push_back(PymNameValuePair{const_cast<char*>(name.c_str()), const_cast<char*>(value.c_str())});
      std::vector<PymNameValuePair*> filter;
      for (PymNameValuePair& pair : pairs) filter.push_back(&pair);
      filter.push_back(nullptr);
      const PymReturnT result = consumer.table->notify(handle, CM_NOTIFICATION, filter.data(), &selected);
      if (result != PymOk)
        _log.record(PymLogWarning, "deliver", "consumer " + std::to_string(handle) + " answered " + std::to_string(result));
    }
  }
}

bool EventRouter::matches(const Subscription& subscription, const char* dn) {
  if (dn == nullptr) return false;
  for (const auto& [name, value] : subscription.filter) {
    if (name != REGEXP_FILTER) continue;
    try {
      if (Qiv::RegularExpression(value, REG_EXTENDED | REG_NOSUB).match(dn)) return true;
    } catch (const Qiv::QivException&) {
      // A filter that does not compile selects nothing.
    }
  }
  return false;
}

}  // namespace Framework
