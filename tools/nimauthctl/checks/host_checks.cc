#include "tools/nimauthctl/checks/host_checks.h"

#include <sys/stat.h>
#include <sys/timex.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <system_error>
#include <vector>

#include "pluginkit/whole_file.h"
#include "tools/loginfiles/pam_text.h"
#include "tools/nimauthctl/checks/keytab.h"
#include "tools/nimauthctl/checks/login_files.h"
#include "tools/nimauthctl/commands/membership.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kKeytab[] = "/etc/krb5.keytab";
constexpr char kEnableLogins[] = "nimauthctl logins enable; --dry-run shows what it would change";
constexpr char kJoinAgain[] = "leave the domain and join it again";

std::string Joined(const std::vector<std::string>& texts) {
    std::string joined;
    for (const auto& text : texts) joined += (joined.empty() ? "" : ", ") + text;
    return joined;
}

std::string Upper(std::string text) {
    for (char& c : text) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    return text;
}

std::string Trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::optional<struct stat> StatusOf(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    return status;
}

// What keeps a file that holds secrets from being used; empty if nothing does.
std::string WrongRights(const struct stat& status) {
    if (status.st_uid != 0) return "does not belong to root";
    return (status.st_mode & (S_IRWXG | S_IRWXO)) != 0 ? "may be read by others than root" : "";
}

// A file of SSSD's configuration that has the domain's section.
struct SssdFile {
    std::string path;
    std::string keytab;  // empty if it names none
};

std::optional<SssdFile> ReadSssdFile(const std::string& root, const std::string& path, const std::string& domain) {
    std::istringstream lines(kit::ReadWholeFile(root + path).value_or(""));
    std::optional<SssdFile> file;
    bool inSection = false;
    for (std::string line; std::getline(lines, line);) {
        line = Trimmed(line);
        if (!line.empty() && line.front() == '[') inSection = SameName(line, "[domain/" + domain + ']');
        if (inSection && !file) file = SssdFile{path, ""};
        const auto equals = line.find('=');
        if (inSection && equals != std::string::npos && Trimmed(line.substr(0, equals)) == "krb5_keytab") {
            file->keytab = Trimmed(line.substr(equals + 1));
        }
    }
    return file;
}

std::vector<SssdFile> SssdFiles(const std::string& root, const std::string& domain) {
    std::vector<SssdFile> files;
    const auto add = [&](const std::string& path) {
        if (const auto file = ReadSssdFile(root, path, domain)) files.push_back(*file);
    };
    add("/etc/sssd/sssd.conf");
    for (const auto& path : AllMatches(root, "/etc/sssd/conf.d/*.conf")) add(path);
    return files;
}

bool IsProcess(const std::string& root, const std::string& pidFile, const std::string& command) {
    const long pid = std::strtol(kit::ReadWholeFile(root + pidFile).value_or("").c_str(), nullptr, 10);
    return pid > 1 && kit::ReadWholeFile("/proc/" + std::to_string(pid) + "/comm").value_or("") == command + '\n';
}

std::vector<std::string> WithoutModule(const logins::PamFiles& files, const std::vector<std::string>& services,
                                       const std::string& module) {
    std::vector<std::string> without;
    for (const auto& service : services) {
        for (const char* const type : {"auth", "account"}) {
            if (!logins::Uses(files, service, type, module)) without.push_back(service + " (" + type + ')');
        }
    }
    return without;
}

}  // namespace

// The provider has no operation that tells a controller's time.
Finding CheckClock() {
    struct timex clock = {};
    const int state = adjtimex(&clock);
    if (state != -1 && state != TIME_ERROR && (clock.status & STA_UNSYNC) == 0) {
        return Pass("kept by a time service; the largest error is " + std::to_string(clock.maxerror / 1000) + " ms");
    }
    return Warn("no time service keeps it",
                "set it by NTP from the domain's time source: more than five minutes apart, every log-on is refused");
}

Finding CheckHostName(const std::string& hostName, const std::string& machineAccount) {
    const std::string name = hostName.substr(0, hostName.find('.'));
    if (machineAccount.size() < 4 || !SameName(machineAccount.substr(0, 3), "CN=")) {
        return Warn("the provider does not tell the machine account", "look at the domain's computer accounts");
    }
    const std::string account = machineAccount.substr(3, machineAccount.find(',') - 3);
    if (!SameName(name, account)) {
        return Fail("the host is called " + name + ", its machine account " + account,
                    "give the host its old name, or leave the domain and join it under the new one",
                    ExitCode::HostName);
    }
    return Pass(name + ", as the machine account");
}

