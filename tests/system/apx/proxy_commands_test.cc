// nimauthctl and the proxy: the installed tool, library, plug-in, service and embedded directory together.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "json_schema.h"
#include "service.h"
#include "system/nimauthctl/tool_host.h"
#include "tls_server.h"

namespace nimbrel::testing {
namespace {

using nlohmann::json;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr char kProxy[] = "192.0.2.10";
constexpr char kFile[] = "/root/proxy.pem";

class ProxyCommands : public ToolHost {
 protected:
    void SetUp() override {
        ToolHost::SetUp();
        std::filesystem::remove_all("/run/apxd");
        SetPlugin("");
        Done({"directory", "domain", "add", "corp.test"});
        Done({"directory", "ou", "add", "corp.test", "Hosts"});
        Configure(certificate);
        WriteFile(kFile, certificate.pem);
    }

    // What the command answers, which must fit its schema.
    static json Parsed(const Words& words) {
        const std::string output = Done(words);
        EXPECT_EQ("", SchemaFolder(NIMAUTHCTL_SCHEMAS).CheckOutput(words, output));
        return json::parse(output);
    }

    const Certificate certificate = MakeCertificate("proxy.corp.test");
};

TEST_F(ProxyCommands, ImportJoinStatusLeave) {
    Service service;
    EXPECT_THAT(Done({"proxy", "cert", "show"}), HasLine("thumbprint: none"));
    EXPECT_THAT(Done({"proxy", "cert", "import", kFile}),
                AllOf(HasLine("subject: CN = proxy.corp.test"), HasLine("thumbprint: " + certificate.thumbprint),
                      HasSubstr("\nvalid until: "), HasLine("imported: yes")));
    EXPECT_THAT(Done({"proxy", "cert", "show"}), HasLine("thumbprint: " + certificate.thumbprint));
    EXPECT_THAT(Done({"proxy", "domain", kProxy}), HasLine("domain: corp.test"));
    EXPECT_THAT(
        Done({"join", "--proxy", kProxy, "--ou", "Hosts"}),
        AllOf(HasLine("joined: yes"), HasLine("domain: corp.test"), HasLine("organizational unit: Hosts"),
              HasLine("proxy address: 192.0.2.10"), HasLine("machine account: CN=NODE01,OU=Hosts,DC=corp,DC=test")));
    EXPECT_THAT(Done({"status"}), AllOf(HasLine("joined: yes"), HasLine("proxy address: 192.0.2.10"),
                                        HasLine("trust state: 1 (healthy)")));
    EXPECT_THAT(Done({"join", "--proxy", kProxy, "--if-needed"}), HasLine("changed: no"));
    EXPECT_THAT(Ctl({"join", "--proxy", "192.0.2.11", "--if-needed"}), ExitsWith(3));
    EXPECT_THAT(Ctl({"join", "--proxy", kProxy}), ExitsWith(3));
    Done({"leave"});
    EXPECT_THAT(Done({"status"}), AllOf(HasLine("joined: no"), HasLine("proxy address: none")));
}

TEST_F(ProxyCommands, JsonSaysTheSame) {
    Service service;
    const json imported = Parsed({"proxy", "cert", "import", kFile, "--json"});
    EXPECT_EQ(imported["schema"], 1);
    EXPECT_EQ(imported["thumbprint"], certificate.thumbprint);
    EXPECT_EQ(imported["imported"], true);
    EXPECT_EQ(Parsed({"proxy", "cert", "show", "--json"})["subject"], "CN = proxy.corp.test");
    EXPECT_EQ(Parsed({"proxy", "domain", kProxy, "--json"})["domain"], "corp.test");
    const json joined = Parsed({"join", "--proxy", kProxy, "--json"});
    EXPECT_EQ(joined["proxyAddress"], kProxy);
    EXPECT_EQ(joined["domain"], "corp.test");
}

TEST_F(ProxyCommands, FetchedCertificateIsTrustedAfterAYes) {
    Service service;
    const ProgramResult refused =
        Ctl({"proxy", "cert", "import", "--fetch", kProxy}, {.terminal = {{"Type yes: ", "no\n"}}});
    EXPECT_THAT(refused, ExitsWith(1));
    EXPECT_THAT(refused.terminal, HasSubstr("thumbprint: " + certificate.thumbprint));
    EXPECT_THAT(Done({"proxy", "cert", "show"}), HasLine("thumbprint: none"));
    EXPECT_THAT(Ctl({"proxy", "cert", "import", "--fetch", kProxy}, {.terminal = {{"Type yes: ", "yes\n"}}}),
                ExitsWith(0));
    EXPECT_THAT(Done({"join", "--proxy", kProxy}), HasLine("joined: yes"));
}

TEST_F(ProxyCommands, ScriptsGiveTheThumbprint) {
    Service service;
    EXPECT_THAT(Ctl({"proxy", "cert", "import", "--fetch", kProxy}), ExitsWith(2));
    const ProgramResult wrong = Ctl({"proxy", "cert", "import", "--fetch", kProxy, "--yes", "00:11"});
    EXPECT_THAT(wrong, ExitsWith(1));
    EXPECT_THAT(wrong.errors, HasSubstr(certificate.thumbprint));
    EXPECT_THAT(Ctl({"proxy", "cert", "import", kFile, "--yes", "00:11"}), ExitsWith(1));
    EXPECT_THAT(Done({"proxy", "cert", "show"}), HasLine("thumbprint: none"));
    Done({"proxy", "cert", "import", "--fetch", kProxy, "--yes", certificate.thumbprint});
    EXPECT_THAT(Done({"proxy", "cert", "show"}), HasLine("thumbprint: " + certificate.thumbprint));
}

TEST_F(ProxyCommands, ExpiredCertificateIsImportedWithANote) {
    WriteFile(kFile, MakeCertificate("proxy.corp.test", nullptr, -7200, -3600).pem);
    EXPECT_THAT(Done({"proxy", "cert", "import", kFile}), HasSubstr("note: the certificate is not valid now"));
}

TEST_F(ProxyCommands, WhatFailsIsExplained) {
    EXPECT_THAT(Ctl({"join", "--proxy", kProxy}).errors, HasSubstr("remedy: import it with"));
    Done({"proxy", "cert", "import", kFile});
    EXPECT_THAT(Ctl({"join", "--proxy", kProxy}), ExitsWith(9));
    EXPECT_THAT(Ctl({"proxy", "domain", kProxy}), ExitsWith(9));
    EXPECT_THAT(Ctl({"proxy", "cert", "import", "--fetch", kProxy, "--yes", "00"}), ExitsWith(9));
    Configure(MakeCertificate("proxy.corp.test"));
    {
        Service service;
        const ProgramResult untrusted = Ctl({"join", "--proxy", kProxy});
        EXPECT_THAT(untrusted, ExitsWith(1));
        EXPECT_THAT(untrusted.errors, StartsWith("error: The APX server's certificate cannot be verified.\n"));
        Done({"option", "set", "UserVars.ActiveDirectoryVerifyAPXCertificate", "0"});
        EXPECT_THAT(Done({"join", "--proxy", kProxy}), HasLine("joined: yes"));
    }
}

TEST_F(ProxyCommands, RefusalsOfTheServiceKeepTheirMeaning) {
    Done({"proxy", "cert", "import", kFile});
    Configure(certificate, "allow = 198.51.100.0/24\n");
    {
        Service service;
        EXPECT_THAT(Ctl({"join", "--proxy", kProxy}), ExitsWith(5));
    }
    Configure(certificate);
    Done({"directory", "computer", "stage", "corp.test", "NODE01"});
    Service service;
    const ProgramResult taken = Ctl({"join", "--proxy", kProxy});
    EXPECT_THAT(taken, ExitsWith(3));
    EXPECT_THAT(taken.errors, HasSubstr("Exception 0x00000524"));
    EXPECT_THAT(Done({"status"}), HasLine("joined: no"));
}

struct ProxyFailure {
    const char* cause;
    int exitStatus;
};

// Of a question, and of a join.
void ExpectExplained(const ProgramResult& result, const ProxyFailure& expected) {
    EXPECT_THAT(result, ExitsWith(expected.exitStatus));
    EXPECT_THAT(result.errors, HasSubstr("\ncause: " + std::string(expected.cause)));
    EXPECT_THAT(result.errors, AllOf(Not(HasSubstr("the user")), Not(HasSubstr("run the tool as root"))));
}

TEST_F(ProxyCommands, FailuresOfTheServiceAreNotThoseOfAController) {
    Done({"proxy", "cert", "import", kFile});
    const ProxyFailure refused = {"the authentication proxy refused the connection", 9};
    ExpectExplained(Ctl({"proxy", "domain", kProxy}), refused);
    ExpectExplained(Ctl({"join", "--proxy", kProxy}), refused);
    Configure(certificate, "allow = 198.51.100.0/24\n");
    {
        Service service;
        const ProxyFailure unwanted = {"the authentication proxy does not admit this host", 5};
        ExpectExplained(Ctl({"proxy", "domain", kProxy}), unwanted);
        ExpectExplained(Ctl({"join", "--proxy", kProxy}), unwanted);
    }
    Configure(certificate);
    Service service;
    Done({"directory", "domain", "remove", "corp.test"});
    const ProxyFailure lost = {"the authentication proxy, or this host, cannot find or reach a controller", 9};
    ExpectExplained(Ctl({"proxy", "domain", kProxy}), lost);
    ExpectExplained(Ctl({"join", "--proxy", kProxy}), lost);
}

struct PassedOnCase {
    const char* status;
    ProxyFailure failure;
};

TEST_F(ProxyCommands, WhatTheServiceWasToldByItsDomainIsExplainedAsItsOwn) {
    constexpr PassedOnCase kCases[] = {
        {"1326", {"the domain refused the authentication proxy's own account", 7}},
        {"1398", {"the clock of the authentication proxy, or of this host", 7}},
        {"1909", {"the authentication proxy's own account is locked", 7}},
        {"1359", {"the authentication proxy, or the directory provider of this host", 1}},
        {"170", {"another process is changing this host, or the proxy's directory", 3}},
    };
    SetPlugin("port = \"9443\"\n");
    for (const PassedOnCase& passedOn : kCases) {
        const std::string body = std::string(R"({"status": )") + passedOn.status + R"(, "message": "no"})";
        TlsServer service(9443, &certificate,
                          "HTTP/1.1 500 no\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
        ExpectExplained(Ctl({"proxy", "domain", kProxy}), passedOn.failure);
    }
}

TEST_F(ProxyCommands, AddressThatIsSilentIsGivenUp) {
    TlsServer silent(9443, nullptr, "");
    SetPlugin("# the port of a proxy that says nothing\nport = \"9443\"\n");
    const ProgramResult result = Ctl({"proxy", "cert", "import", "--fetch", kProxy, "--yes", "00", "--timeout", "5"});
    EXPECT_THAT(result, ExitsWith(9));
    EXPECT_THAT(result.errors, Not(HasSubstr("Connection refused")));
}

// Takes connections, and says nothing.
class SilentServer {
 public:
    explicit SilentServer(std::uint16_t port) : _listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        EXPECT_EQ(0, bind(_listener, reinterpret_cast<const sockaddr*>(&address), sizeof address));
        EXPECT_EQ(0, listen(_listener, 4));
    }
    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;
    ~SilentServer() { close(_listener); }

 private:
    int _listener;
};

TEST_F(ProxyCommands, SilentProxyIsGivenUpWithinTheTimeout) {
    const SilentServer silent(9444);
    SetPlugin("port = \"9444\"\n");
    const ProgramResult result = Ctl({"proxy", "domain", kProxy, "--timeout", "1"});
    EXPECT_THAT(result, ExitsWith(9));
    EXPECT_THAT(result.errors, StartsWith("error: the proxy 192.0.2.10 does not answer in time\nremedy: "));
}

TEST_F(ProxyCommands, JoinTellsItsStepsAndAnInterruptTheHostsState) {
    Done({"proxy", "cert", "import", kFile});
    {
        Service service;
        const ProgramResult joined = Ctl({"join", "--proxy", kProxy, "--progress=json"});
        EXPECT_THAT(joined, ExitsWith(0));
        EXPECT_THAT(joined.errors,
                    AllOf(HasSubstr("\"step\": \"attempt\", \"text\": \"joining through the proxy 192.0.2.10\", "
                                    "\"attempt\": 1, \"attempts\": 4, "),
                          HasSubstr("\"event\": \"end\"")));
    }
    Done({"leave"});
    const SilentServer silent(9444);
    SetPlugin("port = \"9444\"\n");
    const ProgramResult stopped = RunProgram(
        kTool,
        {.arguments = {"join", "--proxy", kProxy}, .terminal = {{"attempt 1 of 4", "\x03"}}, .outputOnTerminal = true});
    EXPECT_EQ(SIGINT, stopped.signal);
    EXPECT_THAT(stopped.terminal, AllOf(HasSubstr("] joining through the proxy 192.0.2.10, attempt 1 of 4"),
                                        HasSubstr("interrupted; the host is not joined")));
}

TEST_F(ProxyCommands, WrongCommandLines) {
    const Words lines[] = {{"join", "--proxy"},
                           {"join", "corp.test", "--proxy", kProxy},
                           {"join", "--proxy", kProxy, "-U", "administrator"},
                           {"join", "--proxy", kProxy, "--password-stdin"},
                           {"join", "corp.test", "-U", "administrator", "--ou", "Hosts", "--password-stdin"},
                           {"proxy"},
                           {"proxy", "domain"},
                           {"proxy", "cert", "import"},
                           {"proxy", "cert", "import", kFile, "--fetch", kProxy},
                           {"proxy", "cert", "import", "--fetch", "proxy.corp.test", "--yes", "00"}};
    for (const Words& line : lines) EXPECT_THAT(Ctl(line), ExitsWith(2)) << ::testing::PrintToString(line);
    EXPECT_THAT(Ctl({"join", "--proxy", "proxy.corp.test"}), ExitsWith(1));
    EXPECT_THAT(Ctl({"proxy", "cert", "import", "/root/missing.pem"}), ExitsWith(1));
    EXPECT_THAT(Ctl({"proxy", "cert", "import", kConfigFile}), ExitsWith(1));
    EXPECT_THAT(CtlAsNobody({"join", "--proxy", kProxy}), ExitsWith(5));
}

}  // namespace
}  // namespace nimbrel::testing
