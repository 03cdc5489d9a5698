#include <Framework/CmNotification.h>

namespace Framework {

CmNotification::CmNotification(const ModelStore& model, unsigned long txHandle, const ModelStore::Changes& changes)
    : _notification{txHandle, nullptr} {
  // Changes are ordered by DN, then attribute: one event per DN.
  for (const auto& [key, values] : changes) {
    const auto& [dn, attribute] = key;
    PymMoAttributeValueResult_3 rendered = {nullptr, nullptr};
    if (model.render(dn, attribute, values, &rendered) != PymOk || rendered.container == nullptr) continue;
    _values.push_back(rendered);
    if (_events.empty() || _events.back()->dn != dn) {
      _events.push_back(std::make_unique<Event>());
      _events.back()->dn = dn;
    }
    Event& event = *_events.back();
    event.names.push_back(attribute);
    event.attributes.push_back(PymMoNamedAttributeValueContainer_3{nullptr, *rendered.container});
  }
  for (const std::unique_ptr<Event>& event : _events) {
    // Names and attributes are complete now, so their addresses stay put.
    for (std::size_t i = 0; i < event->attributes.size(); ++i) {
      event->attributes[i].name = event->names[i].c_str();
      event->attributeArray.push_back(&event->attributes[i]);
    }
    event->attributeArray.push_back(nullptr);
    event->event = PymOamSpiCmEvent_1{event->dn.c_str(), PymOamSpiCmEvent_AttributeValueChange, event->attributeArray.data()};
    _eventArray.push_back(&event->event);
  }
  _eventArray.push_back(nullptr);
  _notification.events = _eventArray.data();
}

CmNotification::~CmNotification() {
  for (PymMoAttributeValueResult_3& value : _values) value.release(value.container);
}

}  // namespace Framework
