#include "FakeFramework.h"

#include <Qiv/Portal.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

std::string orDash(const char* text) { return text != nullptr ? text : "-"; }

char* mallocCopy(const std::string& text) {
  char* copy = static_cast<char*>(std::malloc(text.size() + 1));
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

}  // namespace

FakeContainer::FakeContainer(PymMoValueType type) : _container{type, 0, nullptr} {}

PymMoAttributeValue_3& FakeContainer::addValue() {
  _values.emplace_back();
  std::memset(&_values.back(), 0, sizeof(PymMoAttributeValue_3));
  _container.values = _values.data();
  _container.nrOfValues = static_cast<uint32_t>(_values.size());
  return _values.back();
}

FakeContainer& FakeContainer::addString(const std::string& text) {
  _strings.push_back(text);
  addValue().theString = _strings.back().c_str();
  return *this;
}

FakeContainer& FakeContainer::addU16(uint16_t value) {
  addValue().u16 = value;
  return *this;
}

FakeContainer& FakeContainer::addBool(bool value) {
  addValue().theBool = value;
  return *this;
}

FakeContainer& FakeContainer::addEnum(int32_t value) {
  addValue().theEnum = value;
  return *this;
}

FakeContainer& FakeContainer::addStruct(
    const std::vector<std::pair<std::string, std::shared_ptr<FakeContainer>>>& members) {
  _memberLists.emplace_back(members.size());
  std::vector<PymMoAttrStructMember_3>& list = _memberLists.back();
  for (std::size_t i = 0; i < members.size(); ++i) {
    _strings.push_back(members[i].first);
    list[i].memberName = _strings.back().c_str();
    list[i].memberValue = members[i].second ? members[i].second->get() : nullptr;
    list[i].next = i + 1 < members.size() ? &list[i + 1] : nullptr;
    if (members[i].second) _nested.push_back(members[i].second);
  }
  addValue().structMember = list.empty() ? nullptr : list.data();
  return *this;
}

void FakeContainer::scribble() {
  for (std::string& text : _strings) std::fill(text.begin(), text.end(), '#');
  for (std::vector<PymMoAttrStructMember_3>& list : _memberLists) {
    for (PymMoAttrStructMember_3& member : list) member = PymMoAttrStructMember_3{nullptr, nullptr, nullptr};
  }
  for (const std::shared_ptr<FakeContainer>& nested : _nested) nested->scribble();
  if (_container.type != PymMoValueType_String && _container.type != PymMoValueType_Reference) {
    for (PymMoAttributeValue_3& value : _values) std::memset(&value, 0, sizeof value);
  }
  _container.nrOfValues = 0;
}

FakeFrameworkTest* FakeFrameworkTest::_current = nullptr;

FakeFrameworkTest* FakeFrameworkTest::current() { return _current; }

void FakeFrameworkTest::SetUp() {
  _current = this;
  _accessor = PymMgmtSpiInterfacePortalAccessor{{"PymMgmtSpiPortalService", "PymMgmtSpiInterfacePortalAccessor", "1"},
                                                &FakeFrameworkTest::getPortal};
  _portal = PymMgmtSpiInterfacePortal_3{{"PymMgmtSpiPortalService", "PymMgmtSpiInterfacePortal", "3"},
                                        &FakeFrameworkTest::getInterface, nullptr, nullptr, nullptr};
  _log = PymMwSpiLog_1{{"PymMwSpiLogService", "PymMwSpiLog", "1"}, &FakeFrameworkTest::log, &FakeFrameworkTest::getLevel};
  _trace = PymMwSpiTrace_1{{"PymMwSpiLogService", "PymMwSpiTrace", "1"}, &FakeFrameworkTest::trace,
                           &FakeFrameworkTest::isTraceEnabled};
  _transactions = PymOamSpiTransaction_2{{"PymOamSpiTransactionService", "PymOamSpiTransaction", "2"},
                                         &FakeFrameworkTest::newTransaction, &FakeFrameworkTest::commitTransaction,
                                         &FakeFrameworkTest::abortTransaction};
  std::memset(&_router, 0, sizeof _router);
  _router.base = PymMgmtSpiInterface_1{"PymOamSpiCmRouterService", "PymOamSpiManagedObject", "3"};
  _router.getMoAttribute = &FakeFrameworkTest::getMoAttribute;
  _router.setMoAttribute = &FakeFrameworkTest::setMoAttribute;
  _router.newMoIterator = &FakeFrameworkTest::newMoIterator;
  _router.nextMo = &FakeFrameworkTest::nextMo;
  _router.finalizeMoIterator = &FakeFrameworkTest::finalizeMoIterator;
  _crypto = PymMwSpiCrypto_1{{"PymMwSpiCryptoService", "PymMwSpiCrypto", "1"}, &FakeFrameworkTest::encrypt,
                             &FakeFrameworkTest::decrypt};
  attach();
}

void FakeFrameworkTest::TearDown() {
  detach();
  _current = nullptr;
}

void FakeFrameworkTest::attach() { Qiv::Portal::instance().setAccessor(&_accessor); }

void FakeFrameworkTest::detach() { Qiv::Portal::instance().setAccessor(nullptr); }

std::size_t FakeFrameworkTest::countLines(int level, const std::string& text) const {
  return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const LogLine& line) {
    return line.level == level && line.text == text;
  }));
}

PymMwSpiCrypto_1* FakeFrameworkTest::cryptoTable() { return &_crypto; }

void* FakeFrameworkTest::getPortal(const char* version) {
  FakeFrameworkTest* self = current();
  self->portalVersionsAsked.push_back(orDash(version));
  return self->offerPortal3 && std::string(orDash(version)) == "3" ? &self->_portal : nullptr;
}

