// The protocol (docs/formats/apx-protocol.md), without a network: a request in, an answer out.
//
//     Handler handler(config, backEnd, ledger);
//     if (auto refused = handler.Admit(request, now)) return Send(*refused);      // once its head is there
//     return Send(handler.Handle(request));                                       // once its body is there
//
// Threads: any. Never throws; what goes wrong inside is status 1359 in the answer, and 112 where the disk is full.

#ifndef NIMBREL_APXD_HANDLER_H_
#define NIMBREL_APXD_HANDLER_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "services/apxd/accounts.h"
#include "services/apxd/back_end.h"
#include "services/apxd/config.h"
#include "services/apxd/ledger.h"
#include "services/apxd/rate_limiter.h"

namespace nimbrel::apxd {

// No request needs more.
inline constexpr std::size_t kLargestBody = 4096;

struct Request {
    std::string method;
    std::string path;
    std::string contentType;                     // empty if the request names none
    std::optional<std::uint64_t> contentLength;  // as the head gives it
    std::string body;
    std::optional<Address> client;
    std::string certificate;                    // one that chains to `client-ca`: hexadecimal digits; empty without one
    const char* certificateFault = nullptr;     // why it is not good all the same
    std::vector<std::string> certificateNames;  // of the hosts that it was issued to: "node01.corp.test"
};

struct Answer {
    unsigned httpStatus = 200;
    std::uint32_t status = 0;  // Windows system error number; 0 for success
    SecretText body;           // JSON
    std::string message;       // why not, for the log
    // What the request asked for, for the log.
    std::string account;
    std::string organizationalUnit;
    const char* way = "";  // "created", "renewed", "taken-over"
};

class Handler {
 public:
    using Time = RateLimiter::Time;

    // All three must outlive the object.
    Handler(const Config& config, BackEnd& backEnd, Ledger& ledger);

    // Whether this address may ask at all; none may not.
    bool IsAllowed(const std::optional<Address>& client) const;

    // What can be told by the head of a request; unset if the body is wanted. Counts against the client's rate.
    std::optional<Answer> Admit(const Request& request, Time now);

    // To a client that has too many connections, as `why` tells.
    static Answer TurnedAway(const char* why);
    // To a body whose length the head does not tell.
    static Answer LengthRequired();

    // The answer to an admitted request.
    Answer Handle(const Request& request);

 private:
    void RequireAllowed(const Request& request, Time now);
    Answer GiveDomain();
    Answer GiveAccount(const Request& request);
    void RequireUnit(const std::string& unit) const;
    void RequireOwnName(const Request& request, const std::string& account) const;

    const Config& _config;
    BackEnd& _backEnd;
    Accounts _accounts;
    RateLimiter _limiter;
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_HANDLER_H_
