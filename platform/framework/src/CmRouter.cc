#include <Framework/CmRouter.h>

#include <Framework/CmNotification.h>

#include <Framework/CString.h>
#include <Framework/CurrentTransaction.h>
#include <Framework/Dn.h>
#include <Framework/ManagementFramework.h>
#include <PymMwSpiLogTrace.h>

#include <cstdint>
#include <cstdlib>
#include <new>
#include <stdexcept>

namespace Framework {

namespace {

// The C tables: each function runs the current framework's router.

template <class Body>
PymReturnT withRouter(Body&& body) {
  return ManagementFramework::withCurrent([&](ManagementFramework& framework) { return body(framework.cmRouter()); });
}

PymReturnT setMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                          const PymMoAttributeValueContainer_3* value) {
  return withRouter([&](CmRouter& router) { return router.setAttribute(txHandle, dn, attributeName, value); });
}

PymReturnT setMoAttributes(unsigned long txHandle, const char* dn, PymMoNamedAttributeValueContainer_3** attributes) {
  return withRouter([&](CmRouter& router) { return router.setAttributes(txHandle, dn, attributes); });
}

PymReturnT getMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                          PymMoAttributeValueResult_3* result) {
  return withRouter([&](CmRouter& router) { return router.getAttribute(txHandle, dn, attributeName, result); });
}

PymReturnT getMoAttributeV1(unsigned long txHandle, const char* dn, const char* attributeName,
                            PymMoAttributeValueContainer** value) {
  return withRouter([&](CmRouter& router) { return router.getKeptAttribute(txHandle, dn, attributeName, value); });
}

PymReturnT getMoAttributes(unsigned long txHandle, const char* dn, const char** attributeNames,
                           PymMoAttributeValuesResult_3* result) {
  return withRouter([&](CmRouter& router) { return router.getAttributes(txHandle, dn, attributeNames, result); });
}

PymReturnT newMoIterator(unsigned long txHandle, const char* dn, const char* className,
                         unsigned long long* iterator) {
  return withRouter([&](CmRouter& router) { return router.newIterator(txHandle, dn, className, false, iterator); });
}

// Version 1 hands iterators out as pointers; they carry the iterator's number.
PymReturnT newMoIteratorV1(unsigned long txHandle, const char* dn, const char* className, void** iterator) {
  return withRouter([&](CmRouter& router) -> PymReturnT {
    if (iterator == nullptr) return PymInvalidParameter;
    unsigned long long number = 0;
    const PymReturnT result = router.newIterator(txHandle, dn, className, true, &number);
    if (result == PymOk) *iterator = reinterpret_cast<void*>(static_cast<std::uintptr_t>(number));
    return result;
  });
}

PymReturnT nextMo(unsigned long long iterator, char** result) {
  return withRouter([&](CmRouter& router) { return router.nextMo(iterator, result); });
}

PymReturnT nextMoV1(void* iterator, char** result) {
  return nextMo(reinterpret_cast<std::uintptr_t>(iterator), result);
}

PymReturnT finalizeMoIterator(unsigned long long iterator) {
  return withRouter([&](CmRouter& router) { return router.finalizeIterator(iterator); });
}

PymReturnT existsMo(unsigned long txHandle, const char* dn, bool* result) {
  return withRouter([&](CmRouter& router) { return router.exists(txHandle, dn, result); });
}

PymReturnT countMoChildren(unsigned long txHandle, const char* dn, const char* className,
                           unsigned long long* result) {
  return withRouter([&](CmRouter& router) { return router.countChildren(txHandle, dn, className, result); });
}

PymReturnT createMoV1(unsigned long, const char*, const char*, const char*, const char*) {
  return withRouter([](CmRouter& router) { return router.unsupported("createMo"); });
}

PymReturnT createMo(unsigned long, const char*, const char*, const char*, const char*,
                    PymMoNamedAttributeValueContainer_3**) {
  return withRouter([](CmRouter& router) { return router.unsupported("createMo"); });
}

PymReturnT deleteMo(unsigned long, const char*) {
  return withRouter([](CmRouter& router) { return router.unsupported("deleteMo"); });
}

PymReturnT actionV1(unsigned long, const char*, const char*, PymMoAttributeValueContainer**,
                    PymMoAttributeValueContainer**) {
  return withRouter([](CmRouter& router) { return router.unsupported("action"); });
}

