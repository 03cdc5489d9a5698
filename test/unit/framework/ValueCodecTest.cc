#include "AttributeDefinitions.h"

#include <Framework/ValueCodec.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

using Framework::AttributeDefinition;
using Framework::AttributeValue;
using Framework::ValueCodec;

namespace {

AttributeDefinition stateDefinition() {
  AttributeDefinition state = definition("state", PymMoValueType_Enum);
  state.literals = {{"LOCKED", 0}, {"UNLOCKED", 1}};
  return state;
}

AttributeDefinition passwordDefinition() {
  AttributeDefinition password = definition("bindPassword", PymMoValueType_Struct);
  password.members = {definition("password", PymMoValueType_String), definition("hints", PymMoValueType_Uint8, true)};
  return password;
}

std::string canonical(const AttributeDefinition& attribute, const std::string& text) {
  return ValueCodec::fromText(attribute, text).scalar;
}

}  // namespace

TEST(ValueCodec, IntegersAreCheckedAgainstTheirRange) {
  EXPECT_EQ("-128", canonical(definition("a", PymMoValueType_Int8), "-128"));
  EXPECT_THROW(canonical(definition("a", PymMoValueType_Int8), "128"), std::invalid_argument);
  EXPECT_EQ("65535", canonical(definition("a", PymMoValueType_Uint16), "65535"));
  EXPECT_THROW(canonical(definition("a", PymMoValueType_Uint16), "65536"), std::invalid_argument);
  EXPECT_THROW(canonical(definition("a", PymMoValueType_Uint32), "-1"), std::invalid_argument);
  EXPECT_EQ("18446744073709551615", canonical(definition("a", PymMoValueType_Uint64), "18446744073709551615"));
  EXPECT_EQ("-9223372036854775808", canonical(definition("a", PymMoValueType_Int64), "-9223372036854775808"));
  EXPECT_THROW(canonical(definition("a", PymMoValueType_Int32), ""), std::invalid_argument);
  EXPECT_THROW(canonical(definition("a", PymMoValueType_Int32), "12x"), std::invalid_argument);
  EXPECT_THROW(canonical(definition("a", PymMoValueType_Int32), " 12"), std::invalid_argument);
}

TEST(ValueCodec, BoolsAreTrueOrFalse) {
  EXPECT_EQ("true", canonical(definition("b", PymMoValueType_Bool), "true"));
  EXPECT_EQ("false", canonical(definition("b", PymMoValueType_Bool), "false"));
  EXPECT_THROW(canonical(definition("b", PymMoValueType_Bool), "yes"), std::invalid_argument);
}

TEST(ValueCodec, EnumerationsByLiteralNameOrNumber) {
  const AttributeDefinition state = stateDefinition();
  EXPECT_EQ("1", canonical(state, "UNLOCKED"));
  EXPECT_EQ("0", canonical(state, "0"));
  EXPECT_THROW(canonical(state, "OPEN"), std::invalid_argument);
  EXPECT_THROW(canonical(state, "2"), std::invalid_argument);
  EXPECT_EQ("UNLOCKED", ValueCodec::toText(state, ValueCodec::fromText(state, "1")));
  EXPECT_EQ("77", canonical(definition("free", PymMoValueType_Enum), "77"));
  try {
    canonical(state, "OPEN");
    FAIL() << "an unknown literal must throw";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ("\"OPEN\" is no literal of \"state\" (LOCKED, UNLOCKED)", error.what());
  }
}

TEST(ValueCodec, StringsKeepTheirText) {
  EXPECT_EQ("  a b ", canonical(definition("s", PymMoValueType_String), "  a b "));
  EXPECT_EQ("A=1", canonical(definition("r", PymMoValueType_Reference), "A=1"));
  EXPECT_THROW(canonical(definition("p", PymMoValueType_Struct), "x"), std::invalid_argument);
}

TEST(ValueCodec, SingleValuedAttributesTakeOneValue) {
  EXPECT_NO_THROW(ValueCodec::checkCount(definition("s", PymMoValueType_String), 1));
  EXPECT_THROW(ValueCodec::checkCount(definition("s", PymMoValueType_String), 2), std::invalid_argument);
  EXPECT_NO_THROW(ValueCodec::checkCount(definition("s", PymMoValueType_String, true), 5));
}

TEST(ValueCodec, ContainerIsADeepCopyOfTheValues) {
  const AttributeDefinition nodeType = definition("nodeType", PymMoValueType_String, true);
  std::string first = "a";
  ValueCodec::ContainerPtr container =
      ValueCodec::toContainer(nodeType, {ValueCodec::fromText(nodeType, first), ValueCodec::fromText(nodeType, "b")});
  first = "changed";
  ASSERT_EQ(PymMoValueType_String, container->type);
  ASSERT_EQ(2u, container->nrOfValues);
  EXPECT_STREQ("a", container->values[0].theString);
  EXPECT_STREQ("b", container->values[1].theString);
  EXPECT_EQ(ValueCodec::fromContainer(nodeType, *container),
            (std::vector<AttributeValue>{ValueCodec::fromText(nodeType, "a"), ValueCodec::fromText(nodeType, "b")}));
}

TEST(ValueCodec, NoValuesGiveAnEmptyContainerOfTheType) {
  ValueCodec::ContainerPtr container = ValueCodec::toContainer(stateDefinition(), {});
  EXPECT_EQ(PymMoValueType_Enum, container->type);
  EXPECT_EQ(0u, container->nrOfValues);
  EXPECT_EQ(nullptr, container->values);
}

