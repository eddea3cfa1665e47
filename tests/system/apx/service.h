// The installed apxd as a process of its own, and the installed plug-in to ask it with.

#ifndef TESTS_SYSTEM_APX_SERVICE_H_
#define TESTS_SYSTEM_APX_SERVICE_H_

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "certificates.h"

namespace nimbrel::testing {

inline constexpr char kConfigFile[] = "/etc/nimbrel/apxd.conf";
inline constexpr char kLedgerFile[] = "/run/apxd/ledger";

// Writes the configuration and the certificate that it names: 127.0.0.0/8 and 192.0.2.0/24 may ask, unless `lines` say
// who. `lines` come behind.
void Configure(const Certificate& certificate, const std::string& lines = "");

class Service {
 public:
    // Starts it and waits until it is ready. `environment` is added to this process's: "NAME=value".
    explicit Service(const std::vector<std::string>& environment = {});
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    // Ends it with SIGTERM, if it still runs.
    ~Service();

    void Signal(int number) const;
    // Waits for its end and its log's; the exit status, or minus the signal's number.
    int Wait();
    int Stop();

    // Waits until the log holds the text.
    void WaitForLog(const std::string& text);
    std::string Log();

 private:
    void ReadLog(int pipe);

    pid_t _process = -1;
    std::thread _reader;
    std::mutex _lock;  // guards the two below
    std::condition_variable _changed;
    std::string _log;
    bool _ended = false;
};

// What one call of the plug-in gave.
struct Answered {
    std::uint32_t status = 0;
    std::vector<std::string> texts;
};

// The plug-in's table, loaded as the library loads it. `verify` is on where there is a thumbprint.
struct Trusted {
    std::string thumbprint = {};
    std::string certificate = {};
};
Answered AskDomain(const std::string& server, const Trusted& trusted);
Answered AskAccount(const std::string& server, const Trusted& trusted, const std::string& name,
                    const std::string& unit = "");

// The plug-in's own settings.
void SetPlugin(const std::string& lines);

}  // namespace nimbrel::testing

#endif  // TESTS_SYSTEM_APX_SERVICE_H_
