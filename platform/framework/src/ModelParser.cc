#include <Framework/ModelParser.h>

#include <Framework/ModelError.h>
#include <Framework/ValueCodec.h>

#include <Poco/XML/XMLStreamParserException.h>

#include <map>
#include <stdexcept>
#include <utility>

namespace Framework {

using Poco::XML::Content;
using Poco::XML::XMLStreamParser;

ModelContent ModelParser::parse(std::istream& input, const std::string& sourceName) {
  try {
    ModelParser parser(input, sourceName);
    return parser.parseModel();
  } catch (const Poco::XML::XMLStreamParserException& error) {
    throw ModelError(sourceName, error.line(), error.description());
  }
}

ModelParser::ModelParser(std::istream& input, const std::string& sourceName)
    : _sourceName(sourceName), _parser(input, sourceName) {}

ModelContent ModelParser::parseModel() {
  _parser.nextExpect(XMLStreamParser::EV_START_ELEMENT, "model", Content::Complex);
  checkAttributesRead();
  ModelContent content;
  while (_parser.next() == XMLStreamParser::EV_START_ELEMENT) {
    const unsigned long line = _parser.line();
    if (_parser.localName() == "class") {
      try {
        content.addClass(readClass());
      } catch (const std::invalid_argument& error) {
        fail(line, error.what());
      }
    } else if (_parser.localName() == "object") {
      readObject(content);
    } else {
      fail(line, "unexpected element <" + _parser.localName() + "> in <model>");
    }
  }
  _parser.nextExpect(XMLStreamParser::EV_EOF);
  return content;
}

ClassDefinition ModelParser::readClass() {
  ClassDefinition definition;
  definition.path = _parser.attribute("path");
  checkAttributesRead();
  if (definition.path.empty()) fail(_parser.line(), "class without path");
  _parser.content(Content::Complex);
  definition.attributes = readDefinitions("attribute");
  return definition;
}

std::vector<AttributeDefinition> ModelParser::readDefinitions(const std::string& elementName) {
  std::vector<AttributeDefinition> definitions;
  while (nextChild(elementName)) {
    const unsigned long line = _parser.line();
    AttributeDefinition definition = readDefinition();
    if (AttributeDefinition::find(definitions, definition.name) != nullptr) {
      fail(line, "\"" + definition.name + "\" is defined twice");
    }
    definitions.push_back(std::move(definition));
  }
  return definitions;
}

AttributeDefinition ModelParser::readDefinition() {
  const unsigned long line = _parser.line();
  AttributeDefinition definition;
  definition.name = _parser.attribute("name");
  const std::string type = _parser.attribute("type");
  const std::string sequence = _parser.attribute("sequence", "false");
  checkAttributesRead();
  _parser.content(Content::Complex);
  if (!AttributeDefinition::typeFromName(type, definition.type)) {
    fail(line, "unknown type \"" + type + "\" of \"" + definition.name + "\"");
  }
  if (sequence != "true" && sequence != "false") {
    fail(line, "sequence of \"" + definition.name + "\" is \"" + sequence + "\", not true or false");
  }
  definition.sequence = sequence == "true";
  if (definition.type == PymMoValueType_Enum) {
    readLiterals(definition);
  } else if (definition.type == PymMoValueType_Struct) {
    definition.members = readDefinitions("member");
  } else if (_parser.next() != XMLStreamParser::EV_END_ELEMENT) {
    fail(_parser.line(), "unexpected element <" + _parser.localName() + "> in \"" + definition.name + "\"");
  }
  return definition;
}

void ModelParser::readLiterals(AttributeDefinition& definition) {
  AttributeDefinition number;
  number.name = "literal value";
  number.type = PymMoValueType_Int32;
  while (nextChild("literal")) {
    const unsigned long line = _parser.line();
    const std::string name = _parser.attribute("name");
    const std::string text = _parser.attribute("value");
    checkAttributesRead();
    _parser.content(Content::Empty);
    int32_t value = 0;
    try {
      value = std::stoi(ValueCodec::fromText(number, text).scalar);
    } catch (const std::invalid_argument& error) {
      fail(line, error.what());
    }
    int32_t existing = 0;
    if (name.empty() || definition.literalValue(name, existing) || definition.literalName(value) != nullptr) {
      fail(line, "literal \"" + name + "\" = " + text + " of \"" + definition.name + "\" is empty or not unique");
    }
    definition.literals.emplace_back(name, value);
    _parser.nextExpect(XMLStreamParser::EV_END_ELEMENT);
  }
}

void ModelParser::readObject(ModelContent& content) {
  const unsigned long line = _parser.line();
  const std::string dn = _parser.attribute("dn");
  checkAttributesRead();
  _parser.content(Content::Complex);
  ModelObject* object = nullptr;
  try {
    object = &content.addObject(dn);
  } catch (const std::invalid_argument& error) {
    fail(line, error.what());
  }
  const ClassDefinition& definition = *content.findClass(object->classPath);
  while (nextChild("value")) {
    const unsigned long valueLine = _parser.line();
    const std::string name = _parser.attribute("attribute");
    checkAttributesRead();
    const AttributeDefinition* attribute = definition.attribute(name);
    if (attribute == nullptr) fail(valueLine, "class " + definition.path + " has no attribute \"" + name + "\"");
    std::vector<AttributeValue>& values = object->values[name];
    values.push_back(readValue(*attribute));
    try {
      ValueCodec::checkCount(*attribute, values.size());
    } catch (const std::invalid_argument& error) {
      fail(valueLine, error.what());
    }
  }
}

AttributeValue ModelParser::readValue(const AttributeDefinition& definition) {
  const unsigned long line = _parser.line();
  if (definition.type == PymMoValueType_Struct) {
    _parser.content(Content::Complex);
    std::map<std::string, std::vector<AttributeValue>> members;
    while (nextChild("member")) {
      const unsigned long memberLine = _parser.line();
      const std::string name = _parser.attribute("name");
      checkAttributesRead();
      const AttributeDefinition* member = definition.member(name);
      if (member == nullptr) fail(memberLine, "\"" + definition.name + "\" has no member \"" + name + "\"");
      members[name].push_back(readValue(*member));
    }
    try {
      return ValueCodec::structure(definition, members);
    } catch (const std::invalid_argument& error) {
      fail(line, error.what());
    }
  }
  _parser.content(Content::Simple);
  std::string text;
  if (_parser.next() == XMLStreamParser::EV_CHARACTERS) {
    text = _parser.value();
    _parser.nextExpect(XMLStreamParser::EV_END_ELEMENT);
  }
  try {
    return ValueCodec::fromText(definition, text);
  } catch (const std::invalid_argument& error) {
    fail(line, error.what());
  }
}

bool ModelParser::nextChild(const std::string& elementName) {
  if (_parser.next() != XMLStreamParser::EV_START_ELEMENT) return false;
  if (_parser.localName() != elementName) {
    fail(_parser.line(), "unexpected element <" + _parser.localName() + ">, expected <" + elementName + ">");
  }
  return true;
}

void ModelParser::checkAttributesRead() const {
  for (const auto& attribute : _parser.attributeMap()) {
    if (!attribute.second.handled) {
      fail(_parser.line(), "unexpected attribute \"" + attribute.first.localName() + "\" in <" +
                               _parser.localName() + ">");
    }
  }
}

void ModelParser::fail(unsigned long line, const std::string& message) const {
  throw ModelError(_sourceName, line, message);
}

}  // namespace Framework
