#include "InterceptorTrampolines.h"

#include <QivExtCmRouterService/MoInterceptorBase.h>
#include <Qiv/LoggingWrapper.h>

#include <exception>

namespace QivExtCmRouterService {

namespace {

// Runs call on the interceptor behind context; the framework is C, so nothing may throw past here.
template <class Call>
PymReturnT dispatch(const char* operation, void* context, Call&& call) {
  if (context == nullptr) return PymInvalidParameter;
  try {
    return call(*static_cast<MoInterceptorBase*>(context));
  } catch (const std::exception& exception) {
    Qiv::LoggingWrapper::log_printf(operation, 3, "Interceptor failed: %s", exception.what());
  } catch (...) {
    Qiv::LoggingWrapper::log_printf(operation, 3, "Interceptor failed: unknown exception");
  }
  return PymFailure;
}

PymReturnT getMoAttribute(void* context, unsigned long txHandle, const char* dn, const char* attributeName,
                          PymMoAttributeValueResult_3* result) {
  return dispatch(__func__, context, [&](MoInterceptorBase& interceptor) {
    return interceptor.getMoAttribute(txHandle, dn, attributeName, result);
  });
}

PymReturnT getMoAttributes(void* context, unsigned long txHandle, const char* dn, const char** attributeNames,
                           PymMoAttributeValuesResult_3* result) {
  return dispatch(__func__, context, [&](MoInterceptorBase& interceptor) {
    return interceptor.getMoAttributes(txHandle, dn, attributeNames, result);
  });
}

PymReturnT setMoAttribute(void* context, unsigned long txHandle, const char* dn, const char* attributeName,
                          const QivMoAttributeValueContainer_3* value) {
  return dispatch(__func__, context, [&](MoInterceptorBase& interceptor) {
    return interceptor.setMoAttribute(txHandle, dn, attributeName, value);
  });
}

PymReturnT setMoAttributes(void* context, unsigned long txHandle, const char* dn,
                           PymMoNamedAttributeValueContainer_3** attributes) {
  return dispatch(__func__, context, [&](MoInterceptorBase& interceptor) {
    return interceptor.setMoAttributes(txHandle, dn, attributes);
  });
}

PymReturnT newMoIterator(void* context, unsigned long txHandle, const char* dn, const char* className,
                         unsigned long long* iterator) {
  return dispatch(__func__, context, [&](MoInterceptorBase& interceptor) {
    return interceptor.newMoIterator(txHandle, dn, className, iterator);
  });
}

PymReturnT nextMo(void* context, unsigned long long iterator, char** result) {
  return dispatch(__func__, context,
                  [&](MoInterceptorBase& interceptor) { return interceptor.nextMo(iterator, result); });
}

PymReturnT createMo(void* context, unsigned long txHandle, const char* parentDn, const char* className,
                    const char* keyAttributeName, const char* keyAttributeValue,
                    PymMoNamedAttributeValueContainer_3** initialAttributes) {
  return dispatch(__func__, context, [&](MoInterceptorBase& interceptor) {
    return interceptor.createMo(txHandle, parentDn, className, keyAttributeName, keyAttributeValue, initialAttributes);
  });
}

PymReturnT deleteMo(void* context, unsigned long txHandle, const char* dn) {
  return dispatch(__func__, context,
                  [&](MoInterceptorBase& interceptor) { return interceptor.deleteMo(txHandle, dn); });
}

PymReturnT action(void* context, unsigned long txHandle, const char* dn, const char* name,
                  PymMoNamedAttributeValueContainer_3** parameters, PymMoAttributeValueResult_3* result) {
  return dispatch(__func__, context, [&](MoInterceptorBase& interceptor) {
    return interceptor.action(txHandle, dn, name, parameters, result);
  });
}

PymReturnT finalizeMoIterator(void* context, unsigned long long iterator) {
  return dispatch(__func__, context,
                  [&](MoInterceptorBase& interceptor) { return interceptor.finalizeMoIterator(iterator); });
}

PymReturnT existsMo(void* context, unsigned long txHandle, const char* dn, bool* result) {
  return dispatch(__func__, context,
                  [&](MoInterceptorBase& interceptor) { return interceptor.existsMo(txHandle, dn, result); });
}

PymReturnT countMoChildren(void* context, unsigned long txHandle, const char* dn, const char* className,
                           unsigned long long* result) {
  return dispatch(__func__, context, [&](MoInterceptorBase& interceptor) {
    return interceptor.countMoChildren(txHandle, dn, className, result);
  });
}

const QivOamSpiInterceptor_1 trampolines = {
    getMoAttribute, getMoAttributes, setMoAttribute, setMoAttributes,    newMoIterator, nextMo,
    createMo,       deleteMo,        action,         finalizeMoIterator, existsMo,      countMoChildren};

}  // namespace

const QivOamSpiInterceptor_1* InterceptorTrampolines::table() { return &trampolines; }

}  // namespace QivExtCmRouterService
