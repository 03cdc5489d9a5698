#include "FrameworkTest.h"

#include <Framework/ModelError.h>
#include <Framework/ModelStore.h>
#include <Framework/ValueCodec.h>

#include <Poco/DirectoryIterator.h>
#include <Poco/TemporaryFile.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>

using Framework::ModelError;
using Framework::ModelStore;
using Framework::ValueCodec;

namespace {

const std::string kSecM = "ManagedElement=1,SystemFunctions=1,SecM=1";
const std::string kLdap = FrameworkTest::LDAP_DN;
const std::string kLdapClass =
    "ManagedElement,SystemFunctions,SecM,UserManagement,LdapAuthenticationMethod,Ldap";

const char* const kSmallModel =
    "<model>\n"                                                  // 1
    "  <class path=\"A\">\n"                                     // 2
    "    <attribute name=\"state\" type=\"enum\">\n"             // 3
    "      <literal name=\"LOCKED\" value=\"0\"/>\n"             // 4
    "      <literal name=\"UNLOCKED\" value=\"1\"/>\n"           // 5
    "    </attribute>\n"                                         // 6
    "    <attribute name=\"port\" type=\"uint16\"/>\n"           // 7
    "  </class>\n"                                               // 8
    "  <object dn=\"A=1\">\n"                                    // 9
    "    <value attribute=\"state\">UNLOCKED</value>\n"          // 10
    "  </object>\n"                                              // 11
    "</model>\n";

std::string fileText(const std::string& path) {
  std::ifstream input(path, std::ios::binary);
  std::ostringstream text;
  text << input.rdbuf();
  return text.str();
}

std::unique_ptr<ModelStore> loaded(const std::string& fixture) {
  auto store = std::make_unique<ModelStore>();
  store->loadFile(FrameworkTest::modelPath(fixture));
  return store;
}

// The message of the ModelError that loading text gives, or "" when it loads.
std::string loadError(const std::string& text) {
  auto store = std::make_unique<ModelStore>();
  try {
    store->loadText(text, "doc.xml");
  } catch (const ModelError& error) {
    return error.what();
  }
  return "";
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const std::string::size_type at = text.find(from);
  if (at == std::string::npos) throw std::logic_error("no " + from);
  return text.replace(at, from.size(), to);
}

// A read of a single value (or of none) as its container, released on destruction.
struct ReadResult {
  PymReturnT code;
  ValueCodec::ContainerPtr container;
};

ReadResult read(const ModelStore& store, const std::string& dn, const std::string& attribute) {
  PymMoAttributeValueResult_3 result{};
  const PymReturnT code = store.read(dn, attribute, &result);
  return ReadResult{code, ValueCodec::ContainerPtr(result.container, code == PymOk ? result.release : &ValueCodec::release)};
}

}  // namespace

TEST(ModelStore, EveryFixtureLoadsAndSavesToTheSameText) {
  for (const char* fixture : {"ldap20.xml", "pre20.xml", "no-ldap-auth-method.xml", "tls.xml", "tls-no-cipher-filter.xml"}) {
    SCOPED_TRACE(fixture);
    EXPECT_EQ(fileText(FrameworkTest::modelPath(fixture)), loaded(fixture)->toXml());
  }
}

