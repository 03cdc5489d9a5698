#ifndef AMHOST_ACCESS_MANAGEMENT_HOST_H
#define AMHOST_ACCESS_MANAGEMENT_HOST_H

#include "CommandWords.h"
#include "HostOptions.h"
#include "SecurityFrameworkNode.h"

#include <Framework/ComponentLibrary.h>
#include <Framework/ManagementFramework.h>
#include <Framework/OperatorTransaction.h>
#include <PymMgmtSpiComponent.h>

#include <cstddef>
#include <istream>
#include <map>
#include <memory>
#include <ostream>
#include <string>

namespace Amhost {

// The framework stand-in on the model file with the component library loaded and initialised,
// driven one command at a time. Owns the framework, the library and the operator transactions;
// used from one thread.
class AccessManagementHost {
 public:
  // The program's exit statuses.
  enum Status { Succeeded = 0, CommandFailed = 1, UsageError = 2, LoadFailed = 3 };

  // Loads the model, the component file and the library and runs pymLCMinit. Throws
  // std::exception with the reason when any of them fails.
  AccessManagementHost(const HostOptions& options, std::ostream& out, std::ostream& err);
  // Aborts open transactions, stops a started component, runs pymLCMterminate, unloads.
  ~AccessManagementHost();
  AccessManagementHost(const AccessManagementHost&) = delete;
  AccessManagementHost& operator=(const AccessManagementHost&) = delete;

  // Runs the commands in order and stops at the first that fails.
  Status runAll(const std::vector<CommandWords::Command>& commands);
  // Runs one command per line until the end or "quit". A script stops at the first failure; an
  // interactive session (prompting on err) reports it and goes on.
  Status runLines(std::istream& in, bool interactive);

 private:
  struct Transaction {
    std::unique_ptr<Framework::OperatorTransaction> operations;
    std::size_t messagesShown = 0;
  };

  // command must have passed CommandSyntax::check. Succeeded or CommandFailed; reasons went to err.
  Status run(const CommandWords::Command& command);
  Status dispatch(const CommandWords::Command& command);
  Status start();
  Status stop();
  Status write(const std::string& dn, const std::string& attribute, const std::vector<std::string>& values);
  Status read(const std::string& dn, const std::string& attribute);
  Status commit();
  Status abort();
  Status begin(const std::string& name);
  Status use(const std::string& name);
  Status roles(const std::string& user, const std::string& method);
  Status files();

  // The current transaction, begun when there is none.
  Transaction& current();
  // The current transaction, or null with the reason on err.
  Transaction* requireCurrent();
  // Prints the operator messages the transaction got since the last call.
  void showMessages(Transaction& transaction);
  Status fail(const std::string& reason);

  const std::string _modelFile;
  std::ostream& _out;
  std::ostream& _err;
  // Made before the library is loaded and gone after it; null without the security framework.
  std::unique_ptr<SecurityFrameworkNode> _securityFramework;
  std::unique_ptr<Framework::ManagementFramework> _framework;
  std::unique_ptr<Framework::ComponentLibrary> _library;
  PymMgmtSpiComponent_2* _descriptor;
  bool _started;
  // By name; "" is the one set, unset, get and commit begin when none is current.
  std::map<std::string, Transaction> _transactions;
  std::string _currentName;
};

}  // namespace Amhost

#endif
