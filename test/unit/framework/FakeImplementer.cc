#include "FakeImplementer.h"

#include <Framework/CString.h>
#include <Framework/CurrentTransaction.h>
#include <Framework/ManagementFramework.h>
#include <Framework/ValueCodec.h>
#include <PymMgmtSpiThreadContext.h>

#include <array>
#include <chrono>
#include <stdexcept>

namespace {

constexpr int kSlots = 4;
std::array<FakeImplementer*, kSlots> live{};

// A framework interface, found as a component finds it.
template <class T>
T* frameworkInterface(const char* interfaceName) {
  Framework::ManagementFramework* framework = Framework::ManagementFramework::current();
  if (framework == nullptr) return nullptr;
  auto* portal = static_cast<PymMgmtSpiInterfacePortal_3*>(framework->accessor()->getPortal("3"));
  PymMgmtSpiInterface_1* found = nullptr;
  if (portal == nullptr || portal->getInterface(nullptr, interfaceName, "2", &found) != PymOk) return nullptr;
  return reinterpret_cast<T*>(found);
}

template <int slot, FakeImplementer::Step step>
PymReturnT resourceStep(unsigned long txHandle) {
  return live[slot]->serve(step, txHandle, nullptr, nullptr, nullptr, nullptr, nullptr);
}

template <int slot>
PymReturnT validate(unsigned long txHandle, bool* result) {
  return live[slot]->serve(FakeImplementer::Validate, txHandle, nullptr, nullptr, nullptr, nullptr, result);
}

template <int slot>
PymReturnT setMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                          const PymMoAttributeValueContainer_3* value) {
  return live[slot]->serve(FakeImplementer::SetMoAttribute, txHandle, dn, attributeName, value, nullptr, nullptr);
}

template <int slot>
void releaseRead(PymMoAttributeValueContainer_3* container) {
  live[slot]->releaseRead(container);
}

template <int slot>
PymReturnT getMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                          PymMoAttributeValueResult_3* result) {
  const PymReturnT code =
      live[slot]->serve(FakeImplementer::GetMoAttribute, txHandle, dn, attributeName, nullptr, result, nullptr);
  if (code == PymOk) result->release = releaseRead<slot>;
  return code;
}

template <int slot>
void install(PymOamSpiManagedObject_3& managedObject, PymOamSpiTransactionalResource_2& resource) {
  using Step = FakeImplementer::Step;
  managedObject.setMoAttribute = setMoAttribute<slot>;
  managedObject.getMoAttribute = getMoAttribute<slot>;
  resource.join = resourceStep<slot, Step::Join>;
  resource.prepare = resourceStep<slot, Step::Prepare>;
  resource.commit = resourceStep<slot, Step::Commit>;
  resource.abort = resourceStep<slot, Step::Abort>;
  resource.finish = resourceStep<slot, Step::Finish>;
  resource.validate = validate<slot>;
}

const std::array<void (*)(PymOamSpiManagedObject_3&, PymOamSpiTransactionalResource_2&), kSlots> installers = {
    install<0>, install<1>, install<2>, install<3>};

std::string scalar(PymMoValueType type, const PymMoAttributeValue_3& value) {
  switch (type) {
    case PymMoValueType_Int8: return std::to_string(value.i8);
    case PymMoValueType_Int16: return std::to_string(value.i16);
    case PymMoValueType_Int32: return std::to_string(value.i32);
    case PymMoValueType_Int64: return std::to_string(value.i64);
    case PymMoValueType_Uint8: return std::to_string(value.u8);
    case PymMoValueType_Uint16: return std::to_string(value.u16);
    case PymMoValueType_Uint32: return std::to_string(value.u32);
    case PymMoValueType_Uint64: return std::to_string(value.u64);
    case PymMoValueType_String: return value.theString == nullptr ? "null" : value.theString;
    case PymMoValueType_Reference: return value.moRef == nullptr ? "null" : value.moRef;
    case PymMoValueType_Bool: return value.theBool ? "true" : "false";
    case PymMoValueType_Enum: return std::to_string(value.theEnum);
    case PymMoValueType_Struct: {
      std::string text = "{";
      for (const PymMoAttrStructMember_3* member = value.structMember; member != nullptr; member = member->next) {
        if (text.size() > 1) text += ',';
        text += Framework::CString::orEmpty(member->memberName) + "=" + FakeImplementer::describe(member->memberValue);
      }
      return text + "}";
    }
    default: return "?";
  }
}

}  // namespace