TEST(ModelStore, Ldap20HoldsTheConfiguration) {
  const auto store = loaded("ldap20.xml");
  EXPECT_EQ(std::vector<std::string>{"LOCKED"},
            store->stringValues(kSecM + ",UserManagement=1,LdapAuthenticationMethod=1", "administrativeState"));
  EXPECT_EQ(std::vector<std::string>{"127.0.0.1"}, store->stringValues(kLdap, "ldapIpAddress"));
  EXPECT_EQ(std::vector<std::string>{"dc=example,dc=com"}, store->stringValues(kLdap, "baseDn"));
  EXPECT_EQ(std::vector<std::string>{"false"}, store->stringValues(kLdap, "useTls"));
  EXPECT_EQ(std::vector<std::string>{"STARTTLS"}, store->stringValues(kLdap, "tlsMode"));
  EXPECT_EQ(std::vector<std::string>{"POSIX_GROUPS"}, store->stringValues(kLdap, "profileFilter"));
  EXPECT_EQ(std::vector<std::string>{"POSIX_GROUPS"}, store->stringValues(kLdap, "filterType"));
  EXPECT_TRUE(store->stringValues(kLdap, "nodeType").empty());
  EXPECT_TRUE(store->memberStringValues(kLdap, "bindPassword", "password").empty());
  EXPECT_TRUE(store->exists(store->stringValues(kLdap, "nodeCredential").at(0)));
  EXPECT_TRUE(store->exists(store->stringValues(kLdap, "trustCategory").at(0)));
  EXPECT_TRUE(store->exists(kLdap + ",OrbelinFilter=1"));
}

TEST(ModelStore, FixturesDifferOnlyWhereTheyShould) {
  const auto ldap20 = loaded("ldap20.xml");
  const auto pre20 = loaded("pre20.xml");
  for (const char* attribute : {"profileFilter", "tlsMode", "serverPort", "useReferrals"}) {
    EXPECT_TRUE(ldap20->hasAttribute(kLdap, attribute)) << attribute;
    EXPECT_FALSE(pre20->hasAttribute(kLdap, attribute)) << attribute;
  }
  EXPECT_EQ(ldap20->stringValues(kLdap, "ldapIpAddress"), pre20->stringValues(kLdap, "ldapIpAddress"));
  EXPECT_FALSE(pre20->exists(kLdap + ",OrbelinFilter=1"));

  std::vector<std::string> objects = ldap20->objects();
  const auto noMethod = loaded("no-ldap-auth-method.xml");
  EXPECT_EQ(ldap20->classes(), noMethod->classes());
  for (const std::string& dn : noMethod->objects()) EXPECT_TRUE(ldap20->exists(dn)) << dn;
  EXPECT_FALSE(noMethod->exists(kSecM + ",UserManagement=1,LdapAuthenticationMethod=1"));

  const auto tls = loaded("tls.xml");
  objects.push_back(kSecM + ",Tls=1");
  EXPECT_EQ(objects, tls->objects());
  EXPECT_EQ(std::vector<std::string>{"ECDHE-RSA-AES256-GCM-SHA384:ECDHE-RSA-AES128-GCM-SHA256"},
            tls->stringValues(kSecM + ",Tls=1", "cipherFilter"));
  const auto noCipher = loaded("tls-no-cipher-filter.xml");
  EXPECT_EQ(objects, noCipher->objects());
  EXPECT_TRUE(noCipher->stringValues(kSecM + ",Tls=1", "cipherFilter").empty());
  EXPECT_EQ(tls->stringValues(kLdap, "baseDn"), noCipher->stringValues(kLdap, "baseDn"));
}

TEST(ModelStore, NotWellFormedNamesSourceAndLine) {
  EXPECT_EQ(0u, loadError(kSmallModel).size());
  const std::string error = loadError(replaced(kSmallModel, "  </object>\n", "  </objekt>\n"));
  EXPECT_EQ(0u, error.find("doc.xml:11: ")) << error;
}

TEST(ModelStore, UnknownAttributeNamesTheValueLine) {
  EXPECT_EQ("doc.xml:10: class A has no attribute \"status\"",
            loadError(replaced(kSmallModel, "attribute=\"state\"", "attribute=\"status\"")));
}

TEST(ModelStore, BadEnumLiteralNamesTheValueLine) {
  const std::string error = loadError(replaced(kSmallModel, ">UNLOCKED<", ">OPEN<"));
  EXPECT_EQ(0u, error.find("doc.xml:10: ")) << error;
  EXPECT_NE(std::string::npos, error.find("OPEN")) << error;
}

