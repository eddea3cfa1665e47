#include "tools/nimauthctl/password.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tools/nimauthctl/failure.h"

namespace nimbrel::nimauthctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using namespace std::string_literals;

// Something to read with these bytes in it.
class Source {
 public:
    explicit Source(std::string_view bytes) : _descriptor(memfd_create("source", MFD_CLOEXEC)) {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()), write(_descriptor, bytes.data(), bytes.size()));
        lseek(_descriptor, 0, SEEK_SET);
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    ~Source() { close(_descriptor); }

    int Number() const { return _descriptor; }

 private:
    int _descriptor;
};

std::string Read(std::string_view bytes) {
    const Source source(bytes);
    Password password;
    password.ReadAll(source.Number(), "the source");
    EXPECT_EQ(password.View().size(), std::strlen(password.Text()));
    return password.Text();
}

std::string Refusal(std::string_view bytes) {
    try {
        return "taken: " + Read(bytes);
    } catch (const UsageError& error) {
        return error.what();
    }
}

TEST(PasswordTest, OneLineEndIsDropped) {
    EXPECT_EQ("secret", Read("secret"));
    EXPECT_EQ("secret", Read("secret\n"));
    EXPECT_EQ("secret", Read("secret\r\n"));
    EXPECT_EQ("secret\r", Read("secret\r"));
    EXPECT_EQ(" secret ", Read(" secret \n"));
    EXPECT_EQ("", Read(""));
    EXPECT_EQ("", Read("\n"));
    EXPECT_EQ("\xff\xfe\x01", Read("\xff\xfe\x01\n"));
}

TEST(PasswordTest, MoreThanOneLineIsRefused) {
    EXPECT_THAT(Refusal("secret\n\n"), HasSubstr("more than one line"));
    EXPECT_THAT(Refusal("one\ntwo"), HasSubstr("more than one line"));
}

TEST(PasswordTest, NulIsRefused) {
    EXPECT_THAT(Refusal("sec\0ret"s), HasSubstr("NUL"));
    EXPECT_THAT(Refusal("\0"s), HasSubstr("NUL"));
}

TEST(PasswordTest, LengthIsBounded) {
    const std::string longest(Password::kMaximum, 'x');
    EXPECT_EQ(longest, Read(longest));
    EXPECT_EQ(longest, Read(longest + "\n"));
    EXPECT_EQ(longest, Read(longest + "\r\n"));
    EXPECT_THAT(Refusal(longest + "x"), HasSubstr("longer than 1024"));
    EXPECT_THAT(Refusal(longest + "xxx"), HasSubstr("longer than 1024"));
    EXPECT_THAT(Refusal(std::string(100'000, 'x')), HasSubstr("longer than 1024"));
}

TEST(PasswordTest, RefusalsDoNotRepeatThePassword) {
    for (const std::string& bytes : {"hunter2\nhunter2"s, "hunter2\0hunter2"s, "hunter2" + std::string(2000, 'x')}) {
        EXPECT_THAT(Refusal(bytes), Not(HasSubstr("hunter2")));
    }
}

TEST(PasswordTest, DescriptorThatCannotBeReadIsNamed) {
    Password password;
    try {
        password.ReadAll(1000, "descriptor 1000");
        FAIL();
    } catch (const UsageError& error) {
        EXPECT_STREQ("unable to read the password from descriptor 1000: Bad file descriptor", error.what());
    }
}

TEST(PasswordTest, ProcessCannotBeDumpedWhileAPasswordIsHeld) {
    ASSERT_EQ(1, prctl(PR_GET_DUMPABLE));
    {
        const Password first;
        EXPECT_EQ(0, prctl(PR_GET_DUMPABLE));
        { const Password second; }
        EXPECT_EQ(0, prctl(PR_GET_DUMPABLE));
    }
    EXPECT_EQ(1, prctl(PR_GET_DUMPABLE));
}

TEST(PasswordTest, ProcessCannotBeDumpedUntilTheLastPasswordIsGone) {
    ASSERT_EQ(1, prctl(PR_GET_DUMPABLE));
    auto first = std::make_unique<Password>();
    const auto second = std::make_shared<Password>();
    first.reset();
    EXPECT_EQ(0, prctl(PR_GET_DUMPABLE));
}

TEST(PasswordTest, WorkOnAnotherThreadDestroysItsPassword) {
    ASSERT_EQ(1, prctl(PR_GET_DUMPABLE));
    std::vector<std::thread> workers;
    for (int worker = 0; worker < 4; ++worker) {
        workers.emplace_back([password = std::make_unique<Password>()]() mutable {
            password.reset();
            for (int round = 0; round < 100; ++round) const Password another;
        });
    }
    for (std::thread& worker : workers) worker.join();
    EXPECT_EQ(1, prctl(PR_GET_DUMPABLE));
}

// The flags of the mapping that holds `address`, from /proc/self/smaps.
std::string MappingFlags(const void* address) {
    std::ifstream maps("/proc/self/smaps");
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    bool inside = false;
    for (std::string line; std::getline(maps, line);) {
        std::istringstream fields(line);
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
        char dash = 0;
        if (fields >> std::hex >> begin >> dash >> end && dash == '-') inside = begin <= wanted && wanted < end;
        if (inside && line.starts_with("VmFlags:")) return line;
    }
    return "";
}

TEST(PasswordTest, ItsPagesAreKeptOutOfDumps) {
    const Password password;
    EXPECT_THAT(MappingFlags(password.Text()), HasSubstr(" dd"));
}

TEST(PasswordTest, BothSourcesAtOnceAreRefused) {
    Password password;
    EXPECT_THROW(ReadPassword(password, "alice", true, "3", false), UsageError);
}

TEST(PasswordTest, DescriptorNumberIsChecked) {
    Password password;
    for (const char* const text : {"-1", "x", "1x", "99999999999"}) {
        EXPECT_THROW(ReadPassword(password, "alice", false, text, false), UsageError) << text;
    }
}

TEST(PasswordTest, IsReadFromTheNamedDescriptor) {
    const Source source("secret\n");
    Password password;
    ReadPassword(password, "alice", false, std::to_string(source.Number()), true);
    EXPECT_EQ("secret", password.View());
}

}  // namespace
}  // namespace nimbrel::nimauthctl
