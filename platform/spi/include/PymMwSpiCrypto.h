/* Encryption of secrets that the model stores. */
#ifndef PYM_MW_SPI_CRYPTO_H
#define PYM_MW_SPI_CRYPTO_H

#include "PymSpiTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* "PymMwSpiCrypto" "1". Results are malloc'ed NUL-terminated strings released with free;
 * on failure *result is left null. */
typedef struct PymMwSpiCrypto_1 {
  PymMgmtSpiInterface_1 base;
  PymReturnT (*encrypt)(const char* clearText, char** result);
  PymReturnT (*decrypt)(const char* encryptedText, char** result);
} PymMwSpiCrypto_1;

#ifdef __cplusplus
}
#endif

#endif
