#include "AmLdapAttrSync.h"

#include "ConfigurationRunnable.h"
#include "LdapConfiguration.h"
#include "LdapModel.h"

#include <Qiv/LoggingWrapper.h>

#include <cstdint>
#include <cstring>

using namespace QivAccessManagement::LdapModel;
using QivAccessManagement::FLEXIBLE;
using QivAccessManagement::POSIX_GROUPS;

namespace {

const char CONFLICT_TEXT[] =
    "LDAP MO synchronization failure! Trying to set synchronized attributes to conflicting values.";
const char PROFILE_FILTER_FAILURE[] = "Could not set attribute value for attribute profileFilter in Ldap MOC";
const char FILTER_TYPE_FAILURE[] = "Could not set attribute value for attribute filterType in Ldap MOC";
// A mapped filterType refused within a single write: the text has two blanks before "in".
const char MAPPED_FILTER_TYPE_FAILURE[] = "Could not set attribute value for attribute filterType  in Ldap MOC";

bool hasValues(const QivMoAttributeValueContainer_3& value) { return value.nrOfValues > 0 && value.values != nullptr; }

// filterType 1, 2, 3 is profileFilter 0, 1, 2; false outside that table.
bool toProfileFilter(int32_t filterType, int32_t& profileFilter) {
  if (filterType < POSIX_GROUPS || filterType > FLEXIBLE) return false;
  profileFilter = filterType - 1;
  return true;
}

bool toFilterType(int32_t profileFilter, int32_t& filterType) {
  if (profileFilter < POSIX_GROUPS - 1 || profileFilter > FLEXIBLE - 1) return false;
  filterType = profileFilter + 1;
  return true;
}

// One member of the filter pair as a request sets it.
struct FilterSetting {
  bool present = false;
  bool judged = false;  // an enumeration value or no value; other types are the router's to refuse
  bool hasValue = false;
  int32_t value = 0;

  void take(const QivMoAttributeValueContainer_3& container) {
    present = true;
    hasValue = hasValues(container);
    judged = !hasValue || container.type == PymMoValueType_Enum;
    value = hasValue ? container.values[0].theEnum : 0;
  }
};

}  // namespace

AmLdapAttrSync::AmLdapAttrSync()
    : AmAttrSync(LDAP_CLASS, "Failed to register as interceptor for Ldap MOC.",
                 {{NODE_TYPE, USER_MANAGEMENT_DN, TARGET_TYPE,
                   "Could not set attribute value for attribute targetType in UserManagement MOC"},
                  // The text says "roleAliasBaseDn" although "roleAliasesBaseDn" is written;
                  // operators and log readers know it by that text.
                  {ROLE_ALIASES_BASE_DN, ORBELIN_FILTER_DN, ROLE_ALIASES_BASE_DN,
                   "Could not set attribute value for attribute roleAliasBaseDn in OrbelinFilter MOC"}}) {}

bool AmLdapAttrSync::checkForConflicts(PymMoNamedAttributeValueContainer_3** attributes) const {
  FilterSetting filterType;
  FilterSetting profileFilter;
  for (PymMoNamedAttributeValueContainer_3** attribute = attributes; attribute != nullptr && *attribute != nullptr;
       ++attribute) {
    const char* name = (*attribute)->name;
    if (name == nullptr) continue;
    if (std::strcmp(name, FILTER_TYPE) == 0) filterType.take((*attribute)->value);
    if (std::strcmp(name, PROFILE_FILTER) == 0) profileFilter.take((*attribute)->value);
  }
  if (!filterType.present || !profileFilter.present || !filterType.judged || !profileFilter.judged) return false;
  // One set and the other unset would leave the pair disagreeing whatever order they are written in.
  if (filterType.hasValue != profileFilter.hasValue) return true;
  return filterType.hasValue && profileFilter.value != filterType.value - 1;
}

PymReturnT AmLdapAttrSync::writePartner(unsigned long txHandle, const char* dn, const char* attributeName,
                                        const QivMoAttributeValueContainer_3* value, bool singleWrite) {
  const bool isFilterType = std::strcmp(attributeName, FILTER_TYPE) == 0;
  const bool isProfileFilter = std::strcmp(attributeName, PROFILE_FILTER) == 0;
  // Only enumeration containers of the pair are mapped; anything else goes on untouched.
  if ((!isFilterType && !isProfileFilter) || value == nullptr || value->type != PymMoValueType_Enum)
    return AmAttrSync::writePartner(txHandle, dn, attributeName, value, singleWrite);

  const char* partnerName = isFilterType ? PROFILE_FILTER : FILTER_TYPE;
  if (!hasValues(*value)) {
    const QivMoAttributeValueContainer_3 unset = {PymMoValueType_Enum, 0, nullptr};
    return writeThroughNext(txHandle, dn, partnerName, unset,
                            isFilterType ? PROFILE_FILTER_FAILURE : FILTER_TYPE_FAILURE);
  }

  PymMoAttributeValue_3 partnerValue{};
  const bool mapped = isFilterType ? toProfileFilter(value->values[0].theEnum, partnerValue.theEnum)
                                   : toFilterType(value->values[0].theEnum, partnerValue.theEnum);
  if (!mapped) {
    QIV_LOG(3, "Attribute %s has an invalid value.", attributeName);
    return -1;
  }
  const QivMoAttributeValueContainer_3 partner = {PymMoValueType_Enum, 1, &partnerValue};
  const char* failureText =
      isFilterType ? PROFILE_FILTER_FAILURE : (singleWrite ? MAPPED_FILTER_TYPE_FAILURE : FILTER_TYPE_FAILURE);
  return writeThroughNext(txHandle, dn, partnerName, partner, failureText);
}

PymReturnT AmLdapAttrSync::checkRequest(PymMoNamedAttributeValueContainer_3** attributes) {
  if (!checkForConflicts(attributes)) return 0;
  QIV_LOG(3, "%s", CONFLICT_TEXT);
  getRunnable()->addMessage(CONFLICT_TEXT);
  return -1;
}
