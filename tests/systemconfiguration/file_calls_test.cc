// What reaches the kernel when a model is written to a file: one write per line, of that line, and nothing else.

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "systemconfiguration/nss_configuration.h"
#include "systemconfiguration/pam_policy.h"
#include "systemconfiguration/traced_calls.h"

namespace {

using SystemConfiguration::NSSConfiguration;
using SystemConfiguration::NSSDatabase;
using SystemConfiguration::NSSService;
using SystemConfiguration::PAMControl;
using SystemConfiguration::PAMEntry;
using SystemConfiguration::PAMFacility;
using SystemConfiguration::PAMPolicy;

// One write for each line of the text.
std::vector<TracedCall> WritePerLine(const std::string& text) {
    std::vector<TracedCall> calls;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find('\n', start) + 1;
        calls.push_back({SYS_write, end - start});
        start = end;
    }
    return calls;
}

// A file in memory with a known descriptor, opened once more as a stream.
class FileCalls : public ::testing::Test {
 protected:
    FileCalls() : _descriptor(memfd_create("model", MFD_CLOEXEC)) {
        _stream.open("/proc/self/fd/" + std::to_string(_descriptor));
    }
    ~FileCalls() override { close(_descriptor); }

    template <typename Model>
    void ExpectOneWritePerLine(const Model& model) {
        std::ostringstream text;
        text << model;
        ASSERT_TRUE(_stream.is_open());
        EXPECT_EQ(TracedCalls(StreamDescriptor(), [&] { _stream << model; }), WritePerLine(text.str()));
        EXPECT_EQ(Contents(), text.str());
    }

 private:
    // The lowest descriptor above ours that is open on the same file.
    int StreamDescriptor() const {
        const std::filesystem::path folder = "/proc/self/fd";
        const auto target = std::filesystem::read_symlink(folder / std::to_string(_descriptor));
        for (int descriptor = _descriptor + 1; descriptor < _descriptor + 100; ++descriptor) {
            const auto link = folder / std::to_string(descriptor);
            if (std::filesystem::is_symlink(link) && std::filesystem::read_symlink(link) == target) return descriptor;
        }
        ADD_FAILURE() << "the stream has no descriptor";
        return -1;
    }

    std::string Contents() const {
        std::ifstream file("/proc/self/fd/" + std::to_string(_descriptor));
        return {std::istreambuf_iterator<char>(file), {}};
    }

    int _descriptor;
    std::ofstream _stream;
};

TEST_F(FileCalls, PolicyIsOneWritePerLine) {
    PAMPolicy policy("sample");
    for (const auto facility : {PAMFacility::Auth, PAMFacility::Session, PAMFacility::Account}) {
        for (int rule = 0; rule < 3; ++rule) {
            PAMEntry entry(PAMControl(PAMControl::Required), "pam_unix.so");
            entry.parameters() = {"nullok", "try_first_pass"};
            policy[facility].push_back(entry);
        }
    }
    policy[PAMFacility::Password];
    ExpectOneWritePerLine(policy);
}

TEST_F(FileCalls, ConfigurationIsOneWritePerLine) {
    NSSConfiguration configuration;
    for (const auto database : {NSSDatabase::Hosts, NSSDatabase::Passwd, NSSDatabase::Rpc}) {
        configuration[database].push_back(NSSService("files"));
        configuration[database].back().parameters() = {"NOTFOUND=return", "SUCCESS=merge"};
        configuration[database].push_back(NSSService("dns"));
    }
    configuration[NSSDatabase::Shadow];
    ExpectOneWritePerLine(configuration);
}

TEST_F(FileCalls, EmptyPolicyIsTwoWrites) { ExpectOneWritePerLine(PAMPolicy("sample")); }

TEST_F(FileCalls, LongLinesAreOneWriteToo) {
    PAMPolicy policy("sample");
    for (const std::size_t size : {900, 1100, 3000, 8000}) {
        PAMEntry entry(PAMControl(PAMControl::Required), "m");
        for (std::size_t word = 0; word < size / 10; ++word) entry.parameters().push_back("parameter");
        policy[PAMFacility::Auth].push_back(entry);
    }
    ExpectOneWritePerLine(policy);
}

}  // namespace
