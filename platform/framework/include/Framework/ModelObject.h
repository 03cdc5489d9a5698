#ifndef FRAMEWORK_MODEL_OBJECT_H
#define FRAMEWORK_MODEL_OBJECT_H

#include <Framework/AttributeValue.h>

#include <map>
#include <string>
#include <vector>

namespace Framework {

// An instance of the model. An attribute without values has no entry in values.
struct ModelObject {
  std::string dn;
  std::string classPath;
  std::map<std::string, std::vector<AttributeValue>> values;
};

}  // namespace Framework

#endif
