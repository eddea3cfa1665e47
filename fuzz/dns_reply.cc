// A name server's reply of any bytes: what is taken from it is fit for names, and is put into an order that loses
// nothing.

#include <algorithm>
#include <tuple>

#include "addirectory/ad_error.h"
#include "dns.h"
#include "fuzz.h"

namespace {

using fuzzing::Require;
using nimbrel::ad::ServiceRecord;

bool IsFitName(const std::string& name) {
    return !name.empty() && name.size() <= 1024 && std::all_of(name.begin(), name.end(), [](char c) {
        return c > 0x20 && c < 0x7f && !(c >= 'A' && c <= 'Z');
    });
}

auto Sorted(std::vector<ServiceRecord> services) {
    const auto key = [](const ServiceRecord& one) { return std::tie(one.priority, one.weight, one.port, one.host); };
    std::sort(services.begin(), services.end(), [&](const auto& a, const auto& b) { return key(a) < key(b); });
    return services;
}

bool Same(const ServiceRecord& a, const ServiceRecord& b) {
    return a.priority == b.priority && a.weight == b.weight && a.port == b.port && a.host == b.host;
}

void CheckOrder(const std::vector<ServiceRecord>& services, unsigned seed) {
    std::vector<ServiceRecord> ordered = services;
    std::minstd_rand random(seed + 1);
    nimbrel::ad::OrderServices(ordered, random);
    const auto byPriority = [](const auto& a, const auto& b) { return a.priority < b.priority; };
    Require(std::is_sorted(ordered.begin(), ordered.end(), byPriority), "ordered by priority");
    const auto left = Sorted(services);
    const auto right = Sorted(ordered);
    Require(std::equal(left.begin(), left.end(), right.begin(), right.end(), Same), "no service is lost");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string reply = fuzzing::Input(data, size).Rest();
    try {
        const nimbrel::ad::DnsAnswer answer = nimbrel::ad::ParseDnsReply(reply);
        for (const ServiceRecord& service : answer.services) Require(IsFitName(service.host), "a host's name is fit");
        for (const auto& [name, endpoint] : answer.addresses) {
            Require(IsFitName(name), "an address's name is fit");
            Require(nimbrel::ad::Endpoint::FromText(endpoint.Text(), 0).has_value(), "an address can be told");
        }
        const bool refused = reply.size() > 3 && (reply[3] & 0x0f) != 0;
        Require(!refused || (answer.services.empty() && answer.addresses.empty()), "a refusal tells nothing");
        CheckOrder(answer.services, static_cast<unsigned>(size));
    } catch (const nimbrel::ad::AdError& error) {
        Require(error.Status() == nimbrel::ad::kStatusNoSuchDomain, "a malformed reply is status 1355");
    }
    return 0;
}
