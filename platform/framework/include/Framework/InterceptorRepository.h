#ifndef FRAMEWORK_INTERCEPTOR_REPOSITORY_H
#define FRAMEWORK_INTERCEPTOR_REPOSITORY_H

#include <QivOamSpiInterceptorRepository.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Framework {

// The extended CM router's interceptors, one per class (comma form): the router asks here before
// it carries out a write that came through its public tables or from an operator. Thread-safe.
class InterceptorRepository {
 public:
  struct Interceptor {
    const QivOamSpiInterceptor_1* table;
    void* context;
  };

  // PymOk; PymAlreadyExist when className has another interceptor (the same table and context
  // again is PymOk: a component that starts again without having stopped registers again);
  // PymInvalidParameter for a null or empty className or a null table.
  PymReturnT registerClass(const char* className, const QivOamSpiInterceptor_1* table, void* context);
  // PymOk; PymNotExist when className has none; PymInvalidParameter for a null className. Calls
  // already under way go on: the router only starts no new one.
  PymReturnT deregisterClass(const char* className);

  std::optional<Interceptor> interceptorOf(const std::string& className) const;
  // The classes that have an interceptor, sorted.
  std::vector<std::string> classes() const;

  // The "QivOamSpiInterceptorRepository" "1" table of "QivOamSpiExtCmRouterService"; it uses
  // the current framework's repository.
  static std::vector<PymMgmtSpiInterface_1*> interfaces();

 private:
  mutable std::mutex _mutex;
  std::map<std::string, Interceptor> _interceptors;
};

}  // namespace Framework

#endif
