#include "dns.h"

#include <arpa/nameser.h>
#include <netinet/in.h>
#include <poll.h>
#include <resolv.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <numeric>
#include <optional>

#include "addirectory/ad_error.h"
#include "names.h"

namespace nimbrel::ad {
namespace {

constexpr std::size_t kMaximumReply = 65535;
constexpr std::chrono::milliseconds kFirstWait{400};
// A service's priority, weight and port stand before its host.
constexpr int kBeforeHost = 3 * NS_INT16SZ;

const unsigned char* Bytes(std::string_view text) { return reinterpret_cast<const unsigned char*>(text.data()); }

[[noreturn]] void FailDns(const std::string& reason) { throw AdError(kStatusNoSuchDomain, reason); }

// libresolv's state, filled from /etc/resolv.conf.
class ResolverState {
 public:
    ResolverState() {
        if (res_ninit(&_state) != 0) {
            FailDns("The name servers of /etc/resolv.conf cannot be read");
        }
    }
    ResolverState(const ResolverState&) = delete;
    ResolverState& operator=(const ResolverState&) = delete;
    ~ResolverState() { res_nclose(&_state); }

    std::vector<Endpoint> Servers(std::uint16_t port) const {
        std::vector<Endpoint> servers;
        for (int i = 0; i < _state.nscount; ++i) {
            const sockaddr_in6* ipv6 = _state._u._ext.nsaddrs[i];
            if (_state.nsaddr_list[i].sin_family == AF_INET) {
                servers.push_back(Endpoint::FromIPv4(&_state.nsaddr_list[i].sin_addr, port));
            } else if (ipv6) {
                servers.push_back(Endpoint::FromIPv6(&ipv6->sin6_addr, port));
            }
        }
        return servers;
    }

    // The question, with room for answers of 4096 bytes announced.
    std::string Question(const std::string& name, int type) {
        std::array<unsigned char, NS_PACKETSZ> buffer = {};
        const int size = res_nmkquery(&_state, ns_o_query, name.c_str(), ns_c_in, type, nullptr, 0, nullptr,
                                      buffer.data(), static_cast<int>(buffer.size()));
        if (size == -1) {
            throw AdError(kStatusInvalidDomainName, "The name '" + name + "' cannot be looked up");
        }
        static constexpr std::string_view kLargeAnswers("\0\0\x29\x10\0\0\0\0\0\0\0", 11);
        std::string question(reinterpret_cast<char*>(buffer.data()), static_cast<std::size_t>(size));
        question[11] = 1;
        return question.append(kLargeAnswers);
    }

