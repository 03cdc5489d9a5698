#ifndef FRAMEWORK_MODEL_STORE_H
#define FRAMEWORK_MODEL_STORE_H

#include <Framework/AttributeValue.h>
#include <Framework/ModelContent.h>
#include <PymOamSpiMoValue.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Framework {

// The managed-object model: classes and the committed values of their instances, loaded from and
// saved to an XML document. Thread-safe.
//
// Document format (element order matters only as document order of classes and objects):
//   <model>
//     <class path="ManagedElement,SystemFunctions">              comma form, one per class
//       <attribute name="userLabel" type="string"/>
//       <attribute name="targetType" type="string" sequence="true"/>
//       <attribute name="state" type="enum">                     32-bit; literals optional
//         <literal name="LOCKED" value="0"/>
//       </attribute>
//       <attribute name="password" type="struct">                members nest like attributes
//         <member name="cleartext" type="string"/>
//       </attribute>
//     </class>
//     <object dn="ManagedElement=1,SystemFunctions=1">            class: the DN without "=value"s
//       <value attribute="targetType">a</value>                  a sequence: one element per
//       <value attribute="targetType">b</value>                  value, in order
//       <value attribute="state">LOCKED</value>                  enum by literal name or number
//       <value attribute="password"><member name="cleartext">x</member></value>
//     </object>
//   </model>
// Types: int8, int16, int32, int64, uint8, uint16, uint32, uint64, string, bool (true/false),
// reference (a DN), enum, struct. A class comes before its objects, a parent object before its
// children. String values keep their whitespace; an empty element is the empty string. An
// attribute without <value> has no value.
class ModelStore {
 public:
  // Attribute values by (DN, attribute name), as a transaction writes them.
  using Changes = std::map<std::pair<std::string, std::string>, std::vector<AttributeValue>>;

  ModelStore();

  // Replace the whole model; throw ModelError naming the source and line, leaving the model as
  // it was.
  void loadFile(const std::string& path);
  void loadText(const std::string& document, const std::string& sourceName = "<text>");
  // Writes a temporary file next to path and renames it over path; throws std::runtime_error.
  void saveFile(const std::string& path) const;
  std::string toXml() const;

  // Reads the committed values into a fresh deep copy released with result->release.
  // PymNotExist for an unknown object or an attribute its class lacks.
  PymReturnT read(const std::string& dn, const std::string& attribute, PymMoAttributeValueResult_3* result) const;
  // Like read, but of values given instead of the committed ones.
  PymReturnT render(const std::string& dn, const std::string& attribute, const std::vector<AttributeValue>& values,
                    PymMoAttributeValueResult_3* result) const;
  // Checks value against the attribute's class definition and converts it: PymNotExist for an
  // unknown object or attribute, PymInvalidParameter when type, number or contents do not fit.
  PymReturnT decode(const std::string& dn, const std::string& attribute, const PymMoAttributeValueContainer_3& value,
                    std::vector<AttributeValue>& values) const;
  // Makes every change committed, or none (PymNotExist when an object or attribute is unknown).
  // replaced, when given, receives the values the changes overwrote (empty: had none).
  PymReturnT apply(const Changes& changes, Changes* replaced = nullptr);
  // Undoes an apply: puts back the replaced values wherever the model still holds what applied
  // wrote, so that a value committed since is kept.
  void revert(const Changes& applied, const Changes& replaced);
  // decode and apply of one attribute.
  PymReturnT write(const std::string& dn, const std::string& attribute, const PymMoAttributeValueContainer_3& value);

  // Children of dn ("" for the roots) whose class is named className (the class path's last
  // element), in document order. PymNotExist when dn or that child class does not exist.
  PymReturnT children(const std::string& dn, const std::string& className, std::vector<std::string>& result) const;
  bool exists(const std::string& dn) const;

  // For tests and the host. DNs and class paths in document order.
  std::vector<std::string> objects() const;
  std::vector<std::string> classes() const;
  // Whether dn's class has the attribute.
  bool hasAttribute(const std::string& dn, const std::string& attribute) const;
  // A copy of the definition of the attribute of dn's class; nothing when dn or the attribute
  // does not exist.
  std::optional<AttributeDefinition> attributeDefinition(const std::string& dn, const std::string& attribute) const;
  // Values of a scalar attribute as text (enumerations by literal name); setStringValues takes
  // the same form, or enumeration numbers. Both throw std::invalid_argument for an unknown
  // object or attribute, a structure attribute or a value that does not fit.
  std::vector<std::string> stringValues(const std::string& dn, const std::string& attribute) const;
  void setStringValues(const std::string& dn, const std::string& attribute, const std::vector<std::string>& values);
  // The attribute as one structure value with the members given as text (other members
  // without value), and the text of one member of its first structure value (empty without).
  void setStructValue(const std::string& dn, const std::string& attribute,
                      const std::map<std::string, std::vector<std::string>>& members);
  std::vector<std::string> memberStringValues(const std::string& dn, const std::string& attribute,
                                              const std::string& member) const;

 private:
  // The object and its class's attribute definition, or null when either does not exist.
  const AttributeDefinition* findAttribute(const std::string& dn, const std::string& attribute) const;
  // Like findAttribute, but throws std::invalid_argument.
  const AttributeDefinition& requireAttribute(const std::string& dn, const std::string& attribute) const;
  void assign(const std::string& dn, const std::string& attribute, std::vector<AttributeValue> values);
  // The values dn's attribute holds now; dn must exist.
  const std::vector<AttributeValue>& current(const std::string& dn, const std::string& attribute) const;

  mutable std::mutex _mutex;
  ModelContent _content;
};

}  // namespace Framework

#endif
