#ifndef SEC_CREDU_API_H
#define SEC_CREDU_API_H

/* The security framework's credential-update service, as "libsec_credu_api.so.1" offers it.
 * A client opens a session, subscribes it to one node credential and one trust category (their
 * managed-object references) and learns through a descriptor when their certificates or keys
 * change. A session is used by one thread at a time; sec_credu_available may be called from
 * any thread. Clients load the library at run time, so every entry point is a plain C symbol. */

#ifdef __cplusplus
extern "C" {
#endif

#define SEC_CREDU_API_LIBRARY "libsec_credu_api.so.1"
#define SEC_CREDU_API_EXPORT __attribute__((visibility("default")))

typedef struct sec_credu_session sec_credu_session;

/* What sec_credu_file_name names. */
typedef enum {
  SEC_CREDU_NODE_CERT_FILE = 0,
  SEC_CREDU_NODE_KEY_FILE = 1,
  SEC_CREDU_TRUST_CATEGORY_DIR = 2
} sec_credu_file;

/* 1 while the service answers, 0 otherwise. */
SEC_CREDU_API_EXPORT int sec_credu_available(void);

/* A new session, or NULL when none can be opened. The caller releases it with sec_credu_close. */
SEC_CREDU_API_EXPORT sec_credu_session* sec_credu_open(void);
SEC_CREDU_API_EXPORT void sec_credu_close(sec_credu_session* session);

/* Subscribes the session to the node credential and the trust category, replacing an earlier
 * subscription. 0 on success, -1 otherwise (service not available, unknown references). */
SEC_CREDU_API_EXPORT int sec_credu_subscribe(sec_credu_session* session, const char* node_credential,
                                             const char* trust_category);

/* A descriptor that is readable while an event is pending, owned by the session; -1 before the
 * first successful subscription. */
SEC_CREDU_API_EXPORT int sec_credu_event_fd(const sec_credu_session* session);

/* Consumes one pending event: 1 when certificates or keys changed, 0 when they did not or
 * nothing was pending, -1 for an event that cannot be read. Does not block. */
SEC_CREDU_API_EXPORT int sec_credu_dispatch(sec_credu_session* session);

/* The current name of a file (or directory) of the subscription; NULL when not subscribed or
 * not known. Owned by the session and valid until its next call. */
SEC_CREDU_API_EXPORT const char* sec_credu_file_name(sec_credu_session* session, sec_credu_file which);

#ifdef __cplusplus
}
#endif

#endif
