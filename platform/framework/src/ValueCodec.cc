#include <Framework/ValueCodec.h>

#include <Framework/CString.h>

#include <charconv>
#include <cstdlib>
#include <new>
#include <stdexcept>

namespace Framework {

namespace {

template <class T>
T* allocate(std::size_t count) {
  void* memory = std::calloc(count, sizeof(T));
  if (memory == nullptr) throw std::bad_alloc();
  return static_cast<T*>(memory);
}

template <class T>
T parseInteger(const AttributeDefinition& definition, const std::string& text) {
  T value{};
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, value);
  if (text.empty() || parsed.ec != std::errc() || parsed.ptr != end) {
    throw std::invalid_argument("\"" + text + "\" is not a valid " + AttributeDefinition::typeName(definition.type) +
                                " value for \"" + definition.name + "\"");
  }
  return value;
}

// Fills value from text; strings and references point into text.
void parseScalar(const AttributeDefinition& definition, const std::string& text, PymMoAttributeValue_3& value) {
  switch (definition.type) {
    case PymMoValueType_Int8: value.i8 = parseInteger<int8_t>(definition, text); return;
    case PymMoValueType_Int16: value.i16 = parseInteger<int16_t>(definition, text); return;
    case PymMoValueType_Int32: value.i32 = parseInteger<int32_t>(definition, text); return;
    case PymMoValueType_Int64: value.i64 = parseInteger<int64_t>(definition, text); return;
    case PymMoValueType_Uint8: value.u8 = parseInteger<uint8_t>(definition, text); return;
    case PymMoValueType_Uint16: value.u16 = parseInteger<uint16_t>(definition, text); return;
    case PymMoValueType_Uint32: value.u32 = parseInteger<uint32_t>(definition, text); return;
    case PymMoValueType_Uint64: value.u64 = parseInteger<uint64_t>(definition, text); return;
    case PymMoValueType_String: value.theString = text.c_str(); return;
    case PymMoValueType_Reference: value.moRef = text.c_str(); return;
    case PymMoValueType_Enum: value.theEnum = parseInteger<int32_t>(definition, text); return;
    case PymMoValueType_Bool:
      if (text != "true" && text != "false") {
        throw std::invalid_argument("\"" + text + "\" is not true or false for \"" + definition.name + "\"");
      }
      value.theBool = text == "true";
      return;
    default:
      throw std::invalid_argument("\"" + definition.name + "\" is a " + AttributeDefinition::typeName(definition.type) +
                                  ", which has no text form");
  }
}

AttributeValue readValue(const AttributeDefinition& definition, const PymMoAttributeValue_3& value);

AttributeValue scalar(std::string text) {
  AttributeValue value;
  value.scalar = std::move(text);
  return value;
}

std::string checkedText(const AttributeDefinition& definition, const char* text) {
  if (text == nullptr) throw std::invalid_argument("null string value for \"" + definition.name + "\"");
  return text;
}

AttributeValue readStructure(const AttributeDefinition& definition, const PymMoAttrStructMember_3* member) {
  std::map<std::string, std::vector<AttributeValue>> members;
  for (; member != nullptr; member = member->next) {
    const std::string name = checkedText(definition, member->memberName);
    const AttributeDefinition* memberDefinition = definition.member(name);
    if (memberDefinition == nullptr) {
      throw std::invalid_argument("\"" + definition.name + "\" has no member \"" + name + "\"");
    }
    if (members.count(name) != 0) {
      throw std::invalid_argument("member \"" + name + "\" of \"" + definition.name + "\" given twice");
    }
    members[name] = member->memberValue == nullptr ? std::vector<AttributeValue>()
                                                   : ValueCodec::fromContainer(*memberDefinition, *member->memberValue);
  }
  return ValueCodec::structure(definition, members);
}

AttributeValue readValue(const AttributeDefinition& definition, const PymMoAttributeValue_3& value) {
  switch (definition.type) {
    case PymMoValueType_Int8: return scalar(std::to_string(value.i8));
    case PymMoValueType_Int16: return scalar(std::to_string(value.i16));
    case PymMoValueType_Int32: return scalar(std::to_string(value.i32));
    case PymMoValueType_Int64: return scalar(std::to_string(value.i64));
    case PymMoValueType_Uint8: return scalar(std::to_string(value.u8));
    case PymMoValueType_Uint16: return scalar(std::to_string(value.u16));
    case PymMoValueType_Uint32: return scalar(std::to_string(value.u32));
    case PymMoValueType_Uint64: return scalar(std::to_string(value.u64));
    case PymMoValueType_String: return scalar(checkedText(definition, value.theString));
    case PymMoValueType_Reference: return scalar(checkedText(definition, value.moRef));
    case PymMoValueType_Bool: return scalar(value.theBool ? "true" : "false");
    case PymMoValueType_Enum:
      if (!definition.literals.empty() && definition.literalName(value.theEnum) == nullptr) {
        throw std::invalid_argument(std::to_string(value.theEnum) + " is no literal of \"" + definition.name + "\"");
      }
      return scalar(std::to_string(value.theEnum));
    case PymMoValueType_Struct: return readStructure(definition, value.structMember);
    default:
      throw std::invalid_argument("\"" + definition.name + "\" has unsupported type " +
                                  AttributeDefinition::typeName(definition.type));
  }
}

void writeValue(const AttributeDefinition& definition, const AttributeValue& value, PymMoAttributeValue_3& out) {
  if (definition.type == PymMoValueType_Struct) {
    // Each node is linked in before it is filled, so release() can free a partial list.
    PymMoAttrStructMember_3** tail = &out.structMember;
    for (const AttributeDefinition& memberDefinition : definition.members) {
      PymMoAttrStructMember_3* node = allocate<PymMoAttrStructMember_3>(1);
      *tail = node;
      tail = &node->next;
      node->memberName = CString::duplicate(memberDefinition.name);
      std::vector<AttributeValue> memberValues;
      for (const auto& member : value.members) {
        if (member.first == memberDefinition.name) memberValues = member.second;
      }
      node->memberValue = ValueCodec::toContainer(memberDefinition, memberValues).release();
    }
    return;
  }
  // Strings are copied directly: a borrowed pointer must never reach release().
  if (definition.type == PymMoValueType_String) {
    out.theString = CString::duplicate(value.scalar);
  } else if (definition.type == PymMoValueType_Reference) {
    out.moRef = CString::duplicate(value.scalar);
  } else {
    parseScalar(definition, value.scalar, out);
  }
}

void releaseValue(PymMoValueType type, PymMoAttributeValue_3& value) {
  switch (type) {
    case PymMoValueType_String: std::free(const_cast<char*>(value.theString)); break;
    case PymMoValueType_Reference: std::free(const_cast<char*>(value.moRef)); break;
    case PymMoValueType_Struct:
      while (value.structMember != nullptr) {
        PymMoAttrStructMember_3* member = value.structMember;
        value.structMember = member->next;
        std::free(const_cast<char*>(member->memberName));
        ValueCodec::release(member->memberValue);
        std::free(member);
      }
      break;
    default: break;
  }
}

}  // namespace

