#include <Poco/StringTokenizer.h>
#include <Qiv/LoggingWrapper.h>
#include <Qiv/MoAccessorCore.h>
#include <Qiv/Portal.h>

#include <cstdlib>

namespace Qiv {

namespace {

const PymMgmtSpiInterface_1 ROUTER_ID = {"PymOamSpiCmRouterService", "PymOamSpiManagedObject", "3"};

typedef std::unique_ptr<char, decltype(&std::free)> MallocedString;

// Finalizes a router iterator when it goes out of scope.
class IteratorGuard {
 public:
  IteratorGuard(PymOamSpiManagedObject_3& router, unsigned long long iterator)
      : _router(router), _iterator(iterator) {}
  ~IteratorGuard() { _router.finalizeMoIterator(_iterator); }
  IteratorGuard(const IteratorGuard&) = delete;
  IteratorGuard& operator=(const IteratorGuard&) = delete;

 private:
  PymOamSpiManagedObject_3& _router;
  unsigned long long _iterator;
};

// Depth-first search below parentDn for an instance of classes[depth], classes[depth + 1], ...
std::string findFirstInstance(PymOamSpiManagedObject_3& router, unsigned long txHandle, const std::string& parentDn,
                              const Poco::StringTokenizer& classes, std::size_t depth) {
  unsigned long long iterator = 0;
  if (router.newMoIterator(txHandle, parentDn.c_str(), classes[depth].c_str(), &iterator) != PymOk) return "";
  IteratorGuard guard(router, iterator);
  for (;;) {
    char* next = nullptr;
    const PymReturnT rc = router.nextMo(iterator, &next);
    MallocedString dn(next, &std::free);
    if (rc != PymOk || dn == nullptr) return "";
    if (depth + 1 == classes.count()) return dn.get();
    const std::string found = findFirstInstance(router, txHandle, dn.get(), classes, depth + 1);
    if (!found.empty()) return found;
  }
}

PymMoAttributeValue_3& valueSlot(PymMoAttributeValueContainer_3& container, uint32_t index, PymMoValueType type) {
  container.type = type;
  return container.values[index];
}

}  // namespace

MoAccessor::MoAccessor(int lockPolicy, int timeoutSeconds)
    : _transaction(static_cast<PymLockPolicy>(lockPolicy), static_cast<uint32_t>(timeoutSeconds)) {}

MoAccessor::~MoAccessor() = default;

PymOamSpiManagedObject_3* MoAccessor::router() const {
  return Portal::instance().getInterface<PymOamSpiManagedObject_3>(ROUTER_ID);
}

// Inside a write the accessor must see its own changes; otherwise handle 0 reads committed values.
unsigned long MoAccessor::readHandle() { return _transaction.isOpen() ? _transaction.getHandle() : 0; }

void MoAccessor::getAttrContainer(const std::string& dn, const std::string& attrName,
                                  MoAttributeValueResult& result) {
  // fetched owns whatever the router hands out, also when it then reports a failure.
  MoAttributeValueResult fetched;
  PymOamSpiManagedObject_3* mo = router();
  const PymReturnT rc =
      mo != nullptr ? mo->getMoAttribute(readHandle(), dn.c_str(), attrName.c_str(), fetched.raw()) : PymNotExist;
  if (rc != PymOk) {
    // A missing attribute is how older models are recognised, so this is no error to log.
    QIV_TRACE("No attribute '%s' in %s (%d)", attrName.c_str(), dn.c_str(), rc);
    throw QivException(rc, "Failed to read attribute :'%s' in MO :%s, reason (%d )!", attrName.c_str(), dn.c_str(),
                       rc);
  }
  // result takes the new values; fetched releases what result held before.
  std::swap(*result.raw(), *fetched.raw());
}

std::string MoAccessor::getFirstMoInstance(const std::string& classPath) {
  const Poco::StringTokenizer classes(classPath, ",",
                                      Poco::StringTokenizer::TOK_TRIM | Poco::StringTokenizer::TOK_IGNORE_EMPTY);
  PymOamSpiManagedObject_3* mo = router();
  if (mo == nullptr || classes.count() == 0) return "";
  return findFirstInstance(*mo, readHandle(), "", classes, 0);
}

void MoAccessor::validateType(const PymMoAttributeValueContainer_3* container, PymMoValueType expectedType) {
  // Without a container there is no stored type to disagree with.
  if (container != nullptr && container->type != expectedType) {
    throw QivException("Attribute type mismatch: expected %d, stored %d", static_cast<int>(expectedType),
                       static_cast<int>(container->type));
  }
}

void MoAccessor::setSeqAttr(const std::string& dn, const std::string& attrName,
                            const PymMoAttributeValueContainer_3& container) {
  PymOamSpiManagedObject_3* mo = router();
  const PymReturnT rc = mo != nullptr
                            ? mo->setMoAttribute(_transaction.getHandle(), dn.c_str(), attrName.c_str(), &container)
                            : PymNotExist;
  if (rc != PymOk) {
    QIV_LOG(3, "Failed to write '%s' from MO ( error:%d )!", attrName.c_str(), rc);
    throw QivException(rc, "Failed to set attribute :'%s' in MO :%s, reason (%d )!", attrName.c_str(), dn.c_str(),
                       rc);
  }
}

void MoAccessor::commit() { _transaction.commit(); }

template <>
PymMoValueType MoAccessor::getSpiType<std::string>() {
  return PymMoValueType_String;
}

template <>
PymMoValueType MoAccessor::getSpiType<bool>() {
  return PymMoValueType_Bool;
}

template <>
PymMoValueType MoAccessor::getSpiType<unsigned short>() {
  return PymMoValueType_Uint16;
}

template <>
PymMoValueType MoAccessor::getSpiType<MoAccessor::Enum>() {
  return PymMoValueType_Enum;
}

template <>
PymMoValueType MoAccessor::getSpiType<MoAccessor::MoRef>() {
  return PymMoValueType_Reference;
}

template <>
PymMoValueType MoAccessor::getSpiType<MoAccessor::Struct>() {
  return PymMoValueType_Struct;
}

template <>
std::string MoAccessor::extractAttr<std::string>(const PymMoAttributeValue_3& value) {
  return value.theString != nullptr ? value.theString : "";
}

template <>
bool MoAccessor::extractAttr<bool>(const PymMoAttributeValue_3& value) {
  return value.theBool;
}

template <>
unsigned short MoAccessor::extractAttr<unsigned short>(const PymMoAttributeValue_3& value) {
  return value.u16;
}

template <>
MoAccessor::Enum MoAccessor::extractAttr<MoAccessor::Enum>(const PymMoAttributeValue_3& value) {
  return Enum(static_cast<int16_t>(value.theEnum));
}

template <>
MoAccessor::MoRef MoAccessor::extractAttr<MoAccessor::MoRef>(const PymMoAttributeValue_3& value) {
  return MoRef(value.moRef != nullptr ? value.moRef : "");
}

template <>
MoAccessor::Struct MoAccessor::extractAttr<MoAccessor::Struct>(const PymMoAttributeValue_3& value) {
  return Struct(value.structMember);
}

template <>
void MoAccessor::setValue<std::string>(PymMoAttributeValueContainer_3& container, uint32_t index,
                                       const std::string& value) {
  valueSlot(container, index, getSpiType<std::string>()).theString = value.c_str();
}

template <>
void MoAccessor::setValue<MoAccessor::Enum>(PymMoAttributeValueContainer_3& container, uint32_t index,
                                            const Enum& value) {
  valueSlot(container, index, getSpiType<Enum>()).theEnum = value.value;
}

template <>
void MoAccessor::setValue<unsigned short>(PymMoAttributeValueContainer_3& container, uint32_t index,
                                          const unsigned short& value) {
  valueSlot(container, index, getSpiType<unsigned short>()).u16 = value;
}

}  // namespace Qiv
