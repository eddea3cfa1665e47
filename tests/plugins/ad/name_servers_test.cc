// The name servers of /etc/resolv.conf: which are asked, and in which order.

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "dns.h"
#include "plugins/ad/domain/loopback.h"
#include "sandbox.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::ElementsAre;

// Name servers at these addresses, all at one port; none can answer.
class NameServers : public ::testing::Test {
 protected:
    void Start(const std::vector<std::string>& addresses) {
        std::string file = "search corp.test\n";
        for (const auto& address : addresses) {
            file += "nameserver " + address + "\n";
            _services.push_back(
                std::make_unique<DatagramService>(address, _settings.nameServerPort, [this, address](auto question) {
                    const std::lock_guard guard(_lock);
                    if (std::find(_asked.begin(), _asked.end(), address) == _asked.end()) _asked.push_back(address);
                    return Failure(question);
                }));
            _settings.nameServerPort = _services.front()->Port();
        }
        WriteFile("/etc/resolv.conf", file);
    }

    // In the order in which they were asked for the first time.
    std::vector<std::string> Asked() {
        const auto deadline = Deadline::After(std::chrono::seconds(10));
        EXPECT_EQ(StatusOf([&] { Resolver(_settings).Services("corp.test", deadline); }), kStatusNoSuchDomain);
        const std::lock_guard guard(_lock);
        return _asked;
    }

    Settings& TheSettings() { return _settings; }

 private:
    // "Server failure" ends the question to this server.
    static std::string Failure(std::string_view question) {
        std::string reply(question.substr(0, question.size() - 11));
        reply[2] = static_cast<char>(reply[2] | 0x80);
        reply[3] = 2;
        reply[11] = 0;
        return reply;
    }

    static Settings MakeSettings() {
        Settings settings;
        settings.nameServerPort = 0;
        return settings;
    }

    Settings _settings = MakeSettings();
    std::mutex _lock;  // guards what follows
    std::vector<std::string> _asked;
    std::vector<std::unique_ptr<DatagramService>> _services;
};

TEST_F(NameServers, OfBothFamiliesAreAskedInTheirOrder) {
    Start({"127.0.0.1", "::1", "127.0.0.2"});
    EXPECT_THAT(Asked(), ElementsAre("127.0.0.1", "::1", "127.0.0.2"));
}

TEST_F(NameServers, OnlyThoseOfTheFileAreAsked) {
    Start({"::1"});
    EXPECT_THAT(Asked(), ElementsAre("::1"));
}

TEST_F(NameServers, OfTheFileAreNotAskedWhereTheSettingsNameOthers) {
    Start({"127.0.0.1", "127.0.0.2"});
    TheSettings().nameServers = {"127.0.0.2", "no address"};
    EXPECT_THAT(Asked(), ElementsAre("127.0.0.2"));
}

}  // namespace
}  // namespace nimbrel::ad::test
