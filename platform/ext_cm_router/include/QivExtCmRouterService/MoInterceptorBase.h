#ifndef QIV_EXT_CM_ROUTER_SERVICE_MO_INTERCEPTOR_BASE_H
#define QIV_EXT_CM_ROUTER_SERVICE_MO_INTERCEPTOR_BASE_H

#include <PymOamSpiManagedObject.h>
#include <QivOamSpiInterceptorRepository.h>

#include <atomic>

namespace QivExtCmRouterService {

// An interceptor of the extended CM router: sees the operations on the objects of the class it
// is registered for (ExtCmInterceptorRepository). Every operation by default carries the call on
// unchanged to the next managed-object interface and returns its result; subclasses override
// the operations they want to see. Operations run on framework threads, several at once.
class MoInterceptorBase {
 public:
  // The router behind all interceptors: what the operations forward to.
  static const PymMgmtSpiInterface_1 NEXT_INTERFACE_ID;

  MoInterceptorBase();
  virtual ~MoInterceptorBase();
  MoInterceptorBase(const MoInterceptorBase&) = delete;
  MoInterceptorBase& operator=(const MoInterceptorBase&) = delete;

  // The operations of "QivOamSpiManagedObject" "3". Without a next interface: PymFailure.
  virtual PymReturnT getMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                    PymMoAttributeValueResult_3* result);
  virtual PymReturnT getMoAttributes(unsigned long txHandle, const char* dn, const char** attributeNames,
                                     PymMoAttributeValuesResult_3* result);
  virtual PymReturnT setMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                    const QivMoAttributeValueContainer_3* value);
  virtual PymReturnT setMoAttributes(unsigned long txHandle, const char* dn,
                                     PymMoNamedAttributeValueContainer_3** attributes);
  virtual PymReturnT newMoIterator(unsigned long txHandle, const char* dn, const char* className,
                                   unsigned long long* iterator);
  virtual PymReturnT nextMo(unsigned long long iterator, char** result);
  virtual PymReturnT createMo(unsigned long txHandle, const char* parentDn, const char* className,
                              const char* keyAttributeName, const char* keyAttributeValue,
                              PymMoNamedAttributeValueContainer_3** initialAttributes);
  virtual PymReturnT deleteMo(unsigned long txHandle, const char* dn);
  virtual PymReturnT action(unsigned long txHandle, const char* dn, const char* name,
                            PymMoNamedAttributeValueContainer_3** parameters, PymMoAttributeValueResult_3* result);
  virtual PymReturnT finalizeMoIterator(unsigned long long iterator);
  virtual PymReturnT existsMo(unsigned long txHandle, const char* dn, bool* result);
  virtual PymReturnT countMoChildren(unsigned long txHandle, const char* dn, const char* className,
                                     unsigned long long* result);

  // Finds the interceptor repository and the next interface through the framework's portal
  // (Qiv::Portal). PymOk when both were found; otherwise PymNotExist and neither is kept, so
  // that an interceptor that could not forward is never registered. Call it before registering,
  // on the thread that registers.
  PymReturnT initialize();

  // What initialize found, or null. Borrowed from the framework.
  QivOamSpiInterceptorRepository_1* getRepository() const;
  QivOamSpiManagedObject_3* getNextInterface() const;

 private:
  // Atomic: a component that starts again while still registered initialises again while
  // framework threads forward through them.
  std::atomic<QivOamSpiInterceptorRepository_1*> _repository;
  std::atomic<QivOamSpiManagedObject_3*> _next;
};

}  // namespace QivExtCmRouterService

#endif
