#include <Framework/ModelError.h>

#include <gtest/gtest.h>

using Framework::ModelError;

TEST(ModelError, NamesFileAndLine) {
  const ModelError error("models/x.xml", 12, "class A has no attribute \"b\"");
  EXPECT_STREQ("models/x.xml:12: class A has no attribute \"b\"", error.what());
  EXPECT_EQ("models/x.xml", error.file());
  EXPECT_EQ(12u, error.line());
}

TEST(ModelError, WithoutLineNamesTheFileOnly) {
  const ModelError error("missing.xml", 0, "cannot open the model");
  EXPECT_STREQ("missing.xml: cannot open the model", error.what());
}

TEST(ModelError, IsARuntimeError) {
  try {
    throw ModelError("f.xml", 3, "bad");
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ("f.xml:3: bad", error.what());
    return;
  }
  FAIL() << "not caught as std::runtime_error";
}