PymReturnT action(unsigned long, const char*, const char*, PymMoNamedAttributeValueContainer_3**,
                  PymMoAttributeValueResult_3*) {
  return withRouter([](CmRouter& router) { return router.unsupported("action"); });
}

PymReturnT setMoAttributeBehindInterceptors(unsigned long txHandle, const char* dn, const char* attributeName,
                                            const PymMoAttributeValueContainer_3* value) {
  return withRouter([&](CmRouter& router) {
    return router.setAttributeBehindInterceptors(txHandle, dn, attributeName, value);
  });
}

PymReturnT setMoAttributesBehindInterceptors(unsigned long txHandle, const char* dn,
                                             PymMoNamedAttributeValueContainer_3** attributes) {
  return withRouter(
      [&](CmRouter& router) { return router.setAttributesBehindInterceptors(txHandle, dn, attributes); });
}

PymOamSpiManagedObject_3 managedObject3(const char* version) {
  return {{"PymOamSpiCmRouterService", "PymOamSpiManagedObject", version},
          setMoAttribute,
          getMoAttribute,
          getMoAttributes,
          newMoIterator,
          nextMo,
          createMo,
          deleteMo,
          action,
          finalizeMoIterator,
          existsMo,
          countMoChildren};
}

PymOamSpiManagedObject_1 managedObject1Table = {{"PymOamSpiCmRouterService", "PymOamSpiManagedObject", "1"},
                                                setMoAttribute,
                                                getMoAttributeV1,
                                                newMoIteratorV1,
                                                nextMoV1,
                                                createMoV1,
                                                deleteMo,
                                                actionV1};
PymOamSpiManagedObject_3 managedObject3Table = managedObject3("3");
PymOamSpiManagedObject_3_1 managedObject31Table = {managedObject3("3_1"), setMoAttributes};
QivOamSpiManagedObject_3 extendedTable = {{"QivOamSpiExtCmRouterService", "QivOamSpiManagedObject", "3"},
                                          getMoAttribute,
                                          getMoAttributes,
                                          setMoAttributeBehindInterceptors,
                                          setMoAttributesBehindInterceptors,
                                          newMoIterator,
                                          nextMo,
                                          createMo,
                                          deleteMo,
                                          action,
                                          finalizeMoIterator,
                                          existsMo,
                                          countMoChildren};

// The transaction of the operator's write an interceptor on this thread serves (0: none): what
// the interceptor carries on through the extended table in that transaction is the operator's.
thread_local unsigned long servedOperatorTransaction = 0;

class ServedOperatorMark {
 public:
  explicit ServedOperatorMark(unsigned long txHandle) : _previous(servedOperatorTransaction) {
    servedOperatorTransaction = txHandle;
  }
  ~ServedOperatorMark() { servedOperatorTransaction = _previous; }
  ServedOperatorMark(const ServedOperatorMark&) = delete;
  ServedOperatorMark& operator=(const ServedOperatorMark&) = delete;

 private:
  unsigned long _previous;
};

}  // namespace

CmRouter::CmRouter(ModelStore& model, TransactionService& transactions, const ObjectImplementerRegistry& implementers,
                   InterceptorRepository& interceptors, EventRouter& events, LogCapture& log)
    : _model(model),
      _transactions(transactions),
      _implementers(implementers),
      _interceptors(interceptors),
      _events(events),
      _log(log),
      _nextIterator(1) {
  _transactions.setObserver(this);
}

CmRouter::~CmRouter() { _transactions.setObserver(nullptr); }

PymReturnT CmRouter::getAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                  PymMoAttributeValueResult_3* result) const {
  if (dn == nullptr || attributeName == nullptr || result == nullptr) return PymInvalidParameter;
  return read(txHandle, dn, attributeName, *result);
}

PymReturnT CmRouter::getKeptAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                      PymMoAttributeValueContainer_3** value) {
  if (dn == nullptr || attributeName == nullptr || value == nullptr) return PymInvalidParameter;
  PymMoAttributeValueResult_3 result{};
  const PymReturnT code = read(txHandle, dn, attributeName, result);
  if (code != PymOk) return code;
  ValueCodec::ContainerPtr container(result.container, result.release);
  *value = container.get();
  std::lock_guard<std::mutex> lock(_mutex);
  std::vector<ValueCodec::ContainerPtr>& kept = _kept[txHandle];
  if (txHandle == 0) kept.clear();
  kept.push_back(std::move(container));
  return PymOk;
}

