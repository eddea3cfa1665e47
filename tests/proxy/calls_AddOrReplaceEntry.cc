#include "proxy/journal.h"
#include "sysnet/hosts_file.h"

using nimbrel::authentication::test::Journal;
using SysNet::Network::HostsFile;

// `SysNet::Network::HostsFile::AddOrReplaceEntry`, by the name that the linker knows it by.
#define ADD_OR_REPLACE_ENTRY                                                                                        \
    "_ZN6SysNet7Network9HostsFile17AddOrReplaceEntryERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES9_RKSt" \
    "6vectorIS7_SaIS7_EE"

void RealAdd(HostsFile* file, const std::string& address, const std::string& hostName,
             const std::vector<std::string>& aliases) __asm__("__real_" ADD_OR_REPLACE_ENTRY);
void WrapAdd(HostsFile* file, const std::string& address, const std::string& hostName,
             const std::vector<std::string>& aliases) __asm__("__wrap_" ADD_OR_REPLACE_ENTRY);

void WrapAdd(HostsFile* file, const std::string& address, const std::string& hostName,
             const std::vector<std::string>& aliases) {
    std::string line = "hosts " + address + " " + hostName;
    for (const std::string& alias : aliases) line += " " + alias;
    Journal::Add(line);
    RealAdd(file, address, hostName, aliases);
}
