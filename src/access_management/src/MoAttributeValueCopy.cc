#include "MoAttributeValueCopy.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace QivAccessManagement {

namespace {

void* allocate(std::size_t size) {
  void* memory = std::calloc(1, size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

const char* copyText(const char* text) {
  if (text == nullptr) return nullptr;
  const std::size_t length = std::strlen(text) + 1;
  char* copied = static_cast<char*>(allocate(length));
  std::memcpy(copied, text, length);
  return copied;
}

bool holdsText(PymMoValueType type) { return type == PymMoValueType_String || type == PymMoValueType_Reference; }

}  // namespace

PymMoAttributeValueContainer_3* MoAttributeValueCopy::copy(const PymMoAttributeValueContainer_3& source) {
  auto* container = static_cast<PymMoAttributeValueContainer_3*>(allocate(sizeof(PymMoAttributeValueContainer_3)));
  try {
    copyInto(source, *container);
  } catch (...) {
    release(container);
    throw;
  }
  return container;
}

void MoAttributeValueCopy::copyInto(const PymMoAttributeValueContainer_3& source,
                                    PymMoAttributeValueContainer_3& target) {
  target.type = source.type;
  if (source.nrOfValues == 0 || source.values == nullptr) return;
  target.values = static_cast<PymMoAttributeValue_3*>(allocate(sizeof(PymMoAttributeValue_3) * source.nrOfValues));
  for (uint32_t i = 0; i < source.nrOfValues; ++i) {
    // Counted as it grows, so that a failure part-way releases exactly what was copied.
    target.nrOfValues = i + 1;
    const PymMoAttributeValue_3& from = source.values[i];
    PymMoAttributeValue_3& to = target.values[i];
    if (holdsText(source.type)) {
      to.theString = copyText(from.theString);
    } else if (source.type == PymMoValueType_Struct) {
      PymMoAttrStructMember_3** next = &to.structMember;
      for (const PymMoAttrStructMember_3* member = from.structMember; member != nullptr; member = member->next) {
        auto* copied = static_cast<PymMoAttrStructMember_3*>(allocate(sizeof(PymMoAttrStructMember_3)));
        *next = copied;
        next = &copied->next;
        copied->memberName = copyText(member->memberName);
        if (member->memberValue != nullptr) copied->memberValue = copy(*member->memberValue);
      }
    } else {
      to = from;
    }
  }
}

void MoAttributeValueCopy::release(PymMoAttributeValueContainer_3* container) {
  if (container == nullptr) return;
  releaseValues(*container);
  std::free(container);
}

void MoAttributeValueCopy::releaseValues(PymMoAttributeValueContainer_3& container) {
  if (container.values == nullptr) return;
  for (uint32_t i = 0; i < container.nrOfValues; ++i) {
    PymMoAttributeValue_3& value = container.values[i];
    if (holdsText(container.type)) {
      std::free(const_cast<char*>(value.theString));
    } else if (container.type == PymMoValueType_Struct) {
      PymMoAttrStructMember_3* member = value.structMember;
      while (member != nullptr) {
        PymMoAttrStructMember_3* next = member->next;
        std::free(const_cast<char*>(member->memberName));
        release(member->memberValue);
        std::free(member);
        member = next;
      }
    }
  }
  std::free(container.values);
}

void MoAttributeValueCopy::releaseAll(PymMoAttributeValueContainer_3** containers) {
  if (containers == nullptr) return;
  for (PymMoAttributeValueContainer_3** container = containers; *container != nullptr; ++container) release(*container);
  std::free(containers);
}

}  // namespace QivAccessManagement
