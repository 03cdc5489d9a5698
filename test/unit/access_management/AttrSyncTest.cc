#include "AmLdapAttrSync.h"
#include "AmOrbelinFilterAttrSync.h"
#include "AmUserManagementAttrSync.h"
#include "ConfigurationRunnable.h"
#include "LdapModel.h"

#include "FakeExtCmRouter.h"
#include "FrameworkTestBase.h"
#include "RecordedOperatorMessages.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

using namespace QivAccessManagement;
using namespace QivAccessManagement::LdapModel;

namespace {

const unsigned long TX = 5;
const char CONFLICT_TEXT[] =
    "LDAP MO synchronization failure! Trying to set synchronized attributes to conflicting values.";

// Values a manager would write. String values must be literals; get() always describes the
// object where it is now.
class TestValue {
 public:
  static TestValue enums(const std::vector<int32_t>& enums) {
    TestValue value(PymMoValueType_Enum);
    for (const int32_t one : enums) value.add().theEnum = one;
    return value;
  }
  static TestValue strings(const std::vector<const char*>& texts) {
    TestValue value(PymMoValueType_String);
    for (const char* text : texts) value.add().theString = text;
    return value;
  }
  // No value: nrOfValues values announced, but no array.
  static TestValue withoutArray(PymMoValueType type, uint32_t nrOfValues) {
    TestValue value(type);
    value._nrOfValues = nrOfValues;
    return value;
  }

  const QivMoAttributeValueContainer_3* get() {
    _container = {_type, _nrOfValues, _values.empty() ? nullptr : _values.data()};
    return &_container;
  }

 private:
  explicit TestValue(PymMoValueType type) : _type(type), _nrOfValues(0) {}

  PymMoAttributeValue_3& add() {
    _values.emplace_back();
    _nrOfValues = static_cast<uint32_t>(_values.size());
    return _values.back();
  }

  PymMoValueType _type;
  uint32_t _nrOfValues;
  std::vector<PymMoAttributeValue_3> _values;
  QivMoAttributeValueContainer_3 _container{};
};

// The null-terminated list of a setMoAttributes request.
class TestList {
 public:
  TestList& add(const char* name, TestValue value) {
    _values.push_back(value);
    _names.push_back(name);
    return *this;
  }

  PymMoNamedAttributeValueContainer_3** get() {
    _named.clear();
    for (std::size_t i = 0; i < _values.size(); ++i) _named.push_back({_names[i], *_values[i].get()});
    _pointers.clear();
    for (PymMoNamedAttributeValueContainer_3& named : _named) _pointers.push_back(&named);
    _pointers.push_back(nullptr);
    return _pointers.data();
  }

 private:
  std::vector<TestValue> _values;
  std::vector<const char*> _names;
  std::vector<PymMoNamedAttributeValueContainer_3> _named;
  std::vector<PymMoNamedAttributeValueContainer_3*> _pointers;
};

// "<operation>|<dn>|<name>|<type>|<values>" of one write, in the caller's transaction.
std::string write(const std::string& operation, const std::string& dn, const std::string& name, PymMoValueType type,
                  const std::vector<std::string>& values) {
  std::string text = operation + "|" + dn + "|" + name + "|" + std::to_string(type) + "|";
  for (std::size_t i = 0; i < values.size(); ++i) text += (i == 0 ? "" : ",") + values[i];
  return text;
}

std::string set(const std::string& dn, const std::string& name, PymMoValueType type,
                const std::vector<std::string>& values) {
  return write("setMoAttribute", dn, name, type, values);
}

std::string setList(const std::string& dn, const std::string& name, PymMoValueType type,
                    const std::vector<std::string>& values) {
  return write("setMoAttributes", dn, name, type, values);
}

std::string trace(const std::string& dn, const std::string& name) {
  return " >> dn: " + dn + " , attributeName: " + name;
}

}  // namespace

// The three interceptors over a recording next interface and repository.
class AttrSyncRegistrationTest : public FrameworkTestBase {
 protected:
  AttrSyncRegistrationTest() : router(framework().portal()) {
    runnable.setOperatorMessages(&operatorChannel);
    runnable.setLdap20AttributesExist(true);
  }

  void initAll() {
    ldapSync.init(runnable);
    userManagementSync.init(runnable);
    orbelinFilterSync.init(runnable);
  }

  // What reached the next interface, as write() describes it; every write must be in TX.
  std::vector<std::string> writes() const {
    std::vector<std::string> texts;
    for (const FakeExtCmRouter::Write& one : router.writes) {
      EXPECT_EQ(TX, one.txHandle) << one.name;
      texts.push_back(write(one.operation, one.dn, one.name, one.type, one.values));
    }
    return texts;
  }

  FakeExtCmRouter router;
  RecordedOperatorMessages operatorChannel;
  ConfigurationRunnable runnable;
  AmLdapAttrSync ldapSync;
  AmUserManagementAttrSync userManagementSync;
  AmOrbelinFilterAttrSync orbelinFilterSync;
};

class AttrSyncTest : public AttrSyncRegistrationTest {
 protected:
  void SetUp() override { initAll(); }
};

