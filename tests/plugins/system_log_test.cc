#include "support/system_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(SystemLog, KeepsPriorityAndTextInOrder) {
    SystemLog log;
    syslog(LOG_ERR, "first: %d", 1);
    syslog(LOG_DEBUG | LOG_AUTH, "%s", "second > last\n");
    EXPECT_THAT(log.Take(), ElementsAre(LogRecord{LOG_ERR, "first: 1"}, LogRecord{LOG_DEBUG, "second > last\n"}));
}

TEST(SystemLog, TakenRecordsAreForgotten) {
    SystemLog log;
    syslog(LOG_INFO, "once");
    log.Take();
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST(SystemLog, EveryRecordOfManyThreadsIsThere) {
    SystemLog log;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([] {
            for (int line = 0; line < 250; ++line) syslog(LOG_INFO, "line");
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(log.Take().size(), 2000u);
}

TEST(SystemLog, ASecondOneTakesOverWhereTheFirstEnded) {
    {
        SystemLog first;
        syslog(LOG_INFO, "first");
    }
    SystemLog second;
    syslog(LOG_INFO, "second");
    EXPECT_THAT(second.Take(), ElementsAre(LogRecord{LOG_INFO, "second"}));
}

}  // namespace
}  // namespace nimbrel::authentication::test
