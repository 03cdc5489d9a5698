#include <Qiv/LoggingWrapper.h>
#include <Qiv/Portal.h>
#include <Qiv/QivException.h>
#include <Qiv/Transaction.h>

namespace Qiv {

namespace {

const PymMgmtSpiInterface_1 TRANSACTION_ID = {"PymOamSpiTransactionService", "PymOamSpiTransaction", "2"};

PymOamSpiTransaction_2* service() { return Portal::instance().getInterface<PymOamSpiTransaction_2>(TRANSACTION_ID); }

// Ends the transaction with commit or abort; PymNotExist when the service has gone.
PymReturnT end(PymReturnT (*PymOamSpiTransaction_2::*operation)(unsigned long), unsigned long handle) {
  PymOamSpiTransaction_2* transactions = service();
  return transactions != nullptr ? (transactions->*operation)(handle) : PymNotExist;
}

}  // namespace

Transaction::Transaction(PymLockPolicy lockPolicy, uint32_t timeoutSeconds)
    : _lockPolicy(lockPolicy), _timeoutSeconds(timeoutSeconds), _handle(0), _open(false) {}

Transaction::~Transaction() { abort(); }

unsigned long Transaction::getHandle() {
  if (_open) return _handle;
  PymOamSpiTransaction_2* transactions = service();
  if (transactions == nullptr) throw QivException(PymNotExist, "Transaction service not available");
  unsigned long handle = 0;
  const PymReturnT rc = transactions->newTransaction(_lockPolicy, _timeoutSeconds, &handle);
  if (rc != PymOk) throw QivException(rc, "Failed to begin transaction (%d)", rc);
  _handle = handle;
  _open = true;
  return _handle;
}

bool Transaction::isOpen() const { return _open; }

void Transaction::commit() {
  if (!_open) return;
  const unsigned long handle = _handle;
  // The framework ends the transaction whatever commit answers.
  _open = false;
  _handle = 0;
  const PymReturnT rc = end(&PymOamSpiTransaction_2::commit, handle);
  if (rc != PymOk) throw QivException(rc, "Failed to commit transaction (%d)", rc);
}

void Transaction::abort() {
  if (!_open) return;
  const unsigned long handle = _handle;
  _open = false;
  _handle = 0;
  const PymReturnT rc = end(&PymOamSpiTransaction_2::abort, handle);
  // Called from the destructor: a refusal can only be reported.
  if (rc != PymOk) QIV_LOG(4, "Failed to abort transaction %lu (%d)", handle, rc);
}

}  // namespace Qiv
