#include <Framework/ModelStore.h>

#include <Framework/ModelError.h>
#include <Framework/ModelParser.h>
#include <Framework/ModelWriter.h>
#include <Framework/ValueCodec.h>

#include <Poco/Exception.h>
#include <Poco/Path.h>
#include <Poco/TemporaryFile.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace Framework {

namespace {

PymReturnT fill(const AttributeDefinition& definition, const std::vector<AttributeValue>& values,
                PymMoAttributeValueResult_3* result) {
  if (result == nullptr) return PymInvalidParameter;
  result->container = ValueCodec::toContainer(definition, values).release();
  result->release = &ValueCodec::release;
  return PymOk;
}

}  // namespace

ModelStore::ModelStore() = default;

void ModelStore::loadFile(const std::string& path) {
  std::ifstream input(path, std::ios::binary);
  if (!input) throw ModelError(path, 0, "cannot open the model");
  ModelContent content = ModelParser::parse(input, path);
  std::lock_guard<std::mutex> lock(_mutex);
  _content = std::move(content);
}

void ModelStore::loadText(const std::string& document, const std::string& sourceName) {
  std::istringstream input(document);
  ModelContent content = ModelParser::parse(input, sourceName);
  std::lock_guard<std::mutex> lock(_mutex);
  _content = std::move(content);
}

void ModelStore::saveFile(const std::string& path) const {
  const std::string document = toXml();
  try {
    // Same directory, so the rename replaces path in one step.
    Poco::TemporaryFile temporary(Poco::Path(path).absolute().parent().toString());
    std::ofstream output(temporary.path(), std::ios::binary | std::ios::trunc);
    output << document;
    output.close();
    if (!output) throw std::runtime_error("cannot write " + temporary.path());
    temporary.renameTo(path);
    temporary.keep();
  } catch (const Poco::Exception& error) {
    throw std::runtime_error("cannot save the model to " + path + ": " + error.displayText());
  }
}

std::string ModelStore::toXml() const {
  std::lock_guard<std::mutex> lock(_mutex);
  return ModelWriter::write(_content);
}

PymReturnT ModelStore::read(const std::string& dn, const std::string& attribute,
                            PymMoAttributeValueResult_3* result) const {
  std::lock_guard<std::mutex> lock(_mutex);
  const AttributeDefinition* definition = findAttribute(dn, attribute);
  if (definition == nullptr) return PymNotExist;
  return fill(*definition, current(dn, attribute), result);
}

PymReturnT ModelStore::render(const std::string& dn, const std::string& attribute,
                              const std::vector<AttributeValue>& values, PymMoAttributeValueResult_3* result) const {
  std::lock_guard<std::mutex> lock(_mutex);
  const AttributeDefinition* definition = findAttribute(dn, attribute);
  if (definition == nullptr) return PymNotExist;
  return fill(*definition, values, result);
}

PymReturnT ModelStore::decode(const std::string& dn, const std::string& attribute,
                              const PymMoAttributeValueContainer_3& value, std::vector<AttributeValue>& values) const {
  std::lock_guard<std::mutex> lock(_mutex);
  const AttributeDefinition* definition = findAttribute(dn, attribute);
  if (definition == nullptr) return PymNotExist;
  try {
    values = ValueCodec::fromContainer(*definition, value);
  } catch (const std::invalid_argument&) {
    return PymInvalidParameter;
  }
  return PymOk;
}

PymReturnT ModelStore::apply(const Changes& changes, Changes* replaced) {
  std::lock_guard<std::mutex> lock(_mutex);
  for (const auto& change : changes) {
    if (findAttribute(change.first.first, change.first.second) == nullptr) return PymNotExist;
  }
  for (const auto& change : changes) {
    if (replaced != nullptr) (*replaced)[change.first] = current(change.first.first, change.first.second);
    assign(change.first.first, change.first.second, change.second);
  }
  return PymOk;
}

void ModelStore::revert(const Changes& applied, const Changes& replaced) {
  std::lock_guard<std::mutex> lock(_mutex);
  for (const auto& previous : replaced) {
    const auto written = applied.find(previous.first);
    if (written == applied.end() || findAttribute(previous.first.first, previous.first.second) == nullptr) continue;
    if (current(previous.first.first, previous.first.second) == written->second) {
      assign(previous.first.first, previous.first.second, previous.second);
    }
  }
}

PymReturnT ModelStore::write(const std::string& dn, const std::string& attribute,
                             const PymMoAttributeValueContainer_3& value) {
  std::vector<AttributeValue> values;
  const PymReturnT decoded = decode(dn, attribute, value, values);
  if (decoded != PymOk) return decoded;
  return apply({{{dn, attribute}, values}});
}

PymReturnT ModelStore::children(const std::string& dn, const std::string& className,
                                std::vector<std::string>& result) const {
  std::lock_guard<std::mutex> lock(_mutex);
  std::string childClass = className;
  if (!dn.empty()) {
    const ModelObject* parent = _content.findObject(dn);
    if (parent == nullptr) return PymNotExist;
    childClass = parent->classPath + "," + className;
  }
  if (_content.findClass(childClass) == nullptr) return PymNotExist;
  result = _content.children(dn, className);
  return PymOk;
}

