/* Attribute values of managed objects as they cross the framework's interfaces. */
#ifndef PYM_OAM_SPI_MO_VALUE_H
#define PYM_OAM_SPI_MO_VALUE_H

#include "PymSpiTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Value type codes. */
typedef enum PymMoValueType {
  PymMoValueType_Int8 = 1,
  PymMoValueType_Int16 = 2,
  PymMoValueType_Int32 = 3,
  PymMoValueType_Int64 = 4,
  PymMoValueType_Uint8 = 5,
  PymMoValueType_Uint16 = 6,
  PymMoValueType_Uint32 = 7,
  PymMoValueType_Uint64 = 8,
  PymMoValueType_String = 9,
  PymMoValueType_Bool = 10,
  PymMoValueType_Reference = 11,  /* DN of the referenced object */
  PymMoValueType_Enum = 12,       /* 32-bit enumeration value */
  PymMoValueType_Struct = 13,
  PymMoValueType_Decimal64 = 14
} PymMoValueType;

typedef struct PymMoAttrStructMember_3 PymMoAttrStructMember_3;

typedef union PymMoAttributeValue_3 {
  int8_t i8;
  int16_t i16;
  int32_t i32;
  int64_t i64;
  uint8_t u8;
  uint16_t u16;
  uint32_t u32;
  uint64_t u64;
  const char* theString;
  bool theBool;
  const char* moRef;
  int32_t theEnum;
  PymMoAttrStructMember_3* structMember;  /* first member of a singly linked list */
  double decimal64;
} PymMoAttributeValue_3;

/* The values of one attribute: nrOfValues 0 or values null means "no value". */
typedef struct PymMoAttributeValueContainer_3 {
  PymMoValueType type;
  uint32_t nrOfValues;
  PymMoAttributeValue_3* values;
} PymMoAttributeValueContainer_3;

/* One member of a structure value. */
struct PymMoAttrStructMember_3 {
  const char* memberName;
  PymMoAttributeValueContainer_3* memberValue;
  PymMoAttrStructMember_3* next;
};

/* An attribute name with its values. */
typedef struct PymMoNamedAttributeValueContainer_3 {
  const char* name;
  PymMoAttributeValueContainer_3 value;
} PymMoNamedAttributeValueContainer_3;

/* A container handed out together with the function that releases it. */
typedef struct PymMoAttributeValueResult_3 {
  PymMoAttributeValueContainer_3* container;
  void (*release)(PymMoAttributeValueContainer_3* container);
} PymMoAttributeValueResult_3;

/* A null-terminated array of containers handed out together with its release function. */
typedef struct PymMoAttributeValuesResult_3 {
  PymMoAttributeValueContainer_3** containers;
  void (*release)(PymMoAttributeValueContainer_3** containers);
} PymMoAttributeValuesResult_3;

/* Version 1 of the managed-object interface shares the version-3 value layout. */
typedef PymMoAttributeValueContainer_3 PymMoAttributeValueContainer;

/* The platform's extended CM router names the same layout its own way. */
typedef PymMoAttributeValueContainer_3 QivMoAttributeValueContainer_3;

#ifdef __cplusplus
}
#endif

#endif
