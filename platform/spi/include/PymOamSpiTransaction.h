/* Configuration transactions: starting them, and taking part in them. */
#ifndef PYM_OAM_SPI_TRANSACTION_H
#define PYM_OAM_SPI_TRANSACTION_H

#include "PymSpiTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum PymLockPolicy {
  PymLockPolicyNone = 0,
  PymLockPolicyExclusive = 1  /* the transaction's writes lock the objects until it ends */
} PymLockPolicy;

/* "PymOamSpiTransaction" "2": run a transaction of one's own. commit runs both phases over
 * every participant; a refusal aborts the transaction and gives the participant's code. Either
 * call ends the transaction. */
typedef struct PymOamSpiTransaction_2 {
  PymMgmtSpiInterface_1 base;
  PymReturnT (*newTransaction)(PymLockPolicy lockPolicy, uint32_t timeoutSeconds, unsigned long* txHandle);
  PymReturnT (*commit)(unsigned long txHandle);
  PymReturnT (*abort)(unsigned long txHandle);
} PymOamSpiTransaction_2;

/* "PymOamSpiTransactionalResource" "2": what a participant offers. The framework calls join
 * on the participant's first write, then validate, prepare, commit and finish, or abort. */
typedef struct PymOamSpiTransactionalResource_2 {
  PymMgmtSpiInterface_1 base;
  PymReturnT (*join)(unsigned long txHandle);
  PymReturnT (*prepare)(unsigned long txHandle);
  PymReturnT (*commit)(unsigned long txHandle);
  PymReturnT (*abort)(unsigned long txHandle);
  PymReturnT (*finish)(unsigned long txHandle);
  PymReturnT (*validate)(unsigned long txHandle, bool* result);
} PymOamSpiTransactionalResource_2;

/* "PymOamSpiTransactionMaster" "2": how a participant enrols in a running transaction. */
typedef struct PymOamSpiTransactionMaster_2 {
  PymMgmtSpiInterface_1 base;
  PymReturnT (*registerParticipant)(unsigned long txHandle, const PymOamSpiTransactionalResource_2* resource);
} PymOamSpiTransactionMaster_2;

#ifdef __cplusplus
}
#endif

#endif
