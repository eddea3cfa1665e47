// Every provider status becomes exactly the exception that stands for it.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

#include "unit/status_table.h"

namespace {

using nimbrel::authentication::Exception;
using nimbrel::authentication::FileNotFoundException;
using nimbrel::authentication::ThrowMappedException;
using nimbrel::authentication::UnknownException;

struct Thrown {
    const std::type_info* type = nullptr;
    unsigned long code = 0;
    std::string message;
};

Thrown Map(unsigned status) {
    try {
        ThrowMappedException(status);
    } catch (const Exception& error) {
        return {&typeid(error), error.GetCode(), error.what()};
    }
}

// "" where the status maps as the table tells, else what came instead.
std::string Deviation(unsigned status) {
    static const auto rows = [] {
        std::map<unsigned, const StatusRow*> byStatus;
        for (const StatusRow& row : kStatusTable) byStatus.emplace(row.status, &row);
        return byStatus;
    }();

    char unknown[64];
    std::snprintf(unknown, sizeof unknown, "Exception 0x%08x: Unknown exception", status);
    const auto row = rows.find(status);
    const StatusRow expected =
        row == rows.end() ? StatusRow{status, status, &typeid(UnknownException), unknown} : *row->second;

    const Thrown thrown = Map(status);
    const bool equal =
        *thrown.type == *expected.type && thrown.code == expected.code && thrown.message == expected.message;
    return equal ? "" : std::to_string(status) + " gives " + thrown.type->name() + ": " + thrown.message;
}

TEST(StatusMapping, EveryMappedStatusGivesItsClassCodeAndText) {
    EXPECT_EQ(std::size(kStatusTable), 47U);
    for (const StatusRow& row : kStatusTable) {
        const Thrown thrown = Map(row.status);
        EXPECT_EQ(*thrown.type, *row.type) << row;
        EXPECT_EQ(thrown.code, row.code) << row;
        EXPECT_EQ(thrown.message, row.message) << row;
    }
}

TEST(StatusMapping, EveryStatusUpToTwentyThousandGivesOneClass) {
    for (unsigned status = 0; status <= 20000; ++status) ASSERT_EQ(Deviation(status), "");
}

TEST(StatusMapping, EveryStatusAtTheTopOfTheRangeIsUnknown) {
    for (std::uint64_t status = 0xFFFEFF00; status <= 0xFFFFFFFF; ++status) {
        ASSERT_EQ(Deviation(static_cast<unsigned>(status)), "");
    }
}

// One bit away from a mapped status, and the two ends of every 16-bit half.
TEST(StatusMapping, NeighboursOfMappedStatusesAreNotMistakenForThem) {
    for (const StatusRow& row : kStatusTable) {
        for (unsigned bit = 0; bit < 32; ++bit) EXPECT_EQ(Deviation(row.status ^ (1U << bit)), "");
    }
    for (const unsigned status : {0x7FFFFFFFU, 0x80000000U, 0x0000FFFFU, 0x00010000U, 0x80070005U}) {
        EXPECT_EQ(Deviation(status), "");
    }
}

TEST(StatusMapping, StatusZeroCountsAsFileNotFoundWithCodeTwo) {
    EXPECT_THROW(ThrowMappedException(0), FileNotFoundException);
    EXPECT_EQ(Map(0).code, 2U);
}

TEST(StatusMapping, SmallStatusesWithoutAClassAreUnknown) {
    for (const unsigned status : {1U, 3U, 4U, 1319U}) EXPECT_EQ(*Map(status).type, typeid(UnknownException)) << status;
    EXPECT_EQ(Map(3).message, "Exception 0x00000003: Unknown exception");
    EXPECT_EQ(Map(4660).message, "Exception 0x00001234: Unknown exception");
}

TEST(StatusMapping, HighestStatusIsNotSignExtended) {
    EXPECT_EQ(Map(0xFFFFFFFF).code, 4294967295UL);
    EXPECT_EQ(Map(0xFFFFFFFF).message, "Exception 0xffffffff: Unknown exception");
    EXPECT_EQ(Map(0xFFFF0000).message, "Exception 0xffff0000: Unknown exception");
    EXPECT_EQ(Map(0xFFFF0001).message, "Exception 0xffff0001: Unknown exception");
}

}  // namespace
