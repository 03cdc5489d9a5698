#ifndef FRAMEWORK_SCRIPTED_ANSWERS_H
#define FRAMEWORK_SCRIPTED_ANSWERS_H

#include <PymSpiTypes.h>

#include <deque>
#include <optional>

namespace Framework {

// Result codes a test queues for the next calls of one operation; each call takes at most one.
// Not locked: the owning service's mutex guards it.
class ScriptedAnswers {
 public:
  void push(PymReturnT code) { _answers.push_back(code); }

  // The oldest queued code, or nothing when none is queued.
  std::optional<PymReturnT> take() {
    if (_answers.empty()) return std::nullopt;
    const PymReturnT code = _answers.front();
    _answers.pop_front();
    return code;
  }

 private:
  std::deque<PymReturnT> _answers;
};

}  // namespace Framework

#endif
