/* Interceptors of the platform's extended CM router: code that sits in front of the router for
 * one MO class and sees the operations on its objects before they are carried out. */
#ifndef QIV_OAM_SPI_INTERCEPTOR_REPOSITORY_H
#define QIV_OAM_SPI_INTERCEPTOR_REPOSITORY_H

#include "PymOamSpiManagedObject.h"

#ifdef __cplusplus
extern "C" {
#endif

/* An interceptor's operations. Each has the arguments and the meaning of the operation of the
 * same name in "QivOamSpiManagedObject" "3", preceded by the context that was registered with
 * the table; the router passes that context back unchanged. An operation's result is the
 * result of the intercepted call: the interceptor itself carries the call on (or refuses it)
 * through "QivOamSpiManagedObject" "3" of "QivOamSpiExtCmRouterService", the router behind all
 * interceptors. The operations may be called on any framework thread, several at once. */
typedef struct QivOamSpiInterceptor_1 {
  PymReturnT (*getMoAttribute)(void* context, unsigned long txHandle, const char* dn, const char* attributeName,
                               PymMoAttributeValueResult_3* result);
  PymReturnT (*getMoAttributes)(void* context, unsigned long txHandle, const char* dn, const char** attributeNames,
                                PymMoAttributeValuesResult_3* result);
  PymReturnT (*setMoAttribute)(void* context, unsigned long txHandle, const char* dn, const char* attributeName,
                               const QivMoAttributeValueContainer_3* value);
  PymReturnT (*setMoAttributes)(void* context, unsigned long txHandle, const char* dn,
                                PymMoNamedAttributeValueContainer_3** attributes);
  PymReturnT (*newMoIterator)(void* context, unsigned long txHandle, const char* dn, const char* className,
                              unsigned long long* iterator);
  PymReturnT (*nextMo)(void* context, unsigned long long iterator, char** result);
  PymReturnT (*createMo)(void* context, unsigned long txHandle, const char* parentDn, const char* className,
                         const char* keyAttributeName, const char* keyAttributeValue,
                         PymMoNamedAttributeValueContainer_3** initialAttributes);
  PymReturnT (*deleteMo)(void* context, unsigned long txHandle, const char* dn);
  PymReturnT (*action)(void* context, unsigned long txHandle, const char* dn, const char* name,
                       PymMoNamedAttributeValueContainer_3** parameters, PymMoAttributeValueResult_3* result);
  PymReturnT (*finalizeMoIterator)(void* context, unsigned long long iterator);
  PymReturnT (*existsMo)(void* context, unsigned long txHandle, const char* dn, bool* result);
  PymReturnT (*countMoChildren)(void* context, unsigned long txHandle, const char* dn, const char* className,
                                unsigned long long* result);
} QivOamSpiInterceptor_1;

/* "QivOamSpiInterceptorRepository" "1" of "QivOamSpiExtCmRouterService".
 *
 * A class name is the comma form of a class path, e.g.
 * "ManagedElement,SystemFunctions,SecM,UserManagement"; the class of an object is its DN with
 * the RDN values left out ("ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1").
 *
 * While a class has an interceptor, every setMoAttribute and setMoAttributes that reaches the
 * router through its public tables ("PymOamSpiManagedObject" "1", "3" and "3_1" of
 * "PymOamSpiCmRouterService") for an object of that class is not carried out by the router:
 * the router calls the interceptor's operation of the same name with the registered context and
 * the caller's arguments, unchanged, and hands its result back to the caller. Calls through
 * "QivOamSpiManagedObject" "3" of "QivOamSpiExtCmRouterService" are never intercepted: that is
 * how an interceptor carries a call on, and how it writes other attributes and objects, without
 * reaching itself or another interceptor again. The router calls an interceptor without
 * holding its own locks, since the interceptor calls back into it. */
typedef struct QivOamSpiInterceptorRepository_1 {
  PymMgmtSpiInterface_1 base;
  /* Makes interceptor (with context) the interceptor of className. The repository copies
   * className; interceptor and context stay the caller's and must stay valid until
   * deregisterClass of that class has returned. PymOk; PymAlreadyExist when the class already
   * has another interceptor (the same interceptor and context again is PymOk);
   * PymInvalidParameter for a null or empty className or a null interceptor. */
  PymReturnT (*registerClass)(const char* className, const QivOamSpiInterceptor_1* interceptor, void* context);
  /* Removes the interceptor of className. It returns once no call of the interceptor is under
   * way on another thread (a call on the calling thread itself, when an interceptor deregisters
   * from inside one of its calls, is not waited for) and the router starts no new one. PymOk;
   * PymNotExist when the class has none; PymInvalidParameter for a null className. */
  PymReturnT (*deregisterClass)(const char* className);
} QivOamSpiInterceptorRepository_1;

#ifdef __cplusplus
}
#endif

#endif
