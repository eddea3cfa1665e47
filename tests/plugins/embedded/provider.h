// The built plug-in, loaded as the library loads it, in a private root with its real paths; and its operations as calls
// that a test can read.

#ifndef NIMBREL_TESTS_PLUGINS_EMBEDDED_PROVIDER_H_
#define NIMBREL_TESTS_PLUGINS_EMBEDDED_PROVIDER_H_

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "authentication/provider_abi.h"
#include "sandbox.h"

namespace nimbrel::embedded::test {

// Loads the module; fails the test program if it cannot be loaded.
inline void* LoadModule() {
    void* module = dlopen(NIMAUTH_EMBEDDED_MODULE, RTLD_LAZY | RTLD_GLOBAL);
    if (!module) {
        ADD_FAILURE() << dlerror();
        std::abort();
    }
    return module;
}

template <class Record>
const Record& Symbol(const char* name) {
    static void* module = LoadModule();
    const void* symbol = dlsym(module, name);
    if (!symbol) {
        ADD_FAILURE() << dlerror();
        std::abort();
    }
    return *static_cast<const Record*>(symbol);
}

inline const NimauthProviderMetadata& Metadata() {
    return Symbol<NimauthProviderMetadata>("ActiveDirectoryClientMetadata");
}
inline const NimauthProviderOperations& Table() {
    return Symbol<NimauthProviderOperations>("ActiveDirectoryClientOperations");
}

// A status with the text or texts that came with it. Everything is given back through the release function.
struct TextAnswer {
    std::uint32_t status = 0;
    std::string text;
};
struct ListAnswer {
    std::uint32_t status = 0;
    std::vector<std::string> texts;
};

template <class Call>
TextAnswer AskText(const Call& call) {
    char* text = nullptr;
    NimauthRelease release = nullptr;
    TextAnswer answer = {call(&text, &release), ""};
    EXPECT_EQ(text != nullptr, answer.status == 0);
    EXPECT_EQ(release != nullptr, answer.status == 0);
    if (text) {
        answer.text = text;
        release(text);
    }
    return answer;
}

template <class Call>
ListAnswer AskList(const Call& call) {
    char** texts = nullptr;
    NimauthRelease release = nullptr;
    ListAnswer answer = {call(&texts, &release), {}};
    EXPECT_EQ(texts != nullptr, answer.status == 0);
    EXPECT_EQ(release != nullptr, answer.status == 0);
    if (texts) {
        for (char** text = texts; *text; ++text) {
            answer.texts.emplace_back(*text);
        }
        release(texts);
    }
    return answer;
}

inline TextAnswer ActiveDomain() {
    NimauthDomainRecord domain = {};
    NimauthRelease release = nullptr;
    TextAnswer answer = {Table().getActiveDomain(&domain, &release), ""};
    if (answer.status == 0) {
        answer.text = std::string(domain.dnsName) + "|" + domain.netbiosName;
        release(domain.dnsName);
        release(domain.netbiosName);
    }
    return answer;
}

inline ListAnswer TrustedDomains() {
    NimauthDomainRecord** domains = nullptr;
    NimauthRelease release = nullptr;
    ListAnswer answer = {Table().getTrustedDomains(&domains, &release), {}};
    EXPECT_EQ(domains != nullptr, answer.status == 0);
    if (domains) {
        for (NimauthDomainRecord** domain = domains; *domain; ++domain) {
            answer.texts.push_back(std::string((*domain)->dnsName) + "|" + (*domain)->netbiosName);
        }
        release(domains);
    }
    return answer;
}

inline std::uint32_t Join(const char* userName = "admin1", const char* password = kPassword, const char* unit = nullptr,
                          const char* domain = kDomain) {
    const Credentials credentials = {userName, password};
    return Table().joinDomain(domain, unit, &credentials);
}

inline std::uint32_t Part(const char* userName = "admin1", const char* password = kPassword) {
    const Credentials credentials = {userName, password};
    return Table().partDomain(&credentials);
}

inline std::uint32_t JoinWithMachineAccount(const char* account, const char* secret, const char* hostName = "node01") {
    const NimauthDirectoryDomainRecord domain = {"", "CORP", kDomain, ""};
    const NimauthMachineAccountRecord machine = {hostName, kDomain, "", account, secret};
    return Table().joinDomainWithMachineAccount(&domain, &machine);
}

inline TextAnswer MachineAccountDN() { return AskText(Table().getMachineAccountDN); }
inline TextAnswer AnyController(const char* first = nullptr, const char* domain = kDomain) {
    return AskText([&](char** text, NimauthRelease* release) {
        return Table().getAnyDomainController(first, domain, text, release);
    });
}
inline TextAnswer CanonicalName(const char* name) {
    return AskText(
        [&](char** text, NimauthRelease* release) { return Table().convertCanonicalUsername(name, text, release); });
}
inline TextAnswer HostPrincipal(const char* domain) {
    return AskText(
        [&](char** text, NimauthRelease* release) { return Table().getHostPrincipalForDomain(domain, text, release); });
}
inline ListAnswer PreferredControllers() { return AskList(Table().getPreferredDomainControllers); }
inline ListAnswer SmartCardServices() { return AskList(Table().getSmartCardEnabledServices); }

// A fresh /var/lib/nimbrel with the directory of `Sandbox` in it, and a host that has not joined.
class Provider : public ::testing::Test {
 protected:
    Provider() {
        Empty();
        std::filesystem::create_directories("/var/lib/nimbrel");
        std::filesystem::copy_file(TemplateDirectory(), kDefaultDirectoryPath);
    }
    ~Provider() override { Empty(); }

    static Directory Open() { return Directory::Open(); }

 private:
    // Only ever in a private root: the machine's own files are not a test's to remove.
    static void Empty() {
        if (ReadFile("/proc/1/cmdline").find("private-root") == std::string::npos) {
            ADD_FAILURE() << "this program runs in a private root only";
            std::abort();
        }
        std::filesystem::remove_all("/var/lib/nimbrel");
    }
};

}  // namespace nimbrel::embedded::test

#endif  // NIMBREL_TESTS_PLUGINS_EMBEDDED_PROVIDER_H_
