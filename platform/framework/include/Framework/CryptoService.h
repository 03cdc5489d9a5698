#ifndef FRAMEWORK_CRYPTO_SERVICE_H
#define FRAMEWORK_CRYPTO_SERVICE_H

#include <PymSpiTypes.h>

#include <array>
#include <string>
#include <vector>

namespace Framework {

// Encryption of secrets the model stores: AES-256-GCM with a random 12-byte IV per text, written
// as base64(iv | ciphertext | 16-byte tag). Thread-safe (the key never changes).
class CryptoService {
 public:
  // hexKey: 64 hex digits, or empty for the built-in demo key; throws std::invalid_argument.
  explicit CryptoService(const std::string& hexKey);

  // Throws std::runtime_error when OpenSSL fails.
  std::string encrypt(const std::string& clearText) const;
  // Throws std::invalid_argument when the text is not one of ours: bad base64, too short,
  // tampered with or encrypted under another key.
  std::string decrypt(const std::string& encryptedText) const;

  // The "PymMwSpiCrypto" "1" table; it uses the current framework's service.
  static std::vector<PymMgmtSpiInterface_1*> interfaces();

 private:
  std::array<unsigned char, 32> _key;
};

}  // namespace Framework

#endif
