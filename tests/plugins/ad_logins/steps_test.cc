// A change that is cut short at any of its steps, by a failure or by the end of the process.

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "calls.h"
#include "files.h"
#include "log_ins_root.h"

namespace nimbrel::ad::test {
namespace {

using Files = std::map<std::string, std::string>;

struct Operation {
    const char* name;
    std::function<void(LogIns&)> prepare;
    std::function<void(LogIns&)> run;
};

DomainLogIns CorpWithTrust() {
    auto corp = Corp();
    corp.trustedForests = {"trust.test"};
    return corp;
}

void EnableAll(LogIns& logIns) {
    logIns.Enable(Corp());
    logIns.SetPreferredControllers({"dc1.corp.test"});
    logIns.SetSmartCardServices({"sshd"});
}

const Operation kOperations[] = {
    {"enable on a fresh host", [](LogIns&) {}, [](LogIns& logIns) { logIns.Enable(Corp()); }},
    {"enable with settings of before",
     [](LogIns& logIns) {
         logIns.SetPreferredControllers({"dc1.corp.test"});
         logIns.SetSmartCardServices({});
     },
     [](LogIns& logIns) { logIns.Enable(Corp()); }},
    {"enable with another trust", EnableAll, [](LogIns& logIns) { logIns.Enable(CorpWithTrust()); }},
    {"set controllers", EnableAll, [](LogIns& logIns) { logIns.SetPreferredControllers({"dc2.corp.test"}); }},
    {"clear controllers", EnableAll, [](LogIns& logIns) { logIns.SetPreferredControllers({}); }},
    {"set services", EnableAll, [](LogIns& logIns) { logIns.SetSmartCardServices({"login"}); }},
    {"disable", EnableAll, [](LogIns& logIns) { logIns.Disable(); }},
};

class StepsTest : public LogInsRoot, public ::testing::WithParamInterface<Operation> {
 protected:
    void TearDown() override { SetFault({}); }

    // The files that are anybody's business: without those that a killed process could not tidy up.
    Files Named() const {
        Files files = Everything();
        for (auto file = files.begin(); file != files.end();) {
            file = file->first.find("/.") == std::string::npos ? std::next(file) : files.erase(file);
        }
        return files;
    }

    // Starts over: a host as the operation finds it.
    void Prepare() {
        logIns.Disable();
        std::filesystem::remove_all(Path("/var"));
        GetParam().prepare(logIns);
    }

    // The number of steps, the files before and the files after.
    int Rehearse() {
        Prepare();
        before = Named();
        SetFault({});
        GetParam().run(logIns);
        const int steps = Steps();
        after = Named();
        return steps;
    }

    // Runs the operation in a process that ends at the step.
    void RunAndKillAt(int step) {
        const pid_t pid = fork();
        if (pid == 0) {
            SetFault({.step = step, .error = 0});
            GetParam().run(logIns);
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), kKilled);
    }

    void ExpectEachFileOldOrNew(int step) const {
        for (const auto& [path, text] : Named()) {
            const auto old = before.find(path);
            const auto wanted = after.find(path);
            const bool isOld = old != before.end() && old->second == text;
            const bool isNew = wanted != after.end() && wanted->second == text;
            const bool isFolder = text.find("folder") != std::string::npos;
            EXPECT_TRUE(isOld || isNew || isFolder) << "step " << step << ": " << path << ": " << text;
        }
    }

    Files before;
    Files after;
};

TEST_P(StepsTest, AKilledProcessLeavesEachFileOldOrNewAndTheNextCallFinishes) {
    const int steps = Rehearse();
    ASSERT_GT(steps, 0);
    for (int step = 1; step <= steps; ++step) {
        Prepare();
        RunAndKillAt(step);
        ExpectEachFileOldOrNew(step);
        GetParam().run(logIns);
        EXPECT_EQ(Everything(), after) << "after step " << step;
    }
}

TEST_P(StepsTest, AFailureLeavesAllOrNothing) {
    const int steps = Rehearse();
    for (int step = 1; step <= steps; ++step) {
        Prepare();
        SetFault({.step = step, .error = EIO});
        const std::uint32_t status = StatusOf([&] { GetParam().run(logIns); });
        SetFault({});
        if (status == 0) {
            EXPECT_EQ(Named(), after) << "step " << step;
        } else if (std::string(GetParam().name) != "disable" || Has(kDomainFile)) {
            EXPECT_EQ(status, 1359U);
            Files left = Named();
            // Folders of the record may have been made before the failure; they hold nothing.
            for (const char* const folder : {"/var", "/var/lib", "/var/lib/nimbrel"}) {
                if (before.find(folder) == before.end()) left.erase(folder);
            }
            EXPECT_EQ(left, before) << "step " << step;
        }
        GetParam().run(logIns);
        EXPECT_EQ(Everything(), after) << "again, after step " << step;
    }
}

TEST(FileErrorTest, EachReasonHasItsStatus) {
    const std::pair<int, std::uint32_t> rows[] = {{EACCES, 5},   {EPERM, 5},    {EROFS, 5},         {ELOOP, 5},
                                                  {ENOSPC, 112}, {EDQUOT, 112}, {EWOULDBLOCK, 170}, {EIO, 1359}};
    for (const auto& [error, status] : rows) {
        try {
            kit::ThrowFileError("write", "/etc/x", error);
        } catch (const kit::StatusError& thrown) {
            EXPECT_EQ(thrown.Status(), status) << error;
            EXPECT_THAT(thrown.what(), ::testing::StartsWith("Unable to write '/etc/x': "));
        }
    }
}

std::string NameOfRow(const ::testing::TestParamInfo<Operation>& info) {
    std::string name;
    for (const char c : std::string(info.param.name)) name += c == ' ' ? '_' : c;
    return name;
}

INSTANTIATE_TEST_SUITE_P(Operations, StepsTest, ::testing::ValuesIn(kOperations), NameOfRow);

}  // namespace
}  // namespace nimbrel::ad::test
