#include "AccessManagementHost.h"

#include "CommandSyntax.h"
#include "ConfigurationPrinter.h"
#include "FileListing.h"
#include "LogLevel.h"

#include <PymMwSpiAccessManagement.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace Amhost {

namespace {

// The level at which the framework records traces.
const int TRACE_LEVEL = 8;

// What the component puts before every text meant for the operator; the host prints the text only.
const char OPERATOR_MARKER[] = "@qivnbi@";

// Without a file, start waits for the initial configuration, so that the next command sees it.
const char DEFAULT_COMPONENT_FILE[] =
    "<QivAccessManagementComponent><ldapInitConfigTimeout>30</ldapInitConfigTimeout></QivAccessManagementComponent>";

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read the component file " + path);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

Framework::ManagementFramework::Options frameworkOptions(const HostOptions& options) {
  Framework::ManagementFramework::Options result;
  result.modelFile = options.modelFile;
  result.cryptoKey = options.cryptoKey;
  result.logLevel = LogLevel::recordLevel(options.logLevel);
  result.echoLevel = options.logLevel;
  return result;
}

}  // namespace

AccessManagementHost::AccessManagementHost(const HostOptions& options, std::ostream& out, std::ostream& err)
    : _modelFile(options.modelFile),
      _out(out),
      _err(err),
      _securityFramework(options.psoClearPath.empty() ? nullptr : new SecurityFrameworkNode(options.psoClearPath)),
      _framework(new Framework::ManagementFramework(frameworkOptions(options))),
      _library(new Framework::ComponentLibrary(options.library)),
      _descriptor(nullptr),
      _started(false) {
  const std::string config =
      options.componentConfigFile.empty() ? DEFAULT_COMPONENT_FILE : readFile(options.componentConfigFile);
  const PymReturnT code = _library->init(_framework->accessor(), config.c_str());
  if (code != PymOk) throw std::runtime_error("pymLCMinit of " + options.library + " failed (" + std::to_string(code) + ")");
  if (_framework->portal().components().empty()) throw std::runtime_error(options.library + " registered no component");
  _descriptor = _framework->portal().components().front();
}

AccessManagementHost::~AccessManagementHost() {
  _transactions.clear();
  if (_started) _descriptor->stop(PymStateChangeShutdown);
  _library->terminate();
}

AccessManagementHost::Status AccessManagementHost::runAll(const std::vector<CommandWords::Command>& commands) {
  for (const CommandWords::Command& command : commands) {
    if (command[0] == "quit") break;
    if (run(command) != Succeeded) return CommandFailed;
  }
  return Succeeded;
}

AccessManagementHost::Status AccessManagementHost::runLines(std::istream& in, bool interactive) {
  Status status = Succeeded;
  std::string line;
  while ((!interactive || _err << "amhost> " << std::flush) && std::getline(in, line)) {
    CommandWords::Command command;
    std::string error;
    try {
      command = CommandWords::fromLine(line);
    } catch (const std::invalid_argument& invalid) {
      error = invalid.what();
    }
    if (error.empty() && command.empty()) continue;
    Status result = Succeeded;
    if (!error.empty() || !CommandSyntax::check(command, error)) {
      _err << "amhost: " << error << "\n";
      result = UsageError;
    } else if (command[0] == "quit") {
      break;
    } else {
      result = run(command);
    }
    if (result == Succeeded) continue;
    // A usage error outranks a failed command in the exit status.
    if (status != UsageError) status = result;
    if (!interactive) break;
  }
  return status;
}

AccessManagementHost::Status AccessManagementHost::run(const CommandWords::Command& command) {
  try {
    return dispatch(command);
  } catch (const Framework::OperatorError& error) {
    return fail(error.what());
  } catch (const std::exception& error) {
    return fail(error.what());
  }
}

AccessManagementHost::Status AccessManagementHost::dispatch(const CommandWords::Command& command) {
  const std::string& name = command[0];
  if (name == "start") return start();
  if (name == "stop") return stop();
  if (name == "set") return write(command[1], command[2], std::vector<std::string>(command.begin() + 3, command.end()));
  if (name == "unset") return write(command[1], command[2], {});
  if (name == "get") return read(command[1], command[2]);
  if (name == "commit") return commit();
  if (name == "abort") return abort();
  if (name == "begin") return begin(command[1]);
  if (name == "use") return use(command[1]);
  if (name == "roles") return roles(command[1], command.size() > 2 ? command[2] : "LDAP");
  if (name == "show") return ConfigurationPrinter(*_framework).print(_out, _err) ? Succeeded : CommandFailed;
  if (name == "files") return files();
  if (name == "encrypt") {
    _out << _framework->crypto().encrypt(command[1]) << "\n";
    return Succeeded;
  }
  if (name == "log-level") {
    int level = 0;
    LogLevel::parse(command[1], level);
    LogLevel::apply(_framework->log(), level);
    return Succeeded;
  }
  _out << HostOptions::usage();
  return Succeeded;
}

AccessManagementHost::Status AccessManagementHost::start() {
  const PymReturnT code = _descriptor->start(PymStateChangeStartup);
  if (code != PymOk) return fail("start failed (code " + std::to_string(code) + ")");
  _started = true;
  _out << "started\n";
  return Succeeded;
}

