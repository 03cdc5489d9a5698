#ifndef TEST_FAKE_EXT_CM_ROUTER_H
#define TEST_FAKE_EXT_CM_ROUTER_H

#include <Framework/InterfacePortal.h>
#include <QivOamSpiInterceptorRepository.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

// The extended CM router as an interceptor meets it: a "next" managed-object table that records
// every call and can be scripted to refuse, and an interceptor repository that records what is
// registered. Offered through the framework stand-in's portal in place of its own tables for as
// long as it lives. The C tables reach it through a static pointer: one at a time.
class FakeExtCmRouter {
 public:
  // One attribute that reached the next interface.
  struct Write {
    std::string operation;  // "setMoAttribute" or "setMoAttributes"
    unsigned long txHandle;
    std::string dn;
    std::string name;
    PymMoValueType type;
    uint32_t nrOfValues;
    bool hasValueArray;
    std::vector<std::string> values;  // enumerations and integers in decimal, strings as they are
  };

  struct Registration {
    const QivOamSpiInterceptor_1* interceptor;
    void* context;
  };

  explicit FakeExtCmRouter(Framework::InterfacePortal& portal) : _portal(portal) {
    _current = this;
    _savedNext = take("QivOamSpiManagedObject", "3");
    _savedRepository = take("QivOamSpiInterceptorRepository", "1");
    _next = QivOamSpiManagedObject_3{{COMPONENT, "QivOamSpiManagedObject", "3"},
                                     &getMoAttribute,
                                     &getMoAttributes,
                                     &setMoAttribute,
                                     &setMoAttributes,
                                     &newMoIterator,
                                     &nextMo,
                                     &createMo,
                                     &deleteMo,
                                     &action,
                                     &finalizeMoIterator,
                                     &existsMo,
                                     &countMoChildren};
    _repository = QivOamSpiInterceptorRepository_1{
        {COMPONENT, "QivOamSpiInterceptorRepository", "1"}, &registerClass, &deregisterClass};
    _portal.addInterface(&_next.base);
    _portal.addInterface(&_repository.base);
  }

  ~FakeExtCmRouter() {
    _portal.removeInterface(COMPONENT, "QivOamSpiManagedObject", "3");
    _portal.removeInterface(COMPONENT, "QivOamSpiInterceptorRepository", "1");
    if (_savedNext != nullptr) _portal.addInterface(_savedNext);
    if (_savedRepository != nullptr) _portal.addInterface(_savedRepository);
    _current = nullptr;
  }

  FakeExtCmRouter(const FakeExtCmRouter&) = delete;
  FakeExtCmRouter& operator=(const FakeExtCmRouter&) = delete;

  // Withdraws one of the two tables, as a framework without it would be.
  void withdrawNext() { _portal.removeInterface(COMPONENT, "QivOamSpiManagedObject", "3"); }
  // Offers the framework's own next interface again instead of the recording one.
  void useFrameworkNext() {
    withdrawNext();
    if (_savedNext != nullptr) _portal.addInterface(_savedNext);
  }
  void withdrawRepository() { _portal.removeInterface(COMPONENT, "QivOamSpiInterceptorRepository", "1"); }

  const QivOamSpiManagedObject_3* nextTable() const { return &_next; }
  QivOamSpiInterceptorRepository_1* repositoryTable() { return &_repository; }

  // Next interface: what setMoAttribute answers for {dn, attribute name} (PymOk otherwise), what
  // setMoAttributes and every other operation answer.
  std::map<std::pair<std::string, std::string>, PymReturnT> refusedWrites;
  PymReturnT setMoAttributesResult = PymOk;
  PymReturnT otherResult = PymOk;
  std::vector<Write> writes;
  // Every call of an operation other than the writes: "<operation>|<argument>|...".
  std::vector<std::string> calls;

  // Repository.
  PymReturnT registerResult = PymOk;
  PymReturnT deregisterResult = PymOk;
  std::map<std::string, Registration> registered;
  std::vector<std::string> repositoryCalls;  // "register|<class>", "deregister|<class>"

  static constexpr const char* COMPONENT = "QivOamSpiExtCmRouterService";

 private:
  PymMgmtSpiInterface_1* take(const char* interfaceName, const char* version) {
    PymMgmtSpiInterface_1* table = nullptr;
    if (_portal.getInterface(COMPONENT, interfaceName, version, &table) != PymOk) return nullptr;
    _portal.removeInterface(COMPONENT, interfaceName, version);
    return table;
  }

  static std::string text(const char* value) { return value != nullptr ? value : "(null)"; }

  static std::vector<std::string> render(const PymMoAttributeValueContainer_3& value) {
    std::vector<std::string> values;
    if (value.values == nullptr) return values;
    for (uint32_t i = 0; i < value.nrOfValues; ++i) {
      const PymMoAttributeValue_3& one = value.values[i];
      switch (value.type) {
        case PymMoValueType_String:
        case PymMoValueType_Reference:
          values.push_back(text(one.theString));
          break;
        case PymMoValueType_Enum:
          values.push_back(std::to_string(one.theEnum));
          break;
        case PymMoValueType_Int32:
          values.push_back(std::to_string(one.i32));
          break;
        default:
          values.push_back("?");
          break;
      }
    }
    return values;
  }