TEST(ModelStore, ValueForAMissingClassNamesTheObjectLine) {
  const std::string error = loadError(replaced(kSmallModel, "dn=\"A=1\"", "dn=\"B=1\""));
  EXPECT_EQ("doc.xml:9: object B=1 has no class B", error);
}

TEST(ModelStore, OtherMistakesNameTheirLine) {
  EXPECT_EQ(0u, loadError(replaced(kSmallModel, "type=\"uint16\"", "type=\"port\"")).find("doc.xml:7: "));
  EXPECT_EQ(0u, loadError(replaced(kSmallModel, "value=\"1\"", "value=\"0\"")).find("doc.xml:5: "));
  EXPECT_EQ(0u, loadError(replaced(kSmallModel, "</value>\n", "</value>\n<value attribute=\"port\">70000</value>\n"))
                    .find("doc.xml:11: "));
  EXPECT_EQ(0u, loadError(replaced(kSmallModel, "</value>\n", "</value>\n<value attribute=\"state\">0</value>\n"))
                    .find("doc.xml:11: "));
  EXPECT_EQ("doc.xml:9: object A=1,B=1 has no parent object A=1",
            loadError(replaced(replaced(kSmallModel, "dn=\"A=1\"", "dn=\"A=1,B=1\""), "<class path=\"A\">",
                               "<class path=\"A,B\">")));
  EXPECT_EQ(0u, loadError(replaced(kSmallModel, "<object dn=\"A=1\">", "<object dn=\"A=1\" id=\"7\">")).find("doc.xml:9:"));
  EXPECT_EQ(0u, loadError(replaced(kSmallModel, "  </class>\n", "  </class>\n  <klass/>\n")).find("doc.xml:9: "));
}

TEST(ModelStore, FileErrorsNameTheFile) {
  Poco::TemporaryFile directory;
  directory.createDirectories();
  const std::string path = directory.path() + "/broken.xml";
  std::ofstream(path) << replaced(kSmallModel, ">UNLOCKED<", ">OPEN<");
  auto store = std::make_unique<ModelStore>();
  try {
    store->loadFile(path);
    FAIL() << "loaded";
  } catch (const ModelError& error) {
    EXPECT_EQ(path, error.file());
    EXPECT_EQ(10u, error.line());
    EXPECT_EQ(0u, std::string(error.what()).find(path + ":10: "));
  }
  EXPECT_THROW(store->loadFile(directory.path() + "/absent.xml"), ModelError);
}

TEST(ModelStore, AFailedLoadKeepsTheModel) {
  auto store = std::make_unique<ModelStore>();
  store->loadText(kSmallModel);
  EXPECT_THROW(store->loadText("<model>"), ModelError);
  EXPECT_EQ(std::vector<std::string>{"A=1"}, store->objects());
}

TEST(ModelStore, AnAttributeTheClassLacksDoesNotExist) {
  const auto store = loaded("pre20.xml");
  EXPECT_EQ(PymNotExist, read(*store, kLdap, "profileFilter").code);
  EXPECT_EQ(PymNotExist, read(*loaded("ldap20.xml"), kLdap, "noSuchAttribute").code);
  EXPECT_EQ(PymNotExist, read(*store, kLdap + ",OrbelinFilter=1", "version").code);
}

TEST(ModelStore, ReadGivesAFreshCopy) {
  const auto store = loaded("ldap20.xml");
  const ReadResult first = read(*store, kLdap, "profileFilter");
  const ReadResult second = read(*store, kLdap, "profileFilter");
  ASSERT_EQ(PymOk, first.code);
  ASSERT_EQ(PymOk, second.code);
  EXPECT_NE(first.container.get(), second.container.get());
  EXPECT_EQ(PymMoValueType_Enum, first.container->type);
  ASSERT_EQ(1u, first.container->nrOfValues);
  EXPECT_EQ(0, first.container->values[0].theEnum);
  const ReadResult port = read(*store, kLdap, "serverPort");
  EXPECT_EQ(PymMoValueType_Uint16, port.container->type);
  EXPECT_EQ(389, port.container->values[0].u16);
  PymMoAttributeValueResult_3 result{};
  EXPECT_EQ(PymInvalidParameter, store->read(kLdap, "serverPort", nullptr));
  EXPECT_EQ(PymNotExist, store->read("ManagedElement=2", "serverPort", &result));
}

