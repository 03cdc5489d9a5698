#include <Framework/CurrentTransaction.h>

namespace Framework {

namespace {

thread_local unsigned long currentHandle = 0;

}  // namespace

CurrentTransaction::CurrentTransaction(unsigned long txHandle) : _previous(currentHandle) { currentHandle = txHandle; }

CurrentTransaction::~CurrentTransaction() { currentHandle = _previous; }

unsigned long CurrentTransaction::get() { return currentHandle; }

}  // namespace Framework
