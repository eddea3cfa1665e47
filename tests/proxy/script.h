/*
 * How a test and its plug-ins talk: the test program defines and exports these functions, the plug-ins find them when
 * they are loaded. A plug-in keeps nothing of its own, so that it can be closed and opened again while a script runs.
 *
 *     static uint32_t GetDomainInfo(const char* server, ...) {
 *         ScriptWrite("domain(%s)", server);
 *         return ScriptStatus("domain");
 *     }
 *
 * C11 and C++17.
 */

#ifndef TESTS_PROXY_SCRIPT_H_
#define TESTS_PROXY_SCRIPT_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SCRIPT_EXPORT __attribute__((visibility("default")))

/* Adds a line to the test's journal. */
SCRIPT_EXPORT __attribute__((format(printf, 1, 2))) void ScriptWrite(const char* format, ...);

/* What this call of `operation` is to return: "domain", "account", "join", "part". */
SCRIPT_EXPORT uint32_t ScriptStatus(const char* operation);

/* The result `name`, to be copied ("netbios", "dns", "sid", "field2", "field3"), or null for none. */
SCRIPT_EXPORT const char* ScriptText(const char* name);

#ifdef __cplusplus
}
#endif

#endif /* TESTS_PROXY_SCRIPT_H_ */