// --- Registration ---

TEST_F(AttrSyncRegistrationTest, EachInterceptorRegistersForItsClass) {
  initAll();
  EXPECT_EQ(
      (std::vector<std::string>{std::string("register|") + LDAP_CLASS, std::string("register|") + USER_MANAGEMENT_CLASS,
                                std::string("register|") + ORBELIN_FILTER_CLASS}),
      router.repositoryCalls);
  ASSERT_EQ(3u, router.registered.size());
  EXPECT_EQ(static_cast<QivExtCmRouterService::MoInterceptorBase*>(&ldapSync),
            router.registered.at(LDAP_CLASS).context);
  EXPECT_EQ(0u, log().countAtLevel(3));
}

TEST_F(AttrSyncRegistrationTest, ARefusedRegistrationIsLoggedPerClass) {
  router.registerResult = PymAlreadyExist;
  initAll();
  EXPECT_EQ(1u, log().count(3, "Failed to register as interceptor for Ldap MOC."));
  EXPECT_EQ(1u, log().count(3, "Failed to register as interceptor for UserManagement MOC."));
  EXPECT_EQ(1u, log().count(3, "Failed to register as interceptor for OrbelinFilter MOC."));
  EXPECT_EQ(3u, log().countAtLevel(3));
}

TEST_F(AttrSyncRegistrationTest, WithoutARepositoryRegistrationFailsAndDeregistrationAsksNobody) {
  router.withdrawRepository();
  initAll();
  EXPECT_EQ(1u, log().count(3, "Failed to register as interceptor for Ldap MOC."));
  EXPECT_EQ(1u, log().count(3, "Failed to register as interceptor for UserManagement MOC."));
  EXPECT_EQ(1u, log().count(3, "Failed to register as interceptor for OrbelinFilter MOC."));
  EXPECT_EQ(0, ldapSync.deregisterInterceptor());
  EXPECT_TRUE(router.repositoryCalls.empty());
}

TEST_F(AttrSyncRegistrationTest, WithoutTheNextInterfaceNothingIsRegistered) {
  router.withdrawNext();
  initAll();
  EXPECT_EQ(3u, log().countAtLevel(3));
  EXPECT_TRUE(router.repositoryCalls.empty());
}

TEST_F(AttrSyncRegistrationTest, DeregisterWithdrawsEachClass) {
  initAll();
  router.repositoryCalls.clear();
  EXPECT_EQ(PymOk, ldapSync.deregisterInterceptor());
  EXPECT_EQ(PymOk, userManagementSync.deregisterInterceptor());
  EXPECT_EQ(PymOk, orbelinFilterSync.deregisterInterceptor());
  EXPECT_EQ((std::vector<std::string>{std::string("deregister|") + LDAP_CLASS,
                                      std::string("deregister|") + USER_MANAGEMENT_CLASS,
                                      std::string("deregister|") + ORBELIN_FILTER_CLASS}),
            router.repositoryCalls);
  EXPECT_TRUE(router.registered.empty());
}

TEST_F(AttrSyncRegistrationTest, DeregisterPassesTheRepositorysRefusalOn) {
  initAll();
  router.deregisterResult = PymNotExist;
  EXPECT_EQ(PymNotExist, ldapSync.deregisterInterceptor());
}

TEST_F(AttrSyncRegistrationTest, BeforeInitEveryWritePassesThroughUnchanged) {
  ASSERT_EQ(PymOk, ldapSync.initialize());
  TestValue invalid = TestValue::enums({4});
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, FILTER_TYPE, invalid.get()));
  EXPECT_EQ(std::vector<std::string>{set(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {"4"})}, writes());
}

// --- filterType and profileFilter, one attribute at a time ---

TEST_F(AttrSyncTest, FilterTypeThreeAlsoWritesProfileFilterTwo) {
  TestValue flexible = TestValue::enums({3});
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, FILTER_TYPE, flexible.get()));
  EXPECT_EQ((std::vector<std::string>{set(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {"2"}),
                                      set(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {"3"})}),
            writes());
  EXPECT_EQ(1u, log().count(8, trace(LDAP_DN, FILTER_TYPE)));
  EXPECT_EQ(0u, log().countAtLevel(3));
}

TEST_F(AttrSyncTest, ProfileFilterZeroAlsoWritesFilterTypeOne) {
  TestValue posixGroups = TestValue::enums({0});
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, PROFILE_FILTER, posixGroups.get()));
  EXPECT_EQ((std::vector<std::string>{set(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {"1"}),
                                      set(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {"0"})}),
            writes());
  EXPECT_EQ(1u, log().count(8, trace(LDAP_DN, PROFILE_FILTER)));
}

TEST_F(AttrSyncTest, EveryFilterValueMapsBothWays) {
  for (const int32_t filterType : {1, 2, 3}) {
    const std::string profileFilter = std::to_string(filterType - 1);
    router.writes.clear();
    TestValue fromFilterType = TestValue::enums({filterType});
    EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, FILTER_TYPE, fromFilterType.get()));
    EXPECT_EQ(set(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {profileFilter}), writes().at(0));

    router.writes.clear();
    TestValue fromProfileFilter = TestValue::enums({filterType - 1});
    EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, PROFILE_FILTER, fromProfileFilter.get()));
    EXPECT_EQ(set(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {std::to_string(filterType)}), writes().at(0));
  }
}

