#include "tools/nimauthctl/commands/membership.h"

#include <algorithm>

#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {

using authentication::ActiveDirectoryStore;
using authentication::ActiveDirectoryStoreConfiguration;

StorePointer OpenStore(const Invocation& invocation) {
    return std::make_shared<ActiveDirectoryStore>(invocation.Global().timeoutSeconds);
}

Answer<ActiveDirectoryStoreConfiguration> AskConfiguration(const ActiveDirectoryStore& store,
                                                           const Invocation& invocation) {
    const auto answer = AskTraced(invocation, "the store configuration", [&] {
        return std::unique_ptr<authentication::StoreConfiguration>(store.GetStoreConfiguration());
    });
    return {dynamic_cast<const ActiveDirectoryStoreConfiguration&>(*answer.value), answer.stale};
}

ExitCode ResultOf(const Report& report) {
    if (!report.Failures().empty()) return report.Failures().front().exitCode;
    return report.HasStale() ? ExitCode::Stale : ExitCode::Ok;
}

std::vector<Option> PasswordOptions() {
    return {{.flags = "--password-stdin", .help = "read the password from standard input instead of the terminal"},
            {.flags = "--password-fd", .value = "N", .help = "read the password from this open descriptor"}};
}

void ReadPassword(Password& password, const std::string& user, const Invocation& invocation, bool confirm) {
    ReadPassword(password, user, invocation.Has("password-stdin"), invocation.Text("password-fd"), confirm);
}

bool SameName(const std::string& a, const std::string& b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [&](char left, char right) { return lower(left) == lower(right); });
}

}  // namespace nimbrel::nimauthctl
