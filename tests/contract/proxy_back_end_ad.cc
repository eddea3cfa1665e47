// The contract of the proxy service's back ends, passed by Active Directory. For a member host of the lab that is in no
// domain: /root/administrator.keytab holds the service's key, accounts are made and deleted with adcli, and a host joins
// through the provider.

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "contract/proxy_back_end_contract.h"
#include "services/apxd/ad_back_end.h"

namespace nimbrel::apxd::test {
namespace {

constexpr char kAdcli[] = " --domain=corp.test --login-user=administrator --stdin-password ";
constexpr char kPassword[] = "Lab-Secret-1";
constexpr char kLdapDelete[] = "ldapdelete -c -Q -Y GSSAPI -N -H ldap://dc1.corp.test ";
constexpr char kProbe[] = "/mnt/probe /usr/libexec/nimauth/libad.so ";

// Gives it the secret on standard input; returns what it prints.
std::string Run(const std::string& command, const std::string& secret) {
    setenv("NIMAUTH_LAB_INPUT", secret.c_str(), 1);
    std::FILE* const pipe = popen(("printf %s \"$NIMAUTH_LAB_INPUT\" | " + command + " 2>&1").c_str(), "re");
    if (pipe == nullptr) throw std::runtime_error("popen");
    std::string output;
    char buffer[4096];
    while (const std::size_t count = std::fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, count);
    pclose(pipe);
    return output;
}

std::uint32_t StatusIn(const std::string& output) {
    const std::size_t at = output.find("status=");
    if (at == std::string::npos) throw std::runtime_error("the probe said: " + output);
    return static_cast<std::uint32_t>(std::strtoul(output.c_str() + at + 7, nullptr, 10));
}

class ActiveDirectory {
 public:
    ActiveDirectory() {
        static const std::string logOn = Run("kinit administrator", kPassword);
        DeleteAll();
    }
    ActiveDirectory(const ActiveDirectory&) = delete;
    ActiveDirectory& operator=(const ActiveDirectory&) = delete;
    ~ActiveDirectory() { DeleteAll(); }

    apxd::BackEnd& BackEnd() { return *_backEnd; }
    // The host forgets the domain again, so that the next join is its first.
    static std::uint32_t Join(const std::string& accountName, const std::string& secret) {
        const std::uint32_t status =
            StatusIn(Run(std::string(kProbe) + "join-account corp.test '" + accountName + "'", secret));
        if (status == 0) Run(std::string(kProbe) + "leave", "");
        return status;
    }
    static void PreStage(const std::string& name) {
        const std::string said = Run(std::string("adcli preset-computer") + kAdcli + name, kPassword);
        if (said.find("adcli:") != std::string::npos) throw std::runtime_error(said);
    }
    static void Delete(const std::string& name) {
        const std::string rest = ",DC=corp,DC=test ";
        Run(kLdapDelete + ("CN=" + name + ",CN=Computers" + rest) + "CN=" + name + ",OU=Hosts" + rest, "");
    }
    static std::string Domain() { return "corp.test"; }
    static std::string Unit() { return "Hosts"; }

 private:
    static void DeleteAll() {
        for (const char* const name : {"NODE01", "NODE02", "NODE07"}) Delete(name);
    }

    const std::unique_ptr<apxd::BackEnd> _backEnd =
        MakeAdBackEnd("corp.test", "administrator", "/root/administrator.keytab");
};

INSTANTIATE_TYPED_TEST_SUITE_P(ActiveDirectory, ProxyBackEndContract, ActiveDirectory);

}  // namespace
}  // namespace nimbrel::apxd::test