TEST_F(AttrSyncTest, OnlyTheFirstValueIsMapped) {
  TestValue two = TestValue::enums({2, 3});
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, FILTER_TYPE, two.get()));
  EXPECT_EQ(set(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {"1"}), writes().at(0));
}

TEST_F(AttrSyncTest, FilterTypeOutsideTheTableIsRejectedWithoutAnyWrite) {
  for (const int32_t invalid : {4, 0, -1}) {
    log().clear();
    TestValue value = TestValue::enums({invalid});
    EXPECT_EQ(-1, ldapSync.setMoAttribute(TX, LDAP_DN, FILTER_TYPE, value.get())) << invalid;
    EXPECT_EQ(1u, log().count(3, "Attribute filterType has an invalid value.")) << invalid;
  }
  EXPECT_TRUE(router.writes.empty());
}

TEST_F(AttrSyncTest, ProfileFilterOutsideTheTableIsRejectedWithoutAnyWrite) {
  for (const int32_t invalid : {3, -1}) {
    log().clear();
    TestValue value = TestValue::enums({invalid});
    EXPECT_EQ(-1, ldapSync.setMoAttribute(TX, LDAP_DN, PROFILE_FILTER, value.get())) << invalid;
    EXPECT_EQ(1u, log().count(3, "Attribute profileFilter has an invalid value.")) << invalid;
  }
  EXPECT_TRUE(router.writes.empty());
}

TEST_F(AttrSyncTest, UnsetFilterTypeUnsetsProfileFilter) {
  TestValue none = TestValue::enums({});
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, FILTER_TYPE, none.get()));
  EXPECT_EQ((std::vector<std::string>{set(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {}),
                                      set(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {})}),
            writes());
  EXPECT_EQ(0u, router.writes[0].nrOfValues);
  EXPECT_FALSE(router.writes[0].hasValueArray);
}

TEST_F(AttrSyncTest, ProfileFilterWithACountButNoArrayUnsetsFilterType) {
  TestValue none = TestValue::withoutArray(PymMoValueType_Enum, 1);
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, PROFILE_FILTER, none.get()));
  ASSERT_EQ(2u, router.writes.size());
  EXPECT_EQ(set(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {}), writes().at(0));
  EXPECT_EQ(0u, router.writes[0].nrOfValues);
  // The intercepted container itself goes on as it came.
  EXPECT_EQ(PROFILE_FILTER, router.writes[1].name);
  EXPECT_EQ(1u, router.writes[1].nrOfValues);
  EXPECT_FALSE(router.writes[1].hasValueArray);
}

TEST_F(AttrSyncTest, AFilterValueOfAnotherTypeGoesOnUntouched) {
  TestValue text = TestValue::strings({"FLEXIBLE"});
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, FILTER_TYPE, text.get()));
  EXPECT_EQ(std::vector<std::string>{set(LDAP_DN, FILTER_TYPE, PymMoValueType_String, {"FLEXIBLE"})}, writes());
  EXPECT_EQ(0u, log().countAtLevel(3));
}

TEST_F(AttrSyncTest, ARefusedProfileFilterStopsTheFilterTypeWrite) {
  router.refusedWrites[{LDAP_DN, PROFILE_FILTER}] = PymValidationFailed;
  TestValue orbelin = TestValue::enums({2});
  EXPECT_EQ(PymValidationFailed, ldapSync.setMoAttribute(TX, LDAP_DN, FILTER_TYPE, orbelin.get()));
  EXPECT_EQ(std::vector<std::string>{set(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {"1"})}, writes());
  EXPECT_EQ(1u, log().count(3, "Could not set attribute value for attribute profileFilter in Ldap MOC"));
}

TEST_F(AttrSyncTest, ARefusedUnsetProfileFilterStopsTheFilterTypeWrite) {
  router.refusedWrites[{LDAP_DN, PROFILE_FILTER}] = PymFailure;
  TestValue none = TestValue::enums({});
  EXPECT_EQ(PymFailure, ldapSync.setMoAttribute(TX, LDAP_DN, FILTER_TYPE, none.get()));
  EXPECT_EQ(std::vector<std::string>{set(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {})}, writes());
  EXPECT_EQ(1u, log().count(3, "Could not set attribute value for attribute profileFilter in Ldap MOC"));
}

TEST_F(AttrSyncTest, ARefusedMappedFilterTypeIsLoggedWithTwoBlanks) {
  router.refusedWrites[{LDAP_DN, FILTER_TYPE}] = PymNotExist;
  TestValue orbelin = TestValue::enums({1});
  EXPECT_EQ(PymNotExist, ldapSync.setMoAttribute(TX, LDAP_DN, PROFILE_FILTER, orbelin.get()));
  EXPECT_EQ(std::vector<std::string>{set(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {"2"})}, writes());
  EXPECT_EQ(1u, log().count(3, "Could not set attribute value for attribute filterType  in Ldap MOC"));
  EXPECT_EQ(1u, log().countAtLevel(3));
}

