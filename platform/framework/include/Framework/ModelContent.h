#ifndef FRAMEWORK_MODEL_CONTENT_H
#define FRAMEWORK_MODEL_CONTENT_H

#include <Framework/ClassDefinition.h>
#include <Framework/ModelObject.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace Framework {

// The classes and objects of a model, in document order. Not thread-safe; ModelStore guards it.
class ModelContent {
 public:
  // Throws std::invalid_argument when a class with that path exists already.
  void addClass(ClassDefinition definition);
  // A new object without values. Throws std::invalid_argument when dn is malformed or exists
  // already, or when its class or its parent object is missing. The reference is valid until
  // the next addObject.
  ModelObject& addObject(const std::string& dn);

  const ClassDefinition* findClass(const std::string& path) const;
  const ModelObject* findObject(const std::string& dn) const;
  ModelObject* findObject(const std::string& dn);

  const std::vector<ClassDefinition>& classes() const;
  const std::vector<ModelObject>& objects() const;

  // DNs of the children of dn ("" for the roots) whose class path ends in className, in
  // document order.
  std::vector<std::string> children(const std::string& dn, const std::string& className) const;

 private:
  std::vector<ClassDefinition> _classes;
  std::map<std::string, std::size_t> _classIndex;
  std::vector<ModelObject> _objects;
  std::map<std::string, std::size_t> _objectIndex;
};

}  // namespace Framework

#endif
