#include "FrameworkTest.h"

#include <Framework/CryptoService.h>
#include <PymMwSpiCrypto.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <vector>

using Framework::CryptoService;

namespace {

const std::string kKey = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

// Flips one bit of the character at index of a base64 text, keeping it base64.
std::string flipped(std::string text, std::size_t index) {
  text[index] = text[index] == 'A' ? 'B' : 'A';
  return text;
}

using CText = std::unique_ptr<char, decltype(&std::free)>;

}  // namespace

TEST(CryptoService, RoundTrip) {
  const CryptoService crypto(kKey);
  for (const std::string& clear :
       std::vector<std::string>{"", "secret", "p\xc3\xa4ssw\xc3\xb6rd with spaces", std::string(1000, 'x')}) {
    EXPECT_EQ(clear, crypto.decrypt(crypto.encrypt(clear)));
  }
}

TEST(CryptoService, EachEncryptionUsesAFreshIv) {
  const CryptoService crypto(kKey);
  const std::string first = crypto.encrypt("secret");
  const std::string second = crypto.encrypt("secret");
  EXPECT_NE(first, second);
  EXPECT_EQ(first.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/="),
            std::string::npos);
  // 12-byte IV, 6 bytes of text and 16-byte tag: 34 bytes, 48 base64 characters.
  EXPECT_EQ(48u, first.size());
}

TEST(CryptoService, TamperingIsDetected) {
  const CryptoService crypto(kKey);
  const std::string encrypted = crypto.encrypt("secret");
  EXPECT_THROW(crypto.decrypt(flipped(encrypted, 2)), std::invalid_argument);    // IV
  EXPECT_THROW(crypto.decrypt(flipped(encrypted, 20)), std::invalid_argument);   // ciphertext
  EXPECT_THROW(crypto.decrypt(flipped(encrypted, 40)), std::invalid_argument);   // tag
  EXPECT_THROW(crypto.decrypt(encrypted.substr(0, 36)), std::invalid_argument);  // truncated
}

TEST(CryptoService, AnotherKeyCannotDecrypt) {
  const std::string encrypted = CryptoService(kKey).encrypt("secret");
  EXPECT_THROW(CryptoService("").decrypt(encrypted), std::invalid_argument);
  EXPECT_EQ("secret", CryptoService("").decrypt(CryptoService("").encrypt("secret")));
}

TEST(CryptoService, GarbageIsRejected) {
  const CryptoService crypto(kKey);
  EXPECT_THROW(crypto.decrypt("not base64 at all!"), std::invalid_argument);
  EXPECT_THROW(crypto.decrypt(""), std::invalid_argument);
  EXPECT_THROW(crypto.decrypt("c2hvcnQ="), std::invalid_argument);
}

TEST(CryptoService, KeyMustBe64HexDigits) {
  EXPECT_THROW(CryptoService("00"), std::invalid_argument);
  EXPECT_THROW(CryptoService(std::string(63, 'a') + "g"), std::invalid_argument);
  EXPECT_THROW(CryptoService(kKey + "00"), std::invalid_argument);
  EXPECT_NO_THROW(CryptoService(std::string(64, 'F')));
}

class CryptoTable : public FrameworkTest {
 protected:
  void SetUp() override {
    FrameworkTest::SetUp();
    crypto = lookup<PymMwSpiCrypto_1>(nullptr, "PymMwSpiCrypto", "1");
    ASSERT_NE(nullptr, crypto);
  }

  PymMwSpiCrypto_1* crypto = nullptr;
};

TEST_F(CryptoTable, RoundTripWithMallocedResults) {
  char* encrypted = nullptr;
  ASSERT_EQ(PymOk, crypto->encrypt("bind secret", &encrypted));
  const CText encryptedText(encrypted, &std::free);
  EXPECT_EQ("bind secret", framework->crypto().decrypt(encrypted));
  char* clear = nullptr;
  ASSERT_EQ(PymOk, crypto->decrypt(encrypted, &clear));
  const CText clearText(clear, &std::free);
  EXPECT_STREQ("bind secret", clear);
}

TEST_F(CryptoTable, FailuresLeaveTheResultNull) {
  char* result = reinterpret_cast<char*>(0x1);
  EXPECT_EQ(PymFailure, crypto->decrypt("garbage", &result));
  EXPECT_EQ(nullptr, result);
  result = reinterpret_cast<char*>(0x1);
  EXPECT_EQ(PymFailure, crypto->decrypt(nullptr, &result));
  EXPECT_EQ(nullptr, result);
  result = reinterpret_cast<char*>(0x1);
  EXPECT_EQ(PymFailure, crypto->encrypt(nullptr, &result));
  EXPECT_EQ(nullptr, result);
  EXPECT_EQ(PymFailure, crypto->encrypt("x", nullptr));
  EXPECT_EQ(PymFailure, crypto->decrypt("x", nullptr));
  const std::string tampered = flipped(framework->crypto().encrypt("secret"), 20);
  result = reinterpret_cast<char*>(0x1);
  EXPECT_EQ(PymFailure, crypto->decrypt(tampered.c_str(), &result));
  EXPECT_EQ(nullptr, result);
}

TEST_F(CryptoTable, TheFrameworkUsesTheConfiguredKey) {
  Framework::ManagementFramework::Options options;
  options.modelFile = modelPath("ldap20.xml");
  options.cryptoKey = kKey;
  options.echoLevel = -1;
  framework.reset();
  framework = std::make_unique<Framework::ManagementFramework>(options);
  char* encrypted = nullptr;
  ASSERT_EQ(PymOk, crypto->encrypt("secret", &encrypted));
  const CText encryptedText(encrypted, &std::free);
  EXPECT_EQ("secret", CryptoService(kKey).decrypt(encrypted));
}

TEST_F(CryptoTable, WithoutFrameworkItFails) {
  framework.reset();
  char* result = reinterpret_cast<char*>(0x1);
  EXPECT_EQ(PymFailure, crypto->encrypt("x", &result));
  EXPECT_EQ(nullptr, result);
}
