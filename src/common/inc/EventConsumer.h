#ifndef QIV_EVENT_CONSUMER_H
#define QIV_EVENT_CONSUMER_H

#include "NameValuePair.h"

#include <PymOamSpiCmEvent.h>
#include <Qiv/AutoMemory.h>
#include <Qiv/LoggingWrapper.h>
#include <Qiv/Portal.h>

#include <cassert>
#include <cstddef>
#include <exception>
#include <functional>
#include <string>
#include <vector>

namespace Qiv {

// A subscription at the framework's event router with the router's C callback. One consumer of
// each <SubscriberT, instanceNumber> may exist in the process, since the callback finds it
// through a static pointer. start and stop run on the framework's control thread; the router
// calls back on its own thread.
template <class SubscriberT, int instanceNumber>
class EventConsumer {
 public:
  EventConsumer() : _consumer(), _handle(0), _started(false), _filter(nullptr) {
    assert(_instance == __null);
    _instance = this;
    _consumer.notify = &notifyCallback;
  }

  virtual ~EventConsumer() {
    stop();
    _instance = nullptr;
  }

  EventConsumer(const EventConsumer&) = delete;
  EventConsumer& operator=(const EventConsumer&) = delete;

  // Registers with the router and subscribes to eventType with filters; callback is then called
  // on object for every notification. Failures are logged and leave the consumer stopped and not
  // registered. Does nothing while started.
  template <class ObjectT>
  void start(const std::vector<NameValuePair>& filters, void (ObjectT::*callback)(const char*, void*), ObjectT* object,
             const char* eventType) {
    QIV_TRACE(" >> ");
    if (_started) return;
    _filters = filters;
    _eventType = eventType;
    _callback = [object, callback](const char* type, void* value) { (object->*callback)(type, value); };
    QivOamSpiEventRouter_1* router = eventRouter();
    if (router == nullptr || router->registerConsumer(&_consumer, &_handle) != 0) {
      QIV_LOG(3, "Could not register consumer");
      return;
    }
    _filter = toCFilter(_filters, _filterMemory);
    if (router->addSubscription(_handle, _eventType.c_str(), _filter) != 0) {
      QIV_LOG(3, "Could not add subscription");
      // Left registered, a later start would register a second consumer.
      withdraw(router);
      return;
    }
    _started = true;
    QIV_TRACE(" << ");
  }

  // Removes the subscription and the consumer; nothing to do when not started.
  void stop() {
    if (!_started) return;
    withdraw(eventRouter());
    _started = false;
  }

  bool isStarted() const { return _started; }

  // The router's form of filters: a null-terminated array of pairs, all owned by memory.
  static PymNameValuePair** toCFilter(const std::vector<NameValuePair>& filters, AutoMemory& memory) {
    PymNameValuePair** array =
        static_cast<PymNameValuePair**>(memory.allocate((filters.size() + 1) * sizeof(PymNameValuePair*)));
    for (std::size_t i = 0; i < filters.size(); ++i) {
      array[i] = static_cast<PymNameValuePair*>(memory.allocate(sizeof(PymNameValuePair)));
      array[i]->name = memory.duplicate(filters[i].name.c_str());
      array[i]->value = memory.duplicate(filters[i].value.c_str());
    }
    return array;
  }

  // What the router calls; nothing thrown by the subscriber reaches the router.
  static PymReturnT notifyCallback(unsigned long handle, const char* eventType, PymNameValuePair** filter,
                                   void* value) {
    assert(_instance != __null);
    try {
      _instance->_callback(eventType, value);
    } catch (const std::exception& e) {
      QIV_LOG(4, "Exception thrown from event consumer :%s", e.what());
    } catch (...) {
      QIV_LOG(4, "Unknown exception thrown from event consumer");
    }
    return 0;
  }

 private:
  // Takes the consumer off router (null: gone already) and frees its filter.
  void withdraw(QivOamSpiEventRouter_1* router) {
    if (router != nullptr) router->unregisterConsumer(_handle, &_consumer, _filter);
    _handle = 0;
    _filter = nullptr;
    _filterMemory.freeAll();
  }

  static QivOamSpiEventRouter_1* eventRouter() {
    static const PymMgmtSpiInterface_1 ROUTER_ID = {"QivOamSpiEventService", "QivOamSpiEventRouter", "1"};
    return Portal::instance().getInterface<QivOamSpiEventRouter_1>(ROUTER_ID);
  }

  static EventConsumer* _instance;

  QivOamSpiEventConsumer_1 _consumer;
  unsigned long _handle;
  AutoMemory _filterMemory;
  std::string _eventType;
  bool _started;
  std::vector<NameValuePair> _filters;
  PymNameValuePair** _filter;  // the C form of _filters, in _filterMemory
  std::function<void(const char*, void*)> _callback;
};

template <class SubscriberT, int instanceNumber>
EventConsumer<SubscriberT, instanceNumber>* EventConsumer<SubscriberT, instanceNumber>::_instance = nullptr;

}  // namespace Qiv

#endif