PymReturnT CmRouter::getAttributes(unsigned long txHandle, const char* dn, const char** attributeNames,
                                   PymMoAttributeValuesResult_3* result) const {
  if (dn == nullptr || attributeNames == nullptr || result == nullptr) return PymInvalidParameter;
  std::vector<ValueCodec::ContainerPtr> containers;
  for (const char** name = attributeNames; *name != nullptr; ++name) {
    PymMoAttributeValueResult_3 one{};
    const PymReturnT code = read(txHandle, dn, *name, one);
    if (code != PymOk) return code;
    containers.emplace_back(one.container, one.release);
  }
  auto** array = static_cast<PymMoAttributeValueContainer_3**>(std::calloc(containers.size() + 1, sizeof(void*)));
  if (array == nullptr) throw std::bad_alloc();
  for (std::size_t i = 0; i < containers.size(); ++i) array[i] = containers[i].release();
  result->containers = array;
  result->release = &ValueCodec::releaseAll;
  return PymOk;
}

PymReturnT CmRouter::setAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                  const PymMoAttributeValueContainer_3* value) {
  if (dn == nullptr || attributeName == nullptr) return PymInvalidParameter;
  const std::optional<PymReturnT> intercepted = interceptAttribute(txHandle, dn, attributeName, value, Origin::Component);
  if (intercepted.has_value()) return *intercepted;
  return write(txHandle, dn, {{attributeName, value}}, Origin::Component);
}

PymReturnT CmRouter::setAttributes(unsigned long txHandle, const char* dn,
                                   PymMoNamedAttributeValueContainer_3** attributes) {
  if (dn == nullptr || attributes == nullptr) return PymInvalidParameter;
  const std::optional<PymReturnT> intercepted =
      intercept(txHandle, dn, Origin::Component, [&](const InterceptorRepository::Interceptor& interceptor) {
        const auto operation = interceptor.table->setMoAttributes;
        if (operation == nullptr) return missingOperation(dn, "setMoAttributes");
        return operation(interceptor.context, txHandle, dn, attributes);
      });
  if (intercepted.has_value()) return *intercepted;
  return writeAttributes(txHandle, dn, attributes, Origin::Component);
}

PymReturnT CmRouter::setAttributeBehindInterceptors(unsigned long txHandle, const char* dn, const char* attributeName,
                                                    const PymMoAttributeValueContainer_3* value) {
  if (dn == nullptr || attributeName == nullptr) return PymInvalidParameter;
  return write(txHandle, dn, {{attributeName, value}}, carriedOnOrigin(txHandle));
}

PymReturnT CmRouter::setAttributesBehindInterceptors(unsigned long txHandle, const char* dn,
                                                     PymMoNamedAttributeValueContainer_3** attributes) {
  if (dn == nullptr || attributes == nullptr) return PymInvalidParameter;
  return writeAttributes(txHandle, dn, attributes, carriedOnOrigin(txHandle));
}

PymReturnT CmRouter::newIterator(unsigned long txHandle, const char* dn, const char* className, bool releaseAtEnd,
                                 unsigned long long* iterator) {
  if (dn == nullptr || className == nullptr || iterator == nullptr) return PymInvalidParameter;
  const PymReturnT readable = checkRead(txHandle);
  if (readable != PymOk) return readable;
  std::vector<std::string> dns;
  const PymReturnT found = _model.children(dn, className, dns);
  if (found != PymOk) return found;
  std::lock_guard<std::mutex> lock(_mutex);
  *iterator = _nextIterator++;
  _iterators[*iterator] = Iterator{txHandle, std::move(dns), 0, releaseAtEnd};
  return PymOk;
}

PymReturnT CmRouter::nextMo(unsigned long long iterator, char** result) {
  if (result == nullptr) return PymInvalidParameter;
  std::lock_guard<std::mutex> lock(_mutex);
  const auto found = _iterators.find(iterator);
  if (found == _iterators.end()) return PymNotExist;
  Iterator& state = found->second;
  if (state.next < state.dns.size()) {
    *result = CString::duplicate(state.dns[state.next++]);
    return PymOk;
  }
  *result = nullptr;
  if (state.releaseAtEnd) _iterators.erase(found);
  return PymOk;
}

