/* Managed-object interfaces: offered by object implementers, and by the CM router to everyone. */
#ifndef PYM_OAM_SPI_MANAGED_OBJECT_H
#define PYM_OAM_SPI_MANAGED_OBJECT_H

#include "PymOamSpiMoValue.h"

#ifdef __cplusplus
extern "C" {
#endif

/* "PymOamSpiManagedObject" "1". getMoAttribute hands out a container that stays the
 * implementer's until the transaction ends. */
typedef struct PymOamSpiManagedObject_1 {
  PymMgmtSpiInterface_1 base;
  PymReturnT (*setMoAttribute)(unsigned long txHandle, const char* dn, const char* attributeName,
                               const PymMoAttributeValueContainer* value);
  PymReturnT (*getMoAttribute)(unsigned long txHandle, const char* dn, const char* attributeName,
                               PymMoAttributeValueContainer** value);
  PymReturnT (*newMoIterator)(unsigned long txHandle, const char* dn, const char* className, void** iterator);
  PymReturnT (*nextMo)(void* iterator, char** result);
  PymReturnT (*createMo)(unsigned long txHandle, const char* parentDn, const char* className,
                         const char* keyAttributeName, const char* keyAttributeValue);
  PymReturnT (*deleteMo)(unsigned long txHandle, const char* dn);
  PymReturnT (*action)(unsigned long txHandle, const char* dn, const char* name,
                       PymMoAttributeValueContainer** parameters, PymMoAttributeValueContainer** result);
} PymOamSpiManagedObject_1;

/* "PymOamSpiManagedObject" "3". Results carry their own release function. newMoIterator
 * iterates the children of dn of one class ("" as dn: the roots); nextMo gives a malloc'ed DN
 * (released by the caller with free) or null after the last. */
typedef struct PymOamSpiManagedObject_3 {
  PymMgmtSpiInterface_1 base;
  PymReturnT (*setMoAttribute)(unsigned long txHandle, const char* dn, const char* attributeName,
                               const PymMoAttributeValueContainer_3* value);
  PymReturnT (*getMoAttribute)(unsigned long txHandle, const char* dn, const char* attributeName,
                               PymMoAttributeValueResult_3* result);
  PymReturnT (*getMoAttributes)(unsigned long txHandle, const char* dn, const char** attributeNames,
                                PymMoAttributeValuesResult_3* result);
  PymReturnT (*newMoIterator)(unsigned long txHandle, const char* dn, const char* className,
                              unsigned long long* iterator);
  PymReturnT (*nextMo)(unsigned long long iterator, char** result);
  PymReturnT (*createMo)(unsigned long txHandle, const char* parentDn, const char* className,
                         const char* keyAttributeName, const char* keyAttributeValue,
                         PymMoNamedAttributeValueContainer_3** initialAttributes);
  PymReturnT (*deleteMo)(unsigned long txHandle, const char* dn);
  PymReturnT (*action)(unsigned long txHandle, const char* dn, const char* name,
                       PymMoNamedAttributeValueContainer_3** parameters, PymMoAttributeValueResult_3* result);
  PymReturnT (*finalizeMoIterator)(unsigned long long iterator);
  PymReturnT (*existsMo)(unsigned long txHandle, const char* dn, bool* result);
  PymReturnT (*countMoChildren)(unsigned long txHandle, const char* dn, const char* className,
                                unsigned long long* result);
} PymOamSpiManagedObject_3;

/* "PymOamSpiManagedObject" "3_1": version 3 plus writing several attributes at once. */
typedef struct PymOamSpiManagedObject_3_1 {
  PymOamSpiManagedObject_3 v3;
  PymReturnT (*setMoAttributes)(unsigned long txHandle, const char* dn,
                                PymMoNamedAttributeValueContainer_3** attributes);
} PymOamSpiManagedObject_3_1;

/* "QivOamSpiManagedObject" "3" of the platform's extended CM router (the one interceptors sit in). */
typedef struct QivOamSpiManagedObject_3 {
  PymMgmtSpiInterface_1 base;
  PymReturnT (*getMoAttribute)(unsigned long txHandle, const char* dn, const char* attributeName,
                               PymMoAttributeValueResult_3* result);
  PymReturnT (*getMoAttributes)(unsigned long txHandle, const char* dn, const char** attributeNames,
                                PymMoAttributeValuesResult_3* result);
  PymReturnT (*setMoAttribute)(unsigned long txHandle, const char* dn, const char* attributeName,
                               const QivMoAttributeValueContainer_3* value);
  PymReturnT (*setMoAttributes)(unsigned long txHandle, const char* dn,
                                PymMoNamedAttributeValueContainer_3** attributes);
  PymReturnT (*newMoIterator)(unsigned long txHandle, const char* dn, const char* className,
                              unsigned long long* iterator);
  PymReturnT (*nextMo)(unsigned long long iterator, char** result);
  PymReturnT (*createMo)(unsigned long txHandle, const char* parentDn, const char* className,
                         const char* keyAttributeName, const char* keyAttributeValue,
                         PymMoNamedAttributeValueContainer_3** initialAttributes);
  PymReturnT (*deleteMo)(unsigned long txHandle, const char* dn);
  PymReturnT (*action)(unsigned long txHandle, const char* dn, const char* name,
                       PymMoNamedAttributeValueContainer_3** parameters, PymMoAttributeValueResult_3* result);
  PymReturnT (*finalizeMoIterator)(unsigned long long iterator);
  PymReturnT (*existsMo)(unsigned long txHandle, const char* dn, bool* result);
  PymReturnT (*countMoChildren)(unsigned long txHandle, const char* dn, const char* className,
                                unsigned long long* result);
} QivOamSpiManagedObject_3;

#ifdef __cplusplus
}
#endif

#endif
