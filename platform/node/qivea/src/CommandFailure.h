#ifndef QIVEA_COMMAND_FAILURE_H
#define QIVEA_COMMAND_FAILURE_H

#include <stdexcept>
#include <string>

namespace Qivea {

// A command that cannot be carried out: its text goes to standard error, its status is the
// exit status.
class CommandFailure : public std::runtime_error {
 public:
  // The exit statuses qivea uses besides 0.
  enum Status { GENERAL = 1, NO_SUCH_USER = 2, INVALID_ARGUMENT = 8 };

  CommandFailure(Status status, const std::string& text) : std::runtime_error(text), _status(status) {}

  int status() const { return _status; }

 private:
  int _status;
};

}  // namespace Qivea

#endif
