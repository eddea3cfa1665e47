// What the administrator's own SSSD files say, as far as it matters to ours.

#ifndef NIMBREL_AD_LOGINS_SSSD_SETTINGS_H_
#define NIMBREL_AD_LOGINS_SSSD_SETTINGS_H_

#include <optional>
#include <string>
#include <vector>

namespace nimbrel::ad::logins {

inline constexpr char kSssdFile[] = "/etc/sssd/sssd.conf";
inline constexpr char kSssdFolder[] = "/etc/sssd/conf.d";

struct SssdSettings {
    std::vector<std::string> domains;                  // the names of the [domain/...] sections
    std::optional<std::vector<std::string>> services;  // of the last `services` in [sssd]
};

// One file's settings, laid over those before it.
void AddSssdSettings(const std::string& text, SssdSettings& settings);

// Those of sssd.conf and of the files in conf.d, ours left out.
SssdSettings ReadForeignSssdSettings(const std::string& root);

// Whether a file in conf.d is one of ours.
bool IsOwnSnippet(const std::string& name);

}  // namespace nimbrel::ad::logins

#endif  // NIMBREL_AD_LOGINS_SSSD_SETTINGS_H_
