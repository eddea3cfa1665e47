#include "plugins/ad/domain/controller.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <set>
#include <stdexcept>

#include "plugins/ad/domain/acceptor.h"
#include "plugins/ad/domain/ber.h"

namespace nimbrel::ad::test {
namespace {

constexpr std::uint32_t kServes = 0x128;  // LDAP, Kerberos, changes
constexpr int kBindInProgress = 14;
constexpr int kInvalidCredentials = 49;
constexpr char kTreeDelete[] = "1.2.840.113556.1.4.805";

// The requests that are answered, by tag; the answer's tag; and the operation's name.
struct Kind {
    unsigned char request;
    unsigned char answer;
    const char* name;
};
constexpr Kind kKinds[] = {
    {0x60, 0x61, "bind"}, {0x63, 0x65, "search"}, {0x66, 0x67, "modify"}, {0x68, 0x69, "add"}, {0x4a, 0x6b, "delete"}};

std::string Number(std::uint64_t value, std::size_t size) {
    std::string bytes;
    for (std::size_t i = size; i-- > 0;) bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

std::string LittleEndian(std::uint64_t value, std::size_t size) {
    std::string bytes = Number(value, size);
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

std::string DomainName(const std::string& dnsName) {
    std::string name = "DC=";
    for (const char letter : dnsName) name += letter == '.' ? std::string(",DC=") : std::string(1, letter);
    return name;
}

std::string Labels(const std::string& name) {
    std::string labels;
    for (std::size_t at = 0; at < name.size();) {
        const std::size_t end = std::min(name.find('.', at), name.size());
        labels += static_cast<char>(end - at) + name.substr(at, end - at);
        at = end + 1;
    }
    return labels + '\0';
}

std::string EncodedAttribute(const std::string& name, const Values& values) {
    std::string encoded;
    for (const auto& value : values) encoded += MakeElement(0x04, value);
    return MakeElement(0x30, MakeElement(0x04, name) + MakeElement(0x31, encoded));
}

std::string EncodedEntry(const Entry& entry) {
    std::string attributes;
    for (const auto& [name, values] : entry.attributes) attributes += EncodedAttribute(name, values);
    return MakeElement(0x64, MakeElement(0x04, entry.name) + MakeElement(0x30, attributes));
}

std::pair<std::string, Values> ReadAttribute(std::string_view encoded) {
    const Element name = TakeElement(encoded);
    std::string_view set = TakeElement(encoded).content;
    Values values;
    while (!set.empty()) values.push_back(TakeElement(set).Text());
    return {LowerText(name.Text()), values};
}

}  // namespace

// One connection. What is wrong with a request ends it.
class Conversation {
 public:
    Conversation(TestController& controller, int socket) : _controller(controller), _socket(socket) {}

    void Run() {
        try {
            while (Receive()) {
                while (const std::size_t size = WholeMessage()) {
                    const std::string message = _received.substr(0, size);
                    _received.erase(0, size);
                    if (!Answer(message)) return;
                }
            }
        } catch (const std::exception&) {
            return;  // the peer has broken the rules, or the connection is gone
        }
    }

 private:
    std::size_t WholeMessage() const {
        const std::size_t size = ElementSize(_received);
        return size <= _received.size() ? size : 0;
    }

    bool Receive() { return _sealed ? ReceiveSealed() : ReceivePlain(); }

    bool ReceivePlain() {
        std::array<char, 4096> bytes = {};
        const ssize_t got = recv(_socket, bytes.data(), bytes.size(), 0);
        if (got > 0) _received.append(bytes.data(), static_cast<std::size_t>(got));
        return got > 0;
    }

    bool ReceiveSealed() {
        unsigned char length[4] = {};
        if (!ReadExactly(_socket, length, sizeof length)) return false;
        std::string token(static_cast<std::size_t>(length[1]) << 16 | length[2] << 8 | length[3], '\0');
        if (token.size() > _controller.maximumMessage) return false;
        if (!ReadExactly(_socket, token.data(), token.size())) return false;
        _controller.largestMessage = std::max(_controller.largestMessage.load(), token.size());
        _received += _acceptor->Unwrap(token);
        return true;
    }

    void Send(const std::string& bytes) {
        if (!_sealed) return WriteAll(_socket, bytes);
        std::string token = _acceptor->Wrap(bytes, true);
        const long announced = _controller.announcedLength;
        if (_controller.damagesMessages) token.back() = static_cast<char>(token.back() ^ 1);
        const std::string frame = Number(announced < 0 ? token.size() : static_cast<std::size_t>(announced), 4) + token;
        const std::size_t piece = _controller.dribblesMessages ? 1 : frame.size();
        for (std::size_t at = 0; at < frame.size(); at += piece) WriteAll(_socket, frame.substr(at, piece));
    }

    void SendMessage(const std::string& content) { Send(MakeElement(0x30, MakeNumber(0x02, _id) + content)); }

    void SendResult(unsigned char tag, const Result& result, const std::string& rest = "") {
        SendMessage(MakeElement(
            tag, MakeNumber(0x0a, result.code) + MakeElement(0x04, "") + MakeElement(0x04, result.diagnostic) + rest));
    }

    // False to end the connection.
    bool Answer(std::string_view message) {
        std::string_view rest = TakeElement(message).content;
        _id = TakeElement(rest).Number();
        const Element request = TakeElement(rest);
        const auto* kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                        [&](const Kind& one) { return one.request == request.tag; });
        if (kind == std::end(kKinds)) return false;  // a farewell, above all
        std::string_view content = request.content;
        const std::string name = request.tag == 0x4a   ? request.Text()
                                 : request.tag == 0x60 ? ""
                                                       : TakeElement(content).Text();
        const bool isPing = request.tag == 0x63 && content.find("NtVer") != std::string_view::npos;
        const std::string operation = isPing ? "ping" : kind->name;
        const Behaviour behaviour = _controller.BehaviourAt(operation, name);
        if (const auto refusal = _controller.Refused(operation, name)) {
            SendResult(kind->answer, *refusal);
            return true;
        }
        if (behaviour == Behaviour::Answers) {
            Carry(*kind, name, content, rest, isPing);
            return true;
        }
        if (behaviour == Behaviour::Vanishes) return false;
        if (request.tag == 0x66 || request.tag == 0x68 || request.tag == 0x4a) Apply(*kind, name, content, rest);
        return behaviour == Behaviour::KeepsQuiet;
    }

    void Carry(const Kind& kind, const std::string& name, std::string_view content, std::string_view controls,
               bool isPing) {
        switch (kind.request) {
            case 0x60:
                Bind(content);
                break;
            case 0x63:
                Search(name, content, isPing);
                break;
            default:
                SendResult(kind.answer, Apply(kind, name, content, controls));
        }
    }

    Result Apply(const Kind& kind, const std::string& name, std::string_view content, std::string_view controls) {
        if (kind.request == 0x4a) {
            return _controller._entries.Delete(name, controls.find(kTreeDelete) != std::string_view::npos);
        }
        std::string_view list = TakeElement(content).content;
        if (kind.request == 0x68) {
            std::map<std::string, Values> attributes;
            while (!list.empty()) attributes.insert(ReadAttribute(TakeElement(list).content));
            return _controller._entries.Add(name, attributes);
        }
        std::vector<Entries::Change> changes;
        while (!list.empty()) {
            std::string_view change = TakeElement(list).content;
            const int operation = static_cast<int>(TakeElement(change).Number());
            auto [attribute, values] = ReadAttribute(TakeElement(change).content);
            changes.push_back({operation, attribute, values});
        }
        return _controller._entries.Modify(name, changes);
    }

    void Search(const std::string& base, std::string_view content, bool isPing) {
        const int scope = static_cast<int>(TakeElement(content).Number());
        for (int skipped = 0; skipped < 4; ++skipped) TakeElement(content);  // aliases, limits, types only
        std::string_view before = content;
        TakeElement(content);
        const std::string_view filter = before.substr(0, before.size() - content.size());
        std::vector<Entry> found;
        Result result;
        if (isPing) {
            found.push_back({"", {{"netlogon", {_controller.Ping()}}}});
        } else if (base.empty()) {
            found.push_back(_controller.Root());
        } else {
            result = _controller._entries.Search(base, scope, filter, found);
        }
        std::set<std::string> wanted;
        for (std::string_view names = TakeElement(content).content; !names.empty();) {
            wanted.insert(LowerText(TakeElement(names).Text()));
        }
        for (auto& entry : found) {
            // Without a list of names all attributes are meant.
            std::erase_if(entry.attributes,
                          [&](const auto& one) { return !wanted.empty() && !wanted.contains(one.first); });
            SendMessage(EncodedEntry(entry));
        }
        SendResult(0x65, result);
    }

    void Bind(std::string_view content) {
        TakeElement(content);  // the version
        TakeElement(content);  // no name
        std::string_view choice = TakeElement(content).content;
        TakeElement(choice);  // the mechanism
        const std::string token = choice.empty() ? "" : TakeElement(choice).Text();
        if (_controller.takesNoTickets) {
            return SendResult(0x61, {kInvalidCredentials, "80090308: LdapErr: data 52e"});
        }
        if (!_acceptor) {
            _acceptor = std::make_unique<Acceptor>(_controller._keys.Keytab());
            return SendResult(0x61, {kBindInProgress}, MakeElement(0x87, _acceptor->Accept(token)));
        }
        if (token.empty()) {
            const std::string offer = Number(static_cast<unsigned>(_controller.layers.load()), 1) +
                                      Number(_controller.maximumMessage.load(), 3);
            return SendResult(0x61, {kBindInProgress}, MakeElement(0x87, _acceptor->Wrap(offer, false)));
        }
        // Sealing, and how large the messages may be that come back (RFC 4752, section 3.1).
        if (_acceptor->Unwrap(token) != std::string("\4\0\xff\xff", 4)) {
            return SendResult(0x61, {kInvalidCredentials, "not the layer of this controller"});
        }
        SendResult(0x61, {});
        _sealed = true;
    }

    TestController& _controller;
    const int _socket;
    std::int64_t _id = 0;
    std::string _received;
    std::unique_ptr<Acceptor> _acceptor;
    bool _sealed = false;
};

TestController::TestController(Entries& entries, KeyCentre& keys, ControllerFacts facts, const ControllerAddress& at)
    : _entries(entries), _keys(keys), _facts(std::move(facts)) {
    _keys.AddService("ldap/" + _facts.host);
    if (!_facts.isMember) _keys.AddService("ldap/" + _facts.host + "/" + _facts.domain);
    _kerberos =
        std::make_unique<StreamService>(at.address, at.kerberosPort, [this](int socket) { ConverseKerberos(socket); });
    _ldap = std::make_unique<StreamService>(at.address, at.ldapPort,
                                            [this](int socket) { Conversation(*this, socket).Run(); });
}

void TestController::SetRefuse(Refuse refuse) {
    const std::lock_guard guard(_lock);
    _refuse = std::move(refuse);
}

void TestController::SetBehave(Behave behave) {
    const std::lock_guard guard(_lock);
    _behave = std::move(behave);
}

void TestController::SetChangePing(ChangePing change) {
    const std::lock_guard guard(_lock);
    _changePing = std::move(change);
}

std::vector<std::string> TestController::Requests() {
    const std::lock_guard guard(_lock);
    return _requests;
}

std::optional<Result> TestController::Refused(const std::string& operation, const std::string& name) {
    const std::lock_guard guard(_lock);
    return _refuse ? _refuse(operation, name) : std::nullopt;
}

Behaviour TestController::BehaviourAt(const std::string& operation, const std::string& name) {
    const std::lock_guard guard(_lock);
    _requests.push_back(operation + " " + name);
    return _behave ? _behave(operation, name) : Behaviour::Answers;
}

std::string TestController::Ping() {
    const std::string reply = LittleEndian(23, 2) + LittleEndian(0, 2) + LittleEndian(_facts.flags | kServes, 4) +
                              std::string(16, '\x01') + Labels(_facts.domain) + Labels(_facts.domain) +
                              Labels(_facts.host) + Labels(_facts.netbiosName) + Labels("DC1") + Labels("") +
                              Labels(_facts.serverSite) + Labels(_facts.clientSite) + LittleEndian(5, 4) +
                              LittleEndian(0xffffffff, 4);
    const std::lock_guard guard(_lock);
    return _changePing ? _changePing(reply) : reply;
}

Entry TestController::Root() const {
    const std::time_t now = std::time(nullptr) + clockOffset;
    std::tm fields = {};
    gmtime_r(&now, &fields);
    std::array<char, 32> text = {};
    const std::size_t size = std::strftime(text.data(), text.size(), "%Y%m%d%H%M%S.0Z", &fields);
    const std::string base = DomainName(_facts.domain);
    return {"",
            {{"defaultnamingcontext", {base}},
             {"configurationnamingcontext", {"CN=Configuration," + base}},
             {"currenttime", {std::string(text.data(), size)}}}};
}

void TestController::ConverseKerberos(int socket) {
    unsigned char length[4] = {};
    while (ReadExactly(socket, length, sizeof length)) {
        std::string request(static_cast<std::size_t>(length[1]) << 16 | length[2] << 8 | length[3], '\0');
        if (!ReadExactly(socket, request.data(), request.size())) return;
        if (hangUpsOfKerberos > 0) {
            --hangUpsOfKerberos;
            return;
        }
        const std::string reply = _keys.Answer(request);
        WriteAll(socket, Number(reply.size(), 4) + reply);
    }
}

}  // namespace nimbrel::ad::test
