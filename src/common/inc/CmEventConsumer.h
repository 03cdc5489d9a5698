#ifndef QIV_CM_EVENT_CONSUMER_H
#define QIV_CM_EVENT_CONSUMER_H

#include "EventConsumer.h"

#include <string>
#include <vector>

namespace Qiv {

// Configuration-change notifications for objects whose DN matches one of a list of regular
// expressions, handed to a member function of the subscriber.
template <class SubscriberT, int instanceNumber>
class CmEventConsumer : public EventConsumer<SubscriberT, instanceNumber> {
 public:
  typedef void (SubscriberT::*Callback)(const PymOamSpiCmEvent_Notification_1&);

  CmEventConsumer() : _subscriber(nullptr), _callback(nullptr) {}

  void start(const std::string& dnPattern, Callback callback, SubscriberT* subscriber) {
    start(std::vector<std::string>(1, dnPattern), callback, subscriber);
  }

  void start(const std::vector<std::string>& dnPatterns, Callback callback, SubscriberT* subscriber) {
    _subscriber = subscriber;
    _callback = callback;
    std::vector<NameValuePair> filters;
    for (const std::string& pattern : dnPatterns) filters.emplace_back("PymOamSpiCmEvent_FilterTypeRegExp_1", pattern);
    EventConsumer<SubscriberT, instanceNumber>::start(filters, &CmEventConsumer::notifyCb, this,
                                                      "PymOamSpiCmEvent_Notification_1");
  }

  void stop() {
    QIV_TRACE(" >> ");
    EventConsumer<SubscriberT, instanceNumber>::stop();
  }

  void notifyCb(const char* eventType, void* value) {
    (_subscriber->*_callback)(*static_cast<const PymOamSpiCmEvent_Notification_1*>(value));
  }

 private:
  SubscriberT* _subscriber;
  Callback _callback;
};

}  // namespace Qiv

#endif
