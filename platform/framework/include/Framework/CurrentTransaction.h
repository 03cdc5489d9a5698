#ifndef FRAMEWORK_CURRENT_TRANSACTION_H
#define FRAMEWORK_CURRENT_TRANSACTION_H

namespace Framework {

// Marks, for the calling thread, the transaction it serves while the framework calls into
// participants and implementers; restores the previous mark on destruction. Scopes nest.
class CurrentTransaction {
 public:
  explicit CurrentTransaction(unsigned long txHandle);
  ~CurrentTransaction();
  CurrentTransaction(const CurrentTransaction&) = delete;
  CurrentTransaction& operator=(const CurrentTransaction&) = delete;

  // The calling thread's transaction; 0 outside any scope.
  static unsigned long get();

 private:
  unsigned long _previous;
};

}  // namespace Framework

#endif
