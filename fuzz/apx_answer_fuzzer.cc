// Whatever a service answers: nothing unfit for a C string, a name or a log line may come out of it.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "answers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void RequireFit(const std::string& text, bool mayBeEmpty = false) {
    const auto control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    if (!mayBeEmpty && text.empty()) std::abort();
    if (std::any_of(text.begin(), text.end(), control)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace nimbrel::apxhttps;
    const std::string body(reinterpret_cast<const char*>(data), size);
    if (const auto domain = ParseDomainAnswer(body)) {
        for (const std::string* text : {&domain->netbiosName, &domain->dnsName, &domain->sid}) RequireFit(*text);
    }
    if (const auto account = ParseAccountAnswer(body)) {
        RequireFit(account->accountName);
        RequireFit(account->oneTimeSecret);
    }
    if (const auto refusal = ParseRefusal(body)) {
        if (refusal->status == 0) std::abort();
        RequireFit(refusal->message, true);
    }
    if (AccountRequest(body, body).front() != '{') std::abort();
    return 0;
}
