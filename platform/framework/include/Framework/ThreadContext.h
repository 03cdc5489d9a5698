#ifndef FRAMEWORK_THREAD_CONTEXT_H
#define FRAMEWORK_THREAD_CONTEXT_H

#include <Framework/ScriptedAnswers.h>
#include <PymSpiTypes.h>

#include <mutex>
#include <string>
#include <vector>

namespace Framework {

// A message a component addressed to the request's originator.
struct ContextMessage {
  unsigned long txHandle;  // the transaction the thread served; 0 for none
  int kind;
  std::string text;
};

// The thread context service: collects the messages components add while serving a request,
// filed under the calling thread's CurrentTransaction. Thread-safe.
class ThreadContext {
 public:
  // PymOk once the message is filed, or a queued answer and nothing filed.
  PymReturnT addMessage(int kind, const std::string& text);

  // Messages in the order they were added.
  std::vector<ContextMessage> messages(unsigned long txHandle) const;
  std::vector<ContextMessage> allMessages() const;
  void clear();
  // Test hook: the next addMessage answers code and files nothing, as a context that refuses
  // the message (queued, one per call).
  void answerNextAddMessage(PymReturnT code);

  // The "PymMgmtSpiThreadContext" "2" table; it uses the current framework's service.
  static std::vector<PymMgmtSpiInterface_1*> interfaces();

 private:
  mutable std::mutex _mutex;
  std::vector<ContextMessage> _messages;
  ScriptedAnswers _addAnswers;
};

}  // namespace Framework

#endif