TEST_F(AttrSyncTest, ARefusedUnsetFilterTypeIsLoggedWithOneBlank) {
  router.refusedWrites[{LDAP_DN, FILTER_TYPE}] = PymFailure;
  TestValue none = TestValue::enums({});
  EXPECT_EQ(PymFailure, ldapSync.setMoAttribute(TX, LDAP_DN, PROFILE_FILTER, none.get()));
  EXPECT_EQ(std::vector<std::string>{set(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {})}, writes());
  EXPECT_EQ(1u, log().count(3, "Could not set attribute value for attribute filterType in Ldap MOC"));
  EXPECT_EQ(1u, log().countAtLevel(3));
}

TEST_F(AttrSyncTest, TheForwardedWritesResultComesBackAsItIs) {
  router.refusedWrites[{LDAP_DN, FILTER_TYPE}] = -42;
  TestValue posixGroups = TestValue::enums({1});
  EXPECT_EQ(-42, ldapSync.setMoAttribute(TX, LDAP_DN, FILTER_TYPE, posixGroups.get()));
  EXPECT_EQ(2u, router.writes.size());
  EXPECT_EQ(0u, log().countAtLevel(3));
}

// --- Attributes copied to another object ---

TEST_F(AttrSyncTest, NodeTypeIsCopiedToTargetTypeOfUserManagement) {
  TestValue nodeType = TestValue::strings({"SERVER", "ROUTER"});
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, NODE_TYPE, nodeType.get()));
  EXPECT_EQ((std::vector<std::string>{set(USER_MANAGEMENT_DN, TARGET_TYPE, PymMoValueType_String, {"SERVER", "ROUTER"}),
                                      set(LDAP_DN, NODE_TYPE, PymMoValueType_String, {"SERVER", "ROUTER"})}),
            writes());
  EXPECT_EQ(1u, log().count(8, trace(LDAP_DN, NODE_TYPE)));
}

TEST_F(AttrSyncTest, TargetTypeIsCopiedToNodeTypeOfLdap) {
  TestValue targetType = TestValue::strings({"GATEWAY"});
  EXPECT_EQ(PymOk, userManagementSync.setMoAttribute(TX, USER_MANAGEMENT_DN, TARGET_TYPE, targetType.get()));
  EXPECT_EQ((std::vector<std::string>{set(LDAP_DN, NODE_TYPE, PymMoValueType_String, {"GATEWAY"}),
                                      set(USER_MANAGEMENT_DN, TARGET_TYPE, PymMoValueType_String, {"GATEWAY"})}),
            writes());
  EXPECT_EQ(1u, log().count(8, trace(USER_MANAGEMENT_DN, TARGET_TYPE)));
}

TEST_F(AttrSyncTest, RoleAliasesBaseDnOfLdapIsCopiedToOrbelinFilter) {
  TestValue baseDn = TestValue::strings({"ou=aliases,dc=example,dc=com"});
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, ROLE_ALIASES_BASE_DN, baseDn.get()));
  EXPECT_EQ((std::vector<std::string>{
                set(ORBELIN_FILTER_DN, ROLE_ALIASES_BASE_DN, PymMoValueType_String, {"ou=aliases,dc=example,dc=com"}),
                set(LDAP_DN, ROLE_ALIASES_BASE_DN, PymMoValueType_String, {"ou=aliases,dc=example,dc=com"})}),
            writes());
}

TEST_F(AttrSyncTest, RoleAliasesBaseDnOfOrbelinFilterIsCopiedToLdap) {
  TestValue baseDn = TestValue::strings({"ou=roles,dc=example,dc=com"});
  EXPECT_EQ(PymOk, orbelinFilterSync.setMoAttribute(TX, ORBELIN_FILTER_DN, ROLE_ALIASES_BASE_DN, baseDn.get()));
  EXPECT_EQ((std::vector<std::string>{
                set(LDAP_DN, ROLE_ALIASES_BASE_DN, PymMoValueType_String, {"ou=roles,dc=example,dc=com"}),
                set(ORBELIN_FILTER_DN, ROLE_ALIASES_BASE_DN, PymMoValueType_String, {"ou=roles,dc=example,dc=com"})}),
            writes());
  EXPECT_EQ(1u, log().count(8, trace(ORBELIN_FILTER_DN, ROLE_ALIASES_BASE_DN)));
}

TEST_F(AttrSyncTest, AnUnsetCopiedAttributeUnsetsItsPartner) {
  TestValue none = TestValue::strings({});
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, NODE_TYPE, none.get()));
  EXPECT_EQ((std::vector<std::string>{set(USER_MANAGEMENT_DN, TARGET_TYPE, PymMoValueType_String, {}),
                                      set(LDAP_DN, NODE_TYPE, PymMoValueType_String, {})}),
            writes());
  EXPECT_FALSE(router.writes[0].hasValueArray);
}

