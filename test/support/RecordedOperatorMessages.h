#ifndef TEST_RECORDED_OPERATOR_MESSAGES_H
#define TEST_RECORDED_OPERATOR_MESSAGES_H

#include "OperatorMessages.h"

#include <string>
#include <vector>

// The component's operator channel as the configuration thread sees it: keeps every text, in
// order, and answers with result.
class RecordedOperatorMessages : public QivAccessManagement::OperatorMessages {
 public:
  PymReturnT addMessage(const std::string& text) override {
    texts.push_back(text);
    return result;
  }

  std::vector<std::string> texts;
  PymReturnT result = 0;
};

#endif
