/* Configuration-change notifications and the event router that delivers them. */
#ifndef PYM_OAM_SPI_CM_EVENT_H
#define PYM_OAM_SPI_CM_EVENT_H

#include "PymOamSpiMoValue.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum PymOamSpiCmEvent_EventType_1 {
  PymOamSpiCmEvent_MoCreated = 1,
  PymOamSpiCmEvent_MoDeleted = 2,
  PymOamSpiCmEvent_AttributeValueChange = 3
} PymOamSpiCmEvent_EventType_1;

/* One change of one object; attributes is null-terminated (null for creation and deletion). */
typedef struct PymOamSpiCmEvent_1 {
  const char* dn;
  PymOamSpiCmEvent_EventType_1 eventType;
  PymMoNamedAttributeValueContainer_3** attributes;
} PymOamSpiCmEvent_1;

/* Value of an event of type "PymOamSpiCmEvent_Notification_1": the changes one transaction
 * committed; events is null-terminated. */
typedef struct PymOamSpiCmEvent_Notification_1 {
  unsigned long txHandle;
  PymOamSpiCmEvent_1** events;
} PymOamSpiCmEvent_Notification_1;

/* A consumer of events; the router calls notify on its own thread. */
typedef struct QivOamSpiEventConsumer_1 {
  PymReturnT (*notify)(unsigned long consumerHandle, const char* eventType, PymNameValuePair** filter,
                       void* value);
} QivOamSpiEventConsumer_1;

/* "QivOamSpiEventRouter" "1" of "QivOamSpiEventService". A filter is a null-terminated array
 * of name/value pairs; "PymOamSpiCmEvent_FilterTypeRegExp_1" pairs match DNs by regular
 * expression. */
typedef struct QivOamSpiEventRouter_1 {
  PymMgmtSpiInterface_1 base;
  PymReturnT (*registerConsumer)(QivOamSpiEventConsumer_1* consumer, unsigned long* consumerHandle);
  PymReturnT (*addSubscription)(unsigned long consumerHandle, const char* eventType, PymNameValuePair** filter);
  PymReturnT (*unregisterConsumer)(unsigned long consumerHandle, QivOamSpiEventConsumer_1* consumer,
                                   PymNameValuePair** filter);
} QivOamSpiEventRouter_1;

#ifdef __cplusplus
}
#endif

#endif
