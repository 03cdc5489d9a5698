#include <Framework/InterceptorRepository.h>

#include <Framework/ManagementFramework.h>

namespace Framework {

namespace {

PymReturnT registerClass(const char* className, const QivOamSpiInterceptor_1* interceptor, void* context) {
  return ManagementFramework::withCurrent([&](ManagementFramework& framework) {
    return framework.interceptors().registerClass(className, interceptor, context);
  });
}

PymReturnT deregisterClass(const char* className) {
  return ManagementFramework::withCurrent(
      [&](ManagementFramework& framework) { return framework.interceptors().deregisterClass(className); });
}

QivOamSpiInterceptorRepository_1 repositoryTable = {
    {"QivOamSpiExtCmRouterService", "QivOamSpiInterceptorRepository", "1"}, registerClass, deregisterClass};

}  // namespace

PymReturnT InterceptorRepository::registerClass(const char* className, const QivOamSpiInterceptor_1* table,
                                                void* context) {
  if (className == nullptr || *className == '\0' || table == nullptr) return PymInvalidParameter;
  std::lock_guard<std::mutex> lock(_mutex);
  const auto inserted = _interceptors.emplace(className, Interceptor{table, context});
  if (inserted.second) return PymOk;
  const Interceptor& present = inserted.first->second;
  return present.table == table && present.context == context ? PymOk : PymAlreadyExist;
}

PymReturnT InterceptorRepository::deregisterClass(const char* className) {
  if (className == nullptr) return PymInvalidParameter;
  std::unique_lock<std::mutex> lock(_mutex);
  if (_interceptors.erase(className) == 0) return PymNotExist;
  _callEnded.wait(lock, [&] { return !runningElsewhere(className); });
  return PymOk;
}

std::optional<PymReturnT> InterceptorRepository::call(const std::string& className, const Body& body) {
  Interceptor interceptor{};
  {
    std::lock_guard<std::mutex> lock(_mutex);
    const auto found = _interceptors.find(className);
    if (found == _interceptors.end()) return std::nullopt;
    interceptor = found->second;
    _running[className].insert(std::this_thread::get_id());
  }
  PymReturnT result = PymFailure;
  try {
    result = body(interceptor);
  } catch (...) {
    callEnded(className);
    throw;
  }
  callEnded(className);
  return result;
}

std::vector<std::string> InterceptorRepository::classes() const {
  std::lock_guard<std::mutex> lock(_mutex);
  std::vector<std::string> names;
  for (const auto& entry : _interceptors) names.push_back(entry.first);
  return names;
}

std::vector<PymMgmtSpiInterface_1*> InterceptorRepository::interfaces() { return {&repositoryTable.base}; }

void InterceptorRepository::callEnded(const std::string& className) {
  {
    std::lock_guard<std::mutex> lock(_mutex);
    std::multiset<std::thread::id>& threads = _running[className];
    threads.erase(threads.find(std::this_thread::get_id()));
    if (threads.empty()) _running.erase(className);
  }
  _callEnded.notify_all();
}

bool InterceptorRepository::runningElsewhere(const std::string& className) const {
  const auto found = _running.find(className);
  if (found == _running.end()) return false;
  return found->second.size() > found->second.count(std::this_thread::get_id());
}

}  // namespace Framework
