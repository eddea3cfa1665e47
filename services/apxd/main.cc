// apxd: creates machine accounts in a directory on behalf of hosts that hold no user's password.

#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <future>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "services/apxd/ad_back_end.h"
#include "services/apxd/config.h"
#include "services/apxd/embedded_back_end.h"
#include "services/apxd/handler.h"
#include "services/apxd/ledger.h"
#include "services/apxd/server.h"
#include "services/apxd/service_log.h"

namespace nimbrel::apxd {
namespace {

constexpr char kUsage[] =
    "Usage: apxd [--config FILE] [--check-config]\n"
    "\n"
    "Creates machine accounts in a directory on behalf of hosts that join through it.\n"
    "\n"
    "  --config FILE   the configuration, /etc/nimbrel/apxd.conf unless given\n"
    "  --check-config  read the configuration, and the certificates, the key, the lists and the keytab\n"
    "                  that it names, say what is wrong, and end\n"
    "  --version       show the version\n"
    "  --help          show this help\n"
    "\n"
    "SIGHUP reads all of it anew. SIGTERM ends the service when the requests under way are\n"
    "answered, or 'stop-seconds' of the configuration have passed.\n";

struct Options {
    std::string configFile = kDefaultConfigFile;
    bool checkOnly = false;
};

class UsageError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

// Ends the process for --help and --version.
Options ParseOptions(int count, char** words) {
    Options options;
    for (int index = 1; index < count; ++index) {
        const std::string word = words[index];
        if (word == "--check-config") {
            options.checkOnly = true;
        } else if (word == "--config" && index + 1 < count) {
            options.configFile = words[++index];
        } else if (word == "--help" || word == "--version") {
            static_cast<void>(std::fputs(word == "--help" ? kUsage : "apxd " NIMAUTH_VERSION "\n", stdout));
            std::exit(std::fflush(stdout) == 0 ? 0 : 1);
        } else {
            throw UsageError(word == "--config" ? "--config needs a value" : "unknown option '" + word + "'");
        }
    }
    return options;
}

// Tells the service manager, if there is one: "READY=1".
void Notify(const std::string& state) {
    const char* const path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path == nullptr || std::strlen(path) < 2 || std::strlen(path) >= sizeof address.sun_path) return;
    std::memcpy(address.sun_path, path, std::strlen(path));
    if (address.sun_path[0] == '@') address.sun_path[0] = '\0';
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0) return;
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(path));
    sendto(socket, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), size);
    close(socket);
}

// The unit's own limit for a stop need not fit what the configuration allows.
void NotifyStopping(const Config& config) {
    constexpr std::uint64_t kSlack = 30;
    Notify("STOPPING=1\nEXTEND_TIMEOUT_USEC=" + std::to_string((config.stopSeconds + kSlack) * 1'000'000));
}

std::unique_ptr<BackEnd> MakeBackEnd(const Config& config) {
    if (config.backEnd == "ad") return MakeAdBackEnd(config.domain, config.principal, config.keytab);
    return MakeEmbeddedBackEnd(config.directoryFile, config.domain);
}

// The service with one reading of its configuration.
struct Generation {
    Config config;
    std::shared_ptr<Ledger> ledger;
    std::unique_ptr<BackEnd> backEnd;
    std::shared_ptr<Listener> listener;
    std::unique_ptr<Handler> handler;
    std::unique_ptr<Server> server;
};

bool SameListener(const Config& a, const Config& b) { return a.address == b.address && a.port == b.port; }

// The ledgers in use, by their paths: a generation that has been replaced keeps its own until the directory has answered.
//
// Threads: one.
class Ledgers {
 public:
    std::shared_ptr<Ledger> Open(const std::string& path) {
        std::erase_if(_open, [](const auto& one) { return one.second.expired(); });
        std::shared_ptr<Ledger> ledger = _open[path].lock();
        if (!ledger) _open[path] = ledger = std::make_shared<Ledger>(path);
        return ledger;
    }

 private:
    std::map<std::string, std::weak_ptr<Ledger>> _open;
};

// Takes over from earlier ones, `before` the last of them if there is one, what must not be there twice: the socket and
// the ledger.
std::unique_ptr<Generation> Start(const std::string& configFile, const Generation* before, Ledgers& ledgers) {
    auto made = std::make_unique<Generation>();
    made->config = ReadConfig(configFile);
    const Config& config = made->config;
    const TlsFiles files = TlsFiles::Read(config);
    made->backEnd = MakeBackEnd(config);
    made->ledger = ledgers.Open(config.ledgerFile);
    made->listener = before != nullptr && SameListener(before->config, config) ? before->listener
                                                                               : std::make_shared<Listener>(config);
    made->handler = std::make_unique<Handler>(config, *made->backEnd, *made->ledger);
    made->server = std::make_unique<Server>(config, *made->handler, files, made->listener);
    return made;
}