TEST(ModelStore, AnAttributeWithoutValueReadsAsNoValues) {
  const ReadResult nodeType = read(*loaded("ldap20.xml"), kLdap, "nodeType");
  ASSERT_EQ(PymOk, nodeType.code);
  EXPECT_EQ(PymMoValueType_String, nodeType.container->type);
  EXPECT_EQ(0u, nodeType.container->nrOfValues);
  const ReadResult password = read(*loaded("ldap20.xml"), kLdap, "bindPassword");
  EXPECT_EQ(PymMoValueType_Struct, password.container->type);
  EXPECT_EQ(0u, password.container->nrOfValues);
}

TEST(ModelStore, WriteChecksTypeAndNumberOfValues) {
  const auto store = loaded("ldap20.xml");
  PymMoAttributeValue_3 values[2] = {};
  values[0].theEnum = 1;
  values[1].theEnum = 0;
  PymMoAttributeValueContainer_3 container{PymMoValueType_Enum, 1, values};
  EXPECT_EQ(PymOk, store->write(kLdap, "tlsMode", container));
  EXPECT_EQ(std::vector<std::string>{"LDAPS"}, store->stringValues(kLdap, "tlsMode"));
  container.nrOfValues = 2;
  EXPECT_EQ(PymInvalidParameter, store->write(kLdap, "tlsMode", container));
  container.nrOfValues = 1;
  container.type = PymMoValueType_Int32;
  EXPECT_EQ(PymInvalidParameter, store->write(kLdap, "tlsMode", container));
  container.type = PymMoValueType_Enum;
  values[0].theEnum = 9;
  EXPECT_EQ(PymInvalidParameter, store->write(kLdap, "tlsMode", container));
  values[0].theEnum = 0;
  EXPECT_EQ(PymNotExist, store->write(kLdap, "noSuchAttribute", container));
  EXPECT_EQ(PymNotExist, store->write(kLdap + ",Filter=2", "type", container));
  EXPECT_EQ(std::vector<std::string>{"LDAPS"}, store->stringValues(kLdap, "tlsMode"));
  container.nrOfValues = 0;
  EXPECT_EQ(PymOk, store->write(kLdap, "tlsMode", container));
  EXPECT_TRUE(store->stringValues(kLdap, "tlsMode").empty());
}

TEST(ModelStore, ApplyChangesAllOrNone) {
  const auto store = loaded("ldap20.xml");
  const std::vector<Framework::AttributeValue> none;
  EXPECT_EQ(PymNotExist, store->apply({{{kLdap, "baseDn"}, none}, {{kLdap, "noSuch"}, none}}));
  EXPECT_EQ(std::vector<std::string>{"dc=example,dc=com"}, store->stringValues(kLdap, "baseDn"));
  EXPECT_EQ(PymOk, store->apply({{{kLdap, "baseDn"}, none}, {{kLdap, "bindDn"}, none}}));
  EXPECT_TRUE(store->stringValues(kLdap, "baseDn").empty());
  EXPECT_TRUE(store->stringValues(kLdap, "bindDn").empty());
}

