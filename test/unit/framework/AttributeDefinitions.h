#ifndef TEST_FRAMEWORK_ATTRIBUTE_DEFINITIONS_H
#define TEST_FRAMEWORK_ATTRIBUTE_DEFINITIONS_H

#include <Framework/AttributeDefinition.h>

#include <string>

// Attribute definitions as a model declares them, for the value tests.
inline Framework::AttributeDefinition definition(const std::string& name, PymMoValueType type, bool sequence = false) {
  Framework::AttributeDefinition result;
  result.name = name;
  result.type = type;
  result.sequence = sequence;
  return result;
}

#endif
