#ifndef FRAMEWORK_INTERCEPTOR_REPOSITORY_H
#define FRAMEWORK_INTERCEPTOR_REPOSITORY_H

#include <QivOamSpiInterceptorRepository.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
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
  using Body = std::function<PymReturnT(const Interceptor&)>;

  // PymOk; PymAlreadyExist when className has another interceptor (the same table and context
  // again is PymOk: a component that starts again without having stopped registers again);
  // PymInvalidParameter for a null or empty className or a null table.
  PymReturnT registerClass(const char* className, const QivOamSpiInterceptor_1* table, void* context);
  // PymOk once no call of the interceptor is under way on another thread any more, so that its
  // owner may let it go; a call on the deregistering thread itself (deregistering from inside
  // the interceptor) is not waited for. PymNotExist when className has none;
  // PymInvalidParameter for a null className.
  PymReturnT deregisterClass(const char* className);

  // Runs body with the interceptor of className, without the lock, as a call under way; its
  // answer, or nullopt when the class has no interceptor.
  std::optional<PymReturnT> call(const std::string& className, const Body& body);
  // The classes that have an interceptor, sorted.
  std::vector<std::string> classes() const;

  // The "QivOamSpiInterceptorRepository" "1" table of "QivOamSpiExtCmRouterService"; it uses
  // the current framework's repository.
  static std::vector<PymMgmtSpiInterface_1*> interfaces();

 private:
  void callEnded(const std::string& className);
  // Under the lock.
  bool runningElsewhere(const std::string& className) const;

  mutable std::mutex _mutex;
  std::condition_variable _callEnded;
  std::map<std::string, Interceptor> _interceptors;
  // The threads in a call of each class's interceptor.
  std::map<std::string, std::multiset<std::thread::id>> _running;
};

}  // namespace Framework

#endif
