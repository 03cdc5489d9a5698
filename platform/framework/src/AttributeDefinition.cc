#include <Framework/AttributeDefinition.h>

#include <array>

namespace Framework {

namespace {

const std::array<std::pair<const char*, PymMoValueType>, 13> kTypeNames = {{
    {"int8", PymMoValueType_Int8},
    {"int16", PymMoValueType_Int16},
    {"int32", PymMoValueType_Int32},
    {"int64", PymMoValueType_Int64},
    {"uint8", PymMoValueType_Uint8},
    {"uint16", PymMoValueType_Uint16},
    {"uint32", PymMoValueType_Uint32},
    {"uint64", PymMoValueType_Uint64},
    {"string", PymMoValueType_String},
    {"bool", PymMoValueType_Bool},
    {"reference", PymMoValueType_Reference},
    {"enum", PymMoValueType_Enum},
    {"struct", PymMoValueType_Struct},
}};

}  // namespace

const AttributeDefinition* AttributeDefinition::member(const std::string& memberName) const {
  return find(members, memberName);
}

bool AttributeDefinition::literalValue(const std::string& literalName, int32_t& value) const {
  for (const auto& literal : literals) {
    if (literal.first == literalName) {
      value = literal.second;
      return true;
    }
  }
  return false;
}

const std::string* AttributeDefinition::literalName(int32_t value) const {
  for (const auto& literal : literals) {
    if (literal.second == value) return &literal.first;
  }
  return nullptr;
}

const AttributeDefinition* AttributeDefinition::find(const std::vector<AttributeDefinition>& definitions,
                                                     const std::string& name) {
  for (const auto& definition : definitions) {
    if (definition.name == name) return &definition;
  }
  return nullptr;
}

bool AttributeDefinition::typeFromName(const std::string& typeName, PymMoValueType& type) {
  for (const auto& entry : kTypeNames) {
    if (typeName == entry.first) {
      type = entry.second;
      return true;
    }
  }
  return false;
}

std::string AttributeDefinition::typeName(PymMoValueType type) {
  for (const auto& entry : kTypeNames) {
    if (entry.second == type) return entry.first;
  }
  return "type " + std::to_string(static_cast<int>(type));
}

}  // namespace Framework
