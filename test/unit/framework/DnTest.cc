#include <Framework/Dn.h>

#include <gtest/gtest.h>

#include <stdexcept>

using Framework::Dn;

TEST(Dn, ClassPathDropsTheValues) {
  EXPECT_EQ("A,B", Dn::classPath("A=1,B=2"));
  EXPECT_EQ("ManagedElement", Dn::classPath("ManagedElement=1"));
  EXPECT_EQ("A,B", Dn::classPath("A=x=y,B=2"));
}

TEST(Dn, MalformedElementsAreRejected) {
  EXPECT_THROW(Dn::classPath(""), std::invalid_argument);
  EXPECT_THROW(Dn::classPath("A"), std::invalid_argument);
  EXPECT_THROW(Dn::classPath("A=1,"), std::invalid_argument);
  EXPECT_THROW(Dn::classPath("=1"), std::invalid_argument);
  EXPECT_THROW(Dn::classPath("A="), std::invalid_argument);
}

TEST(Dn, ImplementerPathIsTheSlashForm) {
  EXPECT_EQ("/ManagedElement/SystemFunctions/SecM", Dn::implementerPath("ManagedElement=1,SystemFunctions=1,SecM=1"));
  EXPECT_EQ("/A", Dn::implementerPath("A=x=y"));
  EXPECT_THROW(Dn::implementerPath("A=1,B"), std::invalid_argument);
}

TEST(Dn, ParentDropsTheLastElement) {
  EXPECT_EQ("A=1", Dn::parent("A=1,B=2"));
  EXPECT_EQ("", Dn::parent("A=1"));
}

TEST(Dn, LastElementOfAPath) {
  EXPECT_EQ("B", Dn::lastElement("A,B"));
  EXPECT_EQ("A", Dn::lastElement("A"));
}
