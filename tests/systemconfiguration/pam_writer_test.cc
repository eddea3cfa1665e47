// PAM policies written as text, byte for byte and flush by flush.

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

#include "systemconfiguration/pam_policy.h"
#include "systemconfiguration/stream_buffers.h"
#include "systemconfiguration/thrown.h"

namespace {

using namespace std::string_literals;
using SystemConfiguration::InvalidControlException;
using SystemConfiguration::InvalidFacilityException;
using SystemConfiguration::PAMControl;
using SystemConfiguration::PAMEntry;
using SystemConfiguration::PAMFacility;
using SystemConfiguration::PAMPolicy;
using SystemConfiguration::PAMStack;

using Texts = std::vector<std::string>;

PAMEntry Entry(const PAMControl& control, const std::string& module, std::list<std::string> parameters = {}) {
    PAMEntry entry{control, module};
    entry.parameters() = std::move(parameters);
    return entry;
}

template <typename Value>
std::string Written(const Value& value) {
    std::ostringstream stream;
    stream << value;
    EXPECT_TRUE(stream.good());
    return stream.str();
}

// A stack of rules with one parameter each.
PAMStack Stack(PAMFacility facility, const std::list<PAMControl>& controls) {
    PAMStack stack(facility);
    for (const PAMControl& control : controls) stack.push_back(Entry(control, "m", {"p"}));
    return stack;
}

TEST(PamWriter, EntryEndsInATabOrABlank) {
    EXPECT_EQ(Written(Entry("required"s, "pam_env.so")), "required\tpam_env.so\t");
    EXPECT_EQ(Written(Entry("[a=1 b=2]"s, "m", {"x", "y=z"})), "[a=1 b=2]\tm\tx y=z ");
    EXPECT_EQ(Written(Entry("include"s, "")), "include\t\t");
    EXPECT_EQ(Written(Entry("optional"s, "m", {"", "a b"})), "optional\tm\t a b ");
}

TEST(PamWriter, EntryWithoutAControlWritesNothing) {
    for (const int value : {0, 8, -1}) {
        std::ostringstream stream;
        const PAMEntry entry = Entry(static_cast<PAMControl::Control>(value), "m");
        EXPECT_THROW(stream << entry, InvalidControlException);
        EXPECT_EQ(stream.str(), "");
    }
}

TEST(PamWriter, StackWritesOneFlushedLinePerEntry) {
    RecordingOutput buffer;
    std::ostream stream(&buffer);
    stream << Stack(PAMFacility::Session, {PAMControl::Required, PAMControl("[a b]"s), PAMControl::Optional});
    EXPECT_EQ(buffer.Flushed(),
              (Texts{"session\trequired\tm\tp \n", "session\t[a b]\tm\tp \n", "session\toptional\tm\tp \n"}));
}

TEST(PamWriter, StackWithoutAFacilityThrowsAtItsFirstEntry) {
    EXPECT_EQ(Written(PAMStack()), "");
    for (const int value : {0, 5, 18}) {
        std::ostringstream stream;
        const PAMStack stack = Stack(static_cast<PAMFacility::Facility>(value), {PAMControl::Required});
        EXPECT_EQ(Thrown<InvalidFacilityException>([&] { stream << stack; }),
                  std::string("Invalid Facility: ").substr(static_cast<std::size_t>(value)));
        EXPECT_EQ(stream.str(), "");
        EXPECT_TRUE(stream.good());
    }
}

TEST(PamWriter, OutputBeforeANamelessControlIsWritten) {
    RecordingOutput buffer;
    std::ostream stream(&buffer);
    const PAMStack stack = Stack(PAMFacility::Auth, {PAMControl::Required, PAMControl(), PAMControl::Required});
    EXPECT_EQ(Thrown<InvalidControlException>([&] { stream << stack; }), "Invalid Control: ");
    EXPECT_EQ(buffer.Text(), "auth\trequired\tm\tp \nauth\t");
    EXPECT_EQ(buffer.Flushed().size(), 1U);
    EXPECT_TRUE(stream.good());
}

TEST(PamWriter, PolicyWritesHeaderAndBlocksInOrderOfFacility) {
    PAMPolicy policy("sample");
    policy[PAMFacility::Session].push_back(Entry("optional"s, "s"));
    policy[PAMFacility::Auth].push_back(Entry("required"s, "a", {"x", "y"}));
    policy[PAMFacility::Auth].push_back(Entry("[b c]"s, "b"));
    policy[PAMFacility::Account].push_back(Entry("include"s, "c"));
    RecordingOutput buffer;
    std::ostream stream(&buffer);
    stream << policy;
    EXPECT_EQ(buffer.Flushed(),
              (Texts{"#%PAM-1.0\n", "\n", "account\tinclude\tc\t\n", "\n", "auth\trequired\ta\tx y \n",
                     "auth\t[b c]\tb\t\n", "\n", "session\toptional\ts\t\n", "\n"}));
}

TEST(PamWriter, EmptyPolicyIsTheHeader) { EXPECT_EQ(Written(PAMPolicy("sample")), "#%PAM-1.0\n\n"); }

TEST(PamWriter, EmptyStackIsAnEmptyLine) {
    PAMPolicy policy("sample");
    policy[PAMFacility::Password];
    EXPECT_EQ(Written(policy), "#%PAM-1.0\n\n\n");
    policy[PAMFacility::Account].push_back(Entry("required"s, "m"));
    EXPECT_EQ(Written(policy), "#%PAM-1.0\n\naccount\trequired\tm\t\n\n\n");
    policy[PAMFacility::Unset];
    EXPECT_EQ(Written(policy), "#%PAM-1.0\n\n\naccount\trequired\tm\t\n\n\n")
        << "0 comes first, and has no rule to name";
}

TEST(PamWriter, NameComesFromTheStackNotFromItsPlace) {
    PAMPolicy policy("sample");
    policy[PAMFacility::Account] = Stack(PAMFacility::Session, {PAMControl::Required});
    EXPECT_EQ(Written(policy), "#%PAM-1.0\n\nsession\trequired\tm\tp \n\n");
}

TEST(PamWriter, ReadRulesAreSortedByFacility) {
    PAMPolicy policy("sample");
    std::istringstream in("# first\nauth required a\n\naccount required b x #y\n");
    in >> policy;
    EXPECT_EQ(Written(policy), "#%PAM-1.0\n\naccount\trequired\tb\tx #y \n\nauth\trequired\ta\t\n\n");
}

TEST(PamWriter, WrittenTextReadsBackAndIsWrittenAlike) {
    PAMPolicy first("sample");
    std::istringstream in("session [a  b] m x  y\nauth include n\npassword substack o #\nauth required p\n");
    in >> first;
    PAMPolicy second("sample");
    std::istringstream written(Written(first));
    written >> second;
    EXPECT_EQ(Written(second), Written(first));
    EXPECT_TRUE(second[PAMFacility::Auth] == first[PAMFacility::Auth]);
}

TEST(PamWriter, WidthPadsTheFirstWordAlone) {
    std::ostringstream stream;
    stream << std::setw(10) << std::setfill('.') << Entry("required"s, "m", {"p"});
    EXPECT_EQ(stream.str(), "..required\tm\tp ");
    stream.str("");
    stream << std::setw(6) << Stack(PAMFacility::Auth, {PAMControl::Required, PAMControl::Required});
    EXPECT_EQ(stream.str(), "..auth\trequired\tm\tp \nauth\trequired\tm\tp \n");
    stream.str("");
    PAMPolicy policy("sample");
    policy[PAMFacility::Auth].push_back(Entry("required"s, "m"));
    stream << std::setw(12) << std::left << policy;
    EXPECT_EQ(stream.str(), "#%PAM-1.0...\n\nauth\trequired\tm\t\n\n");
    EXPECT_EQ(stream.width(), 0);
}

TEST(PamWriter, UnitbufChangesNoByte) {
    RecordingOutput buffer;
    std::ostream stream(&buffer);
    stream << std::unitbuf << Stack(PAMFacility::Auth, {PAMControl::Required, PAMControl::Optional});
    EXPECT_EQ(buffer.Text(), "auth\trequired\tm\tp \nauth\toptional\tm\tp \n");
    EXPECT_GE(buffer.Flushed().size(), 2U);
}

TEST(PamWriter, FailedStreamTakesNothing) {
    RecordingOutput buffer;
    std::ostream stream(&buffer);
    stream.setstate(std::ios::failbit);
    PAMPolicy policy("sample");
    policy[PAMFacility::Auth].push_back(Entry("required"s, "m"));
    stream << policy;
    EXPECT_EQ(buffer.Text(), "");
    EXPECT_EQ(stream.rdstate(), std::ios::failbit);
}

}  // namespace
