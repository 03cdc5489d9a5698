#include <Qiv/AutoMemory.h>
#include <Qiv/MoAccessorCore.h>

namespace Qiv {

namespace {

PymMoAttributeValueContainer_3* copyContainer(AutoMemory& memory, const PymMoAttributeValueContainer_3* source);

template <class T>
T* allocateArray(AutoMemory& memory, std::size_t count) {
  return static_cast<T*>(memory.allocate(count * sizeof(T)));
}

PymMoAttrStructMember_3* copyMembers(AutoMemory& memory, const PymMoAttrStructMember_3* source) {
  PymMoAttrStructMember_3* first = nullptr;
  PymMoAttrStructMember_3** tail = &first;
  for (; source != nullptr; source = source->next) {
    PymMoAttrStructMember_3* copy = allocateArray<PymMoAttrStructMember_3>(memory, 1);
    copy->memberName = memory.duplicate(source->memberName);
    copy->memberValue = copyContainer(memory, source->memberValue);
    *tail = copy;
    tail = &copy->next;
  }
  return first;
}

PymMoAttributeValue_3 copyValue(AutoMemory& memory, PymMoValueType type, const PymMoAttributeValue_3& source) {
  PymMoAttributeValue_3 copy = source;
  switch (type) {
    case PymMoValueType_String:
      copy.theString = memory.duplicate(source.theString);
      break;
    case PymMoValueType_Reference:
      copy.moRef = memory.duplicate(source.moRef);
      break;
    case PymMoValueType_Struct:
      copy.structMember = copyMembers(memory, source.structMember);
      break;
    default:
      break;
  }
  return copy;
}

// A copy of source, strings and nested structures included, owned by memory.
PymMoAttributeValueContainer_3* copyContainer(AutoMemory& memory, const PymMoAttributeValueContainer_3* source) {
  if (source == nullptr) return nullptr;
  PymMoAttributeValueContainer_3* copy = allocateArray<PymMoAttributeValueContainer_3>(memory, 1);
  copy->type = source->type;
  copy->nrOfValues = source->nrOfValues;
  if (source->values == nullptr || source->nrOfValues == 0) return copy;
  copy->values = allocateArray<PymMoAttributeValue_3>(memory, source->nrOfValues);
  for (uint32_t i = 0; i < source->nrOfValues; ++i) {
    copy->values[i] = copyValue(memory, source->type, source->values[i]);
  }
  return copy;
}

}  // namespace

class MoAccessor::Struct::Member {
 public:
  explicit Member(const PymMoAttrStructMember_3& source)
      : _name(source.memberName != nullptr ? source.memberName : ""),
        _value(copyContainer(_memory, source.memberValue)) {}
  Member(const Member&) = delete;
  Member& operator=(const Member&) = delete;

  const std::string& name() const { return _name; }
  const PymMoAttributeValueContainer_3* value() const { return _value; }

 private:
  std::string _name;
  AutoMemory _memory;  // owns everything _value points to
  PymMoAttributeValueContainer_3* _value;
};

MoAccessor::Struct::Struct() = default;

MoAccessor::Struct::Struct(const PymMoAttrStructMember_3* members) {
  for (; members != nullptr; members = members->next) {
    _members.push_back(std::make_shared<const Member>(*members));
  }
}

const PymMoAttributeValueContainer_3* MoAccessor::Struct::getMemberValueContainer(
    const std::string& memberName) const {
  for (const std::shared_ptr<const Member>& member : _members) {
    if (member->name() == memberName) return member->value();
  }
  return nullptr;
}

}  // namespace Qiv
