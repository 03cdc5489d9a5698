#include <Framework/OperatorError.h>

namespace Framework {

OperatorError::OperatorError(PymReturnT code, const std::string& text) : std::runtime_error(text), _code(code) {}

PymReturnT OperatorError::code() const { return _code; }

}  // namespace Framework
