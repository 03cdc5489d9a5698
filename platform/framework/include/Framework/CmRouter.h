#ifndef FRAMEWORK_CM_ROUTER_H
#define FRAMEWORK_CM_ROUTER_H

#include <Framework/EventRouter.h>
#include <Framework/InterceptorRepository.h>
#include <Framework/LogCapture.h>
#include <Framework/ModelStore.h>
#include <Framework/ObjectImplementerRegistry.h>
#include <Framework/TransactionObserver.h>
#include <Framework/TransactionService.h>
#include <Framework/ValueCodec.h>
#include <PymOamSpiManagedObject.h>

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Framework {

// The CM router over the model: reads see committed values, plus a transaction's pending writes
// when given its handle; writes wait in their transaction until it commits. What a transaction
// committed reaches the event router's consumers once it has ended. Thread-safe.
//
// Two kinds of callers: components, through the C tables, and operators, through the
// ...ForOperator methods (OperatorTransaction). Only an operator's writes and reads of a class
// that has an object implementer reach that implementer; a component writing through the tables
// (its own objects included) goes straight to the transaction's pending writes and is never
// called back. Implementers are called without the router's lock, under CurrentTransaction, so
// they may call back into the router, the transaction master and the thread context.
//
// In front of all that sit the interceptors (InterceptorRepository): a write to an object whose
// class has one, through the public tables or from an operator, goes to the interceptor instead,
// called the same way as an implementer. The interceptor carries it on, and writes whatever
// else it wants, through the extended table, which is never intercepted; while it serves an
// operator's write, its writes in that transaction are the operator's and reach implementers.
class CmRouter : public TransactionObserver {
 public:
  CmRouter(ModelStore& model, TransactionService& transactions, const ObjectImplementerRegistry& implementers,
           InterceptorRepository& interceptors, EventRouter& events, LogCapture& log);
  ~CmRouter() override;
  CmRouter(const CmRouter&) = delete;
  CmRouter& operator=(const CmRouter&) = delete;

  // The operations of the C tables, for components: they reach the model only, never an object
  // implementer. Null arguments give PymInvalidParameter, an unknown transaction handle
  // PymNotExist.
  PymReturnT getAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                          PymMoAttributeValueResult_3* result) const;
  // Version 1: the container stays the router's until the transaction ends, or with handle 0
  // until the next such read with handle 0.
  PymReturnT getKeptAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                              PymMoAttributeValueContainer_3** value);
  PymReturnT getAttributes(unsigned long txHandle, const char* dn, const char** attributeNames,
                           PymMoAttributeValuesResult_3* result) const;
  // Handle 0 or a transaction already ending: PymInvalidParameter. The write of an object whose
  // class has an interceptor is the interceptor's answer instead.
  PymReturnT setAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                          const PymMoAttributeValueContainer_3* value);
  // All of the attributes or none; intercepted like setAttribute.
  PymReturnT setAttributes(unsigned long txHandle, const char* dn, PymMoNamedAttributeValueContainer_3** attributes);
  // The extended table's writes: like setAttribute and setAttributes, never intercepted.
  PymReturnT setAttributeBehindInterceptors(unsigned long txHandle, const char* dn, const char* attributeName,
                                            const PymMoAttributeValueContainer_3* value);
  PymReturnT setAttributesBehindInterceptors(unsigned long txHandle, const char* dn,
                                             PymMoNamedAttributeValueContainer_3** attributes);
  // Over the children of dn ("" for the roots) of the class named className. An iterator lives
  // until finalizeIterator or the end of its transaction; one made with releaseAtEnd (version 1
  // has no finalize) also goes when nextMo has given its last DN.
  PymReturnT newIterator(unsigned long txHandle, const char* dn, const char* className, bool releaseAtEnd,
                         unsigned long long* iterator);
  // A malloc'ed DN the caller frees, or null after the last.
  PymReturnT nextMo(unsigned long long iterator, char** result);
  PymReturnT finalizeIterator(unsigned long long iterator);
  PymReturnT exists(unsigned long txHandle, const char* dn, bool* result) const;
  PymReturnT countChildren(unsigned long txHandle, const char* dn, const char* className,
                           unsigned long long* result) const;
  // Creating and deleting objects and actions are not offered here: the model's objects are
  // fixed. Logs an error naming the operation and gives PymFailure.
  PymReturnT unsupported(const char* operation) const;

  // An operator's write, checked like setAttribute and intercepted like it; what the interceptor
  // carries on is the operator's write. When dn's class has an object implementer,
  // the transaction's first write to it calls its join (which enrols it as a participant), then
  // every write its setMoAttribute; a non-zero answer from either refuses the write and is
  // returned. An accepted write is kept like setAttribute's. One operator session makes a
  // transaction's writes one at a time; several transactions may write at once.
  PymReturnT setAttributeForOperator(unsigned long txHandle, const std::string& dn, const std::string& attributeName,
                                     const PymMoAttributeValueContainer_3& value);
  // An operator's read: the implementer of dn's class answers through its getMoAttribute; when
  // it has none or answers PymNotExist, the model does, as getAttribute. The result is the
  // router's copy (checked against the model), released with result.release.
  PymReturnT getAttributeForOperator(unsigned long txHandle, const std::string& dn, const std::string& attributeName,
                                     PymMoAttributeValueResult_3& result) const;

  // Number of attributes the transaction has written and not yet committed.
  std::size_t pendingWriteCount(unsigned long txHandle) const;

  void transactionCommitting(unsigned long txHandle) override;
  void transactionCommitRefused(unsigned long txHandle) override;
  void transactionEnded(unsigned long txHandle) override;

  // The "PymOamSpiManagedObject" "1", "3", "3_1" tables of "PymOamSpiCmRouterService" and
  // "QivOamSpiManagedObject" "3" of "QivOamSpiExtCmRouterService"; they use the current
  // framework's router.
  static std::vector<PymMgmtSpiInterface_1*> interfaces();

 private:
  struct Iterator {
    unsigned long txHandle;
    std::vector<std::string> dns;
    std::size_t next;
    bool releaseAtEnd;
  };
  using NamedContainers = std::vector<std::pair<std::string, const PymMoAttributeValueContainer_3*>>;
  enum class Origin { Component, Operator };

  PymReturnT checkRead(unsigned long txHandle) const;
  // Hands a write of dn to the interceptor of its class, if any: call(interceptor) runs without
  // the lock, under CurrentTransaction, with what the interceptor carries on counted as
  // origin's. Its answer, or nullopt when dn's class has no interceptor.
  template <class Call>
  std::optional<PymReturnT> intercept(unsigned long txHandle, const std::string& dn, Origin origin, Call&& call);
  // Whose write the extended table's write in txHandle is: the operator's while an interceptor
  // serves an operator's write in that transaction on this thread, else a component's.
  static Origin carriedOnOrigin(unsigned long txHandle);
  std::optional<PymReturnT> interceptAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                               const PymMoAttributeValueContainer_3* value, Origin origin);
  // Logs that the interceptor of dn's class lacks operation; PymFailure.
  PymReturnT missingOperation(const std::string& dn, const char* operation) const;
  PymReturnT writeAttributes(unsigned long txHandle, const char* dn, PymMoNamedAttributeValueContainer_3** attributes,
                             Origin origin);
  // The committed value, or the transaction's pending one.
  PymReturnT read(unsigned long txHandle, const std::string& dn, const std::string& attributeName,
                  PymMoAttributeValueResult_3& result) const;
  // Every write passes here: checked against the model, handed to the implementer when an
  // operator wrote it, then kept until the transaction commits.
  PymReturnT write(unsigned long txHandle, const std::string& dn, const NamedContainers& attributes, Origin origin);
  // The one place where a write reaches an object implementer: the implementer of dn's class,
  // if any, takes it, joined first when it has not yet joined the transaction. Without the lock.
  PymReturnT deliver(unsigned long txHandle, const std::string& dn, const NamedContainers& attributes);
  PymReturnT join(unsigned long txHandle, const ObjectImplementer& implementer);
  std::optional<ObjectImplementer> implementerOf(const std::string& dn) const;
  // The implementer's answer to getMoAttribute, copied; PymNotExist when it leaves it to the model.
  PymReturnT readFromImplementer(unsigned long txHandle, const ObjectImplementer& implementer, const std::string& dn,
                                 const std::string& attributeName, PymMoAttributeValueResult_3& result) const;

  ModelStore& _model;
  TransactionService& _transactions;
  const ObjectImplementerRegistry& _implementers;
  InterceptorRepository& _interceptors;
  EventRouter& _events;
  LogCapture& _log;
  mutable std::mutex _mutex;
  std::map<unsigned long, ModelStore::Changes> _pending;
  // Implementers that joined each transaction (or are joining it).
  std::map<unsigned long, std::set<const PymOamSpiTransactionalResource_2*>> _joined;
  // Applied to the model, to be announced when the transaction has ended, and the values they
  // replaced, put back if a participant refuses its commit.
  std::map<unsigned long, ModelStore::Changes> _committed;
  std::map<unsigned long, ModelStore::Changes> _replaced;
  std::map<unsigned long, std::vector<ValueCodec::ContainerPtr>> _kept;
  std::map<unsigned long long, Iterator> _iterators;
  unsigned long long _nextIterator;
};

}  // namespace Framework

#endif
