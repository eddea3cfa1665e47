#include "tools/nimauthctl/checks/name_checks.h"

#include <netdb.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "pluginkit/directory_names.h"
#include "tools/nimauthctl/commands/ask_within.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/failure.h"

namespace nimbrel::nimauthctl {
namespace {

std::string FirstLabel(const std::string& name) { return name.substr(0, name.find('.')); }

// The resolver's official name, as a join takes it; or why there is none.
struct Resolved {
    std::string name;
    std::string error;
};

Resolved Resolve(const std::string& hostName) {
    hostent entry{};
    hostent* result = nullptr;
    std::array<char, 1024> work{};
    int error = 0;
    if (gethostbyname_r(hostName.c_str(), &entry, work.data(), work.size(), &result, &error) != 0 ||
        result == nullptr) {
        return {"", hstrerror(error)};
    }
    return {result->h_name, ""};
}

}  // namespace

std::string KernelHostName() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::string ResolvedHostName(const CheckSubject& subject) {
    const std::string hostName = KernelHostName();
    const auto resolved =
        AskWithinTraced(subject.invocation, "the host's address", [hostName] { return Resolve(hostName); });
    constexpr char kRemedy[] = "add a line to /etc/hosts: address, full name, short name; or correct the DNS settings";
    if (!resolved) {
        throw ToolError(ExitCode::HostName, "the resolver does not answer in time for '" + hostName + "'", "", kRemedy);
    }
    if (resolved->name.empty()) {
        throw ToolError(ExitCode::HostName, "'" + hostName + "' does not resolve: " + resolved->error, "", kRemedy);
    }
    return resolved->name;
}

Finding CheckShortName(const std::string& hostName, const std::string& fullName) {
    const std::string shortName = FirstLabel(hostName);
    if (FirstLabel(fullName) == shortName) return Pass("'" + shortName + "' begins '" + fullName + "'");
    return Fail("'" + shortName + "' does not begin its full name '" + fullName + "'",
                "give both the same spelling, capitals too: 'hostname', and the line in /etc/hosts",
                ExitCode::HostName);
}

Finding CheckDefaultName(const std::string& hostName) {
    constexpr std::array<std::string_view, 3> kDefaults = {"localhost", "linux", "hostname"};
    const std::string shortName = FirstLabel(hostName);
    if (std::find(kDefaults.begin(), kDefaults.end(), shortName) == kDefaults.end()) {
        return Pass("'" + shortName + "' is no default name");
    }
    return Fail("'" + shortName + "' is a default name, which a join refuses",
                "give the host a name of its own: 'hostnamectl set-hostname NAME'", ExitCode::HostName);
}

Finding CheckAccountName(const std::string& hostName) {
    const std::string name = FirstLabel(hostName);
    if (kit::IsComputerName(name)) return Pass("'" + name + "' can name a computer account");
    return Fail("'" + name + "' cannot name a computer account",
                "use at most 15 letters, digits and inner hyphens, not digits alone: 'hostnamectl set-hostname NAME'",
                ExitCode::HostName);
}

Finding CheckFullName(const std::string& hostName, const std::string& fullName, const std::string& domain) {
    const std::string expected = FirstLabel(hostName) + '.' + domain;
    if (fullName.find('.') == std::string::npos) return Pass("a join will call this host '" + expected + "'");
    if (SameName(fullName, expected)) return Pass("'" + fullName + "' lies in the domain");
    return Warn("'" + fullName + "' is not '" + expected + "'; a join goes on, and adds the domain to the search list",
                "if the host should carry the domain's name, correct its line in /etc/hosts");
}

}  // namespace nimbrel::nimauthctl
