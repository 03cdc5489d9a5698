#ifndef SEC_ACS_API_H
#define SEC_ACS_API_H

/* The security framework's user-authorization interface, as "libsec_acs_api.so.1" offers it.
 * A client creates a context, starts a session for a user that the framework has authenticated,
 * reads the user's roles one by one, then stops the session and releases the context. Every call
 * returns ACS_UAI_SUCCESS (1) or another status. Contexts and sessions are independent: any
 * number of threads may each run their own. Clients load the library at run time, so every entry
 * point is a plain C symbol.
 *
 * This build is a stand-in, scripted through the directory that the environment variable
 * SEC_ACS_HOME names. Every call reads the variable and the files afresh, so answers may change
 * between calls. Without the variable no user is known and nothing is recorded.
 *
 *   users       One line per user: "name:role1,role2". The name ends at the first ':'; the roles
 *               are the comma-separated texts after it, kept exactly as written. "name:" or a bare
 *               "name" is a user without roles. Empty lines and lines starting with '#' are
 *               skipped; the first line for a name wins. Read when a session starts: the session
 *               keeps those roles. Starting a session for a name not listed answers 6.
 *   fail/<function>
 *               Present: that function (e.g. "fail/acs_uai_finalize") does nothing and returns the
 *               status given by the first word of the file; an empty or unreadable file means 3, a
 *               status of 1 means no failure. For acs_uai_user_data_role_get an optional second
 *               word restricts the failure to that index ("3 2": the role at index 2 fails with 3).
 *               A failing session stop or finalize still releases its handle, so nothing leaks.
 *   calls       Written by the library: one line per call, in the order of the calls, appended
 *               with a single write so that concurrent calls never mix. Fields are separated by
 *               one tab: the function name, then its arguments: a session as the user it was
 *               started for, a null session or user as "(null)", a role index in decimal;
 *               contexts and outputs are left out. Example of one query:
 *                 acs_uai_initialize
 *                 acs_uai_user_session_start<TAB>alice
 *                 acs_uai_user_data_role_count_get<TAB>alice
 *                 acs_uai_user_data_role_get<TAB>alice<TAB>0
 *                 acs_uai_user_session_stop<TAB>alice
 *                 acs_uai_finalize
 */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SEC_ACS_API_LIBRARY "libsec_acs_api.so.1"
#define SEC_ACS_API_EXPORT __attribute__((visibility("default")))

typedef int32_t acs_status_t;

#define ACS_UAI_SUCCESS 1
#define ACS_UAI_INVALID_ARGUMENT 2 /* a null pointer where a handle or an output was needed */
#define ACS_UAI_FAILURE 3
#define ACS_UAI_NO_SUCH_ROLE 4 /* role index not below the role count */
#define ACS_UAI_NO_SUCH_USER 6

/* A new context in *context, released with acs_uai_finalize. */
SEC_ACS_API_EXPORT acs_status_t acs_uai_initialize(void** context);
/* Releases *context and sets it to NULL. */
SEC_ACS_API_EXPORT acs_status_t acs_uai_finalize(void** context);

/* A session for user in *session, released with acs_uai_user_session_stop; ACS_UAI_NO_SUCH_USER
 * when the framework does not know the user. */
SEC_ACS_API_EXPORT acs_status_t acs_uai_user_session_start(void* context, const char* user, void** session);
/* Releases *session and sets it to NULL. */
SEC_ACS_API_EXPORT acs_status_t acs_uai_user_session_stop(void** session);

/* The number of roles of the session's user in *count. */
SEC_ACS_API_EXPORT acs_status_t acs_uai_user_data_role_count_get(void* session, unsigned int* count);
/* The name of the role at index (from 0) in *role, allocated with malloc; the caller frees it. */
SEC_ACS_API_EXPORT acs_status_t acs_uai_user_data_role_get(void* session, unsigned int index, char** role);

#ifdef __cplusplus
}
#endif

#endif