TEST_F(AttrSyncTest, OtherAttributesAreOnlyForwarded) {
  TestValue baseDn = TestValue::strings({"dc=example,dc=org"});
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, BASE_DN, baseDn.get()));
  EXPECT_EQ(PymOk, userManagementSync.setMoAttribute(TX, USER_MANAGEMENT_DN, BASE_DN, baseDn.get()));
  EXPECT_EQ(PymOk, orbelinFilterSync.setMoAttribute(TX, ORBELIN_FILTER_DN, NODE_TYPE, baseDn.get()));
  EXPECT_EQ((std::vector<std::string>{set(LDAP_DN, BASE_DN, PymMoValueType_String, {"dc=example,dc=org"}),
                                      set(USER_MANAGEMENT_DN, BASE_DN, PymMoValueType_String, {"dc=example,dc=org"}),
                                      set(ORBELIN_FILTER_DN, NODE_TYPE, PymMoValueType_String, {"dc=example,dc=org"})}),
            writes());
}

TEST_F(AttrSyncTest, ANullValueIsNotMirrored) {
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, NODE_TYPE, nullptr));
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, FILTER_TYPE, nullptr));
  ASSERT_EQ(2u, router.writes.size());
  EXPECT_EQ(NODE_TYPE, router.writes[0].name);
  EXPECT_EQ(FILTER_TYPE, router.writes[1].name);
}

TEST_F(AttrSyncTest, ARefusedCopyIsLoggedPerPartnerAndNothingIsForwarded) {
  struct Case {
    AmAttrSync* interceptor;
    const char* dn;
    const char* name;
    const char* partnerDn;
    const char* partnerName;
    const char* text;
  };
  const Case cases[] = {
      {&ldapSync, LDAP_DN, NODE_TYPE, USER_MANAGEMENT_DN, TARGET_TYPE,
       "Could not set attribute value for attribute targetType in UserManagement MOC"},
      {&ldapSync, LDAP_DN, ROLE_ALIASES_BASE_DN, ORBELIN_FILTER_DN, ROLE_ALIASES_BASE_DN,
       "Could not set attribute value for attribute roleAliasBaseDn in OrbelinFilter MOC"},
      {&userManagementSync, USER_MANAGEMENT_DN, TARGET_TYPE, LDAP_DN, NODE_TYPE,
       "Could not set attribute value for attribute nodeType in Ldap MOC"},
      {&orbelinFilterSync, ORBELIN_FILTER_DN, ROLE_ALIASES_BASE_DN, LDAP_DN, ROLE_ALIASES_BASE_DN,
       "Could not set attribute value for attribute roleAliasBaseDn in Ldap MOC"},
  };
  for (const Case& one : cases) {
    router.writes.clear();
    router.refusedWrites.clear();
    log().clear();
    router.refusedWrites[{one.partnerDn, one.partnerName}] = PymValidationFailed;
    TestValue value = TestValue::strings({"x"});
    EXPECT_EQ(PymValidationFailed, one.interceptor->setMoAttribute(TX, one.dn, one.name, value.get())) << one.text;
    EXPECT_EQ(std::vector<std::string>{set(one.partnerDn, one.partnerName, PymMoValueType_String, {"x"})}, writes())
        << one.text;
    EXPECT_EQ(1u, log().count(3, one.text));
    EXPECT_EQ(1u, log().countAtLevel(3)) << one.text;
  }
}

// --- Lists of attributes ---

TEST_F(AttrSyncTest, FilterTypeTwoWithProfileFilterOnePasses) {
  TestList list;
  list.add(FILTER_TYPE, TestValue::enums({2})).add(PROFILE_FILTER, TestValue::enums({1}));
  EXPECT_EQ(PymOk, ldapSync.setMoAttributes(TX, LDAP_DN, list.get()));
  EXPECT_EQ((std::vector<std::string>{set(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {"1"}),
                                      set(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {"2"}),
                                      setList(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {"2"}),
                                      setList(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {"1"})}),
            writes());
  EXPECT_EQ(1u, log().count(8, std::string(" >> dn: ") + LDAP_DN));
  EXPECT_EQ(0u, log().countAtLevel(3));
  EXPECT_TRUE(operatorChannel.texts.empty());
}

TEST_F(AttrSyncTest, FilterTypeTwoWithProfileFilterTwoIsRefusedAsConflicting) {
  TestList list;
  list.add(FILTER_TYPE, TestValue::enums({2})).add(PROFILE_FILTER, TestValue::enums({2}));
  EXPECT_EQ(-1, ldapSync.setMoAttributes(TX, LDAP_DN, list.get()));
  EXPECT_TRUE(router.writes.empty());
  EXPECT_EQ(1u, log().count(3, CONFLICT_TEXT));
  EXPECT_EQ(std::vector<std::string>{CONFLICT_TEXT}, operatorChannel.texts);
}

TEST_F(AttrSyncTest, OneOfThePairSetAndTheOtherUnsetIsAConflict) {
  TestList filterTypeSet;
  filterTypeSet.add(FILTER_TYPE, TestValue::enums({2})).add(PROFILE_FILTER, TestValue::enums({}));
  EXPECT_EQ(-1, ldapSync.setMoAttributes(TX, LDAP_DN, filterTypeSet.get()));
  TestList profileFilterSet;
  profileFilterSet.add(PROFILE_FILTER, TestValue::enums({0}))
      .add(FILTER_TYPE, TestValue::withoutArray(PymMoValueType_Enum, 1));
  EXPECT_EQ(-1, ldapSync.setMoAttributes(TX, LDAP_DN, profileFilterSet.get()));
  EXPECT_TRUE(router.writes.empty());
  EXPECT_EQ(2u, log().count(3, CONFLICT_TEXT));
}

