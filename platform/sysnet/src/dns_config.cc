#include "sysnet/dns_config.h"

#include <optional>

#include "internal/no_cancellation.h"
#include "names.h"
#include "resolved_service.h"
#include "search_domains.h"
#include "text_file.h"

namespace SysNet::Network {
namespace {

constexpr char kResolvConf[] = "/etc/resolv.conf";
constexpr char kWrittenByResolved[] = "/run/systemd/resolve/resolv.conf";
constexpr char kDropInFolder[] = "/etc/systemd/resolved.conf.d";
constexpr char kDropIn[] = "/etc/systemd/resolved.conf.d/50-nimauth.conf";

void SaveInResolvConf(const std::vector<std::string>& domains) {
    const std::string old = ReadTextFile(kResolvConf).value_or("");
    const std::string changed = AddToResolvConf(old, domains);
    if (changed != old) ReplaceTextFile(kResolvConf, changed);
}

// Whether the resolv.conf that systemd-resolved keeps, whichever file the host's is linked to, names all of them.
bool IsInUse(const std::vector<std::string>& domains) {
    const std::string written = ReadTextFile(kWrittenByResolved).value_or("");
    return AddToResolvConf(written, domains) == written;
}

void SaveInDropIn(const std::vector<std::string>& domains) {
    const std::string old = ReadTextFile(kDropIn).value_or("");
    const std::string changed = AddToResolvedDropIn(old, domains);
    const bool isNew = changed != old;
    if (isNew) {
        MakeFolders(kDropInFolder);
        ReplaceTextFile(kDropIn, changed);
    }
    // Whoever wrote what is there already may have ended before the service was told. A service that has taken it over is
    // left alone: one that cannot reload is restarted, and too many restarts in a row stop it.
    if (isNew || !IsInUse(domains)) ReloadResolved();
}

}  // namespace

DnsConfigImpl::DnsConfigImpl(const std::string& netStackName) { CheckNetStackName(netStackName); }

void DnsConfigImpl::AddUserSearchDomain(const std::string& domain) {
    CheckSearchDomain(domain);
    _added.push_back(domain);
}

void DnsConfigImpl::SaveConfig() {
    if (_added.empty()) return;
    const nimbrel::internal::NoCancellation noCancellation;
    if (ResolvedManages(kResolvConf)) {
        SaveInDropIn(_added);
    } else {
        SaveInResolvConf(_added);
    }
    _added.clear();
}

}  // namespace SysNet::Network
