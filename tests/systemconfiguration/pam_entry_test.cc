// Entries, stacks and policies as containers.

#include <gtest/gtest.h>

#include <sstream>
#include <type_traits>

#include "systemconfiguration/pam_policy.h"
#include "systemconfiguration/thrown.h"

namespace {

using namespace std::string_literals;
using SystemConfiguration::InvalidControlException;
using SystemConfiguration::PAMControl;
using SystemConfiguration::PAMEntry;
using SystemConfiguration::PAMFacility;
using SystemConfiguration::PAMPolicy;
using SystemConfiguration::PAMStack;
using Words = std::list<std::string>;

PAMEntry Entry(const std::string& control, const std::string& module, Words parameters = {}) {
    PAMEntry entry{PAMControl(control), module};
    entry.parameters() = std::move(parameters);
    return entry;
}

std::string Written(const PAMEntry& entry) {
    std::ostringstream stream;
    stream << entry;
    return stream.str();
}

TEST(PamEntry, StartsEmpty) {
    PAMEntry entry;
    EXPECT_EQ(static_cast<PAMControl::Control>(entry.control()), PAMControl::Unset);
    EXPECT_EQ(entry.module(), "");
    EXPECT_TRUE(entry.parameters().empty());
}

TEST(PamEntry, HoldsWhatItIsMadeOf) {
    PAMEntry entry{PAMControl("[a=1]"s), "pam_x.so"};
    EXPECT_EQ(static_cast<std::string>(entry.control()), "[a=1]");
    EXPECT_EQ(entry.module(), "pam_x.so");
    EXPECT_TRUE(entry.parameters().empty());
    entry.parameters().push_back("debug");
    EXPECT_EQ(entry.parameters(), Words{"debug"});
    PAMEntry copy;
    copy = entry;
    EXPECT_EQ(static_cast<std::string>(copy.control()), "[a=1]");
    EXPECT_EQ(copy.module(), "pam_x.so");
    EXPECT_EQ(copy.parameters(), Words{"debug"});
}

TEST(PamEntry, EqualityNeedsValueModuleAndParametersInOrder) {
    const PAMEntry entry = Entry("required", "m", {"a", "b"});
    EXPECT_TRUE(entry == Entry("required", "m", {"a", "b"}));
    EXPECT_FALSE(entry == Entry("requisite", "m", {"a", "b"}));
    EXPECT_FALSE(entry == Entry("required", "M", {"a", "b"}));
    EXPECT_FALSE(entry == Entry("required", "m", {"b", "a"}));
    EXPECT_FALSE(entry == Entry("required", "m", {"a"}));
    EXPECT_FALSE(entry == Entry("required", "m", {"a", "b", "b"}));
}

TEST(PamEntry, BracketTextsDoNotCountThoughControlsDiffer) {
    ASSERT_FALSE(PAMControl("[a]"s) == PAMControl("[b]"s));
    EXPECT_TRUE(Entry("[a]", "m") == Entry("[b]", "m"));
    EXPECT_FALSE(Entry("[a]", "m") == Entry("required", "m"));
}

TEST(PamEntry, ReadingAddsToTheParameters) {
    PAMEntry entry = Entry("required", "old", {"kept"});
    std::istringstream stream("optional new a  b\nsufficient newer c\n");
    stream >> entry;
    EXPECT_EQ(Written(entry), "optional\tnew\tkept a b ");
    stream >> entry;
    EXPECT_EQ(Written(entry), "sufficient\tnewer\tkept a b c ");
    EXPECT_TRUE(stream.good());
}

TEST(PamEntry, ReadingEndsBehindTheNewline) {
    std::istringstream stream("required m a\nrest");
    PAMEntry entry;
    stream >> entry;
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.tellg(), 13);
}

TEST(PamEntry, FirstFieldsAreTakenFromWhereverTheyStand) {
    std::istringstream stream("\n\n required \n\t m \t a\n");
    PAMEntry entry;
    stream >> entry;
    EXPECT_EQ(Written(entry), "required\tm\ta ");
}

