#include <Framework/ModelContent.h>

#include <Framework/Dn.h>

#include <stdexcept>
#include <utility>

namespace Framework {

void ModelContent::addClass(ClassDefinition definition) {
  if (_classIndex.count(definition.path) != 0) {
    throw std::invalid_argument("class " + definition.path + " is defined twice");
  }
  _classIndex[definition.path] = _classes.size();
  _classes.push_back(std::move(definition));
}

ModelObject& ModelContent::addObject(const std::string& dn) {
  const std::string classPath = Dn::classPath(dn);
  if (_objectIndex.count(dn) != 0) throw std::invalid_argument("object " + dn + " is defined twice");
  if (findClass(classPath) == nullptr) throw std::invalid_argument("object " + dn + " has no class " + classPath);
  const std::string parent = Dn::parent(dn);
  if (!parent.empty() && findObject(parent) == nullptr) {
    throw std::invalid_argument("object " + dn + " has no parent object " + parent);
  }
  _objectIndex[dn] = _objects.size();
  _objects.push_back(ModelObject{dn, classPath, {}});
  return _objects.back();
}

const ClassDefinition* ModelContent::findClass(const std::string& path) const {
  const auto found = _classIndex.find(path);
  return found == _classIndex.end() ? nullptr : &_classes[found->second];
}

const ModelObject* ModelContent::findObject(const std::string& dn) const {
  const auto found = _objectIndex.find(dn);
  return found == _objectIndex.end() ? nullptr : &_objects[found->second];
}

ModelObject* ModelContent::findObject(const std::string& dn) {
  return const_cast<ModelObject*>(static_cast<const ModelContent&>(*this).findObject(dn));
}

const std::vector<ClassDefinition>& ModelContent::classes() const { return _classes; }

const std::vector<ModelObject>& ModelContent::objects() const { return _objects; }

std::vector<std::string> ModelContent::children(const std::string& dn, const std::string& className) const {
  std::vector<std::string> result;
  for (const ModelObject& object : _objects) {
    if (Dn::parent(object.dn) == dn && Dn::lastElement(object.classPath) == className) result.push_back(object.dn);
  }
  return result;
}

}  // namespace Framework