PymReturnT CmRouter::finalizeIterator(unsigned long long iterator) {
  std::lock_guard<std::mutex> lock(_mutex);
  return _iterators.erase(iterator) == 0 ? PymNotExist : PymOk;
}

PymReturnT CmRouter::exists(unsigned long txHandle, const char* dn, bool* result) const {
  if (dn == nullptr || result == nullptr) return PymInvalidParameter;
  const PymReturnT readable = checkRead(txHandle);
  if (readable != PymOk) return readable;
  *result = _model.exists(dn);
  return PymOk;
}

PymReturnT CmRouter::countChildren(unsigned long txHandle, const char* dn, const char* className,
                                   unsigned long long* result) const {
  if (dn == nullptr || className == nullptr || result == nullptr) return PymInvalidParameter;
  const PymReturnT readable = checkRead(txHandle);
  if (readable != PymOk) return readable;
  std::vector<std::string> dns;
  const PymReturnT found = _model.children(dn, className, dns);
  if (found == PymOk) *result = dns.size();
  return found;
}

PymReturnT CmRouter::unsupported(const char* operation) const {
  _log.record(PymLogError, operation, std::string(operation) + " is not supported by this framework");
  return PymFailure;
}

PymReturnT CmRouter::setAttributeForOperator(unsigned long txHandle, const std::string& dn,
                                             const std::string& attributeName,
                                             const PymMoAttributeValueContainer_3& value) {
  const std::optional<PymReturnT> intercepted =
      interceptAttribute(txHandle, dn.c_str(), attributeName.c_str(), &value, Origin::Operator);
  if (intercepted.has_value()) return *intercepted;
  return write(txHandle, dn, {{attributeName, &value}}, Origin::Operator);
}

PymReturnT CmRouter::getAttributeForOperator(unsigned long txHandle, const std::string& dn,
                                             const std::string& attributeName,
                                             PymMoAttributeValueResult_3& result) const {
  const PymReturnT readable = checkRead(txHandle);
  if (readable != PymOk) return readable;
  if (const std::optional<ObjectImplementer> implementer = implementerOf(dn)) {
    const PymReturnT answered = readFromImplementer(txHandle, *implementer, dn, attributeName, result);
    if (answered != PymNotExist) return answered;
  }
  return read(txHandle, dn, attributeName, result);
}

std::size_t CmRouter::pendingWriteCount(unsigned long txHandle) const {
  std::lock_guard<std::mutex> lock(_mutex);
  const auto found = _pending.find(txHandle);
  return found == _pending.end() ? 0 : found->second.size();
}

void CmRouter::transactionCommitting(unsigned long txHandle) {
  std::lock_guard<std::mutex> lock(_mutex);
  const auto found = _pending.find(txHandle);
  if (found == _pending.end()) return;
  const PymReturnT applied = _model.apply(found->second, &_replaced[txHandle]);
  if (applied != PymOk) {
    _log.record(PymLogError, "commit",
                "transaction " + std::to_string(txHandle) + ": the model no longer has what it wrote (" +
                    std::to_string(applied) + ")");
    return;
  }
  _committed[txHandle] = found->second;
}

void CmRouter::transactionCommitRefused(unsigned long txHandle) {
  std::lock_guard<std::mutex> lock(_mutex);
  const auto committed = _committed.find(txHandle);
  if (committed == _committed.end()) return;
  _model.revert(committed->second, _replaced[txHandle]);
  _committed.erase(committed);
  _replaced.erase(txHandle);
}

void CmRouter::transactionEnded(unsigned long txHandle) {
  ModelStore::Changes committed;
  {
    std::lock_guard<std::mutex> lock(_mutex);
    const auto found = _committed.find(txHandle);
    if (found != _committed.end()) {
      committed.swap(found->second);
      _committed.erase(found);
    }
  }
  // Announced without the lock: consumers may read the model through the router.
  const CmNotification notification(_model, txHandle, committed);
  if (!notification.empty()) _events.deliver(notification.get());

  std::lock_guard<std::mutex> lock(_mutex);
  _pending.erase(txHandle);
  _joined.erase(txHandle);
  _replaced.erase(txHandle);
  _kept.erase(txHandle);
  for (auto iterator = _iterators.begin(); iterator != _iterators.end();) {
    iterator = iterator->second.txHandle == txHandle ? _iterators.erase(iterator) : std::next(iterator);
  }
}