TEST(ModelStore, RevertPutsBackWhatApplyReplaced) {
  const auto store = loaded("ldap20.xml");
  const ModelStore::Changes changes = {{{kLdap, "baseDn"}, {ValueCodec::fromText({}, "dc=new")}},
                                       {{kLdap, "fallbackLdapIpAddress"}, {ValueCodec::fromText({}, "10.0.0.2")}}};
  ModelStore::Changes replaced;
  ASSERT_EQ(PymOk, store->apply(changes, &replaced));
  EXPECT_EQ(std::vector<std::string>{"dc=new"}, store->stringValues(kLdap, "baseDn"));
  ASSERT_EQ(2u, replaced.size());
  EXPECT_TRUE(replaced.at({kLdap, "fallbackLdapIpAddress"}).empty());
  store->revert(changes, replaced);
  EXPECT_EQ(std::vector<std::string>{"dc=example,dc=com"}, store->stringValues(kLdap, "baseDn"));
  EXPECT_TRUE(store->stringValues(kLdap, "fallbackLdapIpAddress").empty());
}

TEST(ModelStore, RevertKeepsAValueWrittenSince) {
  const auto store = loaded("ldap20.xml");
  const ModelStore::Changes changes = {{{kLdap, "baseDn"}, {ValueCodec::fromText({}, "dc=first")}}};
  ModelStore::Changes replaced;
  ASSERT_EQ(PymOk, store->apply(changes, &replaced));
  store->setStringValues(kLdap, "baseDn", {"dc=later"});
  store->revert(changes, replaced);
  EXPECT_EQ(std::vector<std::string>{"dc=later"}, store->stringValues(kLdap, "baseDn"));
}

TEST(ModelStore, DefinitionsOfAttributes) {
  const auto store = loaded("ldap20.xml");
  const std::optional<Framework::AttributeDefinition> tlsMode = store->attributeDefinition(kLdap, "tlsMode");
  ASSERT_TRUE(tlsMode.has_value());
  EXPECT_EQ(PymMoValueType_Enum, tlsMode->type);
  EXPECT_EQ(2u, tlsMode->literals.size());
  ASSERT_TRUE(store->attributeDefinition(kLdap, "bindPassword").has_value());
  EXPECT_EQ("password", store->attributeDefinition(kLdap, "bindPassword")->members.at(0).name);
  EXPECT_FALSE(store->attributeDefinition(kLdap, "noSuch").has_value());
  EXPECT_FALSE(store->attributeDefinition("ManagedElement=9", "baseDn").has_value());
}

TEST(ModelStore, ChildrenOfOneClassInDocumentOrder) {
  auto store = std::make_unique<ModelStore>();
  store->loadText(
      "<model><class path=\"R\"/><class path=\"R,C\"/><class path=\"R,D\"/>"
      "<object dn=\"R=1\"/><object dn=\"R=1,C=b\"/><object dn=\"R=1,D=1\"/><object dn=\"R=1,C=a\"/>"
      "<object dn=\"R=2\"/></model>");
  std::vector<std::string> children;
  EXPECT_EQ(PymOk, store->children("R=1", "C", children));
  EXPECT_EQ((std::vector<std::string>{"R=1,C=b", "R=1,C=a"}), children);
  EXPECT_EQ(PymOk, store->children("", "R", children));
  EXPECT_EQ((std::vector<std::string>{"R=1", "R=2"}), children);
  EXPECT_EQ(PymOk, store->children("R=2", "D", children));
  EXPECT_TRUE(children.empty());
  EXPECT_EQ(PymNotExist, store->children("R=1", "E", children));
  EXPECT_EQ(PymNotExist, store->children("R=3", "C", children));
  EXPECT_TRUE(store->exists("R=1,D=1"));
  EXPECT_FALSE(store->exists("R=1,D=2"));
  EXPECT_FALSE(store->exists(""));
}

