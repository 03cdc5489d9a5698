#include "FakeInterceptor.h"

#include <Framework/CurrentTransaction.h>

namespace {

PymReturnT setMoAttribute(void* context, unsigned long txHandle, const char* dn, const char* attributeName,
                          const QivMoAttributeValueContainer_3* value) {
  return static_cast<FakeInterceptor*>(context)->serve({"setMoAttribute", context, txHandle,
                                                        Framework::CurrentTransaction::get(), dn, attributeName, value,
                                                        nullptr});
}

PymReturnT setMoAttributes(void* context, unsigned long txHandle, const char* dn,
                           PymMoNamedAttributeValueContainer_3** attributes) {
  return static_cast<FakeInterceptor*>(context)->serve({"setMoAttributes", context, txHandle,
                                                        Framework::CurrentTransaction::get(), dn, nullptr, nullptr,
                                                        attributes});
}

}  // namespace

FakeInterceptor::FakeInterceptor() : _table{}, _action([](const Call&) { return PymOk; }) {
  _table.setMoAttribute = setMoAttribute;
  _table.setMoAttributes = setMoAttributes;
}

const QivOamSpiInterceptor_1* FakeInterceptor::table() const { return &_table; }

QivOamSpiInterceptor_1& FakeInterceptor::editableTable() { return _table; }

void FakeInterceptor::onCall(Action action) {
  std::lock_guard<std::mutex> lock(_mutex);
  _action = std::move(action);
}

std::vector<FakeInterceptor::Call> FakeInterceptor::calls() const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _calls;
}

PymReturnT FakeInterceptor::serve(const Call& call) {
  Action action;
  {
    std::lock_guard<std::mutex> lock(_mutex);
    _calls.push_back(call);
    action = _action;
  }
  // Without the lock: the action calls back into the router.
  return action(call);
}
