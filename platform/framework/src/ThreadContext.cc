#include <Framework/ThreadContext.h>

#include <Framework/CurrentTransaction.h>
#include <Framework/ManagementFramework.h>
#include <PymMgmtSpiThreadContext.h>

namespace Framework {

namespace {

PymReturnT addMessage(int messageKind, const char* message) {
  return ManagementFramework::withCurrent([&](ManagementFramework& framework) -> PymReturnT {
    if (message == nullptr) return PymInvalidParameter;
    framework.threadContext().addMessage(messageKind, message);
    return PymOk;
  });
}

PymMgmtSpiThreadContext_2 threadContextTable = {
    {"PymMgmtSpiThreadContextService", "PymMgmtSpiThreadContext", "2"}, addMessage};

}  // namespace

void ThreadContext::addMessage(int kind, const std::string& text) {
  std::lock_guard<std::mutex> lock(_mutex);
  _messages.push_back(ContextMessage{CurrentTransaction::get(), kind, text});
}

std::vector<ContextMessage> ThreadContext::messages(unsigned long txHandle) const {
  std::lock_guard<std::mutex> lock(_mutex);
  std::vector<ContextMessage> result;
  for (const ContextMessage& message : _messages) {
    if (message.txHandle == txHandle) result.push_back(message);
  }
  return result;
}

std::vector<ContextMessage> ThreadContext::allMessages() const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _messages;
}

void ThreadContext::clear() {
  std::lock_guard<std::mutex> lock(_mutex);
  _messages.clear();
}

std::vector<PymMgmtSpiInterface_1*> ThreadContext::interfaces() { return {&threadContextTable.base}; }

}  // namespace Framework
