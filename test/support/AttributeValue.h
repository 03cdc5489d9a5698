#ifndef TEST_ATTRIBUTE_VALUE_H
#define TEST_ATTRIBUTE_VALUE_H

#include <PymOamSpiMoValue.h>

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// An attribute value container as a framework hands it to an implementer, owning everything it
// points at.
class AttributeValue {
 public:
  static AttributeValue text(const std::vector<std::string>& values) { return AttributeValue(PymMoValueType_String, values); }
  static AttributeValue text(const std::string& value) { return text(std::vector<std::string>{value}); }
  static AttributeValue reference(const std::string& dn) { return AttributeValue(PymMoValueType_Reference, {dn}); }
  static AttributeValue unset(PymMoValueType type) { return AttributeValue(type, {}); }

  static AttributeValue boolean(bool value) {
    AttributeValue result(PymMoValueType_Bool, 1);
    result._values[0].theBool = value;
    return result;
  }

  static AttributeValue enumeration(int32_t value) {
    AttributeValue result(PymMoValueType_Enum, 1);
    result._values[0].theEnum = value;
    return result;
  }

  static AttributeValue uint16(uint16_t value) {
    AttributeValue result(PymMoValueType_Uint16, 1);
    result._values[0].u16 = value;
    return result;
  }

  // One structure value whose members hold one string each, in the order given.
  static AttributeValue structure(const std::vector<std::pair<std::string, std::string>>& members) {
    AttributeValue result(PymMoValueType_Struct, 1);
    PymMoAttrStructMember_3** next = &result._values[0].structMember;
    for (const auto& member : members) {
      result._members.push_back(std::make_unique<AttributeValue>(text(member.second)));
      result._strings.push_back(member.first);
      result._structMembers.push_back({result._strings.back().c_str(), &result._members.back()->_container, nullptr});
      *next = &result._structMembers.back();
      next = &result._structMembers.back().next;
    }
    return result;
  }

  AttributeValue(AttributeValue&&) = default;

  const PymMoAttributeValueContainer_3* get() const { return &_container; }

 private:
  AttributeValue(PymMoValueType type, std::size_t count) : _values(count) { refresh(type); }

  AttributeValue(PymMoValueType type, const std::vector<std::string>& values)
      : _strings(values.begin(), values.end()), _values(values.size()) {
    std::size_t i = 0;
    for (const std::string& value : _strings) _values[i++].theString = value.c_str();
    refresh(type);
  }

  void refresh(PymMoValueType type) {
    _container.type = type;
    _container.nrOfValues = static_cast<uint32_t>(_values.size());
    _container.values = _values.empty() ? nullptr : _values.data();
  }

  // Lists keep the addresses that the container points at stable.
  std::list<std::string> _strings;
  std::vector<PymMoAttributeValue_3> _values;
  std::list<std::unique_ptr<AttributeValue>> _members;
  std::list<PymMoAttrStructMember_3> _structMembers;
  PymMoAttributeValueContainer_3 _container{};
};

#endif