FakeImplementer::FakeImplementer(int slot, const std::string& name)
    : _slot(slot),
      _component(slot, name),
      _managedObject(reinterpret_cast<PymOamSpiManagedObject_3*>(_component.managedObject())),
      _resource(reinterpret_cast<PymOamSpiTransactionalResource_2*>(_component.transactionalResource())),
      _valid(true),
      _registerOnJoin(true),
      _lockForEditing(false),
      _blocked(false),
      _released(false),
      _releasedReads(0) {
  installers[slot](*_managedObject, *_resource);
  live[slot] = this;
}

FakeImplementer::~FakeImplementer() {
  release();
  live[_slot] = nullptr;
}

PymMgmtSpiComponent_2* FakeImplementer::descriptor() { return _component.descriptor(); }

const PymOamSpiTransactionalResource_2* FakeImplementer::resource() const { return _resource; }

void FakeImplementer::answer(Step step, PymReturnT code) {
  std::lock_guard<std::mutex> lock(_mutex);
  _answers[step] = code;
}

void FakeImplementer::answerValidation(bool valid) {
  std::lock_guard<std::mutex> lock(_mutex);
  _valid = valid;
}

void FakeImplementer::answerRead(const std::string& attribute, const Framework::AttributeDefinition& definition,
                                 const std::vector<Framework::AttributeValue>& values) {
  std::lock_guard<std::mutex> lock(_mutex);
  _reads[attribute] = ReadAnswer{definition, values};
}

void FakeImplementer::registerOnJoin(bool enabled) {
  std::lock_guard<std::mutex> lock(_mutex);
  _registerOnJoin = enabled;
}

void FakeImplementer::addMessageAt(Step step, const std::string& text) {
  std::lock_guard<std::mutex> lock(_mutex);
  _messages[step].push_back(text);
}

void FakeImplementer::at(Step step, std::function<void(unsigned long)> action) {
  std::lock_guard<std::mutex> lock(_mutex);
  _actions[step] = std::move(action);
}

void FakeImplementer::lockForEditing(bool enabled) {
  std::lock_guard<std::mutex> lock(_mutex);
  _lockForEditing = enabled;
}

void FakeImplementer::blockNext(Step step) {
  std::lock_guard<std::mutex> lock(_mutex);
  _blockNext = step;
  _released = false;
}

bool FakeImplementer::waitUntilBlocked() {
  std::unique_lock<std::mutex> lock(_mutex);
  return _changed.wait_for(lock, std::chrono::seconds(10), [&] { return _blocked; });
}

void FakeImplementer::release() {
  std::lock_guard<std::mutex> lock(_mutex);
  _released = true;
  _changed.notify_all();
}

std::vector<FakeImplementer::Call> FakeImplementer::calls() const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _calls;
}

std::vector<std::string> FakeImplementer::steps() const {
  std::vector<std::string> result;
  for (const Call& call : calls()) {
    std::string text = std::string(stepName(call.step)) + " " + std::to_string(call.txHandle);
    if (!call.attribute.empty()) text += " " + call.attribute;
    result.push_back(text);
  }
  return result;
}

int FakeImplementer::releasedReads() const {
  std::lock_guard<std::mutex> lock(_mutex);
  return _releasedReads;
}

