// Whatever a directory provider's table answers: the library hands on exactly what it said, and gives every result back
// once, through the provider's own function, and none of a failed call.
//
// Input: for each question a byte for the status, one for the shape of the answer, then its texts as fields.

#include <dlfcn.h>

#include <deque>
#include <map>
#include <optional>
#include <vector>

#include "authentication/exceptions.h"
#include "authentication/provider.h"
#include "fuzz.h"

namespace {

using fuzzing::Input;
using fuzzing::Require;
using nimbrel::authentication::ActiveDirectoryProvider;
using Text = std::optional<std::string>;

// What the provider says to the next question, and what it has handed out.
struct Script {
    std::uint32_t status = 0;
    bool withoutRelease = false;
    bool nullArray = false;
    std::vector<Text> texts;
    std::map<void*, bool> handedOut;  // and whether it has come back
    std::vector<std::vector<char>> storedTexts;
    std::vector<std::vector<char*>> arrays;
    std::vector<NimauthDomainRecord> records;
    std::vector<NimauthDomainRecord*> recordPointers;
} script;

void Release(void* result) {
    const auto found = script.handedOut.find(result);
    Require(found != script.handedOut.end(), "only results are released");
    Require(!found->second, "a result is released once");
    found->second = true;
}

// Filled once for each question, so that nothing moves.
char* Stored(const Text& text) {
    if (!text) return nullptr;
    script.storedTexts.emplace_back(text->c_str(), text->c_str() + text->size() + 1);
    return script.storedTexts.back().data();
}

template <typename Result>
Result HandOut(Result result) {
    if (result != nullptr) script.handedOut.emplace(static_cast<void*>(result), false);
    return result;
}

std::uint32_t Finish(NimauthRelease* release) {
    *release = script.withoutRelease ? nullptr : Release;
    return script.status;
}

std::uint32_t AnswerText(char** text, NimauthRelease* release) {
    *text = HandOut(Stored(script.texts.empty() ? Text() : script.texts[0]));
    return Finish(release);
}

std::uint32_t AnswerTexts(char*** texts, NimauthRelease* release) {
    std::vector<char*> array;
    for (const Text& text : script.texts) array.push_back(Stored(text));
    array.push_back(nullptr);
    script.arrays.push_back(std::move(array));
    *texts = script.nullArray ? nullptr : HandOut(script.arrays.back().data());
    return Finish(release);
}

std::uint32_t AnswerDomain(NimauthDomainRecord* domain, NimauthRelease* release) {
    domain->dnsName = HandOut(Stored(script.texts.empty() ? Text() : script.texts[0]));
    domain->netbiosName = HandOut(Stored(script.texts.size() < 2 ? Text() : script.texts[1]));
    return Finish(release);
}

std::uint32_t AnswerDomains(NimauthDomainRecord*** domains, NimauthRelease* release) {
    for (std::size_t i = 0; i + 1 < script.texts.size(); i += 2) {
        script.records.push_back({Stored(script.texts[i]), Stored(script.texts[i + 1])});
    }
    for (NimauthDomainRecord& record : script.records) script.recordPointers.push_back(&record);
    script.recordPointers.push_back(nullptr);
    *domains = script.nullArray ? nullptr : HandOut(script.recordPointers.data());
    return Finish(release);
}

std::uint32_t AnswerController(const char*, const char*, char** text, NimauthRelease* release) {
    return AnswerText(text, release);
}

std::uint32_t AnswerAbout(const char*, char** text, NimauthRelease* release) { return AnswerText(text, release); }

}  // namespace

extern const NimauthProviderMetadata ActiveDirectoryClientMetadata = {NIMAUTH_PROVIDER_API_VERSION, "pam_x.so", "a b",
                                                                      "x", nullptr};
extern const NimauthProviderOperations ActiveDirectoryClientOperations = {NIMAUTH_PROVIDER_TABLE_VERSION,
                                                                          nullptr,
                                                                          nullptr,
                                                                          AnswerDomain,
                                                                          nullptr,
                                                                          AnswerTexts,
                                                                          nullptr,
                                                                          nullptr,
                                                                          AnswerDomains,
                                                                          AnswerText,
                                                                          AnswerController,
                                                                          AnswerAbout,
                                                                          nullptr,
                                                                          AnswerAbout,
                                                                          nullptr,
                                                                          nullptr,
                                                                          AnswerTexts};

