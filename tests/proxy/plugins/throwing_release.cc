// Answers, and lets a C++ exception leave its release function.

#include <stdexcept>

#include "authentication/proxy_abi.h"

namespace {

char text[] = "SAME";

std::uint32_t GetDomainInfo(const char*, bool, const char*, const char*, char** netbios, char** dns, char** sid) {
    *netbios = *dns = *sid = text;
    return 0;
}

std::uint32_t CreateMachineAccount(const char*, const char*, const char*, bool, const char*, const char*, char** field2,
                                   char** field3) {
    *field2 = *field3 = text;
    return 0;
}

void Release(char*) { throw std::runtime_error("the plug-in lost its temper"); }

}  // namespace

const NimauthProxyOperations APXProxyClientOperations = {nullptr, GetDomainInfo, CreateMachineAccount, Release};