bool ModelStore::exists(const std::string& dn) const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _content.findObject(dn) != nullptr;
}

std::vector<std::string> ModelStore::objects() const {
  std::lock_guard<std::mutex> lock(_mutex);
  std::vector<std::string> result;
  for (const ModelObject& object : _content.objects()) result.push_back(object.dn);
  return result;
}

std::vector<std::string> ModelStore::classes() const {
  std::lock_guard<std::mutex> lock(_mutex);
  std::vector<std::string> result;
  for (const ClassDefinition& definition : _content.classes()) result.push_back(definition.path);
  return result;
}

bool ModelStore::hasAttribute(const std::string& dn, const std::string& attribute) const {
  std::lock_guard<std::mutex> lock(_mutex);
  return findAttribute(dn, attribute) != nullptr;
}

std::optional<AttributeDefinition> ModelStore::attributeDefinition(const std::string& dn,
                                                                  const std::string& attribute) const {
  std::lock_guard<std::mutex> lock(_mutex);
  const AttributeDefinition* definition = findAttribute(dn, attribute);
  if (definition == nullptr) return std::nullopt;
  return *definition;
}

std::vector<std::string> ModelStore::stringValues(const std::string& dn, const std::string& attribute) const {
  std::lock_guard<std::mutex> lock(_mutex);
  const AttributeDefinition& definition = requireAttribute(dn, attribute);
  if (definition.type == PymMoValueType_Struct) throw std::invalid_argument(attribute + " is a structure");
  std::vector<std::string> result;
  for (const AttributeValue& value : current(dn, attribute)) result.push_back(ValueCodec::toText(definition, value));
  return result;
}

void ModelStore::setStringValues(const std::string& dn, const std::string& attribute,
                                 const std::vector<std::string>& values) {
  std::lock_guard<std::mutex> lock(_mutex);
  const AttributeDefinition& definition = requireAttribute(dn, attribute);
  ValueCodec::checkCount(definition, values.size());
  std::vector<AttributeValue> converted;
  for (const std::string& text : values) converted.push_back(ValueCodec::fromText(definition, text));
  assign(dn, attribute, std::move(converted));
}

void ModelStore::setStructValue(const std::string& dn, const std::string& attribute,
                                const std::map<std::string, std::vector<std::string>>& members) {
  std::lock_guard<std::mutex> lock(_mutex);
  const AttributeDefinition& definition = requireAttribute(dn, attribute);
  if (definition.type != PymMoValueType_Struct) throw std::invalid_argument(attribute + " is not a structure");
  std::map<std::string, std::vector<AttributeValue>> converted;
  for (const auto& member : members) {
    const AttributeDefinition* memberDefinition = definition.member(member.first);
    if (memberDefinition == nullptr) throw std::invalid_argument(attribute + " has no member " + member.first);
    for (const std::string& text : member.second) {
      converted[member.first].push_back(ValueCodec::fromText(*memberDefinition, text));
    }
  }
  assign(dn, attribute, {ValueCodec::structure(definition, converted)});
}

std::vector<std::string> ModelStore::memberStringValues(const std::string& dn, const std::string& attribute,
                                                        const std::string& member) const {
  std::lock_guard<std::mutex> lock(_mutex);
  const AttributeDefinition& definition = requireAttribute(dn, attribute);
  const AttributeDefinition* memberDefinition = definition.member(member);
  if (memberDefinition == nullptr) throw std::invalid_argument(attribute + " has no member " + member);
  std::vector<std::string> result;
  const std::vector<AttributeValue>& values = current(dn, attribute);
  if (values.empty()) return result;
  for (const auto& memberValues : values.front().members) {
    if (memberValues.first != member) continue;
    for (const AttributeValue& value : memberValues.second) {
      result.push_back(ValueCodec::toText(*memberDefinition, value));
    }
  }
  return result;
}

const AttributeDefinition* ModelStore::findAttribute(const std::string& dn, const std::string& attribute) const {
  const ModelObject* object = _content.findObject(dn);
  if (object == nullptr) return nullptr;
  return _content.findClass(object->classPath)->attribute(attribute);
}

const AttributeDefinition& ModelStore::requireAttribute(const std::string& dn, const std::string& attribute) const {
  if (_content.findObject(dn) == nullptr) throw std::invalid_argument("no object " + dn);
  const AttributeDefinition* definition = findAttribute(dn, attribute);
  if (definition == nullptr) throw std::invalid_argument("the class of " + dn + " has no attribute " + attribute);
  return *definition;
}

void ModelStore::assign(const std::string& dn, const std::string& attribute, std::vector<AttributeValue> values) {
  ModelObject& object = *_content.findObject(dn);
  if (values.empty()) {
    object.values.erase(attribute);
  } else {
    object.values[attribute] = std::move(values);
  }
}

const std::vector<AttributeValue>& ModelStore::current(const std::string& dn, const std::string& attribute) const {
  static const std::vector<AttributeValue> none;
  const ModelObject& object = *_content.findObject(dn);
  const auto values = object.values.find(attribute);
  return values == object.values.end() ? none : values->second;
}

}  // namespace Framework
