#ifndef FRAMEWORK_TESTS_FAKE_INTERCEPTOR_H
#define FRAMEWORK_TESTS_FAKE_INTERCEPTOR_H

#include <QivOamSpiInterceptorRepository.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

// An interceptor as the router meets it: a C table whose context is this object. Records every
// call with the pointers it was handed, and answers what its scripted action answers (PymOk
// without carrying anything on by default).
class FakeInterceptor {
 public:
  struct Call {
    std::string operation;  // "setMoAttribute" or "setMoAttributes"
    void* context;
    unsigned long txHandle;
    unsigned long currentTransaction;  // CurrentTransaction::get() during the call
    const char* dn;                    // the pointers as handed over
    const char* attributeName;
    const PymMoAttributeValueContainer_3* value;
    PymMoNamedAttributeValueContainer_3** attributes;
  };
  using Action = std::function<PymReturnT(const Call&)>;

  FakeInterceptor();
  FakeInterceptor(const FakeInterceptor&) = delete;
  FakeInterceptor& operator=(const FakeInterceptor&) = delete;

  const QivOamSpiInterceptor_1* table() const;
  QivOamSpiInterceptor_1& editableTable();
  void onCall(Action action);
  std::vector<Call> calls() const;

  PymReturnT serve(const Call& call);

 private:
  QivOamSpiInterceptor_1 _table;
  mutable std::mutex _mutex;
  Action _action;
  std::vector<Call> _calls;
};

#endif
