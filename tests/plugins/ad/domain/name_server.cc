#include "plugins/ad/domain/name_server.h"

#include <arpa/inet.h>

#include <stdexcept>

namespace nimbrel::ad::test {
namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr unsigned kAddress = 1;
constexpr unsigned kLongAddress = 28;
constexpr unsigned kService = 33;

std::string Number16(unsigned value) { return {static_cast<char>(value >> 8), static_cast<char>(value)}; }

std::string EncodedName(const std::string& name) {
    std::string encoded;
    for (std::size_t at = 0; at < name.size();) {
        const std::size_t end = std::min(name.find('.', at), name.size());
        encoded += static_cast<char>(end - at) + name.substr(at, end - at);
        at = end + 1;
    }
    return encoded + '\0';
}

std::string Record(const std::string& name, unsigned type, const std::string& data) {
    const std::string minute(std::string_view("\0\0\0\x3c", 4));
    return EncodedName(name) + Number16(type) + Number16(1) + minute + Number16(static_cast<unsigned>(data.size())) +
           data;
}

// The question's name in lower case, and where it ends.
std::string QuestionName(std::string_view question, std::size_t& at) {
    std::string name;
    for (at = kHeaderSize; question.at(at) != 0;) {
        const auto length = static_cast<std::size_t>(question[at]);
        name += name.empty() ? "" : ".";
        for (const char letter : question.substr(at + 1, length)) name += static_cast<char>(std::tolower(letter));
        at += 1 + length;
    }
    ++at;
    return name;
}

unsigned Type(std::string_view question, std::size_t at) {
    return static_cast<unsigned char>(question.at(at)) * 256U + static_cast<unsigned char>(question.at(at + 1));
}

}  // namespace

NameServer::NameServer() {
    for (int tries = 1; !_streams; ++tries) {  // the port that is free for one may be taken for the other
        _datagrams = std::make_unique<DatagramService>(
            "127.0.0.1", 0, [this](std::string_view question) { return Answer(question, true); });
        try {
            _streams = std::make_unique<StreamService>("127.0.0.1", _datagrams->Port(),
                                                       [this](int socket) { Converse(socket); });
        } catch (const std::runtime_error&) {
            if (tries == 4) throw;
        }
    }
}

void NameServer::AddService(const std::string& name, const std::string& host, const ServiceOptions& options) {
    const std::lock_guard guard(_lock);
    _services[name].push_back(Number16(options.priority) + Number16(options.weight) + Number16(options.port) +
                              EncodedName(host));
    _targets[name].push_back(host);
}

void NameServer::AddAddress(const std::string& host, const std::string& address) {
    in6_addr binary = {};
    const bool isShort = inet_pton(AF_INET, address.c_str(), &binary) == 1;
    if (!isShort && inet_pton(AF_INET6, address.c_str(), &binary) != 1) throw std::runtime_error(address);
    const std::lock_guard guard(_lock);
    auto& addresses = isShort ? _addresses : _longAddresses;
    addresses[host].emplace_back(reinterpret_cast<const char*>(&binary), isShort ? sizeof(in_addr) : sizeof binary);
}

void NameServer::Forget(const std::string& name) {
    const std::lock_guard guard(_lock);
    _services.erase(name);
    _addresses.erase(name);
    _longAddresses.erase(name);
}

std::string NameServer::Answer(std::string_view question, bool byDatagram) {
    std::size_t end = 0;
    const std::string name = QuestionName(question, end);
    const unsigned type = Type(question, end);
    const bool cut = byDatagram && truncates;
    std::vector<std::string> answers;
    std::vector<std::string> additional;
    const std::lock_guard guard(_lock);
    const auto& known = type == kService ? _services : type == kLongAddress ? _longAddresses : _addresses;
    if (const auto found = known.find(name); found != known.end() && refusal == 0) {
        for (const auto& data : found->second) answers.push_back(Record(name, type, data));
    }
    if (cut && answers.size() > keepsOfCut) answers.resize(keepsOfCut);
    if (type == kService && !answers.empty() && !omitsAddresses) {
        for (const auto& host : _targets[name]) {
            for (const auto& data : _addresses[host]) additional.push_back(Record(host, kAddress, data));
        }
    }
    const bool isKnown =
        cut || !answers.empty() || _services.count(name) + _addresses.count(name) + _longAddresses.count(name) > 0;
    const unsigned code = refusal != 0 ? static_cast<unsigned>(refusal) : isKnown ? 0 : 3;
    std::string reply = std::string(question.substr(0, 2)) + Number16(0x8180 | (cut ? 0x0200U : 0) | code) +
                        Number16(1) + Number16(static_cast<unsigned>(answers.size())) + Number16(0) +
                        Number16(static_cast<unsigned>(additional.size())) +
                        std::string(question.substr(kHeaderSize, end + 4 - kHeaderSize));
    for (const auto& record : answers) reply += record;
    for (const auto& record : additional) reply += record;
    return reply;
}

void NameServer::Converse(int socket) {
    unsigned char length[2] = {};
    while (ReadExactly(socket, length, sizeof length)) {
        std::string question(length[0] * 256U + length[1], '\0');
        if (!ReadExactly(socket, question.data(), question.size())) return;
        ++connections;
        if (keepsConnectionsWaiting) continue;
        std::string reply = Answer(question, false);
        if (confusesConnections) reply[0] = static_cast<char>(~reply[0]);
        WriteAll(socket, Number16(static_cast<unsigned>(reply.size())) + reply);
    }
}

}  // namespace nimbrel::ad::test
