#include "AttributeDefinitions.h"

#include <Framework/ValueCodec.h>
#include <Framework/ValueText.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using Framework::AttributeDefinition;
using Framework::AttributeValue;
using Framework::ValueText;
using Strings = std::vector<std::string>;

namespace {

// A structure with a string, a sequence of uint8 and a nested structure holding a reference and
// an enumeration.
AttributeDefinition credentialDefinition() {
  AttributeDefinition target = definition("target", PymMoValueType_Struct);
  AttributeDefinition state = definition("state", PymMoValueType_Enum);
  state.literals = {{"LOCKED", 0}, {"UNLOCKED", 1}};
  target.members = {definition("dn", PymMoValueType_Reference), state};
  AttributeDefinition credential = definition("credential", PymMoValueType_Struct);
  credential.members = {definition("password", PymMoValueType_String), definition("hints", PymMoValueType_Uint8, true),
                        target};
  return credential;
}

AttributeValue scalar(const std::string& text) {
  AttributeValue value;
  value.scalar = text;
  return value;
}

// What parsing text and printing the value again gives.
std::string reprinted(const AttributeDefinition& attribute, const std::string& text) {
  return ValueText::format(attribute, ValueText::parse(attribute, text));
}

// The message of the error parsing text gives, or "none".
std::string parseError(const AttributeDefinition& attribute, const std::string& text) {
  try {
    ValueText::parse(attribute, text);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "none";
}

}  // namespace

TEST(ValueText, ScalarsTakeTheModelsTextForm) {
  AttributeDefinition state = definition("state", PymMoValueType_Enum);
  state.literals = {{"LOCKED", 0}, {"UNLOCKED", 1}};
  EXPECT_EQ("1", ValueText::parse(state, "UNLOCKED").scalar);
  EXPECT_EQ("UNLOCKED", reprinted(state, "1"));
  EXPECT_EQ("636", reprinted(definition("port", PymMoValueType_Uint16), "636"));
  EXPECT_EQ("-5", reprinted(definition("offset", PymMoValueType_Int32), "-5"));
  EXPECT_EQ("true", reprinted(definition("flag", PymMoValueType_Bool), "true"));
  // Outside a structure nothing is quoted: each value is one text already.
  EXPECT_EQ("a,{b}\"c\\", reprinted(definition("s", PymMoValueType_String), "a,{b}\"c\\"));
  EXPECT_EQ("", reprinted(definition("s", PymMoValueType_String), ""));
  EXPECT_EQ("A=1,B=2", reprinted(definition("r", PymMoValueType_Reference), "A=1,B=2"));
}

TEST(ValueText, StructuresNestWithQuotedAndBracketedMembers) {
  const AttributeDefinition credential = credentialDefinition();
  const AttributeValue value =
      ValueText::parse(credential, "{password=\"s,e\\\"c\\\\\",hints=[1,2],target={dn=\"A=1,B=2\",state=UNLOCKED}}");
  ASSERT_EQ(3u, value.members.size());
  EXPECT_EQ("password", value.members[0].first);
  EXPECT_EQ(std::vector<AttributeValue>{scalar("s,e\"c\\")}, value.members[0].second);
  EXPECT_EQ((std::vector<AttributeValue>{scalar("1"), scalar("2")}), value.members[1].second);
  ASSERT_EQ(1u, value.members[2].second.size());
  const AttributeValue& target = value.members[2].second[0];
  ASSERT_EQ(2u, target.members.size());
  EXPECT_EQ(std::vector<AttributeValue>{scalar("A=1,B=2")}, target.members[0].second);
  EXPECT_EQ(std::vector<AttributeValue>{scalar("1")}, target.members[1].second);
  EXPECT_EQ("{password=\"s,e\\\"c\\\\\",hints=[1,2],target={dn=\"A=1,B=2\",state=UNLOCKED}}",
            ValueText::format(credential, value));
  EXPECT_EQ(value, ValueText::parse(credential, ValueText::format(credential, value)));
}

TEST(ValueText, MembersPrintInDefinitionOrderAndQuotedOnlyWhenNeeded) {
  const AttributeDefinition credential = credentialDefinition();
  EXPECT_EQ("{password=plain=text,hints=[3]}", reprinted(credential, "{hints=3,password=\"plain=text\"}"));
  EXPECT_EQ("{password=x}", reprinted(credential, "{password=[x]}"));
  EXPECT_EQ("{password=\"\"}", reprinted(credential, "{password=\"\"}"));
  EXPECT_EQ("{password=\"[x]\"}", reprinted(credential, "{password=\"[x]\"}"));
}

TEST(ValueText, MembersWithoutValuesAreLeftOut) {
  const AttributeDefinition credential = credentialDefinition();
  EXPECT_EQ("{}", reprinted(credential, "{}"));
  EXPECT_EQ("{}", reprinted(credential, "{hints=[]}"));
  EXPECT_TRUE(ValueText::parse(credential, "{hints=[],target={}}").members.size() == 1);
  EXPECT_EQ("{target={}}", reprinted(credential, "{target={}}"));
}

TEST(ValueText, MalformedStructuresSayWhatAndWhere) {
  const AttributeDefinition credential = credentialDefinition();
  const std::string prefix = "bad value \"";
  EXPECT_EQ(prefix + "{pasword=x}\" for \"credential\": \"credential\" has no member \"pasword\"",
            parseError(credential, "{pasword=x}"));
  EXPECT_EQ(prefix + "{password=x,password=y}\" for \"credential\": member \"password\" of \"credential\" given twice",
            parseError(credential, "{password=x,password=y}"));
  EXPECT_EQ(prefix + "{password=\"x}\" for \"credential\": unterminated quoted text at the end",
            parseError(credential, "{password=\"x}"));
  EXPECT_EQ(prefix + "{password=x}y\" for \"credential\": unexpected text at offset 12",
            parseError(credential, "{password=x}y"));
  EXPECT_EQ(prefix + "password=x\" for \"credential\": expected '{' at offset 0", parseError(credential, "password=x"));
  EXPECT_EQ(prefix + "{password}\" for \"credential\": expected member=value at offset 1",
            parseError(credential, "{password}"));
  EXPECT_EQ(prefix + "{password=}\" for \"credential\": expected a value at offset 10",
            parseError(credential, "{password=}"));
  EXPECT_EQ(prefix + "{password=a b,hints=[1}\" for \"credential\": expected ']' at offset 22",
            parseError(credential, "{password=a b,hints=[1}"));
  EXPECT_EQ(prefix + "{password=\"\\n\"}\" for \"credential\": expected \" or \\ after \\ at offset 12",
            parseError(credential, "{password=\"\\n\"}"));
  EXPECT_EQ(prefix + "{password=[x,y]}\" for \"credential\": \"password\" is single-valued but given 2 values",
            parseError(credential, "{password=[x,y]}"));
  EXPECT_EQ(prefix + "{hints=[256]}\" for \"credential\": \"256\" is not a valid uint8 value for \"hints\"",
            parseError(credential, "{hints=[256]}"));
  EXPECT_EQ(prefix + "{target={state=OPEN}}\" for \"credential\": \"OPEN\" is no literal of \"state\" "
                     "(LOCKED, UNLOCKED)",
            parseError(credential, "{target={state=OPEN}}"));
  EXPECT_EQ(prefix + "{password=a, hints=[1]}\" for \"credential\": \"credential\" has no member \" hints\"",
            parseError(credential, "{password=a, hints=[1]}"));
}

TEST(ValueText, AllValuesOfAnAttribute) {
  const AttributeDefinition nodeTypes = definition("nodeType", PymMoValueType_String, true);
  const std::vector<AttributeValue> values = ValueText::parseAll(nodeTypes, {"a", "b"});
  EXPECT_EQ((Strings{"a", "b"}), ValueText::formatAll(nodeTypes, values));
  EXPECT_TRUE(ValueText::parseAll(nodeTypes, {}).empty());
  EXPECT_THROW(ValueText::parseAll(definition("port", PymMoValueType_Uint16), {"1", "2"}), std::invalid_argument);
  AttributeDefinition credentials = credentialDefinition();
  credentials.sequence = true;
  EXPECT_EQ((Strings{"{}", "{password=y}"}),
            ValueText::formatAll(credentials, ValueText::parseAll(credentials, {"{}", "{password=y}"})));
}
