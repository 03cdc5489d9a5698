#ifndef FRAMEWORK_MODEL_PARSER_H
#define FRAMEWORK_MODEL_PARSER_H

#include <Framework/AttributeDefinition.h>
#include <Framework/AttributeValue.h>
#include <Framework/ModelContent.h>

#include <Poco/XML/XMLStreamParser.h>

#include <istream>
#include <string>
#include <vector>

namespace Framework {

// Reads a model document (format described in ModelStore.h) into a ModelContent. Every problem
// is a ModelError naming the source and the line.
class ModelParser {
 public:
  static ModelContent parse(std::istream& input, const std::string& sourceName);

 private:
  ModelParser(std::istream& input, const std::string& sourceName);

  ModelContent parseModel();
  ClassDefinition readClass();
  // The definitions nested in the current element (<attribute> in <class>, <member> in a
  // structure's definition).
  std::vector<AttributeDefinition> readDefinitions(const std::string& elementName);
  AttributeDefinition readDefinition();
  void readLiterals(AttributeDefinition& definition);
  void readObject(ModelContent& content);
  // One value of definition from the current <value> or <member> element.
  AttributeValue readValue(const AttributeDefinition& definition);
  // The start of the next child element named elementName, or false at the parent's end.
  bool nextChild(const std::string& elementName);
  // Fails on an XML attribute of the current element that was not read. The stream parser would
  // only notice at the next event, on a later line.
  void checkAttributesRead() const;
  [[noreturn]] void fail(unsigned long line, const std::string& message) const;

  std::string _sourceName;
  Poco::XML::XMLStreamParser _parser;
};

}  // namespace Framework

#endif
