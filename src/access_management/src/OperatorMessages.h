#ifndef QIV_ACCESS_MANAGEMENT_OPERATOR_MESSAGES_H
#define QIV_ACCESS_MANAGEMENT_OPERATOR_MESSAGES_H

#include <PymSpiTypes.h>

#include <string>

namespace QivAccessManagement {

// Where a text for the operator whose request is being served goes. The component is the one
// channel: it knows whether it is started and holds the framework's thread context.
class OperatorMessages {
 public:
  virtual ~OperatorMessages() = default;
  // 0, or the failure code after it was logged.
  virtual PymReturnT addMessage(const std::string& text) = 0;
};

}  // namespace QivAccessManagement

#endif