TEST_F(AttrSyncTest, BothOfThePairUnsetPassAndUnsetEachOther) {
  TestList list;
  list.add(FILTER_TYPE, TestValue::enums({})).add(PROFILE_FILTER, TestValue::enums({}));
  EXPECT_EQ(PymOk, ldapSync.setMoAttributes(TX, LDAP_DN, list.get()));
  EXPECT_EQ((std::vector<std::string>{set(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {}),
                                      set(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {}),
                                      setList(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {}),
                                      setList(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {})}),
            writes());
}

TEST_F(AttrSyncTest, CheckForConflictsNeedsBothOfThePairWithJudgeableValues) {
  TestList filterTypeOnly;
  filterTypeOnly.add(FILTER_TYPE, TestValue::enums({3})).add(NODE_TYPE, TestValue::strings({"SERVER"}));
  EXPECT_FALSE(ldapSync.checkForConflicts(filterTypeOnly.get()));
  TestList profileFilterOnly;
  profileFilterOnly.add(PROFILE_FILTER, TestValue::enums({0}));
  EXPECT_FALSE(ldapSync.checkForConflicts(profileFilterOnly.get()));
  // A text is not an enumeration value: the router refuses it, not the conflict check.
  TestList wrongType;
  wrongType.add(FILTER_TYPE, TestValue::strings({"FLEXIBLE"})).add(PROFILE_FILTER, TestValue::enums({0}));
  EXPECT_FALSE(ldapSync.checkForConflicts(wrongType.get()));
  TestList agreeing;
  agreeing.add(PROFILE_FILTER, TestValue::enums({2})).add(FILTER_TYPE, TestValue::enums({3}));
  EXPECT_FALSE(ldapSync.checkForConflicts(agreeing.get()));
  TestList disagreeing;
  disagreeing.add(PROFILE_FILTER, TestValue::enums({0})).add(FILTER_TYPE, TestValue::enums({3}));
  EXPECT_TRUE(ldapSync.checkForConflicts(disagreeing.get()));
  TestList empty;
  EXPECT_FALSE(ldapSync.checkForConflicts(empty.get()));
  EXPECT_FALSE(ldapSync.checkForConflicts(nullptr));
}

TEST_F(AttrSyncTest, AListWritesEachPartnerThenGoesOnAsItCame) {
  TestList list;
  list.add(BASE_DN, TestValue::strings({"dc=example,dc=org"}))
      .add(FILTER_TYPE, TestValue::enums({3}))
      .add(NODE_TYPE, TestValue::strings({"SERVER"}))
      .add(ROLE_ALIASES_BASE_DN, TestValue::strings({"ou=aliases"}));
  EXPECT_EQ(PymOk, ldapSync.setMoAttributes(TX, LDAP_DN, list.get()));
  EXPECT_EQ(
      (std::vector<std::string>{set(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {"2"}),
                                set(USER_MANAGEMENT_DN, TARGET_TYPE, PymMoValueType_String, {"SERVER"}),
                                set(ORBELIN_FILTER_DN, ROLE_ALIASES_BASE_DN, PymMoValueType_String, {"ou=aliases"}),
                                setList(LDAP_DN, BASE_DN, PymMoValueType_String, {"dc=example,dc=org"}),
                                setList(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {"3"}),
                                setList(LDAP_DN, NODE_TYPE, PymMoValueType_String, {"SERVER"}),
                                setList(LDAP_DN, ROLE_ALIASES_BASE_DN, PymMoValueType_String, {"ou=aliases"})}),
      writes());
}

TEST_F(AttrSyncTest, AnInvalidFilterValueInAListIsRejectedWithoutAnyWrite) {
  TestList list;
  list.add(NODE_TYPE, TestValue::strings({"SERVER"})).add(PROFILE_FILTER, TestValue::enums({3}));
  // nodeType's partner is written before the invalid value is met.
  EXPECT_EQ(-1, ldapSync.setMoAttributes(TX, LDAP_DN, list.get()));
  EXPECT_EQ(std::vector<std::string>{set(USER_MANAGEMENT_DN, TARGET_TYPE, PymMoValueType_String, {"SERVER"})},
            writes());
  EXPECT_EQ(1u, log().count(3, "Attribute profileFilter has an invalid value."));
}

TEST_F(AttrSyncTest, ARefusedMappedFilterTypeInAListIsLoggedWithOneBlank) {
  router.refusedWrites[{LDAP_DN, FILTER_TYPE}] = PymValidationFailed;
  TestList list;
  list.add(PROFILE_FILTER, TestValue::enums({1}));
  EXPECT_EQ(PymValidationFailed, ldapSync.setMoAttributes(TX, LDAP_DN, list.get()));
  EXPECT_EQ(std::vector<std::string>{set(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {"2"})}, writes());
  EXPECT_EQ(1u, log().count(3, "Could not set attribute value for attribute filterType in Ldap MOC"));
  EXPECT_EQ(1u, log().countAtLevel(3));
}

