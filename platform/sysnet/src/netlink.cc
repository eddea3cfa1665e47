#include "netlink.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>

#include "system_error.h"
#include "unique_fd.h"

namespace SysNet::Network {
namespace {

constexpr int kAttempts = 5;
constexpr int kAnswerSeconds = 5;

[[noreturn]] void Fail(int error) { ThrowSystemError("ask the kernel about", "the network interfaces", error); }

// Copies a structure out of a message, whose bytes need not be aligned for it.
template <class T>
T Take(const void* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

// The attributes of a message: pairs of a type and bytes.
class Attributes {
 public:
    Attributes(const char* start, std::size_t size) : _at(start), _left(size) {}

    // Goes to the next attribute; false when there is none.
    bool Next() {
        if (_left < sizeof(rtattr)) return false;
        const auto header = Take<rtattr>(_at);
        if (header.rta_len < sizeof(rtattr) || header.rta_len > _left) return false;
        _type = header.rta_type & NLA_TYPE_MASK;
        _data = _at + RTA_LENGTH(0);
        _size = header.rta_len - RTA_LENGTH(0);
        const std::size_t step = std::min<std::size_t>(RTA_ALIGN(header.rta_len), _left);
        _at += step;
        _left -= step;
        return true;
    }

    int Type() const { return _type; }
    const char* Data() const { return _data; }
    std::size_t Size() const { return _size; }

    std::uint32_t Number() const { return _size >= sizeof(std::uint32_t) ? Take<std::uint32_t>(_data) : 0; }
    std::string Text() const { return {_data, strnlen(_data, _size)}; }

 private:
    const char* _at;
    std::size_t _left;
    int _type = 0;
    const char* _data = nullptr;
    std::size_t _size = 0;
};

// Takes the body of one message: a fixed part followed by attributes.
using Consumer = std::function<void(const char* body, std::size_t size)>;

UniqueFd OpenSocket() {
    UniqueFd socketFd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (socketFd.Get() < 0) Fail(errno);
    const timeval limit = {kAnswerSeconds, 0};
    if (setsockopt(socketFd.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)) != 0) Fail(errno);
    return socketFd;
}

void SendRequest(int socketFd, int type) {
    struct {
        nlmsghdr header;
        rtmsg body;  // as large as the other two kinds of body, which also begin with the family
    } request = {};
    request.header.nlmsg_len = sizeof(request);
    request.header.nlmsg_type = static_cast<__u16>(type);
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.body.rtm_family = type == RTM_GETLINK ? AF_UNSPEC : AF_INET;
    if (send(socketFd, &request, sizeof(request), 0) < 0) Fail(errno);
}

// The next datagram. The kernel's are never larger than 32 kB.
std::string Receive(int socketFd) {
    std::string datagram(65536, '\0');
    ssize_t size = 0;
    do {
        size = recv(socketFd, datagram.data(), datagram.size(), 0);
    } while (size < 0 && errno == EINTR);
    if (size < 0) Fail(errno == EAGAIN ? ETIMEDOUT : errno);
    datagram.resize(static_cast<std::size_t>(size));
    return datagram;
}

enum class Answer { kMore, kEnd };

// Passes the messages of one datagram on. Sets `torn` if the kernel's tables changed meanwhile.
Answer Consume(const std::string& datagram, bool& torn, const Consumer& consumer) {
    std::size_t at = 0;
    while (datagram.size() - at >= sizeof(nlmsghdr)) {
        const auto header = Take<nlmsghdr>(datagram.data() + at);
        if (header.nlmsg_len < sizeof(nlmsghdr) || header.nlmsg_len > datagram.size() - at) Fail(EPROTO);
        const char* const body = datagram.data() + at + NLMSG_HDRLEN;
        const std::size_t size = header.nlmsg_len - NLMSG_HDRLEN;
        if ((header.nlmsg_flags & NLM_F_DUMP_INTR) != 0) torn = true;
        // The end of a dump may carry an error, too: the kernel broke it off.
        const int error = size >= sizeof(int) ? -Take<int>(body) : 0;
        if (header.nlmsg_type == NLMSG_DONE && error <= 0) return Answer::kEnd;
        if (header.nlmsg_type == NLMSG_DONE) Fail(error);
        if (header.nlmsg_type == NLMSG_ERROR) Fail(error != 0 ? error : EPROTO);
        if (header.nlmsg_type != NLMSG_NOOP) consumer(body, size);
        at += std::min<std::size_t>(NLMSG_ALIGN(header.nlmsg_len), datagram.size() - at);
    }
    return Answer::kMore;
}

// One dump; false if the kernel's tables changed meanwhile.
bool DumpOnce(int type, const Consumer& consumer) {
    const UniqueFd socketFd = OpenSocket();
    SendRequest(socketFd.Get(), type);
    bool torn = false;
    while (Consume(Receive(socketFd.Get()), torn, consumer) == Answer::kMore) {
    }
    return !torn;
}

// Dumps a table; `take` gets the fixed part `Body` and the attributes of each entry.
template <class Body, class Item>
std::vector<Item> Dump(int type, const std::function<void(const Body&, Attributes, std::vector<Item>&)>& take) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        std::vector<Item> items;
        const bool whole = DumpOnce(type, [&](const char* body, std::size_t size) {
            constexpr std::size_t kFixed = NLMSG_ALIGN(sizeof(Body));
            if (size >= kFixed) take(Take<Body>(body), Attributes(body + kFixed, size - kFixed), items);
        });
        if (whole) return items;
    }
    Fail(EINTR);
}

