#ifndef FRAMEWORK_CLASS_DEFINITION_H
#define FRAMEWORK_CLASS_DEFINITION_H

#include <Framework/AttributeDefinition.h>

#include <string>
#include <vector>

namespace Framework {

// A class of the model: its comma-form path ("ManagedElement,SystemFunctions") and attributes.
struct ClassDefinition {
  std::string path;
  std::vector<AttributeDefinition> attributes;

  const AttributeDefinition* attribute(const std::string& name) const {
    return AttributeDefinition::find(attributes, name);
  }
};

}  // namespace Framework

#endif
