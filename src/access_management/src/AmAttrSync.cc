#include "AmAttrSync.h"

#include "ConfigurationRunnable.h"

#include <QivExtCmRouterService/ExtCmInterceptorRepository.h>
#include <Qiv/LoggingWrapper.h>

#include <cstring>
#include <utility>

using QivAccessManagement::ConfigurationRunnable;
using QivExtCmRouterService::ExtCmInterceptorRepository;

AmAttrSync::AmAttrSync(const char* className, const char* registrationFailureText, std::vector<CopiedAttribute> copied)
    : _className(className),
      _registrationFailureText(registrationFailureText),
      _copied(std::move(copied)),
      _runnable(nullptr) {}

AmAttrSync::~AmAttrSync() = default;

void AmAttrSync::init(ConfigurationRunnable& runnable) {
  _runnable = &runnable;
  // Without the framework's interfaces there is no repository, and the registration below is
  // refused and logged.
  initialize();
  if (ExtCmInterceptorRepository::registerClass(getRepository(), this, _className) != 0)
    QIV_LOG(3, "%s", _registrationFailureText);
}

PymReturnT AmAttrSync::deregisterInterceptor() {
  if (getRepository() == nullptr) return 0;
  return ExtCmInterceptorRepository::deregisterClass(getRepository(), _className);
}

PymReturnT AmAttrSync::setMoAttribute(unsigned long txHandle, const char* dn, const char* attributeName,
                                      const QivMoAttributeValueContainer_3* value) {
  QIV_TRACE(" >> dn: %s , attributeName: %s", dn, attributeName);
  if (isSynchronising() && attributeName != nullptr) {
    const PymReturnT partnerResult = writePartner(txHandle, dn, attributeName, value, true);
    if (partnerResult != 0) return partnerResult;
  }
  return MoInterceptorBase::setMoAttribute(txHandle, dn, attributeName, value);
}

PymReturnT AmAttrSync::setMoAttributes(unsigned long txHandle, const char* dn,
                                       PymMoNamedAttributeValueContainer_3** attributes) {
  QIV_TRACE(" >> dn: %s", dn);
  if (isSynchronising() && attributes != nullptr) {
    const PymReturnT checkResult = checkRequest(attributes);
    if (checkResult != 0) return checkResult;
    // Partners are written one by one rather than added to the list: the list stays the
    // caller's, and each refused partner gets its own message. When both attributes of a pair
    // are in the list they agree (checkRequest), so the partner writes and the list's own
    // values end up the same.
    for (PymMoNamedAttributeValueContainer_3** attribute = attributes; *attribute != nullptr; ++attribute) {
      if ((*attribute)->name == nullptr) continue;
      const PymReturnT partnerResult = writePartner(txHandle, dn, (*attribute)->name, &(*attribute)->value, false);
      if (partnerResult != 0) return partnerResult;
    }
  }
  return MoInterceptorBase::setMoAttributes(txHandle, dn, attributes);
}

PymReturnT AmAttrSync::writePartner(unsigned long txHandle, const char*, const char* attributeName,
                                    const QivMoAttributeValueContainer_3* value, bool) {
  // A null container is not a value: the router refuses it when the write is carried on.
  if (value == nullptr) return 0;
  for (const CopiedAttribute& copied : _copied) {
    if (std::strcmp(attributeName, copied.name) == 0)
      return writeThroughNext(txHandle, copied.partnerDn, copied.partnerName, *value, copied.failureText);
  }
  return 0;
}

PymReturnT AmAttrSync::checkRequest(PymMoNamedAttributeValueContainer_3**) { return 0; }

PymReturnT AmAttrSync::writeThroughNext(unsigned long txHandle, const char* dn, const char* name,
                                        const QivMoAttributeValueContainer_3& value, const char* failureText) {
  // The base's write is the next interface's; the router's codes are passed on as they come.
  const PymReturnT result = MoInterceptorBase::setMoAttribute(txHandle, dn, name, &value);
  if (result != 0) QIV_LOG(3, "%s", failureText);
  return result;
}

ConfigurationRunnable* AmAttrSync::getRunnable() const { return _runnable; }

bool AmAttrSync::isSynchronising() const {
  const ConfigurationRunnable* runnable = _runnable;
  return runnable != nullptr && runnable->isLdap20AttributesExist();
}
