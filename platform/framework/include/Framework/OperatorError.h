#ifndef FRAMEWORK_OPERATOR_ERROR_H
#define FRAMEWORK_OPERATOR_ERROR_H

#include <PymSpiTypes.h>

#include <stdexcept>
#include <string>

namespace Framework {

// An operator's request the framework could not take, with a text for the operator and the
// result code it stands for (PymNotExist for an unknown object or attribute, PymInvalidParameter
// for a malformed DN, a value that does not fit or a transaction that has ended).
class OperatorError : public std::runtime_error {
 public:
  OperatorError(PymReturnT code, const std::string& text);

  PymReturnT code() const;

 private:
  PymReturnT _code;
};

}  // namespace Framework

#endif