PymReturnT FakeFrameworkTest::getInterface(const char* component, const char* name, const char* version,
                                           PymMgmtSpiInterface_1** result) {
  FakeFrameworkTest* self = current();
  std::lock_guard<std::mutex> lock(self->_callbackMutex);
  self->lookups.push_back(orDash(component) + "|" + orDash(name) + "|" + orDash(version));
  if (name == nullptr || self->offered.count(name) == 0) return PymNotExist;
  const std::vector<PymMgmtSpiInterface_1*> tables = {&self->_log.base, &self->_trace.base, &self->_transactions.base,
                                                      &self->_router.base, &self->_crypto.base};
  for (PymMgmtSpiInterface_1* table : tables) {
    const bool sameComponent = component == nullptr || std::strcmp(component, table->componentName) == 0;
    const bool sameVersion = version == nullptr || std::strcmp(version, table->interfaceVersion) == 0;
    if (std::strcmp(name, table->interfaceName) == 0 && sameComponent && sameVersion) {
      *result = table;
      return PymOk;
    }
  }
  return PymNotExist;
}

void FakeFrameworkTest::log(int level, const char* method, const char* text) {
  std::lock_guard<std::mutex> lock(current()->_callbackMutex);
  current()->lines.push_back(LogLine{level, method, text, false});
}

int FakeFrameworkTest::getLevel() { return current()->logLevel; }

void FakeFrameworkTest::trace(const char* method, const char* text) {
  std::lock_guard<std::mutex> lock(current()->_callbackMutex);
  current()->lines.push_back(LogLine{PymLogTrace, method, text, true});
}

bool FakeFrameworkTest::isTraceEnabled() { return current()->traceEnabled; }

PymReturnT FakeFrameworkTest::newTransaction(PymLockPolicy policy, uint32_t timeout, unsigned long* handle) {
  FakeFrameworkTest* self = current();
  if (self->newTransactionResult != PymOk) {
    self->transactionCalls.push_back("new refused");
    return self->newTransactionResult;
  }
  *handle = self->nextHandle++;
  self->transactionCalls.push_back("new " + std::to_string(policy) + " " + std::to_string(timeout) + " " +
                                   std::to_string(*handle));
  return PymOk;
}

PymReturnT FakeFrameworkTest::commitTransaction(unsigned long handle) {
  current()->transactionCalls.push_back("commit " + std::to_string(handle));
  return current()->commitResult;
}

PymReturnT FakeFrameworkTest::abortTransaction(unsigned long handle) {
  current()->transactionCalls.push_back("abort " + std::to_string(handle));
  return current()->abortResult;
}

PymReturnT FakeFrameworkTest::getMoAttribute(unsigned long tx, const char* dn, const char* name,
                                             PymMoAttributeValueResult_3* result) {
  FakeFrameworkTest* self = current();
  self->readHandles.push_back(tx);
  const auto found = self->attributes.find({dn, name});
  if (found == self->attributes.end()) return PymNotExist;
  if (found->second.make) {
    std::unique_ptr<FakeContainer> container = found->second.make();
    result->container = container->get();
    result->release = &FakeFrameworkTest::releaseContainer;
    self->_handedOut[container->get()] = std::move(container);
  }
  return found->second.result;
}

void FakeFrameworkTest::releaseContainer(PymMoAttributeValueContainer_3* container) {
  FakeFrameworkTest* self = current();
  const auto found = self->_handedOut.find(container);
  if (found == self->_handedOut.end()) {
    ++self->unknownReleases;
    return;
  }
  ++self->releases;
  found->second->scribble();
  self->_released.push_back(std::move(found->second));
  self->_handedOut.erase(found);
}

PymReturnT FakeFrameworkTest::setMoAttribute(unsigned long tx, const char* dn, const char* name,
                                             const PymMoAttributeValueContainer_3* value) {
  FakeFrameworkTest* self = current();
  self->writes.push_back(Write{tx, dn, name, value->type, value->nrOfValues});
  return self->setResult;
}

PymReturnT FakeFrameworkTest::newMoIterator(unsigned long tx, const char* dn, const char* className,
                                            unsigned long long* iterator) {
  FakeFrameworkTest* self = current();
  self->iteratorCalls.push_back(std::to_string(tx) + "|" + dn + "|" + className);
  const auto found = self->children.find({dn, className});
  *iterator = self->_nextIterator++;
  self->_iterations[*iterator] =
      Iteration{found != self->children.end() ? found->second : std::vector<std::string>(), 0};
  ++self->openIterators;
  return PymOk;
}

PymReturnT FakeFrameworkTest::nextMo(unsigned long long iterator, char** result) {
  Iteration& iteration = current()->_iterations.at(iterator);
  *result = iteration.next < iteration.dns.size() ? mallocCopy(iteration.dns[iteration.next++]) : nullptr;
  return PymOk;
}

PymReturnT FakeFrameworkTest::finalizeMoIterator(unsigned long long iterator) {
  FakeFrameworkTest* self = current();
  if (self->_iterations.erase(iterator) == 1) --self->openIterators;
  return PymOk;
}

PymReturnT FakeFrameworkTest::encrypt(const char* clear, char** result) {
  if (current()->cryptoResult != PymOk) return current()->cryptoResult;
  *result = mallocCopy("enc(" + std::string(clear) + ")");
  return PymOk;
}

PymReturnT FakeFrameworkTest::decrypt(const char* encrypted, char** result) {
  if (current()->cryptoResult != PymOk) return current()->cryptoResult;
  *result = mallocCopy("dec(" + std::string(encrypted) + ")");
  return PymOk;
}
