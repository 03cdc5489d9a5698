#include <Framework/ThreadContext.h>

#include <Framework/CurrentTransaction.h>
#include <Framework/ManagementFramework.h>
#include <PymMgmtSpiThreadContext.h>

namespace Framework {

namespace {

PymReturnT addMessage(int messageKind, const char* message) {
  return ManagementFramework::withCurrent([&](ManagementFramework& framework) -> PymReturnT {
    if (message == nullptr) return PymInvalidParameter;
    return framework.threadContext().addMessage(messageKind, message);
  });
}

PymMgmtSpiThreadContext_2 threadContextTable = {
    {"PymMgmtSpiThreadContextService", "PymMgmtSpiThreadContext", "2"}, addMessage};

}  // namespace

PymReturnT ThreadContext::addMessage(int kind, const std::string& text) {
  std::lock_guard<std::mutex> lock(_mutex);
  if (const std::optional<PymReturnT> answer = _addAnswers.take()) return *answer;
  _messages.push_back(ContextMessage{CurrentTransaction::get(), kind, text});
  return PymOk;
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

void ThreadContext::answerNextAddMessage(PymReturnT code) {
  std::lock_guard<std::mutex> lock(_mutex);
  _addAnswers.push(code);
}

std::vector<PymMgmtSpiInterface_1*> ThreadContext::interfaces() { return {&threadContextTable.base}; }

}  // namespace Framework
