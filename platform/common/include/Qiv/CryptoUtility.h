#ifndef QIV_CRYPTO_UTILITY_H
#define QIV_CRYPTO_UTILITY_H

#include <PymMwSpiCrypto.h>

namespace Qiv {

// A crypto context over the framework's "PymMwSpiCrypto" "1" interface.
class CryptoUtility {
 public:
  explicit CryptoUtility(PymMwSpiCrypto_1* crypto = nullptr);

  void setInterface(PymMwSpiCrypto_1* crypto);
  bool hasInterface() const;

  // 0 with *clear set to a malloc'ed buffer the caller frees, or the service's code (-1 with
  // no service); *clear may hold a buffer on failure too, which the caller frees as well.
  int decrypt(const char* encrypted, char** clear) const;
  int encrypt(const char* clear, char** encrypted) const;

  // Drops the context.
  void release();

 private:
  PymMwSpiCrypto_1* _crypto;
};

}  // namespace Qiv

#endif