TEST_F(AttrSyncTest, ARefusedPartnerInAListStopsTheList) {
  router.refusedWrites[{USER_MANAGEMENT_DN, TARGET_TYPE}] = PymFailure;
  TestList list;
  list.add(NODE_TYPE, TestValue::strings({"SERVER"})).add(FILTER_TYPE, TestValue::enums({1}));
  EXPECT_EQ(PymFailure, ldapSync.setMoAttributes(TX, LDAP_DN, list.get()));
  EXPECT_EQ(std::vector<std::string>{set(USER_MANAGEMENT_DN, TARGET_TYPE, PymMoValueType_String, {"SERVER"})},
            writes());
  EXPECT_EQ(1u, log().count(3, "Could not set attribute value for attribute targetType in UserManagement MOC"));
}

TEST_F(AttrSyncTest, TheForwardedListsResultComesBackAsItIs) {
  router.setMoAttributesResult = -33;
  TestList list;
  list.add(FILTER_TYPE, TestValue::enums({1}));
  EXPECT_EQ(-33, ldapSync.setMoAttributes(TX, LDAP_DN, list.get()));
  EXPECT_EQ(2u, router.writes.size());
}

TEST_F(AttrSyncTest, UserManagementAndOrbelinFilterListsMirrorTheirAttribute) {
  TestList userManagement;
  userManagement.add(TARGET_TYPE, TestValue::strings({"SERVER"}));
  EXPECT_EQ(PymOk, userManagementSync.setMoAttributes(TX, USER_MANAGEMENT_DN, userManagement.get()));
  TestList orbelinFilter;
  orbelinFilter.add(ROLE_ALIASES_BASE_DN, TestValue::strings({"ou=aliases"}));
  EXPECT_EQ(PymOk, orbelinFilterSync.setMoAttributes(TX, ORBELIN_FILTER_DN, orbelinFilter.get()));
  EXPECT_EQ((std::vector<std::string>{
                set(LDAP_DN, NODE_TYPE, PymMoValueType_String, {"SERVER"}),
                setList(USER_MANAGEMENT_DN, TARGET_TYPE, PymMoValueType_String, {"SERVER"}),
                set(LDAP_DN, ROLE_ALIASES_BASE_DN, PymMoValueType_String, {"ou=aliases"}),
                setList(ORBELIN_FILTER_DN, ROLE_ALIASES_BASE_DN, PymMoValueType_String, {"ou=aliases"})}),
            writes());
  EXPECT_EQ(1u, log().count(8, std::string(" >> dn: ") + USER_MANAGEMENT_DN));
  EXPECT_EQ(1u, log().count(8, std::string(" >> dn: ") + ORBELIN_FILTER_DN));
}

TEST_F(AttrSyncTest, ConflictingTargetTypesAreNotTheUserManagementInterceptorsConcern) {
  TestList list;
  list.add(FILTER_TYPE, TestValue::enums({2})).add(PROFILE_FILTER, TestValue::enums({2}));
  EXPECT_EQ(PymOk, userManagementSync.setMoAttributes(TX, USER_MANAGEMENT_DN, list.get()));
  EXPECT_EQ(0u, log().count(3, CONFLICT_TEXT));
  EXPECT_EQ(2u, router.writes.size());
}

// --- Before the Ldap 2.0 attributes exist ---

TEST_F(AttrSyncTest, BeforeTheLdap20AttributesExistEveryWritePassesThroughUnchanged) {
  runnable.setLdap20AttributesExist(false);
  TestValue invalidFilterType = TestValue::enums({4});
  TestValue nodeType = TestValue::strings({"SERVER"});
  TestValue baseDn = TestValue::strings({"ou=aliases"});
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, FILTER_TYPE, invalidFilterType.get()));
  EXPECT_EQ(PymOk, ldapSync.setMoAttribute(TX, LDAP_DN, NODE_TYPE, nodeType.get()));
  EXPECT_EQ(PymOk, userManagementSync.setMoAttribute(TX, USER_MANAGEMENT_DN, TARGET_TYPE, nodeType.get()));
  EXPECT_EQ(PymOk, orbelinFilterSync.setMoAttribute(TX, ORBELIN_FILTER_DN, ROLE_ALIASES_BASE_DN, baseDn.get()));
  TestList conflicting;
  conflicting.add(FILTER_TYPE, TestValue::enums({2})).add(PROFILE_FILTER, TestValue::enums({2}));
  EXPECT_EQ(PymOk, ldapSync.setMoAttributes(TX, LDAP_DN, conflicting.get()));

  EXPECT_EQ(
      (std::vector<std::string>{set(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {"4"}),
                                set(LDAP_DN, NODE_TYPE, PymMoValueType_String, {"SERVER"}),
                                set(USER_MANAGEMENT_DN, TARGET_TYPE, PymMoValueType_String, {"SERVER"}),
                                set(ORBELIN_FILTER_DN, ROLE_ALIASES_BASE_DN, PymMoValueType_String, {"ou=aliases"}),
                                setList(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {"2"}),
                                setList(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {"2"})}),
      writes());
  EXPECT_EQ(0u, log().countAtLevel(3));
  EXPECT_TRUE(operatorChannel.texts.empty());
  // Still traced.
  EXPECT_EQ(1u, log().count(8, trace(LDAP_DN, FILTER_TYPE)));
}