Finding CheckNameService(const std::string& root, const std::string& service) {
    const std::string module =
        FirstMatch(root, {"/lib*/libnss_" + service + ".so.2", "/lib*/*/libnss_" + service + ".so.2",
                          "/usr/lib*/libnss_" + service + ".so.2", "/usr/lib*/*/libnss_" + service + ".so.2"});
    if (module.empty()) {
        return Fail("libnss_" + service + ".so.2 is not installed", "install the package that brings it");
    }
    const std::string text = kit::ReadWholeFile(root + "/etc/nsswitch.conf").value_or("");
    std::vector<std::string> missing;
    for (const char* const database : {"passwd", "group"}) {
        if (!NamesService(text, database, service)) missing.emplace_back(database);
    }
    if (!missing.empty()) {
        return Fail("/etc/nsswitch.conf does not name '" + service + "' for " + Joined(missing), kEnableLogins);
    }
    return Pass("'" + service + "' on passwd and group, " + module);
}

Finding CheckPam(const std::string& root, const std::string& module) {
    const std::string file = FirstMatch(root, {"/lib*/security/" + module, "/lib*/*/security/" + module,
                                               "/usr/lib*/security/" + module, "/usr/lib*/*/security/" + module});
    if (file.empty()) return Fail(module + " is not installed", "install the package that brings it");
    const logins::PamFiles files = logins::ReadPamFiles(root);
    std::vector<std::string> services;
    for (const char* const service : {"login", "sshd"}) {
        if (files.contains(service)) services.emplace_back(service);
    }
    if (services.empty()) {
        return Warn("neither login nor sshd is a PAM service of this host", "see to the services that log users in");
    }
    const auto without = WithoutModule(files, services, module);
    if (without.size() == 2 * services.size()) return Fail("no PAM service uses " + module, kEnableLogins);
    if (!without.empty()) return Warn(module + " is missing in " + Joined(without), kEnableLogins);
    return Pass(module + " in " + Joined(services));
}

Finding CheckSssdInstalled(const std::string& root) {
    if (access((root + "/usr/sbin/sssd").c_str(), X_OK) == 0) return Pass("/usr/sbin/sssd");
    return Fail("SSSD is not installed", "install it: sssd-ad, libnss-sss and libpam-sss on Debian");
}

Finding CheckSssdConfiguration(const std::string& root, const std::string& domain) {
    const auto files = SssdFiles(root, domain);
    if (files.empty()) return Fail("no file in /etc/sssd tells SSSD of " + domain, kJoinAgain);
    for (const auto& file : files) {
        const auto status = StatusOf(root + file.path);
        const std::string wrong = status ? WrongRights(*status) : "is gone";
        if (!wrong.empty()) {
            return Fail(file.path + ' ' + wrong + ", so SSSD passes over it",
                        "chown root:root " + file.path + "; chmod 600 " + file.path + "; then restart SSSD",
                        ExitCode::Permission);
        }
    }
    return Pass(files.front().path);
}

Finding CheckSssdRuns(const std::string& root) {
    if (!IsProcess(root, "/run/sssd.pid", "sssd")) {
        return Fail("SSSD does not run", "start it: systemctl restart sssd; journalctl -u sssd tells why it ended");
    }
    for (const char* const service : {"nss", "pam"}) {
        const auto pipe = StatusOf(root + "/var/lib/sss/pipes/" + service);
        if (!pipe || !S_ISSOCK(pipe->st_mode)) {
            return Fail(std::string("SSSD does not answer for ") + service,
                        std::string("systemctl enable --now sssd-") + service + ".socket, or name it in 'services'");
        }
    }
    return Pass("it runs, and answers for nss and pam");
}

Finding CheckKeytab(const std::string& root, const std::string& domain) {
    std::string path = kKeytab;
    for (const auto& file : SssdFiles(root, domain)) {
        if (!file.keytab.empty()) path = file.keytab;
    }
    const auto status = StatusOf(root + path);
    if (!status) return Fail(path + " is missing", kJoinAgain);
    const auto bytes = kit::ReadWholeFile(root + path);
    if (!bytes) return Fail(path + " cannot be read", "run this as root", ExitCode::Permission);
    const auto principals = KeytabPrincipals(*bytes);
    if (!principals) return Fail(path + " is no keytab", kJoinAgain);
    const std::string ending = '@' + Upper(domain);
    const auto own = std::find_if(principals->begin(), principals->end(), [&](const std::string& principal) {
        return principal.size() > ending.size() && principal.substr(principal.size() - ending.size()) == ending;
    });
    if (own == principals->end()) return Fail(path + " has no key of " + Upper(domain), kJoinAgain);
    if (const std::string wrong = WrongRights(*status); !wrong.empty()) {
        return Warn(path + ' ' + wrong, "chown root:root " + path + "; chmod 600 " + path +
                                            "; if others have read it, leave and join again");
    }
    return Pass(path + ": " + *own);
}

}  // namespace nimbrel::nimauthctl