// The library's function that opens a plug-in's file. This program, which exports the two records, stands for the file.
void* OpenThisProgram(const std::string& name, const std::string& failure) __asm__(
    "__wrap__ZN7nimbrel14authentication14OpenPluginFileERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES8_");

void* OpenThisProgram(const std::string&, const std::string&) { return dlopen(nullptr, RTLD_LAZY); }

namespace {

void TakeScript(Input& input) {
    script = {};
    const unsigned status = input.Byte();
    script.status = status < 192 ? 0 : status < 224 ? 5 : 0xC0000000U + status;
    const unsigned shape = input.Byte();
    script.withoutRelease = (shape & 1U) != 0;
    script.nullArray = (shape & 2U) != 0;
    script.storedTexts.reserve(32);
    for (unsigned count = (shape >> 2U) % 16; count > 0; --count) {
        const std::string field = input.Field();
        // "\1" and a number of thousands stand for a text of that length.
        const bool huge = field.size() == 2 && field[0] == '\1';
        const Text text = huge ? std::string(1000U * static_cast<unsigned char>(field[1]), 'x') : field.c_str();
        script.texts.push_back(field == "\2" ? Text() : text);
    }
}

std::string OrEmpty(std::size_t index) { return index < script.texts.size() ? script.texts[index].value_or("") : ""; }

// Up to the first null, which ends an array.
std::vector<std::string> UntilNull() {
    std::vector<std::string> texts;
    for (std::size_t i = 0; !script.nullArray && i < script.texts.size() && script.texts[i]; ++i) {
        texts.push_back(*script.texts[i]);
    }
    return texts;
}

std::vector<std::string> Pairs() {
    std::vector<std::string> texts;
    for (std::size_t i = 0; !script.nullArray && i + 1 < script.texts.size(); i += 2) {
        texts.push_back(OrEmpty(i));
        texts.push_back(OrEmpty(i + 1));
    }
    return texts;
}

template <typename Container>
std::vector<std::string> Listed(const Container& texts) {
    return {texts.begin(), texts.end()};
}

// What the library makes of the script, and what it should.
struct Outcome {
    std::vector<std::string> library;
    std::vector<std::string> expected;
};

Outcome Ask(const ActiveDirectoryProvider& provider, unsigned question) {
    switch (question % 7) {
        case 0:
            return {Listed(provider.GetPreferredDomainControllers()), UntilNull()};
        case 1:
            return {Listed(provider.GetSmartCardEnabledServices()), UntilNull()};
        case 2: {
            const auto domain = provider.GetActiveDomain();
            return {{domain.DNSName(), domain.NetBIOSName()}, {OrEmpty(0), OrEmpty(1)}};
        }
        case 3: {
            Outcome outcome{{}, Pairs()};
            for (const auto& domain : provider.GetTrustedDomains()) {
                outcome.library.push_back(domain.DNSName());
                outcome.library.push_back(domain.NetBIOSName());
            }
            return outcome;
        }
        case 4:
            return {{provider.GetMachineAccountDN()}, {OrEmpty(0)}};
        case 5:
            return {{provider.GetAnyDomainController("", "corp.test")}, {OrEmpty(0)}};
        default:
            return {{provider.ConvertCanonicalUsername("u") + provider.GetHostPrincipalForDomain("d")},
                    {OrEmpty(0) + OrEmpty(0)}};
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const ActiveDirectoryProvider provider("x");
    Input input(data, size);
    while (!input.AtEnd()) {
        const unsigned question = input.Byte();
        TakeScript(input);
        bool failed = false;
        try {
            const Outcome outcome = Ask(provider, question);
            Require(outcome.library == outcome.expected, "the library tells what the provider said");
        } catch (const nimbrel::authentication::Exception&) {
            failed = true;
        }
        Require(failed == (script.status != 0), "a status other than 0 is an error, and nothing else is");
        for (const auto& [result, back] : script.handedOut) {
            Require(back == (!failed && !script.withoutRelease),
                    "results are given back, those of a failed call are not");
        }
    }
    return 0;
}
