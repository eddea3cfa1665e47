/*
 * Calls operations of a directory provider plug-in, as the library does, and prints what came back.
 *
 *     printf '%s' "$password" | nimauth_probe /usr/libexec/nimauth/libad.so join corp.test joiner1 Hosts/Sub
 *     join status=0 ms=112.4
 *     nimauth_probe /usr/libexec/nimauth/libad.so trusted-domains
 *     trusted-domains status=0 ms=21.0
 *     domain=trust.test netbios=TRUST
 *
 * The first line of each answer ends in the time of the call alone, loading excluded. Passwords and one-time secrets
 * are read from standard input, up to its end or a newline.
 *
 * Exit status: 0 if the operation returned status 0 (or a value), 1 if it returned another one, 2 for a usage error, 3
 * if the plug-in cannot be loaded.
 */

#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include "authentication/provider_abi.h"

static const struct NimauthProviderMetadata* metadata;
static const struct NimauthProviderOperations* table;

static double Now(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec * 1e3 + (double)now.tv_nsec / 1e6;
}

static char secret[4096];
static pthread_once_t secretRead = PTHREAD_ONCE_INIT;

static void ReadSecretOnce(void) {
    size_t size = 0;
    ssize_t count;
    while (size < sizeof secret - 1 && (count = read(STDIN_FILENO, secret + size, sizeof secret - 1 - size)) > 0) {
        size += (size_t)count;
    }
    secret[size] = '\0';
    secret[strcspn(secret, "\n")] = '\0';
}

/* The same for every thread and every repetition. */
static const char* ReadSecret(void) {
    pthread_once(&secretRead, ReadSecretOnce);
    return secret;
}

static int Status(const char* name, uint32_t status, double start) {
    printf("%s status=%u ms=%.1f\n", name, status, Now() - start);
    return status == 0 ? 0 : 1;
}

static int Value(const char* name, int32_t value, double start) {
    printf("%s value=%d ms=%.1f\n", name, value, Now() - start);
    return 0;
}

static int Text(const char* name, uint32_t status, char* text, NimauthRelease release, double start) {
    const int result = Status(name, status, start);
    if (status == 0) {
        printf("text=%s\n", text ? text : "");
        if (text && release) {
            release(text);
        }
    }
    return result;
}

static int Texts(const char* name, uint32_t status, char** texts, NimauthRelease release, double start) {
    const int result = Status(name, status, start);
    if (status == 0 && texts) {
        for (char** text = texts; *text; ++text) {
            printf("text=%s\n", *text);
        }
        if (release) {
            release(texts);
        }
    }
    return result;
}

/* --- One function for each operation; `arguments` ends with a null pointer. --- */

typedef int (*Operation)(const char* name, char** arguments);

static int Metadata(const char* name, char** arguments) {
    (void)arguments;
    printf("%s api=%d table=%d pam=%s nss=%s\n", name, metadata->apiVersion, table->tableVersion, metadata->pamModule,
           metadata->nssModule);
    return 0;
}

static int Join(const char* name, char** arguments) {
    const struct Credentials credentials = {arguments[1], ReadSecret()};
    const double start = Now();
    return Status(name, table->joinDomain(arguments[0], arguments[2], &credentials), start);
}

static int JoinAccount(const char* name, char** arguments) {
    char host[256] = "";
    gethostname(host, sizeof host - 1);
    host[strcspn(host, ".")] = '\0';
    const char* netbios = arguments[2] ? arguments[2] : "";
    const char* sid = arguments[2] && arguments[3] ? arguments[3] : "";
    const struct NimauthDirectoryDomainRecord domain = {"", netbios, arguments[0], sid};
    const struct NimauthMachineAccountRecord account = {host, arguments[0], "", arguments[1], ReadSecret()};
    const double start = Now();
    return Status(name, table->joinDomainWithMachineAccount(&domain, &account), start);
}

static int Part(const char* name, char** arguments) {
    const struct Credentials credentials = {arguments[0], arguments[0] ? ReadSecret() : NULL};
    const double start = Now();
    return Status(name, table->partDomain(arguments[0] ? &credentials : NULL), start);
}

