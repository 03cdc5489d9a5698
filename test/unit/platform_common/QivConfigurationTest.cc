#include <Poco/DOM/Element.h>
#include <Poco/DOM/NodeList.h>
#include <Qiv/QivConfiguration.h>
#include <Qiv/QivException.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using ::testing::HasSubstr;

const char* const CONFIG =
    "<?xml version=\"1.0\"?>\n"
    "<config>\n"
    "  <server host=\" ldap.example.com \" port=\"636\">\n"
    "    <port>\n"
    "      389\n"
    "    </port>\n"
    "    <name>  primary  </name>\n"
    "    <options><timeout>5</timeout></options>\n"
    "  </server>\n"
    "  <server host=\"backup\"/>\n"
    "</config>\n";

// Releases a node list when the test ends.
struct ListHolder {
  explicit ListHolder(Poco::XML::NodeList* l) : list(l) {}
  ~ListHolder() {
    if (list != nullptr) list->release();
  }
  Poco::XML::NodeList* list;
};

class QivConfigurationTest : public ::testing::Test {
 protected:
  void SetUp() override { config.load(CONFIG); }

  const Poco::XML::Element* server(unsigned long index, ListHolder& holder) {
    holder.list = config.getElementsByTagName("server");
    return static_cast<const Poco::XML::Element*>(holder.list->item(index));
  }

  Qiv::QivConfiguration config;
};

TEST_F(QivConfigurationTest, FindsElementsInDocumentOrder) {
  ASSERT_TRUE(config.isLoaded());
  ListHolder servers(config.getElementsByTagName("server"));
  ASSERT_NE(nullptr, servers.list);
  ASSERT_EQ(2u, servers.list->length());
  EXPECT_EQ(" ldap.example.com ", static_cast<Poco::XML::Element*>(servers.list->item(0))->getAttribute("host"));
  EXPECT_EQ("backup", static_cast<Poco::XML::Element*>(servers.list->item(1))->getAttribute("host"));
  ListHolder timeouts(config.getElementsByTagName("timeout"));
  EXPECT_EQ(1u, timeouts.list->length());
}

TEST_F(QivConfigurationTest, ChildElementValueIsTrimmed) {
  ListHolder holder(nullptr);
  std::string value;
  ASSERT_TRUE(Qiv::QivConfiguration::getElementValue(config, server(0, holder), "name", value));
  EXPECT_EQ("primary", value);
}

TEST_F(QivConfigurationTest, ChildElementWinsOverAttribute) {
  ListHolder holder(nullptr);
  std::string value;
  ASSERT_TRUE(Qiv::QivConfiguration::getElementValue(config, server(0, holder), "port", value));
  EXPECT_EQ("389", value);
}

TEST_F(QivConfigurationTest, AttributeWhenNoChildElement) {
  ListHolder holder(nullptr);
  std::string value;
  ASSERT_TRUE(Qiv::QivConfiguration::getElementValue(config, server(0, holder), "host", value));
  EXPECT_EQ("ldap.example.com", value);
}

TEST_F(QivConfigurationTest, OnlyDirectChildrenCount) {
  ListHolder holder(nullptr);
  std::string value = "unchanged";
  EXPECT_FALSE(Qiv::QivConfiguration::getElementValue(config, server(0, holder), "timeout", value));
  EXPECT_EQ("unchanged", value);
}

TEST_F(QivConfigurationTest, MissingKeyIsFalse) {
  ListHolder holder(nullptr);
  std::string value = "unchanged";
  EXPECT_FALSE(Qiv::QivConfiguration::getElementValue(config, server(1, holder), "port", value));
  EXPECT_EQ("unchanged", value);
}

TEST_F(QivConfigurationTest, NullElementIsFalse) {
  std::string value;
  EXPECT_FALSE(Qiv::QivConfiguration::getElementValue(config, nullptr, "port", value));
}

TEST_F(QivConfigurationTest, UnloadDropsTheDocument) {
  config.unload();
  EXPECT_FALSE(config.isLoaded());
  EXPECT_EQ(nullptr, config.getElementsByTagName("server"));
}

TEST_F(QivConfigurationTest, LoadReplacesTheDocument) {
  config.load("<config><client/></config>");
  ListHolder servers(config.getElementsByTagName("server"));
  ListHolder clients(config.getElementsByTagName("client"));
  EXPECT_EQ(0u, servers.list->length());
  EXPECT_EQ(1u, clients.list->length());
}

TEST(QivConfigurationLoadTest, NothingLoadedAtFirst) {
  const Qiv::QivConfiguration config;
  EXPECT_FALSE(config.isLoaded());
  EXPECT_EQ(nullptr, config.getElementsByTagName("server"));
}

TEST(QivConfigurationLoadTest, NotWellFormedThrowsWithPosition) {
  Qiv::QivConfiguration config;
  config.load("<config/>");
  try {
    config.load("<config>\n  <server>\n  </config>\n");
    FAIL() << "no exception";
  } catch (const Qiv::QivException& e) {
    EXPECT_THAT(e.what(), HasSubstr("(line 3, column "));
    EXPECT_THAT(e.what(), HasSubstr("mismatch"));
  }
  EXPECT_FALSE(config.isLoaded());
}

TEST(QivConfigurationLoadTest, EmptyTextThrows) {
  Qiv::QivConfiguration config;
  EXPECT_THROW(config.load(""), Qiv::QivException);
  EXPECT_FALSE(config.isLoaded());
}

}  // namespace
