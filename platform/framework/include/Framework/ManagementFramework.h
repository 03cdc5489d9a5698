#ifndef FRAMEWORK_MANAGEMENT_FRAMEWORK_H
#define FRAMEWORK_MANAGEMENT_FRAMEWORK_H

#include <Framework/CmRouter.h>
#include <Framework/CryptoService.h>
#include <Framework/EventRouter.h>
#include <Framework/InterceptorRepository.h>
#include <Framework/InterfacePortal.h>
#include <Framework/LogCapture.h>
#include <Framework/ModelStore.h>
#include <Framework/ObjectImplementerRegistry.h>
#include <Framework/ThreadContext.h>
#include <Framework/TransactionService.h>

#include <exception>
#include <memory>
#include <string>

namespace Framework {

// The management framework, in-process: owns the model and every service, offers them through
// its portal, and attaches itself to the platform library (Qiv::Portal) while it lives. The
// services are reached from C function tables, so at most one instance may exist at a time.
class ManagementFramework {
 public:
  struct Options {
    std::string modelFile;   // XML model with classes and instances; required
    std::string cryptoKey;   // 64 hex digits (AES-256); empty: the built-in demo key
    int logLevel = 6;
    int echoLevel = 4;
  };

  // Throws ModelError when the model cannot be loaded, std::logic_error when another
  // instance exists.
  explicit ManagementFramework(const Options& options);
  ~ManagementFramework();
  ManagementFramework(const ManagementFramework&) = delete;
  ManagementFramework& operator=(const ManagementFramework&) = delete;

  // The live instance, or null.
  static ManagementFramework* current();
  // What the C tables run: body(*current()); PymFailure when there is no live instance or body
  // throws, since no exception may reach a C caller.
  template <class Body>
  static PymReturnT withCurrent(Body&& body) {
    ManagementFramework* framework = current();
    if (framework == nullptr) return PymFailure;
    try {
      return body(*framework);
    } catch (const std::exception&) {
      return PymFailure;
    }
  }

  // What a component's pymLCMinit is handed.
  PymMgmtSpiInterfacePortalAccessor* accessor();

  LogCapture& log();
  ModelStore& model();
  InterfacePortal& portal();
  CmRouter& cmRouter();
  InterceptorRepository& interceptors();
  EventRouter& eventRouter();
  TransactionService& transactions();
  ObjectImplementerRegistry& objectImplementers();
  ThreadContext& threadContext();
  CryptoService& crypto();

 private:
  LogCapture _log;
  std::unique_ptr<ModelStore> _model;
  std::unique_ptr<CryptoService> _crypto;
  std::unique_ptr<ThreadContext> _threadContext;
  std::unique_ptr<TransactionService> _transactions;
  std::unique_ptr<ObjectImplementerRegistry> _objectImplementers;
  std::unique_ptr<EventRouter> _eventRouter;
  std::unique_ptr<InterceptorRepository> _interceptors;
  std::unique_ptr<CmRouter> _cmRouter;
  std::unique_ptr<InterfacePortal> _portal;
};

}  // namespace Framework

#endif
