#ifndef QIV_ACCESS_MANAGEMENT_MO_ATTRIBUTE_VALUE_COPY_H
#define QIV_ACCESS_MANAGEMENT_MO_ATTRIBUTE_VALUE_COPY_H

#include <PymOamSpiMoValue.h>

namespace QivAccessManagement {

// Deep copies of attribute value containers, strings, references and structure members
// included, allocated so that they can be handed to the framework and given back through the
// release functions of the offered tables at any time, whatever state the component is in.
class MoAttributeValueCopy {
 public:
  // A new container with the same type and values; throws std::bad_alloc.
  static PymMoAttributeValueContainer_3* copy(const PymMoAttributeValueContainer_3& source);
  // Frees a container made by copy (null: nothing).
  static void release(PymMoAttributeValueContainer_3* container);
  // Frees a null-terminated array of such containers and the array (null: nothing).
  static void releaseAll(PymMoAttributeValueContainer_3** containers);

 private:
  static void copyInto(const PymMoAttributeValueContainer_3& source, PymMoAttributeValueContainer_3& target);
  static void releaseValues(PymMoAttributeValueContainer_3& container);
};

}  // namespace QivAccessManagement

#endif