 private:
    struct __res_state _state = {};
};

// Empty for the root, and for a name that cannot be read: nothing is written then.
std::string HostName(const ns_msg& message, const unsigned char* name) {
    std::array<char, NS_MAXDNAME> text = {};
    dn_expand(ns_msg_base(message), ns_msg_end(message), name, text.data(), static_cast<int>(text.size()));
    return LowerCase(text.data());
}

void TakeRecord(const ns_msg& message, const ns_rr& record, DnsAnswer& answer) {
    const unsigned char* data = ns_rr_rdata(record);
    const auto size = ns_rr_rdlen(record);
    if (ns_rr_type(record) == ns_t_srv && size > kBeforeHost) {
        const std::string host = HostName(message, data + kBeforeHost);
        if (!host.empty()) {
            const auto number = [&](int at) { return static_cast<std::uint16_t>(ns_get16(data + at)); };
            answer.services.push_back({number(0), number(2), number(4), host});
        }
    } else if (ns_rr_type(record) == ns_t_a && size == 4) {
        answer.addresses.emplace(LowerCase(ns_rr_name(record)), Endpoint::FromIPv4(data, 0));
    } else if (ns_rr_type(record) == ns_t_aaaa && size == 16) {
        answer.addresses.emplace(LowerCase(ns_rr_name(record)), Endpoint::FromIPv6(data, 0));
    }
}

void TakeSection(ns_msg& message, ns_sect section, DnsAnswer& answer) {
    ns_rr record = {};
    for (int i = 0; ns_parserr(&message, section, i, &record) == 0; ++i) {
        TakeRecord(message, record, answer);
    }
}

// The same identification and the same question, byte for byte.
bool IsReplyTo(std::string_view reply, std::string_view question) {
    const std::size_t questionEnd = question.size() - 11;
    return reply.size() >= questionEnd && (static_cast<unsigned char>(reply[2]) & 0x80) != 0 &&
           reply.substr(0, 2) == question.substr(0, 2) &&
           SameName(reply.substr(12, questionEnd - 12), question.substr(12, questionEnd - 12));
}

bool IsTruncated(std::string_view reply) { return (static_cast<unsigned char>(reply[2]) & 0x02) != 0; }
bool HasAnswers(std::string_view reply) { return reply[6] != 0 || reply[7] != 0; }
int ResponseCode(std::string_view reply) { return static_cast<unsigned char>(reply[3]) & 0x0f; }

std::optional<std::string> AskByDatagram(const Endpoint& server, const std::string& question, const Deadline& wait) {
    const kit::Descriptor socket = ConnectUdp(server);
    SendAll(socket.Number(), question, wait);
    std::string reply;
    reply.resize(kMaximumReply);
    // Looked at first: a peer that never stops talking is always ready to be read.
    while (!wait.HasPassed() && WaitFor(socket.Number(), POLLIN, wait)) {
        const ssize_t got = read(socket.Number(), reply.data(), reply.size());
        if (got < 0) {
            if (errno != EAGAIN && errno != EINTR) {
                return std::nullopt;
            }
        } else if (IsReplyTo(std::string_view(reply).substr(0, static_cast<std::size_t>(got)), question)) {
            reply.resize(static_cast<std::size_t>(got));
            return reply;
        }
    }
    return std::nullopt;
}

// The whole answer to a question, whose datagram was too short for it. Where it does not come, the records that did.
std::optional<std::string> FetchWhole(const Endpoint& server, const std::string& question, std::string cut,
                                      const Deadline& wait) {
    try {
        std::string whole = ExchangeFrames(server, question, 2, kMaximumReply, wait);
        if (IsReplyTo(whole, question)) {
            return whole;
        }
    } catch (const AdError&) {  // a firewall that lets no connections through, above all
    }
    return HasAnswers(cut) ? std::optional(std::move(cut)) : std::nullopt;
}

// Unset if this server gives no answer that can be used. Takes twice the wait at most.
std::optional<DnsAnswer> AskServer(const Endpoint& server, const std::string& question, std::chrono::milliseconds wait,
                                   const Deadline& deadline) {
    try {
        auto reply = AskByDatagram(server, question, deadline.OrAfter(wait));
        if (reply && IsTruncated(*reply)) {
            reply = FetchWhole(server, question, std::move(*reply), deadline.OrAfter(wait));
        }
        const bool answered = reply && (ResponseCode(*reply) == ns_r_noerror || ResponseCode(*reply) == ns_r_nxdomain);
        return answered ? std::optional(ParseDnsReply(*reply)) : std::nullopt;
    } catch (const AdError&) {
        return std::nullopt;  // the next server may do better
    }
}

}  // namespace

DnsAnswer ParseDnsReply(std::string_view reply) {
    ns_msg message = {};
    if (reply.size() > kMaximumReply || ns_initparse(Bytes(reply), static_cast<int>(reply.size()), &message) != 0) {
        FailDns("A name server's reply is malformed");
    }
    DnsAnswer answer;
    if (ns_msg_getflag(message, ns_f_rcode) == ns_r_noerror) {
        TakeSection(message, ns_s_an, answer);
        TakeSection(message, ns_s_ar, answer);
    }
    return answer;
}

void OrderServices(std::vector<ServiceRecord>& services, std::minstd_rand& random) {
    const auto byPriority = [](const auto& left, const auto& right) { return left.priority < right.priority; };
    std::stable_sort(services.begin(), services.end(), byPriority);
    for (auto next = services.begin(); next != services.end(); ++next) {
        const auto groupEnd = std::upper_bound(next, services.end(), *next, byPriority);
        const auto addWeight = [](std::uint32_t sum, const auto& one) { return sum + one.weight; };
        const std::uint32_t total = std::accumulate(next, groupEnd, std::uint32_t{0}, addWeight);
        std::uint32_t ticket = std::uniform_int_distribution<std::uint32_t>(0, total)(random);
        auto chosen = next;
        while (ticket > chosen->weight) {  // the last one's at the latest is not exceeded
            ticket -= chosen->weight;
            ++chosen;
        }
        std::rotate(next, chosen, chosen + 1);
    }
}

void OrderAddresses(std::vector<Endpoint>& endpoints) {
    const auto end = std::stable_partition(endpoints.begin(), endpoints.end(), HasRoute);
    const auto isOther = [&](const Endpoint& one) { return one.Family() != endpoints.front().Family(); };
    const auto other = std::find_if(endpoints.begin(), end, isOther);
    if (other != end) {
        std::rotate(endpoints.begin() + 1, other, other + 1);
    }
}

Resolver::Resolver(const Settings& settings) : _budget(settings.nameBudget) {
    if (settings.nameServers.empty()) {
        _servers = ResolverState().Servers(settings.nameServerPort);
    }
    for (const auto& address : settings.nameServers) {
        if (const auto server = Endpoint::FromText(address, settings.nameServerPort)) {
            _servers.push_back(*server);
        }
    }
}

DnsAnswer Resolver::Services(const std::string& name, const Deadline& deadline) const {
    return Ask(name, ns_t_srv, deadline);
}

std::vector<Endpoint> Resolver::Addresses(const std::string& host, const Deadline& deadline) const {
    if (const auto literal = Endpoint::FromText(host, 0)) {
        return {*literal};
    }
    std::vector<Endpoint> endpoints;
    for (const int type : {ns_t_a, ns_t_aaaa}) {
        if (std::any_of(endpoints.begin(), endpoints.end(), HasRoute)) {
            break;
        }
        try {
            for (const auto& [name, endpoint] : Ask(host, type, deadline).addresses) {
                endpoints.push_back(endpoint);
            }
        } catch (const AdError&) {
            if (endpoints.empty()) {
                throw;
            }
        }
    }
    OrderAddresses(endpoints);
    return endpoints;
}

// Every server in turn, then all again with twice the patience, until the deadline.
DnsAnswer Resolver::Ask(const std::string& name, int type, const Deadline& deadline) const {
    const Deadline end = deadline.OrAfter(_budget);
    const std::string question = ResolverState().Question(name, type);
    for (auto wait = kFirstWait; !_servers.empty() && !end.HasPassed(); wait *= 2) {
        const auto start = Deadline::Clock::now();
        for (const auto& server : _servers) {
            if (auto answer = AskServer(server, question, wait, end)) {
                return std::move(*answer);
            }
        }
        // Refused at once by all of them: that will not change within this question.
        if (Deadline::Clock::now() - start < kFirstWait / 4) {
            break;
        }
    }
    FailDns("No name server answers for '" + name + "'");
}

}  // namespace nimbrel::ad
