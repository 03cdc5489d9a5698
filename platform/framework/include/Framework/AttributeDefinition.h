#ifndef FRAMEWORK_ATTRIBUTE_DEFINITION_H
#define FRAMEWORK_ATTRIBUTE_DEFINITION_H

#include <PymOamSpiMoValue.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Framework {

// One attribute of a model class, or one member of a structure attribute (members nest the
// same way).
struct AttributeDefinition {
  std::string name;
  PymMoValueType type = PymMoValueType_String;
  bool sequence = false;
  std::vector<std::pair<std::string, int32_t>> literals;  // enumerations, in declaration order
  std::vector<AttributeDefinition> members;                // structures, in declaration order

  const AttributeDefinition* member(const std::string& memberName) const;
  // The literal's value; false when there is no such literal.
  bool literalValue(const std::string& literalName, int32_t& value) const;
  // The literal's name, or null when no literal has that value.
  const std::string* literalName(int32_t value) const;

  // The definition named name in definitions, or null.
  static const AttributeDefinition* find(const std::vector<AttributeDefinition>& definitions,
                                         const std::string& name);
  // Type names of the model document ("int8".."uint64", "string", "bool", "reference", "enum",
  // "struct"); typeFromName is false for any other name.
  static bool typeFromName(const std::string& typeName, PymMoValueType& type);
  static std::string typeName(PymMoValueType type);
};

}  // namespace Framework

#endif
