#include "tools/nimauthctl/progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <nlohmann/json.hpp>
#include <sstream>

namespace nimbrel::nimauthctl {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;

// What is written to standard error meanwhile, line by line, as JSON.
template <typename Work>
std::vector<json> Told(Work work, ProgressForm form = ProgressForm::Json) {
    Settings settings;
    settings.progress = form;
    ::testing::internal::CaptureStderr();
    Progress progress(settings);
    work(progress);
    std::istringstream lines(::testing::internal::GetCapturedStderr());
    std::vector<json> told;
    for (std::string line; std::getline(lines, line);) told.push_back(json::parse(line));
    return told;
}

std::vector<std::string> Events(const std::vector<json>& told) {
    std::vector<std::string> events;
    for (const json& line : told) {
        EXPECT_EQ(1, line["schema"]);
        EXPECT_GE(line["elapsedMilliseconds"], 0);
        events.push_back(line["event"].get<std::string>() + ' ' + std::to_string(line.value("attempt", 0)));
    }
    return events;
}

TEST(ProgressTest, FourAttemptsAndTheirPausesAreTold) {
    const auto told = Told([](Progress& progress) {
        progress.Step("host-name", "making the name fit \"x\"");
        progress.Attempts("joining corp.test", 4);
        for (int attempt = 1; attempt <= 4; ++attempt) {
            progress.Pause(30);
            progress.PauseEnded();
        }
        progress.End("end");
    });
    EXPECT_THAT(Events(told), ElementsAre("step 0", "step 1", "pause 1", "step 2", "pause 2", "step 3", "pause 3",
                                          "step 4", "pause 4", "end 0"));
    EXPECT_EQ("host-name", told[0]["step"]);
    EXPECT_EQ("making the name fit \"x\"", told[0]["text"]);
    EXPECT_EQ(30, told[2]["seconds"]);
    EXPECT_EQ(4, told[2]["attempts"]);
}

TEST(ProgressTest, NothingIsToldAfterTheEnd) {
    const auto told = Told([](Progress& progress) {
        progress.Step("leave", "leaving");
        progress.End("interrupted");
        progress.End("end");
        progress.Step("late", "late");
    });
    EXPECT_THAT(Events(told), ElementsAre("step 0", "interrupted 0"));
}

TEST(ProgressTest, PipesAreToldNothingUnasked) {
    for (const ProgressForm form : {ProgressForm::Auto, ProgressForm::None}) {
        EXPECT_TRUE(Told([](Progress& progress) { progress.Step("leave", "leaving"); }, form).empty());
    }
}

TEST(ProgressTest, WhatGoesOnIsKnownAtAnyTime) {
    Progress progress((Settings()));
    EXPECT_EQ("", progress.Now());
    progress.Attempts("joining", 2);
    EXPECT_EQ("attempt 1 of 2 was under way", progress.Now());
    EXPECT_TRUE(progress.OutcomeIsOpen());
    progress.Pause(1);
    EXPECT_EQ("attempt 1 of 2 was refused, and the next had not begun", progress.Now());
    EXPECT_FALSE(progress.OutcomeIsOpen());
    progress.PauseEnded();
    progress.Pause(1);
    EXPECT_EQ("attempt 2 of 2 was refused", progress.Now());
}

TEST(ProgressTest, SleepOfAnybodyButTheLibraryIsNoPause) {
    const auto told = Told([](Progress& progress) {
        const PauseWatch watch(progress);
        progress.Attempts("joining", 4);
        EXPECT_EQ(0u, sleep(0));
    });
    EXPECT_THAT(Events(told), ElementsAre("step 1"));
}

TEST(ProgressTest, LongWorkEndsWithItsResultOrItsFailure) {
    Progress progress((Settings()));
    EXPECT_EQ(5, RunLong(progress, [] { return 5; }));
    EXPECT_THROW(RunLong(progress, []() -> bool { throw UsageError("no"); }), CarriedFailure);
}

TEST(ProgressTest, SignalInterruptsLongWorkAndNotWhatFollows) {
    Progress progress((Settings()));
    auto release = std::make_shared<std::promise<void>>();
    try {
        RunLong(progress, [release] {
            kill(getpid(), SIGINT);
            release->get_future().wait();
            return true;
        });
        FAIL() << "not interrupted";
    } catch (const Interrupted& interruption) {
        EXPECT_EQ(SIGINT, interruption.Signal());
    }
    release->set_value();
    EXPECT_TRUE(RunLong(progress, [] { return true; }));
}

TEST(ProgressTest, IgnoredSignalStaysIgnored) {
    const auto before = std::signal(SIGHUP, SIG_IGN);
    Progress progress((Settings()));
    EXPECT_TRUE(RunLong(progress, [] {
        kill(getpid(), SIGHUP);
        return true;
    }));
    std::signal(SIGHUP, before);
}

}  // namespace
}  // namespace nimbrel::nimauthctl
