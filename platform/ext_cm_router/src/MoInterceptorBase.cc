#include <QivExtCmRouterService/ExtCmInterceptorRepository.h>
#include <QivExtCmRouterService/MoInterceptorBase.h>
#include <Qiv/Portal.h>

namespace QivExtCmRouterService {

namespace {

// Calls the next interface's operation with args; PymFailure when there is nothing to call.
template <class Operation, class... Args>
PymReturnT forward(const QivOamSpiManagedObject_3* next, Operation QivOamSpiManagedObject_3::*operation, Args... args) {
  if (next == nullptr || next->*operation == nullptr) return PymFailure;
  return (next->*operation)(args...);
}

}  // namespace

const PymMgmtSpiInterface_1 MoInterceptorBase::NEXT_INTERFACE_ID = {"QivOamSpiExtCmRouterService",
                                                                    "QivOamSpiManagedObject", "3"};

MoInterceptorBase::MoInterceptorBase() : _repository(nullptr), _next(nullptr) {}

MoInterceptorBase::~MoInterceptorBase() = default;

PymReturnT MoInterceptorBase::getMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                             PymMoAttributeValueResult_3* result) {
  return forward(_next, &QivOamSpiManagedObject_3::getMoAttribute, txHandle, dn, attributeName, result);
}

PymReturnT MoInterceptorBase::getMoAttributes(unsigned long txHandle, const char* dn, const char** attributeNames,
                                              PymMoAttributeValuesResult_3* result) {
  return forward(_next, &QivOamSpiManagedObject_3::getMoAttributes, txHandle, dn, attributeNames, result);
}

PymReturnT MoInterceptorBase::setMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                             const QivMoAttributeValueContainer_3* value) {
  return forward(_next, &QivOamSpiManagedObject_3::setMoAttribute, txHandle, dn, attributeName, value);
}

PymReturnT MoInterceptorBase::setMoAttributes(unsigned long txHandle, const char* dn,
                                              PymMoNamedAttributeValueContainer_3** attributes) {
  return forward(_next, &QivOamSpiManagedObject_3::setMoAttributes, txHandle, dn, attributes);
}

PymReturnT MoInterceptorBase::newMoIterator(unsigned long txHandle, const char* dn, const char* className,
                                            unsigned long long* iterator) {
  return forward(_next, &QivOamSpiManagedObject_3::newMoIterator, txHandle, dn, className, iterator);
}

PymReturnT MoInterceptorBase::nextMo(unsigned long long iterator, char** result) {
  return forward(_next, &QivOamSpiManagedObject_3::nextMo, iterator, result);
}

PymReturnT MoInterceptorBase::createMo(unsigned long txHandle, const char* parentDn, const char* className,
                                       const char* keyAttributeName, const char* keyAttributeValue,
                                       PymMoNamedAttributeValueContainer_3** initialAttributes) {
  return forward(_next, &QivOamSpiManagedObject_3::createMo, txHandle, parentDn, className, keyAttributeName,
                 keyAttributeValue, initialAttributes);
}

PymReturnT MoInterceptorBase::deleteMo(unsigned long txHandle, const char* dn) {
  return forward(_next, &QivOamSpiManagedObject_3::deleteMo, txHandle, dn);
}

PymReturnT MoInterceptorBase::action(unsigned long txHandle, const char* dn, const char* name,
                                     PymMoNamedAttributeValueContainer_3** parameters,
                                     PymMoAttributeValueResult_3* result) {
  return forward(_next, &QivOamSpiManagedObject_3::action, txHandle, dn, name, parameters, result);
}

PymReturnT MoInterceptorBase::finalizeMoIterator(unsigned long long iterator) {
  return forward(_next, &QivOamSpiManagedObject_3::finalizeMoIterator, iterator);
}

PymReturnT MoInterceptorBase::existsMo(unsigned long txHandle, const char* dn, bool* result) {
  return forward(_next, &QivOamSpiManagedObject_3::existsMo, txHandle, dn, result);
}

PymReturnT MoInterceptorBase::countMoChildren(unsigned long txHandle, const char* dn, const char* className,
                                              unsigned long long* result) {
  return forward(_next, &QivOamSpiManagedObject_3::countMoChildren, txHandle, dn, className, result);
}

PymReturnT MoInterceptorBase::initialize() {
  const Qiv::Portal& portal = Qiv::Portal::instance();
  auto* repository = portal.getInterface<QivOamSpiInterceptorRepository_1>(ExtCmInterceptorRepository::INTERFACE_ID);
  auto* next = portal.getInterface<QivOamSpiManagedObject_3>(NEXT_INTERFACE_ID);
  if (repository == nullptr || next == nullptr) {
    _repository = nullptr;
    _next = nullptr;
    return PymNotExist;
  }
  _repository = repository;
  _next = next;
  return PymOk;
}

QivOamSpiInterceptorRepository_1* MoInterceptorBase::getRepository() const { return _repository; }

QivOamSpiManagedObject_3* MoInterceptorBase::getNextInterface() const { return _next; }

}  // namespace QivExtCmRouterService
