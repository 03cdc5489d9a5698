#ifndef FRAMEWORK_TRANSACTION_SERVICE_H
#define FRAMEWORK_TRANSACTION_SERVICE_H

#include <Framework/LogCapture.h>
#include <Framework/ThreadContext.h>
#include <Framework/TransactionObserver.h>
#include <PymOamSpiTransaction.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace Framework {

// Configuration transactions with a two-phase commit over their participants in enrolment order:
// validate, prepare, commit, then finish; a refusal at any of the three voting steps aborts every
// participant (then finish) and leaves the model as it was. Thread-safe; participants are called
// without any lock held, under CurrentTransaction.
class TransactionService {
 public:
  TransactionService(ThreadContext& threadContext, LogCapture& log);

  // The one observer (the CM router), or null.
  void setObserver(TransactionObserver* observer);

  unsigned long begin();
  // Enrols resource once per transaction: PymNotExist for an unknown handle, PymInvalidParameter
  // for a null resource or a transaction already ending.
  PymReturnT registerParticipant(unsigned long txHandle, const PymOamSpiTransactionalResource_2* resource);
  // PymOk, the refusing participant's code (PymValidationFailed for a false validation), or
  // PymNotExist for an unknown handle (PymInvalidParameter for one already ending). Either way
  // the transaction has ended.
  PymReturnT commit(unsigned long txHandle);
  PymReturnT abort(unsigned long txHandle);

  // Open: begun and not yet committing or aborting; known: open or still ending.
  bool isOpen(unsigned long txHandle) const;
  bool isKnown(unsigned long txHandle) const;
  bool isParticipant(unsigned long txHandle, const PymOamSpiTransactionalResource_2* resource) const;
  // Texts of the operator messages added while serving the transaction.
  std::vector<std::string> operatorMessages(unsigned long txHandle) const;

  // The "PymOamSpiTransaction" "2" and "PymOamSpiTransactionMaster" "2" tables; they use the
  // current framework's service.
  static std::vector<PymMgmtSpiInterface_1*> interfaces();

 private:
  using Participants = std::vector<const PymOamSpiTransactionalResource_2*>;
  using Phase = PymReturnT (*)(unsigned long, const PymOamSpiTransactionalResource_2&);

  struct Transaction {
    bool ending;
    Participants participants;
  };

  // Marks the transaction as ending and gives its participants; false when it is not open.
  bool startEnding(unsigned long txHandle, Participants& participants);
  void end(unsigned long txHandle);
  // Calls phase on each participant in order and stops at the first that refuses.
  PymReturnT vote(unsigned long txHandle, const Participants& participants, const char* phaseName, Phase phase);
  // Calls phase on every participant; a non-zero result is only logged.
  void notify(unsigned long txHandle, const Participants& participants, const char* phaseName, Phase phase);

  ThreadContext& _threadContext;
  LogCapture& _log;
  std::atomic<TransactionObserver*> _observer;
  mutable std::mutex _mutex;
  unsigned long _nextHandle;
  std::map<unsigned long, Transaction> _transactions;
};

}  // namespace Framework

#endif
