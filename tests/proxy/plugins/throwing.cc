// Lets a C++ exception leave its functions, after it has handed out results: addresses at which nothing lies.

#include <cstdint>
#include <stdexcept>

#include "misbehaving.h"

namespace {

char* Nowhere() {
    const std::uintptr_t address = 8;
    return reinterpret_cast<char*>(address);
}

}  // namespace

static std::uint32_t AnswerDomain(char** netbiosDomainName, char** dnsDomainName, char** domainSid) {
    *netbiosDomainName = *dnsDomainName = *domainSid = Nowhere();
    throw std::runtime_error("the plug-in lost its temper");
}

static std::uint32_t AnswerAccount(char** principalField2, char** principalField3) {
    *principalField2 = *principalField3 = Nowhere();
    throw 42;
}