TEST(ValueCodec, ScalarsConvertBothWays) {
  const AttributeDefinition port = definition("serverPort", PymMoValueType_Uint16);
  ValueCodec::ContainerPtr container = ValueCodec::toContainer(port, {ValueCodec::fromText(port, "636")});
  EXPECT_EQ(636, container->values[0].u16);
  const AttributeDefinition flag = definition("useTls", PymMoValueType_Bool);
  container = ValueCodec::toContainer(flag, {ValueCodec::fromText(flag, "true")});
  EXPECT_TRUE(container->values[0].theBool);
  const AttributeDefinition state = stateDefinition();
  container = ValueCodec::toContainer(state, {ValueCodec::fromText(state, "UNLOCKED")});
  EXPECT_EQ(1, container->values[0].theEnum);
  const AttributeDefinition reference = definition("nodeCredential", PymMoValueType_Reference);
  container = ValueCodec::toContainer(reference, {ValueCodec::fromText(reference, "A=1,B=2")});
  EXPECT_STREQ("A=1,B=2", container->values[0].moRef);
  EXPECT_EQ("A=1,B=2", ValueCodec::fromContainer(reference, *container)[0].scalar);
}

TEST(ValueCodec, StructuresListEveryMember) {
  const AttributeDefinition password = passwordDefinition();
  const AttributeValue value = ValueCodec::structure(password, {{"password", {ValueCodec::fromText(password.members[0], "secret")}}});
  ValueCodec::ContainerPtr container = ValueCodec::toContainer(password, {value});
  ASSERT_EQ(1u, container->nrOfValues);
  const PymMoAttrStructMember_3* member = container->values[0].structMember;
  ASSERT_NE(nullptr, member);
  EXPECT_STREQ("password", member->memberName);
  ASSERT_EQ(1u, member->memberValue->nrOfValues);
  EXPECT_STREQ("secret", member->memberValue->values[0].theString);
  ASSERT_NE(nullptr, member->next);
  EXPECT_STREQ("hints", member->next->memberName);
  EXPECT_EQ(PymMoValueType_Uint8, member->next->memberValue->type);
  EXPECT_EQ(0u, member->next->memberValue->nrOfValues);
  EXPECT_EQ(nullptr, member->next->next);
  EXPECT_EQ(std::vector<AttributeValue>{value}, ValueCodec::fromContainer(password, *container));
}

TEST(ValueCodec, StructureMembersAreChecked) {
  const AttributeDefinition password = passwordDefinition();
  const AttributeValue text = ValueCodec::fromText(password.members[0], "x");
  EXPECT_THROW(ValueCodec::structure(password, {{"unknown", {text}}}), std::invalid_argument);
  EXPECT_THROW(ValueCodec::structure(password, {{"password", {text, text}}}), std::invalid_argument);
}

TEST(ValueCodec, ContainersThatDoNotFitAreRefused) {
  const AttributeDefinition state = stateDefinition();
  PymMoAttributeValue_3 values[2] = {};
  PymMoAttributeValueContainer_3 container{PymMoValueType_Int32, 1, values};
  EXPECT_THROW(ValueCodec::fromContainer(state, container), std::invalid_argument);
  container.type = PymMoValueType_Enum;
  values[0].theEnum = 5;
  EXPECT_THROW(ValueCodec::fromContainer(state, container), std::invalid_argument);
  values[0].theEnum = 1;
  values[1].theEnum = 0;
  container.nrOfValues = 2;
  EXPECT_THROW(ValueCodec::fromContainer(state, container), std::invalid_argument);
  container.nrOfValues = 1;
  EXPECT_EQ("1", ValueCodec::fromContainer(state, container)[0].scalar);
  PymMoAttributeValueContainer_3 nullString{PymMoValueType_String, 1, values};
  values[0].theString = nullptr;
  EXPECT_THROW(ValueCodec::fromContainer(definition("s", PymMoValueType_String), nullString), std::invalid_argument);
}

TEST(ValueCodec, NullValuesMeanNoValue) {
  PymMoAttributeValueContainer_3 container{PymMoValueType_String, 3, nullptr};
  EXPECT_TRUE(ValueCodec::fromContainer(definition("s", PymMoValueType_String), container).empty());
}

TEST(ValueCodec, StructureMembersFromContainersAreChecked) {
  const AttributeDefinition password = passwordDefinition();
  PymMoAttributeValue_3 text{};
  text.theString = "x";
  PymMoAttributeValueContainer_3 memberValue{PymMoValueType_String, 1, &text};
  PymMoAttrStructMember_3 member{"nosuch", &memberValue, nullptr};
  PymMoAttributeValue_3 value{};
  value.structMember = &member;
  PymMoAttributeValueContainer_3 container{PymMoValueType_Struct, 1, &value};
  EXPECT_THROW(ValueCodec::fromContainer(password, container), std::invalid_argument);
  member.memberName = "password";
  EXPECT_EQ("x", ValueCodec::fromContainer(password, container)[0].members.at(0).second.at(0).scalar);
  PymMoAttrStructMember_3 again{"password", &memberValue, nullptr};
  member.next = &again;
  EXPECT_THROW(ValueCodec::fromContainer(password, container), std::invalid_argument);
}

TEST(ValueCodec, ReleaseAllFreesAnArrayOfContainers) {
  const AttributeDefinition text = definition("s", PymMoValueType_String);
  auto** array = static_cast<PymMoAttributeValueContainer_3**>(std::calloc(3, sizeof(void*)));
  array[0] = ValueCodec::toContainer(text, {ValueCodec::fromText(text, "a")}).release();
  array[1] = ValueCodec::toContainer(text, {}).release();
  EXPECT_STREQ("a", array[0]->values[0].theString);
  ValueCodec::releaseAll(array);
  ValueCodec::releaseAll(nullptr);
  ValueCodec::release(nullptr);
}