TEST_F(AttrSyncTest, BeforeTheLdap20AttributesExistRefusalsOfTheNextComeBackUnchanged) {
  runnable.setLdap20AttributesExist(false);
  router.refusedWrites[{LDAP_DN, FILTER_TYPE}] = PymNotExist;
  TestValue flexible = TestValue::enums({3});
  EXPECT_EQ(PymNotExist, ldapSync.setMoAttribute(TX, LDAP_DN, FILTER_TYPE, flexible.get()));
  EXPECT_EQ(1u, router.writes.size());
}

// --- As the framework calls it ---

TEST_F(AttrSyncTest, TheRegisteredTableMirrorsWhatTheRouterHandsIt) {
  const FakeExtCmRouter::Registration& registration = router.registered.at(LDAP_CLASS);
  TestValue flexible = TestValue::enums({3});
  EXPECT_EQ(PymOk,
            registration.interceptor->setMoAttribute(registration.context, TX, LDAP_DN, FILTER_TYPE, flexible.get()));
  TestList list;
  list.add(FILTER_TYPE, TestValue::enums({2})).add(PROFILE_FILTER, TestValue::enums({2}));
  EXPECT_EQ(-1, registration.interceptor->setMoAttributes(registration.context, TX, LDAP_DN, list.get()));
  EXPECT_EQ((std::vector<std::string>{set(LDAP_DN, PROFILE_FILTER, PymMoValueType_Enum, {"2"}),
                                      set(LDAP_DN, FILTER_TYPE, PymMoValueType_Enum, {"3"})}),
            writes());
  EXPECT_EQ(1u, log().count(3, CONFLICT_TEXT));
}

// Over the framework stand-in's own router: the partner lands in the transaction and the model.
class AttrSyncThroughFrameworkTest : public AttrSyncRegistrationTest {
 protected:
  void SetUp() override {
    router.useFrameworkNext();
    initAll();
  }

  // The transaction's (or, with 0, the model's) values of one attribute, as write() shows them.
  std::vector<std::string> read(unsigned long txHandle, const char* dn, const char* name) {
    PymMoAttributeValueResult_3 result{};
    EXPECT_EQ(PymOk, framework().cmRouter().getAttribute(txHandle, dn, name, &result)) << name;
    std::vector<std::string> values;
    if (result.container == nullptr) return values;
    for (uint32_t i = 0; i < result.container->nrOfValues; ++i) {
      const PymMoAttributeValue_3& value = result.container->values[i];
      values.push_back(result.container->type == PymMoValueType_Enum ? std::to_string(value.theEnum)
                                                                     : std::string(value.theString));
    }
    result.release(result.container);
    return values;
  }
};

TEST_F(AttrSyncThroughFrameworkTest, AMirroredFilterAndNodeTypeAreCommittedWithTheWrite) {
  const unsigned long tx = framework().transactions().begin();
  TestValue flexible = TestValue::enums({3});
  TestValue nodeType = TestValue::strings({"SERVER"});
  ASSERT_EQ(PymOk, ldapSync.setMoAttribute(tx, LDAP_DN, FILTER_TYPE, flexible.get()));
  ASSERT_EQ(PymOk, ldapSync.setMoAttribute(tx, LDAP_DN, NODE_TYPE, nodeType.get()));
  EXPECT_EQ(std::vector<std::string>{"2"}, read(tx, LDAP_DN, PROFILE_FILTER));
  EXPECT_EQ(std::vector<std::string>{"0"}, read(0, LDAP_DN, PROFILE_FILTER));

  ASSERT_EQ(PymOk, framework().transactions().commit(tx));
  EXPECT_EQ(std::vector<std::string>{"3"}, read(0, LDAP_DN, FILTER_TYPE));
  EXPECT_EQ(std::vector<std::string>{"2"}, read(0, LDAP_DN, PROFILE_FILTER));
  EXPECT_EQ(std::vector<std::string>{"SERVER"}, read(0, USER_MANAGEMENT_DN, TARGET_TYPE));
}

TEST_F(AttrSyncThroughFrameworkTest, APartnerTheRouterRefusesStopsTheWrite) {
  // Outside any transaction the router refuses every write.
  TestValue orbelin = TestValue::enums({1});
  EXPECT_EQ(PymInvalidParameter, ldapSync.setMoAttribute(0, LDAP_DN, PROFILE_FILTER, orbelin.get()));
  EXPECT_EQ(1u, log().count(3, "Could not set attribute value for attribute filterType  in Ldap MOC"));
  EXPECT_EQ(std::vector<std::string>{"0"}, read(0, LDAP_DN, PROFILE_FILTER));
}
