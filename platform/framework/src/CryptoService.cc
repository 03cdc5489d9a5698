#include <Framework/CryptoService.h>

#include <Framework/CString.h>
#include <Framework/ManagementFramework.h>
#include <PymMwSpiCrypto.h>

#include <Poco/Base64Decoder.h>
#include <Poco/Base64Encoder.h>
#include <Poco/Exception.h>

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cctype>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace Framework {

namespace {

// Only for demonstrations and tests; a node is given its own key.
const char* const kDemoKey = "6a1f3c9e58b24d07a1e9c4f2b7d05e8391c6a4f0d2b8e5c7193f6a0b4d2e8c51";
constexpr std::size_t kIvSize = 12;
constexpr std::size_t kTagSize = 16;

using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

CipherContext newContext() {
  CipherContext context(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
  if (!context) throw std::runtime_error("EVP_CIPHER_CTX_new failed");
  return context;
}

std::string toBase64(const std::string& bytes) {
  std::ostringstream out;
  Poco::Base64Encoder encoder(out);
  encoder.rdbuf()->setLineLength(0);
  encoder << bytes;
  encoder.close();
  return out.str();
}

std::string fromBase64(const std::string& text) {
  try {
    std::istringstream in(text);
    Poco::Base64Decoder decoder(in);
    std::ostringstream out;
    out << decoder.rdbuf();
    return out.str();
  } catch (const Poco::Exception& error) {
    throw std::invalid_argument("not base64: " + error.displayText());
  }
}

// Runs operation (encrypt or decrypt) of the current service for the C table.
PymReturnT callService(std::string (CryptoService::*operation)(const std::string&) const, const char* input,
                       char** result) {
  if (result == nullptr) return PymFailure;
  *result = nullptr;
  return ManagementFramework::withCurrent([&](ManagementFramework& framework) -> PymReturnT {
    if (input == nullptr) return PymFailure;
    *result = CString::duplicate((framework.crypto().*operation)(input));
    return PymOk;
  });
}

PymReturnT encryptText(const char* clearText, char** result) {
  return callService(&CryptoService::encrypt, clearText, result);
}

PymReturnT decryptText(const char* encryptedText, char** result) {
  return callService(&CryptoService::decrypt, encryptedText, result);
}

PymMwSpiCrypto_1 cryptoTable = {{"PymMwSpiCryptoService", "PymMwSpiCrypto", "1"}, encryptText, decryptText};

}  // namespace

CryptoService::CryptoService(const std::string& hexKey) : _key() {
  const std::string hex = hexKey.empty() ? kDemoKey : hexKey;
  if (hex.size() != 2 * _key.size()) throw std::invalid_argument("the crypto key must be 64 hex digits");
  for (std::size_t i = 0; i < _key.size(); ++i) {
    const std::string digits = hex.substr(2 * i, 2);
    if (!std::isxdigit(static_cast<unsigned char>(digits[0])) || !std::isxdigit(static_cast<unsigned char>(digits[1]))) {
      throw std::invalid_argument("the crypto key must be 64 hex digits");
    }
    _key[i] = static_cast<unsigned char>(std::stoul(digits, nullptr, 16));
  }
}

std::string CryptoService::encrypt(const std::string& clearText) const {
  unsigned char iv[kIvSize];
  if (RAND_bytes(iv, sizeof iv) != 1) throw std::runtime_error("RAND_bytes failed");
  CipherContext context = newContext();
  // One spare byte so that the buffer is never empty.
  std::string cipherText(clearText.size() + 1, '\0');
  auto* out = reinterpret_cast<unsigned char*>(&cipherText[0]);
  int length = 0;
  int finalLength = 0;
  unsigned char tag[kTagSize];
  if (EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, _key.data(), iv) != 1 ||
      EVP_EncryptUpdate(context.get(), out, &length, reinterpret_cast<const unsigned char*>(clearText.data()),
                        static_cast<int>(clearText.size())) != 1 ||
      EVP_EncryptFinal_ex(context.get(), out + length, &finalLength) != 1 ||
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, kTagSize, tag) != 1) {
    throw std::runtime_error("AES-256-GCM encryption failed");
  }
  cipherText.resize(static_cast<std::size_t>(length + finalLength));
  return toBase64(std::string(reinterpret_cast<const char*>(iv), kIvSize) + cipherText +
                  std::string(reinterpret_cast<const char*>(tag), kTagSize));
}

std::string CryptoService::decrypt(const std::string& encryptedText) const {
  const std::string bytes = fromBase64(encryptedText);
  if (bytes.size() < kIvSize + kTagSize) throw std::invalid_argument("encrypted text too short");
  const std::string cipherText = bytes.substr(kIvSize, bytes.size() - kIvSize - kTagSize);
  std::string tag = bytes.substr(bytes.size() - kTagSize);
  std::string clearText(cipherText.size() + 1, '\0');
  auto* out = reinterpret_cast<unsigned char*>(&clearText[0]);
  int length = 0;
  int finalLength = 0;
  CipherContext context = newContext();
  if (EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, _key.data(),
                         reinterpret_cast<const unsigned char*>(bytes.data())) != 1 ||
      EVP_DecryptUpdate(context.get(), out, &length, reinterpret_cast<const unsigned char*>(cipherText.data()),
                        static_cast<int>(cipherText.size())) != 1 ||
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, kTagSize, &tag[0]) != 1 ||
      EVP_DecryptFinal_ex(context.get(), out + length, &finalLength) != 1) {
    throw std::invalid_argument("encrypted text does not authenticate");
  }
  clearText.resize(static_cast<std::size_t>(length + finalLength));
  return clearText;
}

std::vector<PymMgmtSpiInterface_1*> CryptoService::interfaces() { return {&cryptoTable.base}; }

}  // namespace Framework
