#ifndef QIVEA_CALL_LOG_H
#define QIVEA_CALL_LOG_H

#include "QiveaHome.h"

#include <string>
#include <vector>

namespace Qivea {

// Records every call's arguments word for word in <home>/calls, one file per call: each
// argument followed by a NUL byte (an argument cannot hold one). File names
// "<monotonic time in ns, zero-padded>-<pid>" sort in call order; a file appears complete or
// not at all. When <home>/descriptors exists, the descriptors the program found open ("0 1 2")
// are written there under the same name.
class CallLog {
 public:
  explicit CallLog(const QiveaHome& home) : _home(home) {}

  void record(const std::vector<std::string>& args) const;

 private:
  const QiveaHome& _home;
};

}  // namespace Qivea

#endif