AccessManagementHost::Status AccessManagementHost::stop() {
  const PymReturnT code = _descriptor->stop(PymStateChangeShutdown);
  if (code != PymOk) return fail("stop failed (code " + std::to_string(code) + ")");
  _started = false;
  _out << "stopped\n";
  return Succeeded;
}

AccessManagementHost::Status AccessManagementHost::write(const std::string& dn, const std::string& attribute,
                                                         const std::vector<std::string>& values) {
  Transaction& transaction = current();
  const PymReturnT code = transaction.operations->setText(dn, attribute, values);
  showMessages(transaction);
  if (code != PymOk) return fail("write refused (code " + std::to_string(code) + ")");
  return Succeeded;
}

AccessManagementHost::Status AccessManagementHost::read(const std::string& dn, const std::string& attribute) {
  Transaction& transaction = current();
  for (const std::string& value : transaction.operations->getText(dn, attribute)) {
    _out << CommandWords::quote(value) << "\n";
  }
  return Succeeded;
}

AccessManagementHost::Status AccessManagementHost::commit() {
  Transaction* transaction = requireCurrent();
  if (transaction == nullptr) return CommandFailed;
  const PymReturnT code = transaction->operations->commit();
  showMessages(*transaction);
  _transactions.erase(_currentName);
  _currentName.clear();
  if (code != PymOk) return fail("commit refused (code " + std::to_string(code) + ")");
  // A node keeps what was committed across restarts; so does the model file.
  _framework->model().saveFile(_modelFile);
  _out << "committed\n";
  return Succeeded;
}

AccessManagementHost::Status AccessManagementHost::abort() {
  Transaction* transaction = requireCurrent();
  if (transaction == nullptr) return CommandFailed;
  transaction->operations->abort();
  showMessages(*transaction);
  _transactions.erase(_currentName);
  _currentName.clear();
  _out << "aborted\n";
  return Succeeded;
}

AccessManagementHost::Status AccessManagementHost::begin(const std::string& name) {
  if (_transactions.count(name) != 0) return fail("transaction " + name + " is already open");
  _currentName = name;
  current();
  return Succeeded;
}

AccessManagementHost::Status AccessManagementHost::use(const std::string& name) {
  if (_transactions.count(name) == 0) return fail("no open transaction " + name);
  _currentName = name;
  return Succeeded;
}

AccessManagementHost::Status AccessManagementHost::roles(const std::string& user, const std::string& method) {
  PymMgmtSpiInterface_1* offered = _descriptor->interfaceArray != nullptr ? _descriptor->interfaceArray[0] : nullptr;
  if (offered == nullptr) return fail("the component offers no access-management interface");
  // The descriptor's first offered interface is "PymMwSpiAccessManagement" "2".
  const PymMwSpiAccessManagement_2* accessManagement = reinterpret_cast<PymMwSpiAccessManagement_2*>(offered);
  const char** roles = nullptr;
  // Everything the query logs, traces included, so that a refusal can be explained.
  Framework::LogCapture& log = _framework->log();
  const int level = log.getLevel();
  const std::size_t before = log.records().size();
  log.setLevel(TRACE_LEVEL);
  const PymReturnT code = accessManagement->getRoles(method.c_str(), user.c_str(), &roles);
  log.setLevel(level);
  if (code != PymOk) {
    const std::vector<Framework::LogRecord> records = log.records();
    for (std::size_t index = before; index < records.size(); ++index)
      _err << "log " << records[index].level << " " << records[index].method << ": " << records[index].text << "\n";
    return fail("getRoles answered " + std::to_string(code));
  }
  for (const char** role = roles; role != nullptr && *role != nullptr; ++role) _out << *role << "\n";
  accessManagement->freeRoles(method.c_str(), roles);
  return Succeeded;
}

AccessManagementHost::Status AccessManagementHost::files() {
  if (_securityFramework == nullptr) return fail("files needs --security-framework DIR");
  return FileListing(_securityFramework->psoClearPath()).print(_out, _err) ? Succeeded : CommandFailed;
}

AccessManagementHost::Transaction& AccessManagementHost::current() {
  Transaction& transaction = _transactions[_currentName];
  if (transaction.operations == nullptr) transaction.operations.reset(new Framework::OperatorTransaction(*_framework));
  return transaction;
}

AccessManagementHost::Transaction* AccessManagementHost::requireCurrent() {
  const auto found = _transactions.find(_currentName);
  if (found != _transactions.end()) return &found->second;
  fail("no open transaction");
  return nullptr;
}

void AccessManagementHost::showMessages(Transaction& transaction) {
  const std::vector<std::string> messages = transaction.operations->operatorMessages();
  for (std::size_t index = transaction.messagesShown; index < messages.size(); ++index) {
    const std::string& text = messages[index];
    const bool marked = text.compare(0, sizeof(OPERATOR_MARKER) - 1, OPERATOR_MARKER) == 0;
    _out << "operator: " << (marked ? text.substr(sizeof(OPERATOR_MARKER) - 1) : text) << "\n";
  }
  transaction.messagesShown = messages.size();
}

AccessManagementHost::Status AccessManagementHost::fail(const std::string& reason) {
  _err << "error: " << reason << "\n";
  return CommandFailed;
}

}  // namespace Amhost