static int ActiveDomain(const char* name, char** arguments) {
    (void)arguments;
    struct NimauthDomainRecord domain = {NULL, NULL};
    NimauthRelease release = NULL;
    const double start = Now();
    const uint32_t status = table->getActiveDomain(&domain, &release);
    const int result = Status(name, status, start);
    if (status == 0) {
        printf("domain=%s netbios=%s\n", domain.dnsName, domain.netbiosName);
        release(domain.dnsName);
        release(domain.netbiosName);
    }
    return result;
}

static int SetControllers(const char* name, char** arguments) {
    const double start = Now();
    return Status(name, table->setPreferredDomainControllers((const char* const*)arguments), start);
}

static int Controllers(const char* name, char** arguments) {
    (void)arguments;
    char** texts = NULL;
    NimauthRelease release = NULL;
    const double start = Now();
    const uint32_t status = table->getPreferredDomainControllers(&texts, &release);
    return Texts(name, status, texts, release, start);
}

static int TrustState(const char* name, char** arguments) {
    (void)arguments;
    const double start = Now();
    return Value(name, table->getDomainTrustState(), start);
}

static int TrustedDomains(const char* name, char** arguments) {
    (void)arguments;
    struct NimauthDomainRecord** domains = NULL;
    NimauthRelease release = NULL;
    const double start = Now();
    const uint32_t status = table->getTrustedDomains(&domains, &release);
    const int result = Status(name, status, start);
    if (status == 0 && domains) {
        for (struct NimauthDomainRecord** domain = domains; *domain; ++domain) {
            printf("domain=%s netbios=%s\n", (*domain)->dnsName, (*domain)->netbiosName);
        }
        release(domains);
    }
    return result;
}

static int MachineDN(const char* name, char** arguments) {
    (void)arguments;
    char* text = NULL;
    NimauthRelease release = NULL;
    const double start = Now();
    const uint32_t status = table->getMachineAccountDN(&text, &release);
    return Text(name, status, text, release, start);
}

static int Controller(const char* name, char** arguments) {
    char* text = NULL;
    NimauthRelease release = NULL;
    const double start = Now();
    const uint32_t status = table->getAnyDomainController(arguments[1], arguments[0], &text, &release);
    return Text(name, status, text, release, start);
}

static int Canonical(const char* name, char** arguments) {
    char* text = NULL;
    NimauthRelease release = NULL;
    const double start = Now();
    const uint32_t status = table->convertCanonicalUsername(arguments[0], &text, &release);
    return Text(name, status, text, release, start);
}

static int HostPrincipal(const char* name, char** arguments) {
    char* text = NULL;
    NimauthRelease release = NULL;
    const double start = Now();
    const uint32_t status = table->getHostPrincipalForDomain(arguments[0], &text, &release);
    return Text(name, status, text, release, start);
}

static int Relationship(const char* name, char** arguments) {
    const double start = Now();
    return Value(name, table->getDomainTrustRelationship(arguments[0]), start);
}

static int SetSmartCards(const char* name, char** arguments) {
    const double start = Now();
    return Status(name, table->setSmartCardEnabledServices((const char* const*)arguments), start);
}

static int SmartCards(const char* name, char** arguments) {
    (void)arguments;
    char** texts = NULL;
    NimauthRelease release = NULL;
    const double start = Now();
    const uint32_t status = table->getSmartCardEnabledServices(&texts, &release);
    return Texts(name, status, texts, release, start);
}

/* Every question that a refresh of the library's cache asks, one after the other, for the domain and the user given. */
static int Queries(const char* name, char** arguments) {
    const double start = Now();
    char* none[] = {NULL};
    int worst = ActiveDomain("active-domain", none);
    worst |= Controllers("controllers", none);
    worst |= MachineDN("machine-dn", none);
    worst |= TrustedDomains("trusted-domains", none);
    worst |= TrustState("trust-state", none);
    worst |= Relationship("relationship", arguments);
    worst |= Controller("controller", (char*[]){arguments[0], NULL});
    worst |= HostPrincipal("host-principal", arguments);
    worst |= SmartCards("smart-cards", none);
    if (arguments[1]) {
        worst |= Canonical("canonical", arguments + 1);
    }
    printf("%s ms=%.1f\n", name, Now() - start);
    return worst;
}