std::vector<PymMgmtSpiInterface_1*> CmRouter::interfaces() {
  return {&managedObject1Table.base, &managedObject3Table.base, &managedObject31Table.v3.base, &extendedTable.base};
}

PymReturnT CmRouter::checkRead(unsigned long txHandle) const {
  return txHandle == 0 || _transactions.isKnown(txHandle) ? PymOk : PymNotExist;
}

template <class Call>
std::optional<PymReturnT> CmRouter::intercept(unsigned long txHandle, const std::string& dn, Origin origin,
                                              Call&& call) {
  std::string className;
  try {
    className = Dn::classPath(dn);
  } catch (const std::invalid_argument&) {
    return std::nullopt;  // the write itself refuses the DN
  }
  return _interceptors.call(className, [&](const InterceptorRepository::Interceptor& interceptor) {
    CurrentTransaction scope(txHandle);
    ServedOperatorMark mark(origin == Origin::Operator ? txHandle : 0);
    return call(interceptor);
  });
}

CmRouter::Origin CmRouter::carriedOnOrigin(unsigned long txHandle) {
  return txHandle != 0 && txHandle == servedOperatorTransaction ? Origin::Operator : Origin::Component;
}

std::optional<PymReturnT> CmRouter::interceptAttribute(unsigned long txHandle, const char* dn,
                                                       const char* attributeName,
                                                       const PymMoAttributeValueContainer_3* value, Origin origin) {
  return intercept(txHandle, dn, origin, [&](const InterceptorRepository::Interceptor& interceptor) {
    const auto operation = interceptor.table->setMoAttribute;
    if (operation == nullptr) return missingOperation(dn, "setMoAttribute");
    return operation(interceptor.context, txHandle, dn, attributeName, value);
  });
}

PymReturnT CmRouter::missingOperation(const std::string& dn, const char* operation) const {
  _log.record(PymLogError, operation, "the interceptor of " + Dn::classPath(dn) + " has no " + operation);
  return PymFailure;
}

PymReturnT CmRouter::writeAttributes(unsigned long txHandle, const char* dn,
                                     PymMoNamedAttributeValueContainer_3** attributes, Origin origin) {
  NamedContainers named;
  for (PymMoNamedAttributeValueContainer_3** attribute = attributes; *attribute != nullptr; ++attribute) {
    if ((*attribute)->name == nullptr) return PymInvalidParameter;
    named.emplace_back((*attribute)->name, &(*attribute)->value);
  }
  return write(txHandle, dn, named, origin);
}

PymReturnT CmRouter::read(unsigned long txHandle, const std::string& dn, const std::string& attributeName,
                          PymMoAttributeValueResult_3& result) const {
  const PymReturnT readable = checkRead(txHandle);
  if (readable != PymOk) return readable;
  std::vector<AttributeValue> pending;
  bool isPending = false;
  {
    std::lock_guard<std::mutex> lock(_mutex);
    const auto transaction = _pending.find(txHandle);
    if (transaction != _pending.end()) {
      const auto write = transaction->second.find({dn, attributeName});
      isPending = write != transaction->second.end();
      if (isPending) pending = write->second;
    }
  }
  return isPending ? _model.render(dn, attributeName, pending, &result) : _model.read(dn, attributeName, &result);
}

PymReturnT CmRouter::write(unsigned long txHandle, const std::string& dn, const NamedContainers& attributes,
                           Origin origin) {
  if (txHandle == 0) return PymInvalidParameter;
  if (!_transactions.isKnown(txHandle)) return PymNotExist;
  if (!_transactions.isOpen(txHandle)) return PymInvalidParameter;
  ModelStore::Changes changes;
  for (const auto& attribute : attributes) {
    if (attribute.second == nullptr) return PymInvalidParameter;
    std::vector<AttributeValue> values;
    const PymReturnT decoded = _model.decode(dn, attribute.first, *attribute.second, values);
    if (decoded != PymOk) {
      _log.record(PymLogInfo, "setMoAttribute",
                  "refused " + dn + " " + attribute.first + " (" + std::to_string(decoded) + ")");
      return decoded;
    }
    changes[{dn, attribute.first}] = std::move(values);
  }
  if (origin == Origin::Operator) {
    const PymReturnT delivered = deliver(txHandle, dn, attributes);
    if (delivered != PymOk) return delivered;
  }
  std::lock_guard<std::mutex> lock(_mutex);
  // Checked again under the lock: the transaction may have begun to commit meanwhile.
  if (!_transactions.isOpen(txHandle)) return PymInvalidParameter;
  for (auto& change : changes) _pending[txHandle][change.first] = std::move(change.second);
  return PymOk;
}

