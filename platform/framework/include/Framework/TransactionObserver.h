#ifndef FRAMEWORK_TRANSACTION_OBSERVER_H
#define FRAMEWORK_TRANSACTION_OBSERVER_H

namespace Framework {

// Told by TransactionService about the outcome of transactions; called without the service's
// lock held, on the thread that commits or aborts.
class TransactionObserver {
 public:
  virtual ~TransactionObserver() = default;
  // Every participant has prepared: the transaction's changes become the committed state now,
  // before the participants' commit.
  virtual void transactionCommitting(unsigned long txHandle) = 0;
  // A participant refused its commit: what transactionCommitting made committed is taken back.
  virtual void transactionCommitRefused(unsigned long txHandle) = 0;
  // Committed or aborted; the handle is no longer valid.
  virtual void transactionEnded(unsigned long txHandle) = 0;
};

}  // namespace Framework

#endif
