#include <Framework/ManagementFramework.h>

#include <Qiv/Portal.h>

#include <atomic>
#include <stdexcept>

namespace Framework {

namespace {

std::atomic<ManagementFramework*> liveInstance{nullptr};

}  // namespace

ManagementFramework::ManagementFramework(const Options& options) {
  ManagementFramework* none = nullptr;
  if (!liveInstance.compare_exchange_strong(none, this)) {
    throw std::logic_error("a management framework exists already");
  }
  try {
    _log.setLevel(options.logLevel);
    _log.setEchoLevel(options.echoLevel);
    _model = std::make_unique<ModelStore>();
    _model->loadFile(options.modelFile);
    _crypto = std::make_unique<CryptoService>(options.cryptoKey);
    _threadContext = std::make_unique<ThreadContext>();
    _transactions = std::make_unique<TransactionService>(*_threadContext, _log);
    _portal = std::make_unique<InterfacePortal>(_log);
    _objectImplementers = std::make_unique<ObjectImplementerRegistry>(*_portal);
    _eventRouter = std::make_unique<EventRouter>(_log);
    _interceptors = std::make_unique<InterceptorRepository>();
    _cmRouter = std::make_unique<CmRouter>(*_model, *_transactions, *_objectImplementers, *_interceptors,
                                           *_eventRouter, _log);
    for (const auto& tables : {LogCapture::interfaces(), CryptoService::interfaces(), ThreadContext::interfaces(),
                               TransactionService::interfaces(), ObjectImplementerRegistry::interfaces(),
                               CmRouter::interfaces(), InterceptorRepository::interfaces(), EventRouter::interfaces(),
                               InterfacePortal::interfaces()}) {
      for (PymMgmtSpiInterface_1* table : tables) _portal->addInterface(table);
    }
  } catch (...) {
    liveInstance = nullptr;
    throw;
  }
  Qiv::Portal::instance().setAccessor(accessor());
}

ManagementFramework::~ManagementFramework() {
  Qiv::Portal::instance().setAccessor(nullptr);
  liveInstance = nullptr;
}

ManagementFramework* ManagementFramework::current() { return liveInstance.load(); }

PymMgmtSpiInterfacePortalAccessor* ManagementFramework::accessor() { return InterfacePortal::accessor(); }

LogCapture& ManagementFramework::log() { return _log; }

ModelStore& ManagementFramework::model() { return *_model; }

InterfacePortal& ManagementFramework::portal() { return *_portal; }

CmRouter& ManagementFramework::cmRouter() { return *_cmRouter; }

InterceptorRepository& ManagementFramework::interceptors() { return *_interceptors; }

EventRouter& ManagementFramework::eventRouter() { return *_eventRouter; }

TransactionService& ManagementFramework::transactions() { return *_transactions; }

ObjectImplementerRegistry& ManagementFramework::objectImplementers() { return *_objectImplementers; }

ThreadContext& ManagementFramework::threadContext() { return *_threadContext; }

CryptoService& ManagementFramework::crypto() { return *_crypto; }

}  // namespace Framework
