#include "AmEntryPoints.h"

#include "AccessManagementComponent.h"
#include "EntryGuard.h"
#include "MoAttributeValueCopy.h"

using QivAccessManagement::AccessManagementComponent;

namespace {

// The framework's answer for a component that is not started.
const PymReturnT NOT_STARTED = 2;

template <class Call>
PymReturnT whenStarted(const char* entry, Call call) {
  return Qiv::guarded(entry, [&]() -> PymReturnT {
    AccessManagementComponent& component = AccessManagementComponent::instance();
    if (!component.isStarted()) return NOT_STARTED;
    return call(component);
  });
}

}  // namespace

PymReturnT am_getRoles_2(const char* method, const char* userName, const char*** roles) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.getRoles(method, userName, roles); });
}

PymReturnT am_freeRoles_2(const char* method, const char** roles) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.freeRoles(method, roles); });
}

PymReturnT am_setMoAttribute_1(unsigned long txHandle, const char* dn, const char* attributeName,
                               const PymMoAttributeValueContainer* value) {
  return whenStarted(__func__,
                     [&](AccessManagementComponent& c) { return c.setMoAttribute(txHandle, dn, attributeName, value); });
}

PymReturnT am_getMoAttribute_1(unsigned long txHandle, const char* dn, const char* attributeName,
                               PymMoAttributeValueContainer** value) {
  return whenStarted(__func__,
                     [&](AccessManagementComponent& c) { return c.getMoAttribute(txHandle, dn, attributeName, value); });
}

PymReturnT am_newMoIterator_1(unsigned long txHandle, const char* dn, const char* className, void** iterator) {
  return whenStarted(__func__,
                     [&](AccessManagementComponent& c) { return c.newMoIterator(txHandle, dn, className, iterator); });
}

PymReturnT am_nextMo_1(void* iterator, char** result) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.nextMo(iterator, result); });
}

PymReturnT am_createMo_1(unsigned long txHandle, const char* parentDn, const char* className,
                         const char* keyAttributeName, const char* keyAttributeValue) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) {
    return c.createMo(txHandle, parentDn, className, keyAttributeName, keyAttributeValue);
  });
}

PymReturnT am_deleteMo_1(unsigned long txHandle, const char* dn) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.deleteMo(txHandle, dn); });
}

PymReturnT am_action_1(unsigned long txHandle, const char* dn, const char* name,
                       PymMoAttributeValueContainer** parameters, PymMoAttributeValueContainer** result) {
  return whenStarted(__func__,
                     [&](AccessManagementComponent& c) { return c.action(txHandle, dn, name, parameters, result); });
}

PymReturnT am_setMoAttribute_3(unsigned long txHandle, const char* dn, const char* attributeName,
                               const PymMoAttributeValueContainer_3* value) {
  return whenStarted(__func__,
                     [&](AccessManagementComponent& c) { return c.setMoAttribute(txHandle, dn, attributeName, value); });
}

PymReturnT am_getMoAttribute_3(unsigned long txHandle, const char* dn, const char* attributeName,
                               PymMoAttributeValueResult_3* result) {
  return whenStarted(__func__,
                     [&](AccessManagementComponent& c) { return c.getMoAttribute(txHandle, dn, attributeName, result); });
}

PymReturnT am_getMoAttributes_3(unsigned long txHandle, const char* dn, const char** attributeNames,
                                PymMoAttributeValuesResult_3* result) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) {
    return c.getMoAttributes(txHandle, dn, attributeNames, result);
  });
}

PymReturnT am_newMoIterator_3(unsigned long txHandle, const char* dn, const char* className,
                              unsigned long long* iterator) {
  return whenStarted(__func__,
                     [&](AccessManagementComponent& c) { return c.newMoIterator(txHandle, dn, className, iterator); });
}

PymReturnT am_nextMo_3(unsigned long long iterator, char** result) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.nextMo(iterator, result); });
}

PymReturnT am_createMo_3(unsigned long txHandle, const char* parentDn, const char* className,
                         const char* keyAttributeName, const char* keyAttributeValue,
                         PymMoNamedAttributeValueContainer_3** initialAttributes) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) {
    return c.createMo(txHandle, parentDn, className, keyAttributeName, keyAttributeValue, initialAttributes);
  });
}

PymReturnT am_deleteMo_3(unsigned long txHandle, const char* dn) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.deleteMo(txHandle, dn); });
}

PymReturnT am_action_3(unsigned long txHandle, const char* dn, const char* name,
                       PymMoNamedAttributeValueContainer_3** parameters, PymMoAttributeValueResult_3* result) {
  return whenStarted(__func__,
                     [&](AccessManagementComponent& c) { return c.action(txHandle, dn, name, parameters, result); });
}

PymReturnT am_finalizeMoIterator_3(unsigned long long iterator) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.finalizeMoIterator(iterator); });
}

PymReturnT am_existsMo_3(unsigned long txHandle, const char* dn, bool* result) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.existsMo(txHandle, dn, result); });
}

PymReturnT am_countMoChildren_3(unsigned long txHandle, const char* dn, const char* className,
                                unsigned long long* result) {
  return whenStarted(__func__,
                     [&](AccessManagementComponent& c) { return c.countMoChildren(txHandle, dn, className, result); });
}

PymReturnT am_join_2(unsigned long txHandle) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.join(txHandle); });
}

PymReturnT am_prepare_2(unsigned long txHandle) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.prepare(txHandle); });
}

PymReturnT am_commit_2(unsigned long txHandle) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.commit(txHandle); });
}

PymReturnT am_abort_2(unsigned long txHandle) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.abort(txHandle); });
}

PymReturnT am_finish_2(unsigned long txHandle) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.finish(txHandle); });
}

PymReturnT am_validate_2(unsigned long txHandle, bool* result) {
  return whenStarted(__func__, [&](AccessManagementComponent& c) { return c.validate(txHandle, result); });
}

void am_releaseGetMoAttribute(PymMoAttributeValueContainer_3* container) {
  QivAccessManagement::MoAttributeValueCopy::release(container);
}

void am_releaseGetMoAttributes(PymMoAttributeValueContainer_3** containers) {
  QivAccessManagement::MoAttributeValueCopy::releaseAll(containers);
}
