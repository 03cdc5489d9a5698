#include <Framework/ModelError.h>

namespace Framework {

namespace {

std::string describe(const std::string& file, unsigned long line, const std::string& message) {
  return line == 0 ? file + ": " + message : file + ":" + std::to_string(line) + ": " + message;
}

}  // namespace

ModelError::ModelError(const std::string& file, unsigned long line, const std::string& message)
    : std::runtime_error(describe(file, line, message)), _file(file), _line(line) {}

const std::string& ModelError::file() const { return _file; }

unsigned long ModelError::line() const { return _line; }

}  // namespace Framework
