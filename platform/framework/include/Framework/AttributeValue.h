#ifndef FRAMEWORK_ATTRIBUTE_VALUE_H
#define FRAMEWORK_ATTRIBUTE_VALUE_H

#include <string>
#include <utility>
#include <vector>

namespace Framework {

// One value of an attribute: a scalar's canonical text (decimal numbers, "true"/"false", an enum's
// number, strings and DNs as they are), or a structure's members with values, in definition order.
struct AttributeValue {
  std::string scalar;
  std::vector<std::pair<std::string, std::vector<AttributeValue>>> members;

  bool operator==(const AttributeValue& other) const {
    return scalar == other.scalar && members == other.members;
  }
  bool operator!=(const AttributeValue& other) const { return !(*this == other); }
};

}  // namespace Framework

#endif