static const struct {
    const char* name;
    Operation operation;
    int minimum;
    int maximum;
    const char* usage;
} operations[] = {
    {"metadata", Metadata, 0, 0, ""},
    {"join", Join, 2, 3, "DOMAIN USER [UNIT] <password"},
    {"join-account", JoinAccount, 2, 4, "DOMAIN ACCOUNT [NETBIOS [SID]] <secret"},
    {"leave", Part, 0, 1, "[USER <password]"},
    {"active-domain", ActiveDomain, 0, 0, ""},
    {"set-controllers", SetControllers, 0, 256, "[NAME]..."},
    {"controllers", Controllers, 0, 0, ""},
    {"trust-state", TrustState, 0, 0, ""},
    {"trusted-domains", TrustedDomains, 0, 0, ""},
    {"machine-dn", MachineDN, 0, 0, ""},
    {"controller", Controller, 1, 2, "DOMAIN [FIRST]"},
    {"canonical", Canonical, 1, 1, "USER"},
    {"host-principal", HostPrincipal, 1, 1, "DOMAIN"},
    {"relationship", Relationship, 1, 1, "DOMAIN"},
    {"set-smart-cards", SetSmartCards, 0, 256, "[SERVICE]..."},
    {"smart-cards", SmartCards, 0, 0, ""},
    {"queries", Queries, 1, 2, "DOMAIN [USER]"},
};

static int Usage(void) {
    fprintf(stderr, "Usage: nimauth_probe [--repeat N] [--threads N] LIBRARY OPERATION [ARGUMENT]...\n");
    for (size_t i = 0; i < sizeof operations / sizeof *operations; ++i) {
        fprintf(stderr, "  %s %s\n", operations[i].name, operations[i].usage);
    }
    return 2;
}

static const void* Find(void* module, const char* name) {
    const void* symbol = dlsym(module, name);
    if (!symbol) {
        fprintf(stderr, "nimauth_probe: %s\n", dlerror());
        exit(3);
    }
    return symbol;
}

static void Load(const char* path) {
    void* module = dlopen(path, RTLD_LAZY | RTLD_GLOBAL);
    if (!module) {
        fprintf(stderr, "nimauth_probe: %s\n", dlerror());
        exit(3);
    }
    metadata = Find(module, "ActiveDirectoryClientMetadata");
    table = Find(module, "ActiveDirectoryClientOperations");
}

struct Work {
    size_t index;
    char** arguments;
    long repeat;
    int worst;
};

static void* Run(void* argument) {
    struct Work* work = argument;
    for (long i = 0; i < work->repeat; ++i) {
        work->worst |= operations[work->index].operation(operations[work->index].name, work->arguments);
    }
    return NULL;
}

static int RunAll(const struct Work* work, size_t threadCount) {
    struct Work works[64];
    pthread_t threads[64];
    int worst = 0;
    for (size_t i = 0; i < threadCount; ++i) {
        works[i] = *work;
        if (pthread_create(&threads[i], NULL, Run, &works[i]) != 0) {
            fprintf(stderr, "nimauth_probe: no thread\n");
            exit(3);
        }
    }
    for (size_t i = 0; i < threadCount; ++i) {
        pthread_join(threads[i], NULL);
        worst |= works[i].worst;
    }
    return worst;
}

int main(int argc, char** argv) {
    struct Work work = {0, NULL, 1, 0};
    long threadCount = 1;
    int next = 1;
    setvbuf(stdout, NULL, _IOLBF, 0);
    openlog("probe", LOG_PERROR, LOG_USER); /* the boxes have no log service: what the provider logs is seen here */
    while (next + 1 < argc && strncmp(argv[next], "--", 2) == 0) {
        long* option = strcmp(argv[next], "--repeat") == 0 ? &work.repeat : &threadCount;
        *option = strtol(argv[next + 1], NULL, 10);
        next += 2;
    }
    if (argc < next + 2 || threadCount < 1 || threadCount > 64) {
        return Usage();
    }
    const int count = argc - next - 2;
    for (; work.index < sizeof operations / sizeof *operations; ++work.index) {
        if (strcmp(operations[work.index].name, argv[next + 1]) == 0) {
            break;
        }
    }
    if (work.index == sizeof operations / sizeof *operations || count < operations[work.index].minimum ||
        count > operations[work.index].maximum) {
        return Usage();
    }
    Load(argv[next]);
    work.arguments = argv + next + 2;
    return RunAll(&work, (size_t)threadCount);
}
