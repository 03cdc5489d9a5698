#include <QivExtCmRouterService/ExtCmInterceptorRepository.h>

#include "InterceptorTrampolines.h"

namespace QivExtCmRouterService {

const PymMgmtSpiInterface_1 ExtCmInterceptorRepository::INTERFACE_ID = {"QivOamSpiExtCmRouterService",
                                                                        "QivOamSpiInterceptorRepository", "1"};

PymReturnT ExtCmInterceptorRepository::registerClass(QivOamSpiInterceptorRepository_1* repository,
                                                     MoInterceptorBase* interceptor, const char* className) {
  if (repository == nullptr || repository->registerClass == nullptr || interceptor == nullptr || className == nullptr)
    return PymInvalidParameter;
  return repository->registerClass(className, InterceptorTrampolines::table(), interceptor);
}

PymReturnT ExtCmInterceptorRepository::deregisterClass(QivOamSpiInterceptorRepository_1* repository,
                                                       const char* className) {
  if (repository == nullptr || repository->deregisterClass == nullptr || className == nullptr)
    return PymInvalidParameter;
  return repository->deregisterClass(className);
}

}  // namespace QivExtCmRouterService