std::string FakeImplementer::describe(const PymMoAttributeValueContainer_3* container) {
  if (container == nullptr) return "null";
  std::string text = std::to_string(container->type) + ":[";
  for (uint32_t i = 0; container->values != nullptr && i < container->nrOfValues; ++i) {
    if (i != 0) text += ',';
    text += scalar(container->type, container->values[i]);
  }
  return text + "]";
}

const char* FakeImplementer::stepName(Step step) {
  static const char* const names[] = {"join",    "setMoAttribute", "getMoAttribute", "validate",
                                      "prepare", "commit",         "abort",          "finish"};
  return names[step];
}

PymReturnT FakeImplementer::serve(Step step, unsigned long txHandle, const char* dn, const char* attribute,
                                  const PymMoAttributeValueContainer_3* container,
                                  PymMoAttributeValueResult_3* result, bool* valid) {
  std::function<void(unsigned long)> action;
  bool registers = false;
  {
    std::lock_guard<std::mutex> lock(_mutex);
    _calls.push_back(Call{step, txHandle, Framework::CurrentTransaction::get(), Framework::CString::orEmpty(dn),
                          Framework::CString::orEmpty(attribute), container,
                          step == SetMoAttribute ? describe(container) : std::string()});
    const auto found = _actions.find(step);
    if (found != _actions.end()) action = found->second;
    registers = step == Join && _registerOnJoin;
  }
  // Without the lock, as a component would call out: the action may call back into the framework.
  if (action) action(txHandle);
  PymReturnT code = PymOk;
  std::vector<std::string> messages;
  {
    std::unique_lock<std::mutex> lock(_mutex);
    code = act(step, txHandle, Framework::CString::orEmpty(attribute), result, valid, messages);
    // Blocks having decided, as a component that holds its MO lock while it works.
    waitIfBlocked(step, lock);
  }
  if (code == PymOk && registers) {
    auto* master = frameworkInterface<PymOamSpiTransactionMaster_2>("PymOamSpiTransactionMaster");
    code = master == nullptr ? PymFailure : master->registerParticipant(txHandle, _resource);
  }
  if (auto* context = frameworkInterface<PymMgmtSpiThreadContext_2>("PymMgmtSpiThreadContext")) {
    for (const std::string& text : messages) context->addMessage(PymThreadContextMessageOperator, text.c_str());
  }
  return code;
}

void FakeImplementer::releaseRead(PymMoAttributeValueContainer_3* container) {
  Framework::ValueCodec::release(container);
  std::lock_guard<std::mutex> lock(_mutex);
  ++_releasedReads;
}

PymReturnT FakeImplementer::act(Step step, unsigned long txHandle, const std::string& attribute,
                                PymMoAttributeValueResult_3* result, bool* valid, std::vector<std::string>& messages) {
  const auto answer = _answers.find(step);
  PymReturnT code = answer != _answers.end() ? answer->second : PymOk;
  messages = _messages[step];
  switch (step) {
    case Validate: *valid = _valid; break;
    case SetMoAttribute:
      if (code != PymOk || !_lockForEditing) break;
      if (!_lockHolder.has_value()) _lockHolder = txHandle;
      if (*_lockHolder != txHandle) {
        messages.push_back("locked by transaction " + std::to_string(*_lockHolder));
        code = PymFailure;
      }
      break;
    case Abort:
    case Finish:
      if (_lockHolder == txHandle) _lockHolder.reset();
      break;
    case GetMoAttribute: {
      const auto read = _reads.find(attribute);
      if (read == _reads.end()) return answer != _answers.end() ? code : PymNotExist;
      result->container = Framework::ValueCodec::toContainer(read->second.definition, read->second.values).release();
      return PymOk;
    }
    default: break;
  }
  return code;
}

void FakeImplementer::waitIfBlocked(Step step, std::unique_lock<std::mutex>& lock) {
  if (_blockNext != step) return;
  _blockNext.reset();
  _blocked = true;
  _changed.notify_all();
  _changed.wait(lock, [&] { return _released; });
  _blocked = false;
}
