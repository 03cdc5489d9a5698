#ifndef QIV_ACCESS_MANAGEMENT_AM_ENTRY_POINTS_H
#define QIV_ACCESS_MANAGEMENT_AM_ENTRY_POINTS_H

// The functions of the component's offered tables. Each finds the component, answers 2 while
// it is not started (without touching any output) and otherwise forwards to the method of the
// same name; the two release functions forward at any time.
#include "EntryGuard.h"

#include <PymMwSpiAccessManagement.h>
#include <PymOamSpiManagedObject.h>
#include <PymOamSpiTransaction.h>

extern "C" {

QIV_VISIBLE PymReturnT am_getRoles_2(const char* method, const char* userName, const char*** roles);
QIV_VISIBLE PymReturnT am_freeRoles_2(const char* method, const char** roles);

QIV_VISIBLE PymReturnT am_setMoAttribute_1(unsigned long txHandle, const char* dn, const char* attributeName,
                                               const PymMoAttributeValueContainer* value);
QIV_VISIBLE PymReturnT am_getMoAttribute_1(unsigned long txHandle, const char* dn, const char* attributeName,
                                               PymMoAttributeValueContainer** value);
QIV_VISIBLE PymReturnT am_newMoIterator_1(unsigned long txHandle, const char* dn, const char* className,
                                              void** iterator);
QIV_VISIBLE PymReturnT am_nextMo_1(void* iterator, char** result);
QIV_VISIBLE PymReturnT am_createMo_1(unsigned long txHandle, const char* parentDn, const char* className,
                                         const char* keyAttributeName, const char* keyAttributeValue);
QIV_VISIBLE PymReturnT am_deleteMo_1(unsigned long txHandle, const char* dn);
QIV_VISIBLE PymReturnT am_action_1(unsigned long txHandle, const char* dn, const char* name,
                                       PymMoAttributeValueContainer** parameters, PymMoAttributeValueContainer** result);

QIV_VISIBLE PymReturnT am_setMoAttribute_3(unsigned long txHandle, const char* dn, const char* attributeName,
                                               const PymMoAttributeValueContainer_3* value);
QIV_VISIBLE PymReturnT am_getMoAttribute_3(unsigned long txHandle, const char* dn, const char* attributeName,
                                               PymMoAttributeValueResult_3* result);
QIV_VISIBLE PymReturnT am_getMoAttributes_3(unsigned long txHandle, const char* dn, const char** attributeNames,
                                                PymMoAttributeValuesResult_3* result);
QIV_VISIBLE PymReturnT am_newMoIterator_3(unsigned long txHandle, const char* dn, const char* className,
                                              unsigned long long* iterator);
QIV_VISIBLE PymReturnT am_nextMo_3(unsigned long long iterator, char** result);
QIV_VISIBLE PymReturnT am_createMo_3(unsigned long txHandle, const char* parentDn, const char* className,
                                         const char* keyAttributeName, const char* keyAttributeValue,
                                         PymMoNamedAttributeValueContainer_3** initialAttributes);
QIV_VISIBLE PymReturnT am_deleteMo_3(unsigned long txHandle, const char* dn);
QIV_VISIBLE PymReturnT am_action_3(unsigned long txHandle, const char* dn, const char* name,
                                       PymMoNamedAttributeValueContainer_3** parameters,
                                       PymMoAttributeValueResult_3* result);
QIV_VISIBLE PymReturnT am_finalizeMoIterator_3(unsigned long long iterator);
QIV_VISIBLE PymReturnT am_existsMo_3(unsigned long txHandle, const char* dn, bool* result);
QIV_VISIBLE PymReturnT am_countMoChildren_3(unsigned long txHandle, const char* dn, const char* className,
                                                unsigned long long* result);

QIV_VISIBLE PymReturnT am_join_2(unsigned long txHandle);
QIV_VISIBLE PymReturnT am_prepare_2(unsigned long txHandle);
QIV_VISIBLE PymReturnT am_commit_2(unsigned long txHandle);
QIV_VISIBLE PymReturnT am_abort_2(unsigned long txHandle);
QIV_VISIBLE PymReturnT am_finish_2(unsigned long txHandle);
QIV_VISIBLE PymReturnT am_validate_2(unsigned long txHandle, bool* result);

QIV_VISIBLE void am_releaseGetMoAttribute(PymMoAttributeValueContainer_3* container);
QIV_VISIBLE void am_releaseGetMoAttributes(PymMoAttributeValueContainer_3** containers);
}

#endif
