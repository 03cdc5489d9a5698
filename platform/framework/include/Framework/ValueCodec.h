#ifndef FRAMEWORK_VALUE_CODEC_H
#define FRAMEWORK_VALUE_CODEC_H

#include <Framework/AttributeDefinition.h>
#include <Framework/AttributeValue.h>
#include <PymOamSpiMoValue.h>

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Framework {

// Converts attribute values between the model document's text, AttributeValue and the
// framework's C containers, checking them against their definition.
class ValueCodec {
 public:
  using ContainerPtr = std::unique_ptr<PymMoAttributeValueContainer_3, void (*)(PymMoAttributeValueContainer_3*)>;

  // A scalar given as text (enumerations by literal name or number); throws
  // std::invalid_argument when the text does not fit the type.
  static AttributeValue fromText(const AttributeDefinition& definition, const std::string& text);
  // A scalar as the model document writes it (enumerations by literal name when there is one).
  static std::string toText(const AttributeDefinition& definition, const AttributeValue& value);
  // A structure value from its members' values; throws std::invalid_argument for an unknown
  // member or too many values of a single-valued one.
  static AttributeValue structure(const AttributeDefinition& definition,
                                  const std::map<std::string, std::vector<AttributeValue>>& members);
  // Throws std::invalid_argument when a single-valued definition is given several values.
  static void checkCount(const AttributeDefinition& definition, std::size_t count);

  // A freshly allocated deep copy; structures list every member of the definition, those
  // without values with nrOfValues 0.
  static ContainerPtr toContainer(const AttributeDefinition& definition, const std::vector<AttributeValue>& values);
  // The container's values; throws std::invalid_argument when its type, number of values or
  // contents do not fit the definition.
  static std::vector<AttributeValue> fromContainer(const AttributeDefinition& definition,
                                                   const PymMoAttributeValueContainer_3& container);
  // Releases a container made by toContainer; null is fine.
  static void release(PymMoAttributeValueContainer_3* container);
  // Releases a null-terminated array of such containers, and the array.
  static void releaseAll(PymMoAttributeValueContainer_3** containers);
};

}  // namespace Framework

#endif