PymReturnT CmRouter::deliver(unsigned long txHandle, const std::string& dn, const NamedContainers& attributes) {
  const std::optional<ObjectImplementer> implementer = implementerOf(dn);
  if (!implementer.has_value()) return PymOk;
  CurrentTransaction scope(txHandle);
  // What the implementer writes itself is its own, even inside an interceptor's call.
  ServedOperatorMark implementersOwn(0);
  const PymReturnT joined = join(txHandle, *implementer);
  if (joined != PymOk) return joined;
  const auto setMoAttribute = implementer->managedObject->setMoAttribute;
  for (const auto& attribute : attributes) {
    const PymReturnT result = setMoAttribute == nullptr
                                  ? PymFailure
                                  : setMoAttribute(txHandle, dn.c_str(), attribute.first.c_str(), attribute.second);
    if (result != PymOk) {
      _log.record(PymLogInfo, "setMoAttribute",
                  "transaction " + std::to_string(txHandle) + ": " + implementer->componentName + " refused " + dn +
                      " " + attribute.first + " (" + std::to_string(result) + ")");
      return result;
    }
  }
  return PymOk;
}

PymReturnT CmRouter::join(unsigned long txHandle, const ObjectImplementer& implementer) {
  const PymOamSpiTransactionalResource_2* resource = implementer.transactionalResource;
  {
    std::lock_guard<std::mutex> lock(_mutex);
    // Not for a transaction that has ended: nothing would forget the entry.
    if (!_transactions.isOpen(txHandle)) return PymInvalidParameter;
    if (!_joined[txHandle].insert(resource).second) return PymOk;
  }
  const std::string about = "transaction " + std::to_string(txHandle) + ": " + implementer.componentName;
  const PymReturnT result = resource->join == nullptr ? PymOk : resource->join(txHandle);
  if (result != PymOk) {
    _log.record(PymLogInfo, "join", about + " refused join (" + std::to_string(result) + ")");
    // The next write tries again.
    std::lock_guard<std::mutex> lock(_mutex);
    const auto joined = _joined.find(txHandle);
    if (joined != _joined.end()) joined->second.erase(resource);
    return result;
  }
  if (!_transactions.isParticipant(txHandle, resource)) {
    _log.record(PymLogWarning, "join", about + " joined without registering as a participant");
  }
  return PymOk;
}

std::optional<ObjectImplementer> CmRouter::implementerOf(const std::string& dn) const {
  try {
    return _implementers.implementer(Dn::implementerPath(dn));
  } catch (const std::invalid_argument&) {
    return std::nullopt;
  }
}

PymReturnT CmRouter::readFromImplementer(unsigned long txHandle, const ObjectImplementer& implementer,
                                         const std::string& dn, const std::string& attributeName,
                                         PymMoAttributeValueResult_3& result) const {
  const auto getMoAttribute = implementer.managedObject->getMoAttribute;
  if (getMoAttribute == nullptr) return PymNotExist;
  PymMoAttributeValueResult_3 answer{};
  PymReturnT code = PymOk;
  {
    CurrentTransaction scope(txHandle);
    code = getMoAttribute(txHandle, dn.c_str(), attributeName.c_str(), &answer);
  }
  const std::string about = "transaction " + std::to_string(txHandle) + ": " + implementer.componentName + "'s " +
                            dn + " " + attributeName;
  if (answer.container != nullptr && answer.release == nullptr) {
    _log.record(PymLogError, "getMoAttribute", about + " came without a release function");
    return PymFailure;
  }
  const ValueCodec::ContainerPtr owned(answer.container, answer.release);
  if (code != PymOk) return code;
  if (owned == nullptr) {
    _log.record(PymLogError, "getMoAttribute", about + " came without a container");
    return PymFailure;
  }
  std::vector<AttributeValue> values;
  const PymReturnT decoded = _model.decode(dn, attributeName, *owned, values);
  if (decoded != PymOk) {
    _log.record(PymLogError, "getMoAttribute", about + " does not fit the model (" + std::to_string(decoded) + ")");
    return PymFailure;
  }
  return _model.render(dn, attributeName, values, &result);
}

}  // namespace Framework
