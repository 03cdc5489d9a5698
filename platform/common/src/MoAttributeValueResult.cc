#include <Qiv/MoAccessorCore.h>

namespace Qiv {

MoAccessor::MoAttributeValueResult::MoAttributeValueResult() : _result{nullptr, nullptr} {}

MoAccessor::MoAttributeValueResult::~MoAttributeValueResult() {
  if (_result.container != nullptr && _result.release != nullptr) _result.release(_result.container);
}

PymMoAttributeValueResult_3* MoAccessor::MoAttributeValueResult::raw() { return &_result; }

const PymMoAttributeValueContainer_3* MoAccessor::MoAttributeValueResult::container() const {
  return _result.container;
}

uint32_t MoAccessor::MoAttributeValueResult::count() const {
  if (_result.container == nullptr || _result.container->values == nullptr) return 0;
  return _result.container->nrOfValues;
}

}  // namespace Qiv
