#ifndef BENCH_QIVEA_LDAP_FRAMEWORK_H
#define BENCH_QIVEA_LDAP_FRAMEWORK_H

#include <Framework/ManagementFramework.h>

#include <functional>

namespace Bench {

// The framework stand-in that the qivea benchmarks run the component on: the LDAP 2.0 model with
// LDAP unlocked and a filter type, so that start applies a configuration through qivea and role
// queries go to it. Warnings and errors are kept for a failure report; traces are neither kept
// nor formatted. Nothing is echoed: without the security framework's command, start logs an
// expected error. At most one object at a time (the framework's own rule).
class QiveaLdapFramework {
 public:
  // The component file: start waits for the initial configuration, so that the first query is
  // served.
  static const char COMPONENT_CONFIG[];

  // The whole main program of a benchmark: body's result on a fresh object, or 1 after printing
  // what body threw (with what the framework kept) or what kept the object from being made,
  // prefixed by program, on standard error.
  static int run(const char* program, const std::function<int(QiveaLdapFramework&)>& body);

  // Throws Framework::ModelError when the model cannot be loaded.
  QiveaLdapFramework();

  Framework::ManagementFramework& framework();

 private:
  void printLog();

  Framework::ManagementFramework _framework;
};

}  // namespace Bench

#endif
