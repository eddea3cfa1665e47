// A directory that answers late or not at all.

#include "tool_host.h"

namespace nimbrel::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

// Far below the rehearsed delay of minutes, far above what a busy machine needs.
constexpr std::chrono::seconds kSoon{30};

class StaleAnswersTest : public ToolHost {
 protected:
    void SetUp() override {
        ToolHost::SetUp();
        HaveJoined();
        Done({"directory", "trust", "add", "corp.test", "trust.test"});
    }

    static void Hang(const std::string& operation) { Done({"directory", "rehearse", operation, "--delay", "10m"}); }

    static std::string StaleStatus() {
        const ProgramResult result = Ctl({"status", "--timeout", "3"});
        EXPECT_THAT(result, ExitsWith(6));
        EXPECT_EQ("", result.errors);
        EXPECT_LT(result.took, kSoon);
        return result.output;
    }
};

TEST_F(StaleAnswersTest, HungTrustedDomainsAreMarkedAndTheRestIsNot) {
    Hang("get-trusted-domains");
    EXPECT_THAT(StaleStatus(), AllOf(HasLine("trusted domains: unknown [stale]"), HasLine("joined: yes"),
                                     HasLine("trust state: 1 (healthy)"), HasLine("own relationship: 1 (own domain)")));
}

TEST_F(StaleAnswersTest, HungTrustStateIsMarked) {
    Hang("get-domain-trust-state");
    EXPECT_THAT(StaleStatus(), AllOf(HasLine("trust state: 2 (no answer in time) [stale]"), HasLine("joined: yes"),
                                     HasSubstr("trusted domain: trust.test netbios=TRUST relationship=5")));
}

TEST_F(StaleAnswersTest, HungRelationshipsAreMarkedOneByOne) {
    Hang("get-domain-trust-relationship");
    EXPECT_THAT(StaleStatus(),
                AllOf(HasLine("own relationship: 6 (nothing known of this domain) [stale]"),
                      HasLine("trusted domain: trust.test netbios=TRUST relationship=6 means=\"nothing known of this "
                              "domain\" [stale]")));
}

TEST_F(StaleAnswersTest, HungMembershipLeavesTheStoredSettings) {
    Hang("get-active-domain");
    EXPECT_THAT(StaleStatus(),
                AllOf(HasLine("joined: unknown [stale]"), HasLine("domain: unknown [stale]"),
                      HasLine("machine account: unknown [stale]"), HasLine("preferred controllers: unknown [stale]"),
                      HasLine("stored domain: corp.test"), HasLine("trust state: 1 (healthy)")));
}

TEST_F(StaleAnswersTest, HungSmartCardServicesAreMarked) {
    Hang("get-smart-card-enabled-services");
    EXPECT_THAT(StaleStatus(), HasLine("smart-card services: unknown [stale]"));
}

TEST_F(StaleAnswersTest, EverythingMayHangAtOnce) {
    for (const char* const operation : {"get-active-domain", "get-trusted-domains", "get-domain-trust-state",
                                        "get-domain-trust-relationship", "get-smart-card-enabled-services"}) {
        Hang(operation);
    }
    EXPECT_THAT(StaleStatus(), AllOf(HasLine("joined: unknown [stale]"), HasLine("stored domain: corp.test")));
}

TEST_F(StaleAnswersTest, LateButInTimeIsFresh) {
    Done({"directory", "rehearse", "get-trusted-domains", "--delay", "300ms"});
    EXPECT_THAT(Done({"status"}), Not(HasSubstr("[stale]")));
}

TEST_F(StaleAnswersTest, ClearedRehearsalIsOver) {
    Hang("get-trusted-domains");
    Done({"directory", "rehearse", "--clear", "get-trusted-domains"});
    EXPECT_THAT(Done({"status"}), Not(HasSubstr("[stale]")));
}

TEST_F(StaleAnswersTest, FailureWeighsMoreThanAStaleAnswer) {
    Hang("get-domain-trust-state");
    Done({"directory", "rehearse", "get-smart-card-enabled-services", "--status", "1311"});
    const ProgramResult result = Ctl({"status", "--timeout", "3"});
    EXPECT_THAT(result, ExitsWith(9));
    EXPECT_THAT(result.output, AllOf(HasLine("smart-card services: unavailable"),
                                     HasSubstr("trust state: 2 (no answer in time) [stale]")));
}

TEST_F(StaleAnswersTest, StoreIsChangedEvenIfTheDirectoryHangs) {
    Done({"store", "set", "None"});
    Hang("get-active-domain");
    for (const char* const timeout : {"0", "1"}) {
        for (const char* const name : {"Active Directory", "None"}) {
            const ProgramResult result = Ctl({"store", "set", name, "--timeout", timeout});
            EXPECT_THAT(result, ExitsWith(6));
            EXPECT_THAT(result.output, AllOf(HasLine(std::string("active store: ") + name), HasSubstr("note: ")));
            EXPECT_LT(result.took, kSoon);
            EXPECT_THAT(Done({"store", "show"}), HasLine(std::string("active store: ") + name));
        }
    }
}

TEST_F(StaleAnswersTest, LeaveDoesNotNeedTheDomainsNameInTime) {
    Hang("get-active-domain");
    const ProgramResult result = Ctl({"leave", "--timeout", "1"});
    EXPECT_THAT(result, ExitsWith(0));
    EXPECT_THAT(result.output,
                AllOf(HasLine("joined: no"), HasLine("left: none"), HasLine("stored settings: removed")));
}

}  // namespace
}  // namespace nimbrel::testing
