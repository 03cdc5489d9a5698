#ifndef QIV_EXT_CM_ROUTER_SERVICE_EXT_CM_INTERCEPTOR_REPOSITORY_H
#define QIV_EXT_CM_ROUTER_SERVICE_EXT_CM_INTERCEPTOR_REPOSITORY_H

#include <QivOamSpiInterceptorRepository.h>

namespace QivExtCmRouterService {

class MoInterceptorBase;

// Registers C++ interceptors with the framework's interceptor repository, which calls them
// through a C table of trampolines with the interceptor as context.
class ExtCmInterceptorRepository {
 public:
  // The repository's identity in the framework's portal.
  static const PymMgmtSpiInterface_1 INTERFACE_ID;

  // Makes interceptor the interceptor of className (comma form). interceptor must stay alive
  // until deregisterClass of that class has returned. The repository's result, or
  // PymInvalidParameter for a null repository, interceptor or className.
  static PymReturnT registerClass(QivOamSpiInterceptorRepository_1* repository, MoInterceptorBase* interceptor,
                                  const char* className);
  // The repository's result, or PymInvalidParameter for a null repository or className.
  static PymReturnT deregisterClass(QivOamSpiInterceptorRepository_1* repository, const char* className);

  ExtCmInterceptorRepository() = delete;
};

}  // namespace QivExtCmRouterService

#endif