TEST(PamEntry, RefusedControlLeavesControlAndModule) {
    for (const std::string text : {"bogus m a\n", "[open m a\n", "", "\n"}) {
        PAMEntry entry = Entry("[x]", "old", {"kept"});
        std::istringstream stream(text);
        EXPECT_THROW(stream >> entry, InvalidControlException) << text;
        EXPECT_EQ(Written(entry), "[x]\told\tkept ");
    }
}

TEST(PamEntry, ControlAloneLeavesTheModule) {
    PAMEntry entry = Entry("[x]", "old", {"kept"});
    std::istringstream stream("required");
    stream >> entry;
    EXPECT_EQ(Written(entry), "required\told\tkept ");
    EXPECT_EQ(stream.rdstate(), std::ios::eofbit | std::ios::failbit);
}

TEST(PamStack, KnowsItsFacility) {
    EXPECT_TRUE(PAMStack().Facility() == PAMFacility(PAMFacility::Unset));
    PAMStack stack{PAMFacility(PAMFacility::Password)};
    EXPECT_TRUE(stack.Facility() == PAMFacility(PAMFacility::Password));
    EXPECT_TRUE(stack.empty());
    stack.push_back(Entry("required", "m"));
    PAMStack assigned;
    assigned = stack;
    EXPECT_TRUE(PAMStack(stack).Facility() == PAMFacility(PAMFacility::Password));
    EXPECT_TRUE(assigned.Facility() == PAMFacility(PAMFacility::Password));
    EXPECT_EQ(assigned.size(), 1U);
    EXPECT_TRUE(assigned.front() == stack.front());
}

TEST(PamStack, IsAQueueOfEntries) {
    static_assert(std::is_base_of_v<std::deque<PAMEntry>, PAMStack>);
    PAMStack stack;
    stack.push_back(Entry("required", "second"));
    stack.push_front(Entry("required", "first"));
    stack.insert(stack.begin() + 1, Entry("required", "between"));
    stack.erase(stack.find("second"));
    ASSERT_EQ(stack.size(), 2U);
    EXPECT_EQ(stack[0].module(), "first");
    EXPECT_EQ(stack[1].module(), "between");
}

TEST(PamStack, FindsTheFirstOfEqualModules) {
    PAMStack stack;
    for (const char* control : {"optional", "required", "sufficient"}) stack.push_back(Entry(control, "pam_unix.so"));
    stack.push_front(Entry("required", "pam_env.so"));
    const PAMStack& constant = stack;
    EXPECT_TRUE(stack.find("pam_unix.so") == stack.begin() + 1);
    EXPECT_TRUE(constant.find("pam_unix.so") == constant.begin() + 1);
    static_assert(std::is_same_v<decltype(constant.find("")), PAMStack::const_iterator>);
}

TEST(PamStack, AbsentModuleGivesTheEnd) {
    PAMStack stack;
    stack.push_back(Entry("required", "pam_unix.so"));
    for (const std::string module : {"", "pam_unix", "PAM_UNIX.SO", "pam_unix.so "}) {
        EXPECT_TRUE(stack.find(module) == stack.end());
        EXPECT_TRUE(static_cast<const PAMStack&>(stack).find(module) == stack.cend());
    }
}

TEST(PamPolicy, IsNotCopied) {
    static_assert(!std::is_copy_constructible_v<PAMPolicy> && !std::is_copy_assignable_v<PAMPolicy>);
    static_assert(!std::is_default_constructible_v<PAMPolicy>);
}

TEST(PamPolicy, StackExistsFromTheFirstCallOn) {
    PAMPolicy policy("sshd");
    for (const auto value : {PAMFacility::Session, PAMFacility::Account}) {
        PAMStack& stack = policy[value];
        EXPECT_TRUE(stack.Facility() == PAMFacility(value));
        stack.push_back(Entry("required", "m"));
        EXPECT_EQ(&policy[value], &stack);
        EXPECT_EQ(policy[value].size(), 1U);
    }
}

}  // namespace