void TakeLink(const ifinfomsg& body, Attributes attributes, std::vector<Link>& links) {
    Link link;
    link.index = body.ifi_index;
    link.up = (body.ifi_flags & IFF_UP) != 0;
    link.loopback = (body.ifi_flags & IFF_LOOPBACK) != 0;
    while (attributes.Next()) {
        if (attributes.Type() == IFLA_IFNAME) link.name = attributes.Text();
    }
    links.push_back(link);
}

// Of a point-to-point link, IFA_ADDRESS is the other end and IFA_LOCAL this one.
void TakeAddress(const ifaddrmsg& body, Attributes attributes, std::vector<Ipv4OfLink>& addresses) {
    while (attributes.Next()) {
        if (attributes.Type() != IFA_LOCAL || attributes.Size() != sizeof(in_addr)) continue;
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, attributes.Data(), text, sizeof(text));
        addresses.push_back({static_cast<int>(body.ifa_index), text, body.ifa_scope == RT_SCOPE_UNIVERSE});
    }
}

// The next hops of a multipath route that lead anywhere.
std::vector<int> NextHops(const char* data, std::size_t size) {
    std::vector<int> hops;
    while (size >= sizeof(rtnexthop)) {
        const auto hop = Take<rtnexthop>(data);
        if (hop.rtnh_len < sizeof(rtnexthop) || hop.rtnh_len > size) break;
        if ((hop.rtnh_flags & RTNH_F_DEAD) == 0) hops.push_back(hop.rtnh_ifindex);
        const std::size_t step = std::min<std::size_t>(RTNH_ALIGN(hop.rtnh_len), size);
        data += step;
        size -= step;
    }
    return hops;
}

void TakeRoute(const rtmsg& body, Attributes attributes, std::vector<DefaultRoute>& routes) {
    // A route for one type of service carries only traffic that asks for it.
    const bool isDefault = body.rtm_dst_len == 0 && body.rtm_src_len == 0 && body.rtm_tos == 0;
    if (!isDefault || body.rtm_family != AF_INET || body.rtm_table != RT_TABLE_MAIN) return;
    if (body.rtm_type != RTN_UNICAST || (body.rtm_flags & RTNH_F_DEAD) != 0) return;
    std::uint32_t metric = 0;
    std::vector<int> hops;
    while (attributes.Next()) {
        if (attributes.Type() == RTA_PRIORITY) metric = attributes.Number();
        if (attributes.Type() == RTA_OIF) hops.push_back(static_cast<int>(attributes.Number()));
        if (attributes.Type() == RTA_MULTIPATH) hops = NextHops(attributes.Data(), attributes.Size());
    }
    for (const int index : hops) routes.push_back({index, metric});
}

}  // namespace

std::vector<Link> QueryLinks() {
    auto links = Dump<ifinfomsg, Link>(RTM_GETLINK, TakeLink);
    std::sort(links.begin(), links.end(), [](const Link& a, const Link& b) { return a.index < b.index; });
    return links;
}

std::vector<Ipv4OfLink> QueryIpv4Addresses() { return Dump<ifaddrmsg, Ipv4OfLink>(RTM_GETADDR, TakeAddress); }

std::vector<DefaultRoute> QueryDefaultRoutes() {
    auto routes = Dump<rtmsg, DefaultRoute>(RTM_GETROUTE, TakeRoute);
    std::stable_sort(routes.begin(), routes.end(),
                     [](const DefaultRoute& a, const DefaultRoute& b) { return a.metric < b.metric; });
    return routes;
}

}  // namespace SysNet::Network
