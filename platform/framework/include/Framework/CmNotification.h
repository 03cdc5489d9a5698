#ifndef FRAMEWORK_CM_NOTIFICATION_H
#define FRAMEWORK_CM_NOTIFICATION_H

#include <Framework/ModelStore.h>
#include <PymOamSpiCmEvent.h>

#include <memory>
#include <string>
#include <vector>

namespace Framework {

// The configuration-change notification of one committed transaction: one attribute-value
// change event per object, in DN order, carrying the new values. Owns all it points at.
class CmNotification {
 public:
  CmNotification(const ModelStore& model, unsigned long txHandle, const ModelStore::Changes& changes);
  ~CmNotification();
  CmNotification(const CmNotification&) = delete;
  CmNotification& operator=(const CmNotification&) = delete;

  const PymOamSpiCmEvent_Notification_1& get() const { return _notification; }
  bool empty() const { return _events.empty(); }

 private:
  struct Event {
    std::string dn;
    std::vector<std::string> names;
    std::vector<PymMoNamedAttributeValueContainer_3> attributes;
    std::vector<PymMoNamedAttributeValueContainer_3*> attributeArray;
    PymOamSpiCmEvent_1 event;
  };

  std::vector<std::unique_ptr<Event>> _events;
  std::vector<PymOamSpiCmEvent_1*> _eventArray;
  std::vector<PymMoAttributeValueResult_3> _values;
  PymOamSpiCmEvent_Notification_1 _notification;
};

}  // namespace Framework

#endif
