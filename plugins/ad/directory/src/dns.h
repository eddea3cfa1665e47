// Questions to the name servers, with deadlines.
//
// The questions and answers are those of libresolv; they are carried here, because libresolv's own transport waits
// without limit for a server that does not finish a TCP answer. Name servers are those of /etc/resolv.conf unless the
// settings name others. Only the DNS is asked, never /etc/hosts.

#ifndef NIMBREL_AD_DNS_H_
#define NIMBREL_AD_DNS_H_

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "addirectory/settings.h"
#include "deadline.h"
#include "sockets.h"

namespace nimbrel::ad {

struct ServiceRecord {
    std::uint16_t priority = 0;
    std::uint16_t weight = 0;
    std::uint16_t port = 0;
    std::string host;  // lower case, without the final dot
};

// What one answer tells. Addresses that came along for the hosts are taken too: they save a question each.
struct DnsAnswer {
    std::vector<ServiceRecord> services;
    std::multimap<std::string, Endpoint> addresses;  // by host name in lower case; port 0
};

// Reads a reply to the question. Malformed records end the reading, what came before them counts; throws `AdError`
// (1355) for a reply that is none.
DnsAnswer ParseDnsReply(std::string_view reply);

// The order in which to try services: by priority; within one, at random in proportion to the weight.
void OrderServices(std::vector<ServiceRecord>& services, std::minstd_rand& random);

// The order in which to try addresses of one host: those to which this host has a way first, and of these the first of
// each version before all others.
void OrderAddresses(std::vector<Endpoint>& endpoints);

class Resolver {
 public:
    explicit Resolver(const Settings& settings);

    // An empty answer where the name does not exist. Throws 1355 if no name server answers in time.
    DnsAnswer Services(const std::string& name, const Deadline& deadline) const;
    // Of version 6 only where this host has no way to one of version 4. Empty if the host has none; in the order below.
    std::vector<Endpoint> Addresses(const std::string& host, const Deadline& deadline) const;

 private:
    DnsAnswer Ask(const std::string& name, int type, const Deadline& deadline) const;

    std::vector<Endpoint> _servers;
    std::chrono::milliseconds _budget;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_DNS_H_
