#ifndef FRAMEWORK_VALUE_TEXT_H
#define FRAMEWORK_VALUE_TEXT_H

#include <Framework/AttributeDefinition.h>
#include <Framework/AttributeValue.h>

#include <string>
#include <vector>

namespace Framework {

// The text form of attribute values as an operator types them and the host prints them, one text
// per value:
//   integers     decimal: "636", "-5"
//   bool         "true" or "false"
//   enum         a literal name or its number ("LDAPS", "1"); printed by name when it has one
//   string       the text itself, which may be empty
//   reference    the DN of the referenced object: "ManagedElement=1,SystemFunctions=1"
//   struct       "{member=value,member=value}", no blanks around the punctuation; members in any
//                order, each at most once, those without values left out ("{}": none has one).
//                A sequence member's values go in brackets: "hints=[1,2]", "hints=[]"; a
//                single-valued member may be bracketed too. A scalar inside a structure that is
//                empty or holds any of , { } [ ] " \ goes in double quotes, with \" and \\ for
//                " and \: {password="a,b",dn="A=1,B=2"}. Structures nest.
// Printing gives members in definition order and quotes only where needed, so a printed text
// reads back as the same value.
class ValueText {
 public:
  // Throws std::invalid_argument naming the attribute and what does not fit.
  static AttributeValue parse(const AttributeDefinition& definition, const std::string& text);
  // Every value of the attribute; an empty list has no value. Also throws for too many values.
  static std::vector<AttributeValue> parseAll(const AttributeDefinition& definition,
                                              const std::vector<std::string>& texts);
  // value must fit definition (as every value from ValueCodec does); throws std::invalid_argument.
  static std::string format(const AttributeDefinition& definition, const AttributeValue& value);
  static std::vector<std::string> formatAll(const AttributeDefinition& definition,
                                            const std::vector<AttributeValue>& values);
};

}  // namespace Framework

#endif
