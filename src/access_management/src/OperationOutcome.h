#ifndef QIV_ACCESS_MANAGEMENT_OPERATION_OUTCOME_H
#define QIV_ACCESS_MANAGEMENT_OPERATION_OUTCOME_H

#include <string>

namespace Ldap {

// What became of the last operation that went to the directory: answered (whatever the answer
// said), refused before any answer (the connection could not be made or secured), or left
// without an answer (a time-out, a server gone, a connection lost or reset).
struct OperationOutcome {
  enum Kind { ANSWERED = 0, REFUSED = 1, NO_ANSWER = 2 };

  Kind kind = ANSWERED;
  // The server the session talked to, "address:port"; the URI list when none was reached.
  std::string server;
  // libldap's text for the failure; empty when answered.
  std::string reason;

  bool answered() const { return kind == ANSWERED; }
};

}  // namespace Ldap

#endif