AttributeValue ValueCodec::fromText(const AttributeDefinition& definition, const std::string& text) {
  int32_t literal = 0;
  if (definition.type == PymMoValueType_Enum && definition.literalValue(text, literal)) {
    return scalar(std::to_string(literal));
  }
  PymMoAttributeValue_3 value{};
  try {
    parseScalar(definition, text, value);
  } catch (const std::invalid_argument&) {
    if (definition.type != PymMoValueType_Enum || definition.literals.empty()) throw;
    // Name the choices: an operator who typed a literal wrongly needs them.
    std::string names;
    for (const auto& choice : definition.literals) names += (names.empty() ? "" : ", ") + choice.first;
    throw std::invalid_argument("\"" + text + "\" is no literal of \"" + definition.name + "\" (" + names + ")");
  }
  return readValue(definition, value);
}

std::string ValueCodec::toText(const AttributeDefinition& definition, const AttributeValue& value) {
  if (definition.type == PymMoValueType_Enum) {
    PymMoAttributeValue_3 number{};
    parseScalar(definition, value.scalar, number);
    const std::string* name = definition.literalName(number.theEnum);
    if (name != nullptr) return *name;
  }
  return value.scalar;
}

AttributeValue ValueCodec::structure(const AttributeDefinition& definition,
                                     const std::map<std::string, std::vector<AttributeValue>>& members) {
  for (const auto& member : members) {
    if (definition.member(member.first) == nullptr) {
      throw std::invalid_argument("\"" + definition.name + "\" has no member \"" + member.first + "\"");
    }
  }
  AttributeValue value;
  for (const AttributeDefinition& memberDefinition : definition.members) {
    const auto given = members.find(memberDefinition.name);
    if (given == members.end() || given->second.empty()) continue;
    checkCount(memberDefinition, given->second.size());
    value.members.emplace_back(memberDefinition.name, given->second);
  }
  return value;
}

void ValueCodec::checkCount(const AttributeDefinition& definition, std::size_t count) {
  if (!definition.sequence && count > 1) {
    throw std::invalid_argument("\"" + definition.name + "\" is single-valued but given " + std::to_string(count) +
                                " values");
  }
}

ValueCodec::ContainerPtr ValueCodec::toContainer(const AttributeDefinition& definition,
                                                 const std::vector<AttributeValue>& values) {
  ContainerPtr container(allocate<PymMoAttributeValueContainer_3>(1), &ValueCodec::release);
  container->type = definition.type;
  if (values.empty()) return container;
  container->values = allocate<PymMoAttributeValue_3>(values.size());
  container->nrOfValues = static_cast<uint32_t>(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) writeValue(definition, values[i], container->values[i]);
  return container;
}

std::vector<AttributeValue> ValueCodec::fromContainer(const AttributeDefinition& definition,
                                                      const PymMoAttributeValueContainer_3& container) {
  if (container.type != definition.type) {
    throw std::invalid_argument("\"" + definition.name + "\" is a " + AttributeDefinition::typeName(definition.type) +
                                ", not a " + AttributeDefinition::typeName(container.type));
  }
  std::vector<AttributeValue> values;
  if (container.values == nullptr) return values;
  checkCount(definition, container.nrOfValues);
  for (uint32_t i = 0; i < container.nrOfValues; ++i) values.push_back(readValue(definition, container.values[i]));
  return values;
}

void ValueCodec::release(PymMoAttributeValueContainer_3* container) {
  if (container == nullptr) return;
  if (container->values != nullptr) {
    for (uint32_t i = 0; i < container->nrOfValues; ++i) releaseValue(container->type, container->values[i]);
  }
  std::free(container->values);
  std::free(container);
}

void ValueCodec::releaseAll(PymMoAttributeValueContainer_3** containers) {
  if (containers == nullptr) return;
  for (PymMoAttributeValueContainer_3** container = containers; *container != nullptr; ++container) {
    release(*container);
  }
  std::free(containers);
}

}  // namespace Framework
