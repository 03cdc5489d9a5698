#ifndef QIV_EXT_CM_ROUTER_SERVICE_INTERCEPTOR_TRAMPOLINES_H
#define QIV_EXT_CM_ROUTER_SERVICE_INTERCEPTOR_TRAMPOLINES_H

#include <QivOamSpiInterceptorRepository.h>

namespace QivExtCmRouterService {

// The C face of every MoInterceptorBase: one table whose operations take the interceptor as
// their context and call its virtual operation of the same name. No exception leaves them.
// Internal to the library.
class __attribute__((visibility("hidden"))) InterceptorTrampolines {
 public:
  // Static, shared by all interceptors; a null context gives PymInvalidParameter.
  static const QivOamSpiInterceptor_1* table();

  InterceptorTrampolines() = delete;
};

}  // namespace QivExtCmRouterService

#endif