  void record(const char* operation, unsigned long txHandle, const char* dn, const char* name,
              const PymMoAttributeValueContainer_3* value) {
    Write write{operation, txHandle, text(dn), text(name), PymMoValueType_Int8, 0, false, {}};
    if (value != nullptr) {
      write.type = value->type;
      write.nrOfValues = value->nrOfValues;
      write.hasValueArray = value->values != nullptr;
      write.values = render(*value);
    }
    writes.push_back(write);
  }

  static PymReturnT setMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                   const QivMoAttributeValueContainer_3* value) {
    _current->record("setMoAttribute", txHandle, dn, attributeName, value);
    const auto refused = _current->refusedWrites.find({text(dn), text(attributeName)});
    return refused != _current->refusedWrites.end() ? refused->second : PymOk;
  }

  static PymReturnT setMoAttributes(unsigned long txHandle, const char* dn,
                                    PymMoNamedAttributeValueContainer_3** attributes) {
    for (PymMoNamedAttributeValueContainer_3** attribute = attributes; attribute != nullptr && *attribute != nullptr;
         ++attribute)
      _current->record("setMoAttributes", txHandle, dn, (*attribute)->name, &(*attribute)->value);
    return _current->setMoAttributesResult;
  }

  static PymReturnT other(const std::string& call) {
    _current->calls.push_back(call);
    return _current->otherResult;
  }

  static PymReturnT getMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                   PymMoAttributeValueResult_3* result) {
    return other("getMoAttribute|" + std::to_string(txHandle) + "|" + text(dn) + "|" + text(attributeName) + "|" +
                 (result != nullptr ? "result" : "null"));
  }
  static PymReturnT getMoAttributes(unsigned long txHandle, const char* dn, const char** attributeNames,
                                    PymMoAttributeValuesResult_3* result) {
    return other("getMoAttributes|" + std::to_string(txHandle) + "|" + text(dn) + "|" +
                 text(attributeNames != nullptr ? attributeNames[0] : nullptr) + "|" +
                 (result != nullptr ? "result" : "null"));
  }
  static PymReturnT newMoIterator(unsigned long txHandle, const char* dn, const char* className,
                                  unsigned long long* iterator) {
    if (iterator != nullptr) *iterator = 77;
    return other("newMoIterator|" + std::to_string(txHandle) + "|" + text(dn) + "|" + text(className));
  }
  static PymReturnT nextMo(unsigned long long iterator, char** result) {
    if (result != nullptr) *result = nullptr;
    return other("nextMo|" + std::to_string(iterator));
  }
  static PymReturnT createMo(unsigned long txHandle, const char* parentDn, const char* className,
                             const char* keyAttributeName, const char* keyAttributeValue,
                             PymMoNamedAttributeValueContainer_3** initialAttributes) {
    return other("createMo|" + std::to_string(txHandle) + "|" + text(parentDn) + "|" + text(className) + "|" +
                 text(keyAttributeName) + "|" + text(keyAttributeValue) + "|" +
                 (initialAttributes != nullptr ? "attributes" : "null"));
  }
  static PymReturnT deleteMo(unsigned long txHandle, const char* dn) {
    return other("deleteMo|" + std::to_string(txHandle) + "|" + text(dn));
  }
  static PymReturnT action(unsigned long txHandle, const char* dn, const char* name,
                           PymMoNamedAttributeValueContainer_3** parameters, PymMoAttributeValueResult_3* result) {
    return other("action|" + std::to_string(txHandle) + "|" + text(dn) + "|" + text(name) + "|" +
                 (parameters != nullptr ? "parameters" : "null") + "|" + (result != nullptr ? "result" : "null"));
  }
  static PymReturnT finalizeMoIterator(unsigned long long iterator) {
    return other("finalizeMoIterator|" + std::to_string(iterator));
  }
  static PymReturnT existsMo(unsigned long txHandle, const char* dn, bool* result) {
    if (result != nullptr) *result = true;
    return other("existsMo|" + std::to_string(txHandle) + "|" + text(dn));
  }
  static PymReturnT countMoChildren(unsigned long txHandle, const char* dn, const char* className,
                                    unsigned long long* result) {
    if (result != nullptr) *result = 5;
    return other("countMoChildren|" + std::to_string(txHandle) + "|" + text(dn) + "|" + text(className));
  }

  static PymReturnT registerClass(const char* className, const QivOamSpiInterceptor_1* interceptor, void* context) {
    _current->repositoryCalls.push_back("register|" + text(className));
    if (_current->registerResult != PymOk) return _current->registerResult;
    _current->registered[text(className)] = Registration{interceptor, context};
    return PymOk;
  }
  static PymReturnT deregisterClass(const char* className) {
    _current->repositoryCalls.push_back("deregister|" + text(className));
    if (_current->deregisterResult != PymOk) return _current->deregisterResult;
    return _current->registered.erase(text(className)) == 1 ? PymOk : PymNotExist;
  }

  inline static FakeExtCmRouter* _current = nullptr;

  Framework::InterfacePortal& _portal;
  PymMgmtSpiInterface_1* _savedNext;
  PymMgmtSpiInterface_1* _savedRepository;
  QivOamSpiManagedObject_3 _next;
  QivOamSpiInterceptorRepository_1 _repository;
};

#endif
