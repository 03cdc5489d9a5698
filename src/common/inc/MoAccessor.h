#ifndef QIV_MO_ACCESSOR_H
#define QIV_MO_ACCESSOR_H

// The typed operations of Qiv::MoAccessor, instantiated inside the component over the
// platform's core.
#include <Qiv/LoggingWrapper.h>
#include <Qiv/MoAccessorCore.h>

namespace Qiv {

namespace MoAccessorDetail {

// Logs the failure as an error and throws it; format takes the DN and the attribute name.
[[noreturn]] inline void fail(const char* format, const std::string& dn, const std::string& attrName) {
  LoggingWrapper::log_printf("MoAccessor", 3, format, dn.c_str(), attrName.c_str());
  throw QivException(format, dn.c_str(), attrName.c_str());
}

}  // namespace MoAccessorDetail

template <class T>
T MoAccessor::getAttr(const std::string& dn, const std::string& attrName) {
  QIV_TRACE("MoAccessor::getAttr<> dName :%s attrName :%s", dn.c_str(), attrName.c_str());
  MoAttributeValueResult result;
  getAttrContainer(dn, attrName, result);
  if (result.count() == 0) MoAccessorDetail::fail("Attribute has no value set: %s::%s", dn, attrName);
  if (result.count() > 1) MoAccessorDetail::fail("Attribute is a sequence: %s::%s", dn, attrName);
  validateType(result.container(), getSpiType<T>());
  return extractAttr<T>(result.container()->values[0]);
}

template <class T>
MoAccessor::Optional<T> MoAccessor::getOptionalAttrStrict(const std::string& dn, const std::string& attrName) {
  QIV_TRACE("MoAccessor::getOptionalAttr<> dName :%s attrName :%s", dn.c_str(), attrName.c_str());
  MoAttributeValueResult result;
  getAttrContainer(dn, attrName, result);
  if (result.count() == 0) return Optional<T>();
  if (result.count() > 1) MoAccessorDetail::fail("Attribute is a sequence: %s::%s", dn, attrName);
  validateType(result.container(), getSpiType<T>());
  return Optional<T>(extractAttr<T>(result.container()->values[0]));
}

template <class T>
std::vector<T> MoAccessor::getSeqAttr(const std::string& dn, const std::string& attrName) {
  QIV_TRACE("MoAccessor::getAttr<> dName :%s attrName :%s", dn.c_str(), attrName.c_str());
  MoAttributeValueResult result;
  getAttrContainer(dn, attrName, result);
  std::vector<T> values;
  if (result.count() == 0) return values;
  validateType(result.container(), getSpiType<T>());
  values.reserve(result.count());
  for (uint32_t i = 0; i < result.count(); ++i) values.push_back(extractAttr<T>(result.container()->values[i]));
  return values;
}

template <class T>
void MoAccessor::setAttr(const std::string& dn, const std::string& attrName, const T& value) {
  QIV_TRACE("MoAccessor::setAttr<> dName :%s attrName :%s", dn.c_str(), attrName.c_str());
  setSeqAttr<T>(dn, attrName, std::vector<T>(1, value));
}

template <class T>
void MoAccessor::setSeqAttr(const std::string& dn, const std::string& attrName, const std::vector<T>& values) {
  QIV_TRACE("MoAccessor::setSeqAttr<> dName :%s attrName :%s", dn.c_str(), attrName.c_str());
  std::vector<PymMoAttributeValue_3> slots(values.size());
  PymMoAttributeValueContainer_3 container;
  container.type = getSpiType<T>();
  container.nrOfValues = static_cast<uint32_t>(values.size());
  container.values = slots.empty() ? nullptr : slots.data();
  for (uint32_t i = 0; i < container.nrOfValues; ++i) setValue<T>(container, i, values[i]);
  setSeqAttr(dn, attrName, container);
}

template <class T>
T MoAccessor::Struct::get(const std::string& memberName) const {
  const PymMoAttributeValueContainer_3* container = getMemberValueContainer(memberName);
  if (container == nullptr || container->nrOfValues == 0 || container->values == nullptr) {
    LoggingWrapper::log_printf("Struct::get", 4, "Struct member not set: '%s'", memberName.c_str());
    throw QivException(-1, "Struct member not set: '%s'", memberName.c_str());
  }
  validateType(container, getSpiType<T>());
  return extractAttr<T>(container->values[0]);
}

}  // namespace Qiv

#endif
