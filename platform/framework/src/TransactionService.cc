#include <Framework/TransactionService.h>

#include <Framework/CString.h>
#include <Framework/CurrentTransaction.h>
#include <Framework/ManagementFramework.h>
#include <PymMgmtSpiThreadContext.h>
#include <PymMwSpiLogTrace.h>

#include <algorithm>

namespace Framework {

namespace {

using Resource = PymOamSpiTransactionalResource_2;

// "transaction 3: Component" for the log.
std::string about(unsigned long txHandle, const Resource& participant) {
  return "transaction " + std::to_string(txHandle) + ": " + CString::orEmpty(participant.base.componentName);
}

PymReturnT validateParticipant(unsigned long txHandle, const Resource& participant) {
  if (participant.validate == nullptr) return PymOk;
  bool valid = true;
  const PymReturnT result = participant.validate(txHandle, &valid);
  if (result != PymOk) return result;
  return valid ? PymOk : PymValidationFailed;
}

// One of the participant's single-argument steps; a participant without it agrees.
template <PymReturnT (*Resource::*step)(unsigned long)>
PymReturnT callStep(unsigned long txHandle, const Resource& participant) {
  return participant.*step == nullptr ? PymOk : (participant.*step)(txHandle);
}

PymReturnT newTransaction(PymLockPolicy, uint32_t, unsigned long* txHandle) {
  return ManagementFramework::withCurrent([&](ManagementFramework& framework) -> PymReturnT {
    if (txHandle == nullptr) return PymInvalidParameter;
    *txHandle = framework.transactions().begin();
    return PymOk;
  });
}

PymReturnT commitTransaction(unsigned long txHandle) {
  return ManagementFramework::withCurrent(
      [&](ManagementFramework& framework) { return framework.transactions().commit(txHandle); });
}

PymReturnT abortTransaction(unsigned long txHandle) {
  return ManagementFramework::withCurrent(
      [&](ManagementFramework& framework) { return framework.transactions().abort(txHandle); });
}

PymReturnT registerParticipant(unsigned long txHandle, const Resource* resource) {
  return ManagementFramework::withCurrent(
      [&](ManagementFramework& framework) { return framework.transactions().registerParticipant(txHandle, resource); });
}

PymOamSpiTransaction_2 transactionTable = {
    {"PymOamSpiTransactionService", "PymOamSpiTransaction", "2"}, newTransaction, commitTransaction, abortTransaction};
PymOamSpiTransactionMaster_2 masterTable = {
    {"PymOamSpiTransactionService", "PymOamSpiTransactionMaster", "2"}, registerParticipant};

}  // namespace

TransactionService::TransactionService(ThreadContext& threadContext, LogCapture& log)
    : _threadContext(threadContext), _log(log), _observer(nullptr), _nextHandle(1) {}

void TransactionService::setObserver(TransactionObserver* observer) { _observer = observer; }

unsigned long TransactionService::begin() {
  std::lock_guard<std::mutex> lock(_mutex);
  const unsigned long handle = _nextHandle++;
  _transactions[handle] = Transaction{false, {}};
  return handle;
}

PymReturnT TransactionService::registerParticipant(unsigned long txHandle, const Resource* resource) {
  if (resource == nullptr) return PymInvalidParameter;
  std::lock_guard<std::mutex> lock(_mutex);
  const auto found = _transactions.find(txHandle);
  if (found == _transactions.end()) return PymNotExist;
  if (found->second.ending) return PymInvalidParameter;
  Participants& participants = found->second.participants;
  if (std::find(participants.begin(), participants.end(), resource) == participants.end()) {
    participants.push_back(resource);
  }
  return PymOk;
}

PymReturnT TransactionService::commit(unsigned long txHandle) {
  Participants participants;
  if (!startEnding(txHandle, participants)) return isKnown(txHandle) ? PymInvalidParameter : PymNotExist;
  CurrentTransaction scope(txHandle);
  PymReturnT result = vote(txHandle, participants, "validate", &validateParticipant);
  if (result == PymOk) result = vote(txHandle, participants, "prepare", &callStep<&Resource::prepare>);
  if (result == PymOk) {
    // Committed before the participants' commit, so that they see the new values.
    TransactionObserver* observer = _observer.load();
    if (observer != nullptr) observer->transactionCommitting(txHandle);
    result = vote(txHandle, participants, "commit", &callStep<&Resource::commit>);
    if (result != PymOk && observer != nullptr) observer->transactionCommitRefused(txHandle);
  }
  if (result != PymOk) notify(txHandle, participants, "abort", &callStep<&Resource::abort>);
  notify(txHandle, participants, "finish", &callStep<&Resource::finish>);
  end(txHandle);
  return result;
}

PymReturnT TransactionService::abort(unsigned long txHandle) {
  Participants participants;
  if (!startEnding(txHandle, participants)) return isKnown(txHandle) ? PymInvalidParameter : PymNotExist;
  CurrentTransaction scope(txHandle);
  notify(txHandle, participants, "abort", &callStep<&Resource::abort>);
  notify(txHandle, participants, "finish", &callStep<&Resource::finish>);
  end(txHandle);
  return PymOk;
}

bool TransactionService::isOpen(unsigned long txHandle) const {
  std::lock_guard<std::mutex> lock(_mutex);
  const auto found = _transactions.find(txHandle);
  return found != _transactions.end() && !found->second.ending;
}

bool TransactionService::isKnown(unsigned long txHandle) const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _transactions.count(txHandle) != 0;
}

