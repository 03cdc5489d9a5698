#include <Qiv/CryptoUtility.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "FakeFramework.h"

namespace {

typedef std::unique_ptr<char, decltype(&std::free)> Buffer;

class CryptoUtilityTest : public FakeFrameworkTest {};

TEST(CryptoUtilityWithoutServiceTest, FailsWithMinusOne) {
  const Qiv::CryptoUtility crypto;
  EXPECT_FALSE(crypto.hasInterface());
  char* result = reinterpret_cast<char*>(0x1);
  EXPECT_EQ(-1, crypto.decrypt("secret", &result));
  EXPECT_EQ(nullptr, result);
  EXPECT_EQ(-1, crypto.encrypt("secret", &result));
  EXPECT_EQ(nullptr, result);
}

TEST_F(CryptoUtilityTest, ForwardsDecrypt) {
  const Qiv::CryptoUtility crypto(cryptoTable());
  EXPECT_TRUE(crypto.hasInterface());
  char* clear = nullptr;
  ASSERT_EQ(0, crypto.decrypt("c2VjcmV0", &clear));
  Buffer owned(clear, &std::free);
  EXPECT_STREQ("dec(c2VjcmV0)", clear);
}

TEST_F(CryptoUtilityTest, ForwardsEncrypt) {
  Qiv::CryptoUtility crypto;
  crypto.setInterface(cryptoTable());
  char* encrypted = nullptr;
  ASSERT_EQ(0, crypto.encrypt("secret", &encrypted));
  Buffer owned(encrypted, &std::free);
  EXPECT_STREQ("enc(secret)", encrypted);
}

TEST_F(CryptoUtilityTest, PassesServiceCodeOn) {
  const Qiv::CryptoUtility crypto(cryptoTable());
  cryptoResult = -17;
  char* clear = nullptr;
  EXPECT_EQ(-17, crypto.decrypt("garbage", &clear));
  EXPECT_EQ(nullptr, clear);
  EXPECT_EQ(-17, crypto.encrypt("text", &clear));
}

TEST_F(CryptoUtilityTest, ReleaseDropsTheContext) {
  Qiv::CryptoUtility crypto(cryptoTable());
  crypto.release();
  EXPECT_FALSE(crypto.hasInterface());
  char* clear = nullptr;
  EXPECT_EQ(-1, crypto.decrypt("c2VjcmV0", &clear));
  EXPECT_EQ(nullptr, clear);
}

TEST_F(CryptoUtilityTest, NullResultPointerIsRejected) {
  const Qiv::CryptoUtility crypto(cryptoTable());
  EXPECT_EQ(PymInvalidParameter, crypto.decrypt("c2VjcmV0", nullptr));
}

}  // namespace
