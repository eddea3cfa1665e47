#include "service.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "authentication/proxy_abi.h"

namespace nimbrel::testing {
namespace {

constexpr char kProgram[] = "/usr/sbin/apxd";
constexpr char kPlugin[] = "/usr/libexec/nimauth/libapxhttps.so";
constexpr char kPluginSettings[] = "/etc/nimbrel/nimauth/apxhttps.conf";

void Write(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream stream(path, std::ios::trunc);
    stream << text << std::flush;
    if (!stream) throw std::runtime_error(path);
}

// Open for as long as it lives.
class Plugin {
 public:
    Plugin() : _library(dlopen(kPlugin, RTLD_LAZY | RTLD_GLOBAL)) {
        if (_library == nullptr) throw std::runtime_error(dlerror());
        _table = static_cast<const NimauthProxyOperations*>(dlsym(_library, "APXProxyClientOperations"));
        if (_table == nullptr) throw std::runtime_error(dlerror());
    }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;
    ~Plugin() { dlclose(_library); }

    const NimauthProxyOperations& Table() const { return *_table; }

    template <std::size_t count>
    Answered Take(std::uint32_t status, const std::array<char*, count>& texts) const {
        Answered answered{status, {}};
        for (char* const text : texts) {
            if (status == 0) answered.texts.emplace_back(text);
            if (status == 0) _table->release(text);
            if (status != 0 && text != nullptr) throw std::runtime_error("a failure gave a text");
        }
        return answered;
    }

 private:
    void* _library;
    const NimauthProxyOperations* _table;
};

const char* OrNull(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

}  // namespace

void Configure(const Certificate& certificate, const std::string& lines) {
    Write("/etc/nimbrel/apxd/certificate.pem", certificate.pem);
    Write("/etc/nimbrel/apxd/key.pem", certificate.key);
    std::filesystem::create_directories("/run/apxd");
    std::string text =
        "certificate = /etc/nimbrel/apxd/certificate.pem\n"
        "key = /etc/nimbrel/apxd/key.pem\n"
        "domain = corp.test\n";
    if (lines.find("ledger = ") == std::string::npos) text += std::string("ledger = ") + kLedgerFile + '\n';
    if (lines.find("allow = ") == std::string::npos) text += "allow = 127.0.0.0/8\nallow = 192.0.2.0/24\n";
    if (lines.find("requests-per-minute") == std::string::npos) text += "requests-per-minute = 60000\nburst = 10000\n";
    Write(kConfigFile, text + lines);
}

Service::Service(const std::vector<std::string>& environment) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    _process = fork();
    if (_process == 0) {
        dup2(ends[1], STDERR_FILENO);
        for (const std::string& variable : environment) putenv(const_cast<char*>(variable.c_str()));
        execl(kProgram, kProgram, nullptr);
        _exit(126);
    }
    close(ends[1]);
    _reader = std::thread([this, pipe = ends[0]] { ReadLog(pipe); });
    WaitForLog("ready ");
}

Service::~Service() {
    if (_process > 0) Stop();
}

void Service::ReadLog(int pipe) {
    std::array<char, 4096> buffer{};
    for (ssize_t count; (count = read(pipe, buffer.data(), buffer.size())) > 0;) {
        const std::lock_guard<std::mutex> lock(_lock);
        _log.append(buffer.data(), static_cast<std::size_t>(count));
        _changed.notify_all();
    }
    close(pipe);
    const std::lock_guard<std::mutex> lock(_lock);
    _ended = true;
    _changed.notify_all();
}

void Service::WaitForLog(const std::string& text) {
    std::unique_lock<std::mutex> lock(_lock);
    const auto there = [&] { return _ended || _log.find(text) != std::string::npos; };
    if (!_changed.wait_for(lock, std::chrono::seconds(60), there) || _log.find(text) == std::string::npos) {
        throw std::runtime_error("the service's log lacks '" + text + "':\n" + _log);
    }
}

std::string Service::Log() {
    const std::lock_guard<std::mutex> lock(_lock);
    return _log;
}

void Service::Signal(int number) const { kill(_process, number); }

int Service::Wait() {
    int status = 0;
    waitpid(std::exchange(_process, -1), &status, 0);
    _reader.join();
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

int Service::Stop() {
    Signal(SIGTERM);
    return Wait();
}

Answered AskDomain(const std::string& server, const Trusted& trusted) {
    const Plugin plugin;
    std::array<char*, 3> texts{};
    const std::uint32_t status =
        plugin.Table().getDomainInfo(server.c_str(), !trusted.thumbprint.empty(), trusted.thumbprint.c_str(),
                                     OrNull(trusted.certificate), &texts[0], &texts[1], &texts[2]);
    return plugin.Take(status, texts);
}

Answered AskAccount(const std::string& server, const Trusted& trusted, const std::string& name,
                    const std::string& unit) {
    const Plugin plugin;
    std::array<char*, 2> texts{};
    const std::uint32_t status = plugin.Table().createMachineAccount(
        server.c_str(), name.c_str(), OrNull(unit), !trusted.thumbprint.empty(), trusted.thumbprint.c_str(),
        OrNull(trusted.certificate), &texts[0], &texts[1]);
    return plugin.Take(status, texts);
}

void SetPlugin(const std::string& lines) { Write(kPluginSettings, lines); }

}  // namespace nimbrel::testing
