/* The layout of the proxy interface in numbers of its own. Included as C11 and as C++17. */

#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "authentication/proxy_abi.h"

#define AT(field, offset)                                                                              \
    static_assert(offsetof(struct NimauthProxyOperations, field) == (offset), #field " is elsewhere"); \
    static_assert(sizeof(((struct NimauthProxyOperations*)0)->field) == sizeof(void*), #field " has another size")

AT(reserved, 0);
AT(getDomainInfo, 8);
AT(createMachineAccount, 16);
AT(release, 24);
static_assert(sizeof(struct NimauthProxyOperations) == 32, "the table has grown");
static_assert(sizeof(void*) == 8 && sizeof(bool) == 1, "not the platform that this interface is for");

/* Assigning functions of exactly these types fails to compile when an argument or result has changed. */
static uint32_t Domain(const char* server, bool verify, const char* thumbprint, const char* certificate, char** netbios,
                       char** dns, char** sid) {
    return !server + verify + !thumbprint + !certificate + !netbios + !dns + !sid;
}
static uint32_t Account(const char* server, const char* name, const char* unit, bool verify, const char* thumbprint,
                        const char* certificate, char** field2, char** field3) {
    return !server + !name + !unit + verify + !thumbprint + !certificate + !field2 + !field3;
}
static void Release(char* text) { (void)text; }

const struct NimauthProxyOperations APXProxyClientOperations = {NULL, Domain, Account, Release};
