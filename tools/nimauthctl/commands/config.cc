// nimauthctl config

#include <string>

#include "authentication/configuration.h"
#include "authentication/directory_config_store.h"
#include "orbconfigstore/config_store.h"
#include "tools/nimauthctl/commands/advanced_options.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

using authentication::ActiveDirectoryConfigStore;

constexpr char kSetting[] = "setting";
constexpr char kSettings[] = "settings";
constexpr char kFile[] = "file";
constexpr char kFiles[] = "files";

// One part of the settings: a file, or the configuration store. What is wrong with one leaves the others alone.
template <typename Part>
void TryPart(const std::string& source, Report& report, Part part) {
    try {
        part();
        report.AddRow(kFile, kFiles, source).Text("state", "ok");
    } catch (...) {
        Failure failure = DescribeCurrentException();
        if (failure.message.find(source) == std::string::npos) failure.where = source;
        report.AddRow(kFile, kFiles, source).Text("state", "unusable");
        report.AddFailure(failure);
    }
}

void AddSetting(const std::string& name, const std::string& value, const std::string& source, Report& report) {
    report.AddRow(kSetting, kSettings, name).Text("value", value).Text("from", source);
}

template <typename Settings>
void ShowFile(const std::string& path, Report& report) {
    TryPart(path, report, [&] {
        const Settings settings;
        for (const auto& [key, value] : settings) AddSetting(key, value, path, report);
    });
}

// Certificates are public but long; their thumbprint says which one it is.
void ShowObject(const OrbConfigStore::ConfigStoreObjectId& id, Report& report) {
    const auto store = OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace);
    const auto object = store->GetObject(id);
    if (object == nullptr) return;
    const std::string source = "configuration store " + id.Component() + '/' + id.Group() + '/' + id.Key();
    for (const auto& [name, value] : object->Values()) {
        const bool isCertificate = name == ActiveDirectoryConfigStore::AUTH_PROXY_CERT_KEY;
        AddSetting(name, isCertificate ? "(present)" : value, source, report);
    }
}

void ShowOptions(Report& report) {
    for (const std::string& name : AdvancedOptionNames()) {
        AddSetting(name, ReadAdvancedOption(name).AsText(), "advanced options", report);
    }
}

ExitCode Show(const Invocation&, Report& report) {
    report.List(kSetting, kSettings);
    report.List(kFile, kFiles);
    ShowFile<authentication::AuthenticationConfiguration>("/etc/nimbrel/nimauth/authentication.conf", report);
    ShowFile<authentication::ProviderConfiguration>("/etc/nimbrel/nimauth/provider.conf", report);
    ShowFile<authentication::APXProviderConfiguration>("/etc/nimbrel/nimauth/apxprovider.conf", report);
    TryPart("/var/lib/nimbrel/configstore.db", report, [&] {
        ShowObject(ActiveDirectoryConfigStore::AD_CSO_ID, report);
        ShowObject(ActiveDirectoryConfigStore::AUTH_PROXY_CERT_CSO_ID, report);
        ShowOptions(report);
    });
    return report.Failures().empty() ? ExitCode::Ok : report.Failures().front().exitCode;
}

}  // namespace

Command ConfigShowCommand() {
    return {
        .name = "config show",
        .summary = "show every setting and where it comes from",
        .description =
            "Shows the settings of the three files in /etc/nimbrel/nimauth, the domain settings and the trusted proxy "
            "certificate's thumbprint in the host's configuration store, and the advanced options. No secret is "
            "among them. A file that is missing or malformed is reported, and the others are shown all the same.",
        .examples = {{"nimauthctl config show", "everything"},
                     {"nimauthctl config show | grep '^setting: provider '", "which provider is configured?"}},
        .exitCodes = {ExitCode::Permission},
        .run = Show};
}

}  // namespace nimbrel::nimauthctl