bool TransactionService::isParticipant(unsigned long txHandle, const Resource* resource) const {
  std::lock_guard<std::mutex> lock(_mutex);
  const auto found = _transactions.find(txHandle);
  if (found == _transactions.end()) return false;
  const Participants& participants = found->second.participants;
  return std::find(participants.begin(), participants.end(), resource) != participants.end();
}

std::vector<std::string> TransactionService::operatorMessages(unsigned long txHandle) const {
  std::vector<std::string> result;
  for (const ContextMessage& message : _threadContext.messages(txHandle)) {
    if (message.kind == PymThreadContextMessageOperator) result.push_back(message.text);
  }
  return result;
}

std::vector<PymMgmtSpiInterface_1*> TransactionService::interfaces() {
  return {&transactionTable.base, &masterTable.base};
}

bool TransactionService::startEnding(unsigned long txHandle, Participants& participants) {
  std::lock_guard<std::mutex> lock(_mutex);
  const auto found = _transactions.find(txHandle);
  if (found == _transactions.end() || found->second.ending) return false;
  found->second.ending = true;
  participants = found->second.participants;
  return true;
}

void TransactionService::end(unsigned long txHandle) {
  {
    std::lock_guard<std::mutex> lock(_mutex);
    _transactions.erase(txHandle);
  }
  if (TransactionObserver* observer = _observer.load()) observer->transactionEnded(txHandle);
}

PymReturnT TransactionService::vote(unsigned long txHandle, const Participants& participants, const char* phaseName,
                                    Phase phase) {
  for (const Resource* participant : participants) {
    const PymReturnT result = phase(txHandle, *participant);
    if (result != PymOk) {
      _log.record(PymLogWarning, "commit",
                  about(txHandle, *participant) + " refused " + phaseName + " (" + std::to_string(result) + ")");
      return result;
    }
  }
  return PymOk;
}

void TransactionService::notify(unsigned long txHandle, const Participants& participants, const char* phaseName,
                                Phase phase) {
  for (const Resource* participant : participants) {
    const PymReturnT result = phase(txHandle, *participant);
    if (result != PymOk) {
      _log.record(PymLogWarning, phaseName,
                  about(txHandle, *participant) + " answered " + phaseName + " with " + std::to_string(result));
    }
  }
}

}  // namespace Framework