TEST(ModelStore, SaveAndLoadRoundTrip) {
  Poco::TemporaryFile directory;
  directory.createDirectories();
  const std::string path = directory.path() + "/model.xml";
  const auto store = loaded("ldap20.xml");
  store->setStringValues(kLdap, "nodeType", {"type A", "<b> & \"c\"", "line\nbreak\tand tab"});
  store->setStringValues(kLdap, "ldapIpAddress", {" 10.0.0.1 "});
  store->setStructValue(kLdap, "bindPassword", {{"password", {"c2VjcmV0"}}});
  store->setStringValues(kLdap, "serverPort", {"636"});
  store->saveFile(path);
  store->saveFile(path);

  ModelStore reloaded;
  reloaded.loadFile(path);
  EXPECT_EQ(store->toXml(), reloaded.toXml());
  EXPECT_EQ(fileText(path), reloaded.toXml());
  EXPECT_EQ((std::vector<std::string>{"type A", "<b> & \"c\"", "line\nbreak\tand tab"}),
            reloaded.stringValues(kLdap, "nodeType"));
  EXPECT_EQ(std::vector<std::string>{" 10.0.0.1 "}, reloaded.stringValues(kLdap, "ldapIpAddress"));
  EXPECT_EQ(std::vector<std::string>{"c2VjcmV0"}, reloaded.memberStringValues(kLdap, "bindPassword", "password"));
  EXPECT_EQ(std::vector<std::string>{"636"}, reloaded.stringValues(kLdap, "serverPort"));

  std::vector<std::string> files;
  for (Poco::DirectoryIterator file(directory.path()), end; file != end; ++file) files.push_back(file.name());
  EXPECT_EQ(std::vector<std::string>{"model.xml"}, files);
}

TEST(ModelStore, SavingIntoAMissingDirectoryFails) {
  EXPECT_THROW(loaded("ldap20.xml")->saveFile("/nonexistent-directory/model.xml"), std::runtime_error);
}

TEST(ModelStore, StringHelpersTakeLiteralNamesOrNumbers) {
  const auto store = loaded("ldap20.xml");
  store->setStringValues(kLdap, "profileFilter", {"2"});
  EXPECT_EQ(std::vector<std::string>{"FLEXIBLE"}, store->stringValues(kLdap, "profileFilter"));
  store->setStringValues(kLdap, "profileFilter", {"ORBELIN"});
  EXPECT_EQ(std::vector<std::string>{"ORBELIN"}, store->stringValues(kLdap, "profileFilter"));
  EXPECT_THROW(store->setStringValues(kLdap, "profileFilter", {"NONE"}), std::invalid_argument);
  EXPECT_THROW(store->setStringValues(kLdap, "profileFilter", {"0", "1"}), std::invalid_argument);
  EXPECT_THROW(store->setStringValues(kLdap, "noSuch", {"x"}), std::invalid_argument);
  EXPECT_THROW(store->setStringValues("Nothing=1", "baseDn", {"x"}), std::invalid_argument);
  EXPECT_THROW(store->stringValues(kLdap, "bindPassword"), std::invalid_argument);
  EXPECT_THROW(store->setStructValue(kLdap, "baseDn", {}), std::invalid_argument);
  EXPECT_THROW(store->setStructValue(kLdap, "bindPassword", {{"passwd", {"x"}}}), std::invalid_argument);
  EXPECT_THROW(store->memberStringValues(kLdap, "bindPassword", "passwd"), std::invalid_argument);
  store->setStringValues(kLdap, "profileFilter", {});
  EXPECT_TRUE(store->stringValues(kLdap, "profileFilter").empty());
}

TEST(ModelStore, ListsClassesAndObjectsInDocumentOrder) {
  const auto store = loaded("ldap20.xml");
  const std::vector<std::string> classes = store->classes();
  ASSERT_FALSE(classes.empty());
  EXPECT_EQ("ManagedElement", classes.front());
  EXPECT_NE(classes.end(), std::find(classes.begin(), classes.end(), kLdapClass));
  const std::vector<std::string> objects = store->objects();
  EXPECT_EQ("ManagedElement=1", objects.front());
  EXPECT_TRUE(store->hasAttribute(kLdap, "bindPassword"));
  EXPECT_FALSE(store->hasAttribute(kLdap, "cipherFilter"));
}
