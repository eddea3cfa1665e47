// The sweeps themselves: an operation that does it right passes, and each thing that can be done wrong is found.

#include "crash/sweep.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <new>
#include <stdexcept>

#include "crash/files.h"
#include "support/temporary_folder.h"

namespace nimbrel::crash {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr int kBytes = 5;

class Sweeps : public ::testing::Test {
 protected:
    // Writes "after" where "before" is, as `write` does it.
    template <typename Write>
    Operation Replacing(Write write) {
        Operation operation;
        operation.name = "replace";
        operation.folders = {folder.Path("")};
        operation.prepare = [this] { folder.Put("file", "before"); };
        operation.run = write;
        operation.read = [this] { return Parts{{"file", folder.Get("file")}}; };
        operation.isDocumented = IsOneOf<std::runtime_error>;
        return operation;
    }

    static void Require(bool done) {
        if (!done) throw std::runtime_error("a call failed");
    }

    // A file of this name with the new text.
    void Make(const std::string& name, bool closeAlways = true, int bytes = kBytes) const {
        const int fd = open(folder.Path(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        Require(fd >= 0);
        const bool done = fchmod(fd, 0644) == 0 && write(fd, "after", kBytes) == bytes;
        if (done || closeAlways) close(fd);
        Require(done);
    }
    void Rename(const std::string& from) const {
        Require(rename(folder.Path(from).c_str(), folder.Path("file").c_str()) == 0);
    }
    void ReplaceWell() const {
        Make("new");
        Rename("new");
    }

    const TemporaryFolder folder;
};

TEST_F(Sweeps, WhatIsDoneRightPasses) {
    const Operation operation = Replacing([this] { ReplaceWell(); });
    const SweepResult killed = KillAtEachCall(operation);
    EXPECT_THAT(killed.violations, IsEmpty());
    EXPECT_GE(killed.points, 5U) << "open, chmod, write, close, rename";
    EXPECT_EQ(killed.points, killed.tried);
    const SweepResult failed = FailEachCall(operation);
    EXPECT_THAT(failed.violations, IsEmpty());
    EXPECT_GE(failed.points, 17U);
    EXPECT_EQ(failed.points, failed.tried);
}

TEST_F(Sweeps, TornFileIsFound) {
    const Operation operation = Replacing([this] { Make("file"); });
    EXPECT_THAT(KillAtEachCall(operation).violations, Contains(HasSubstr("neither old nor new")));
    EXPECT_THAT(FailEachCall(operation).violations, Contains(HasSubstr("a call failed, and the state is")));
}

TEST_F(Sweeps, LeftoverIsFoundUnlessItMayStay) {
    Operation operation = Replacing([this] {
        const std::string name = "new" + std::to_string(getpid());
        Make(name);
        Rename(name);
    });
    EXPECT_THAT(KillAtEachCall(operation).violations, Contains(HasSubstr("there still is ")));
    operation.mayStay = [](const std::string& path) { return path.find("/new") != std::string::npos; };
    EXPECT_THAT(KillAtEachCall(operation).violations, IsEmpty());
}

TEST_F(Sweeps, LostModeIsFound) {
    const Operation operation = Replacing([this] {
        ReplaceWell();
        const std::string path = folder.Path("file");
        Require(chmod(path.c_str(), 0666) == 0 && chmod(path.c_str(), 0644) == 0);
    });
    EXPECT_THAT(KillAtEachCall(operation).violations, Contains(HasSubstr("file has 100666")));
}

TEST_F(Sweeps, LeftOpenDescriptorIsFound) {
    const Operation operation = Replacing([this] {
        Make("new", false);
        Rename("new");
    });
    EXPECT_THAT(FailEachCall(operation).violations, Contains(HasSubstr("it left open:")));
}

TEST_F(Sweeps, SwallowedFailureIsFound) {
    const Operation operation = Replacing([this] {
        try {
            ReplaceWell();
        } catch (const std::runtime_error&) {
            return;
        }
    });
    EXPECT_THAT(FailEachCall(operation).violations, Contains(HasSubstr("it succeeded, and the state is not the new")));
}

TEST_F(Sweeps, UndocumentedClassIsFound) {
    Operation operation = Replacing([this] { ReplaceWell(); });
    operation.isDocumented = IsOneOf<std::logic_error>;
    EXPECT_THAT(FailEachCall(operation).violations, Contains(HasSubstr("it threw std::runtime_error: a call failed")));
}

TEST_F(Sweeps, CallThatCannotBeRepeatedIsFound) {
    const Operation operation = Replacing([this] {
        const int lock = open(folder.Path("lock").c_str(), O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        Require(lock >= 0);
        close(lock);
        ReplaceWell();
        unlink(folder.Path("lock").c_str());
    });
    EXPECT_THAT(KillAtEachCall(operation).violations, Contains(HasSubstr("the next call threw")));
}

TEST_F(Sweeps, FailedAllocationThatEndsTheProcessIsFound) {
    const Operation operation = Replacing([this]() noexcept { ReplaceWell(); });
    const SweepResult result = FailEachAllocation(operation, 100);
    EXPECT_GT(result.tried, 0U);
    EXPECT_THAT(result.violations, Contains(HasSubstr("the process was killed by signal 6")));
}

TEST_F(Sweeps, FailedAllocationThatIsPassedOnPasses) {
    const SweepResult result = FailEachAllocation(Replacing([this] { ReplaceWell(); }), 100);
    EXPECT_GT(result.points, 0U);
    EXPECT_THAT(result.violations, IsEmpty());
}

TEST_F(Sweeps, OperationThatFailsUndisturbedIsRefused) {
    EXPECT_THROW(KillAtEachCall(Replacing([] { Require(false); })), std::runtime_error);
    EXPECT_THROW(KillAtEachCall(Replacing([] {})), std::runtime_error) << "changes nothing";
}

}  // namespace
}  // namespace nimbrel::crash