// Only for a configuration that is in force: what it does not need, an earlier one may.
void PruneLedger(const Generation& generation) {
    generation.ledger->Prune(std::time(nullptr) - static_cast<std::int64_t>(generation.config.retrySeconds),
                             generation.config.preStaged);
}

void LogStart(const char* event, const Generation& generation) {
    LogLine(event)
        .Add("listen", generation.listener->Address())
        .Add("domain", generation.config.domain)
        .Add("back-end", generation.config.backEnd)
        .Write();
}

void LogCut(const char* reason) { LogLine("cut").Add("reason", reason).Write(); }

// Services with an earlier reading of the configuration. Each is brought to its end by a thread of its own: a request that
// hangs in the directory holds up neither the next signal nor the end of the process.
class Retired {
 public:
    using Clock = std::chrono::steady_clock;

    // `heir` may have the same socket.
    void Take(std::unique_ptr<Generation> generation, const Generation& heir) {
        WaitForNone(Clock::time_point());
        generation->server->Retire();
        if (generation->listener != heir.listener) generation->listener->End();
        try {
            _ends.push_back(std::async(std::launch::async, End, std::move(generation)));
        } catch (const std::system_error& error) {
            LogCut(error.what());  // no thread can be had
        }
    }
    // False if one of them still has requests under way when the time is over. Threads that have ended are joined.
    bool WaitForNone(Clock::time_point until) {
        std::erase_if(_ends, [&](const auto& end) { return IsThere(end, until); });
        return _ends.empty();
    }

 private:
    // Ended with the argument.
    static void End(std::unique_ptr<Generation> generation) { generation->server->Drain(); }
    static bool IsThere(const std::future<void>& end, Clock::time_point until) {
        return end.wait_until(until) == std::future_status::ready;
    }

    std::vector<std::future<void>> _ends;
};

// A configuration that cannot be used leaves the one in force.
void TakeUp(const std::string& configFile, std::unique_ptr<Generation>& current, Ledgers& ledgers, Retired& retired) {
    try {
        std::unique_ptr<Generation> next = Start(configFile, current.get(), ledgers);
        current.swap(next);
        retired.Take(std::move(next), *current);
        LogStart("reloaded", *current);
    } catch (const std::exception& error) {
        LogLine("not-reloaded").Add("reason", error.what()).Write();
        return;
    }
    try {
        PruneLedger(*current);
    } catch (const std::exception& error) {
        LogLine("not-pruned").Add("reason", error.what()).Write();  // what is over stays until the next reading
    }
}

void Reload(const std::string& configFile, std::unique_ptr<Generation>& current, Ledgers& ledgers, Retired& retired) {
    Notify("RELOADING=1");
    TakeUp(configFile, current, ledgers, retired);
    Notify("READY=1");
}

// Requests that outlast `stop-seconds` end with the process. To the ledger that is no other end than a kill: what they were
// about to hand out is noted.
void Stop(Generation& current, Retired& retired) {
    const auto until = Retired::Clock::now() + std::chrono::seconds(current.config.stopSeconds);
    current.server->Retire();
    current.listener->End();
    const bool drained = current.server->Drain();
    const bool noneLeft = retired.WaitForNone(until);
    LogLine("stopped").Write();
    if (!drained || !noneLeft) _exit(0);
}

sigset_t ServiceSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, number);
    return signals;
}

int Serve(const std::string& configFile) {
    const sigset_t signals = ServiceSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // for the threads to come, too
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    Ledgers ledgers;
    std::unique_ptr<Generation> current = Start(configFile, nullptr, ledgers);
    PruneLedger(*current);
    LogStart("ready", *current);
    Notify("READY=1");
    Retired retired;
    for (int number = 0; sigwait(&signals, &number) == 0 && number == SIGHUP;) {
        Reload(configFile, current, ledgers, retired);
    }
    NotifyStopping(current->config);
    Stop(*current, retired);
    return 0;
}

int Check(const std::string& configFile) {
    const Config config = ReadConfig(configFile);
    TlsFiles::Read(config);
    MakeBackEnd(config);
    static_cast<void>(std::printf("%s: in order\n", configFile.c_str()));
    return std::fflush(stdout) == 0 ? 0 : 1;
}

int Run(int count, char** words) {
    try {
        const Options options = ParseOptions(count, words);
        return options.checkOnly ? Check(options.configFile) : Serve(options.configFile);
    } catch (const UsageError& error) {
        static_cast<void>(std::fprintf(stderr, "apxd: %s\n%s", error.what(), kUsage));
        return 2;
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "apxd: %s\n", error.what()));
        return 1;
    }
}

}  // namespace
}  // namespace nimbrel::apxd

int main(int count, char** words) { return nimbrel::apxd::Run(count, words); }
