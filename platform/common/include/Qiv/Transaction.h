#ifndef QIV_TRANSACTION_H
#define QIV_TRANSACTION_H

#include <PymOamSpiTransaction.h>

namespace Qiv {

// A framework transaction of one's own, over "PymOamSpiTransaction" "2" of
// "PymOamSpiTransactionService". Begins on first use; an open transaction is aborted by the
// destructor. Not thread-safe.
class Transaction {
 public:
  Transaction(PymLockPolicy lockPolicy, uint32_t timeoutSeconds);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  // The handle, beginning the transaction when none is open. Throws QivException when the
  // service is missing or refuses.
  unsigned long getHandle();
  bool isOpen() const;

  // Commits; throws QivException "Failed to commit transaction (%d)" on refusal. Either way the
  // transaction has ended. Without an open transaction there is nothing to do.
  void commit();
  // Aborts an open transaction.
  void abort();

 private:
  PymLockPolicy _lockPolicy;
  uint32_t _timeoutSeconds;
  unsigned long _handle;
  bool _open;
};

}  // namespace Qiv

#endif
