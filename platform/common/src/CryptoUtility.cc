#include <Qiv/CryptoUtility.h>

namespace Qiv {

namespace {

typedef PymReturnT (*CryptoOperation)(const char* input, char** result);

int run(CryptoOperation operation, const char* input, char** result) {
  if (result == nullptr) return PymInvalidParameter;
  *result = nullptr;
  if (operation == nullptr) return PymFailure;
  return operation(input, result);
}

}  // namespace

CryptoUtility::CryptoUtility(PymMwSpiCrypto_1* crypto) : _crypto(crypto) {}

void CryptoUtility::setInterface(PymMwSpiCrypto_1* crypto) { _crypto = crypto; }

bool CryptoUtility::hasInterface() const { return _crypto != nullptr; }

int CryptoUtility::decrypt(const char* encrypted, char** clear) const {
  return run(_crypto != nullptr ? _crypto->decrypt : nullptr, encrypted, clear);
}

int CryptoUtility::encrypt(const char* clear, char** encrypted) const {
  return run(_crypto != nullptr ? _crypto->encrypt : nullptr, clear, encrypted);
}

void CryptoUtility::release() { _crypto = nullptr; }

}  // namespace Qiv
