// Facilities and controls: names, values, equality, and the texts of their exceptions.

#include <gtest/gtest.h>

#include <iomanip>
#include <limits>
#include <sstream>
#include <type_traits>

#include "authentication/exceptions.h"
#include "systemconfiguration/pam_policy.h"
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

constexpr int kSmallest = std::numeric_limits<std::int32_t>::min();
constexpr int kLargest = std::numeric_limits<std::int32_t>::max();

const std::string kNoFacilities[] = {"",      " ",        "Auth",  "AUTH",    "aut",      "auths",     "auth ",
                                     " auth", "-session", "auth:", "auth\0"s, "@include", "session\n", "account\t"};
const std::string kNoControls[] = {"",         "[",       "]",         "x]",         "[x",    "[x] ",      " [x]", "a",
                                   "Required", "require", "requireds", "required\n", "unset", "bracketed", "\0"s};

std::string FacilityError(const std::string& name) { return "Invalid Facility: " + name; }
std::string ControlError(const std::string& text) { return "Invalid Control: " + text; }

PAMFacility FacilityOf(int value) { return PAMFacility(static_cast<PAMFacility::Facility>(value)); }
PAMControl ControlOf(int value) { return PAMControl(static_cast<PAMControl::Control>(value)); }

int ValueOf(const PAMFacility& facility) { return static_cast<PAMFacility::Facility>(facility); }
int ValueOf(const PAMControl& control) { return static_cast<PAMControl::Control>(control); }

TEST(PamExceptions, StandOnTheirOwn) {
    static_assert(std::is_base_of_v<std::exception, InvalidFacilityException>);
    static_assert(std::is_base_of_v<std::exception, InvalidControlException>);
    static_assert(!std::is_base_of_v<nimbrel::authentication::Exception, InvalidFacilityException>);
    static_assert(!std::is_base_of_v<nimbrel::authentication::Exception, InvalidControlException>);
    static_assert(!std::is_convertible_v<InvalidFacilityException*, InvalidControlException*>);
    static_assert(!std::is_default_constructible_v<InvalidFacilityException>);
    static_assert(sizeof(InvalidFacilityException) == sizeof(std::exception) + sizeof(std::string));
    static_assert(sizeof(InvalidControlException) == sizeof(std::exception) + sizeof(std::string));
    EXPECT_STREQ(InvalidFacilityException("a text").what(), "a text");
    EXPECT_STREQ(InvalidControlException("a text").what(), "a text");
    EXPECT_STREQ(InvalidControlException(InvalidControlException("copied")).what(), "copied");
}

TEST(PamValues, NoneIsPolymorphic) {
    static_assert(!std::is_polymorphic_v<PAMFacility> && !std::is_polymorphic_v<PAMControl>);
    static_assert(!std::is_polymorphic_v<PAMEntry> && !std::is_polymorphic_v<PAMStack>);
    static_assert(!std::is_polymorphic_v<PAMPolicy>);
    static_assert(sizeof(PAMFacility) == 4 && sizeof(PAMFacility::Facility) == 4 && sizeof(PAMControl::Control) == 4);
    static_assert(std::is_signed_v<std::underlying_type_t<PAMFacility::Facility>>);
    static_assert(std::is_signed_v<std::underlying_type_t<PAMControl::Control>>);
}

const struct {
    int value;
    const char* name;
} kFacilities[] = {{1, "account"}, {2, "auth"}, {3, "password"}, {4, "session"}};

TEST(PamFacility, NamesAndValuesBelongTogether) {
    for (const auto& row : kFacilities) {
        SCOPED_TRACE(row.name);
        const PAMFacility facility{std::string(row.name)};
        EXPECT_EQ(ValueOf(facility), row.value);
        EXPECT_EQ(static_cast<std::string>(FacilityOf(row.value)), row.name);
        EXPECT_TRUE(facility == FacilityOf(row.value));
        EXPECT_TRUE(facility == std::string(row.name));
        EXPECT_FALSE(facility == FacilityOf(row.value + 1));
        EXPECT_FALSE(FacilityOf(row.value + 1) == std::string(row.name));
    }
}

TEST(PamFacility, StartsUnset) { EXPECT_EQ(ValueOf(PAMFacility()), 0); }

TEST(PamFacility, ValuesAreNotChecked) {
    for (const int value : {kSmallest, -1, 0, 5, 99, kLargest}) {
        PAMFacility assigned;
        assigned = static_cast<PAMFacility::Facility>(value);
        EXPECT_EQ(ValueOf(assigned), value);
        EXPECT_EQ(ValueOf(FacilityOf(value)), value);
        EXPECT_TRUE(assigned == FacilityOf(value));
    }
}

TEST(PamFacility, OtherNamesAreRefused) {
    for (const std::string& name : kNoFacilities) {
        PAMFacility facility = PAMFacility::Auth;
        using Error = InvalidFacilityException;
        const std::string expected = FacilityError(name).c_str();
        EXPECT_EQ(Thrown<Error>([&] { PAMFacility made(name); }), expected);
        EXPECT_EQ(Thrown<Error>([&] { facility = name; }), expected);
        EXPECT_EQ(Thrown<Error>([&] { (void)(facility == name); }), expected);
        EXPECT_EQ(ValueOf(facility), 2) << "a refused name leaves the value";
    }
}

TEST(PamFacility, MessageOfANamelessValueStartsThere) {
    for (const int value : {0, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18}) {
        const std::string expected = std::string("Invalid Facility: ").substr(static_cast<std::size_t>(value));
        const PAMFacility facility = FacilityOf(value);
        std::ostringstream stream;
        EXPECT_EQ(Thrown<InvalidFacilityException>([&] { (void)static_cast<std::string>(facility); }), expected);
        EXPECT_EQ(Thrown<InvalidFacilityException>([&] { stream << facility; }), expected);
        EXPECT_EQ(stream.str(), "");
    }
    EXPECT_EQ(Thrown<InvalidFacilityException>([] { (void)static_cast<std::string>(FacilityOf(5)); }), "id Facility: ");
}

TEST(PamFacility, ValueOutsideTheMessageThrowsTheSameClass) {
    for (const int value : {kSmallest, -1, 19, 20, 1000, kLargest}) {
        EXPECT_THROW((void)static_cast<std::string>(FacilityOf(value)), InvalidFacilityException) << value;
    }
}

TEST(PamFacility, StreamsHoldOneWord) {
    std::istringstream in(" \n\tauth required");
    PAMFacility facility;
    in >> facility;
    EXPECT_EQ(ValueOf(facility), 2);
    EXPECT_EQ(in.tellg(), 7);

    std::ostringstream out;
    out << std::setw(6) << std::setfill('.') << facility << facility;
    EXPECT_EQ(out.str(), "..authauth");
}

TEST(PamFacility, StreamWithoutAWordIsRefused) {
    for (const std::string text : {"", " ", "\n\n"}) {
        std::istringstream in(text);
        PAMFacility facility = PAMFacility::Session;
        EXPECT_EQ(Thrown<InvalidFacilityException>([&] { in >> facility; }), "Invalid Facility: ");
        EXPECT_EQ(in.rdstate(), std::ios::eofbit | std::ios::failbit);
        EXPECT_EQ(ValueOf(facility), 4);
    }
    std::istringstream in("-session optional");
    PAMFacility facility;
    EXPECT_EQ(Thrown<InvalidFacilityException>([&] { in >> facility; }), "Invalid Facility: -session");
}

const struct {
    int value;
    const char* name;
} kControls[] = {{1, "required"}, {2, "requisite"}, {3, "sufficient"},
                 {4, "optional"}, {5, "include"},   {6, "substack"}};

TEST(PamControl, NamesAndValuesBelongTogether) {
    for (const auto& row : kControls) {
        SCOPED_TRACE(row.name);
        const PAMControl control{std::string(row.name)};
        EXPECT_EQ(ValueOf(control), row.value);
        EXPECT_EQ(static_cast<std::string>(ControlOf(row.value)), row.name);
        EXPECT_TRUE(control == ControlOf(row.value));
        EXPECT_TRUE(control == std::string(row.name));
        EXPECT_FALSE(control == ControlOf(row.value + 1));
        EXPECT_FALSE(ControlOf(row.value + 1) == std::string(row.name));
    }
}

TEST(PamControl, StartsUnset) {
    EXPECT_EQ(ValueOf(PAMControl()), 0);
    EXPECT_TRUE(PAMControl() == ControlOf(0));
}

TEST(PamControl, BracketKeepsItsWholeText) {
    for (const std::string text : {"[]", "[ ]", "[[]]", "[]]", "[success=1 default=ignore]", "[a]b]"}) {
        const PAMControl control(text);
        EXPECT_EQ(ValueOf(control), 7);
        EXPECT_EQ(static_cast<std::string>(control), text);
        PAMControl assigned;
        assigned = text;
        EXPECT_TRUE(assigned == control);
        EXPECT_TRUE(PAMControl(control) == control);
    }
}

TEST(PamControl, OtherTextsAreRefused) {
    for (const std::string& text : kNoControls) {
        PAMControl control = PAMControl::Sufficient;
        using Error = InvalidControlException;
        const std::string expected = ControlError(text).c_str();
        EXPECT_EQ(Thrown<Error>([&] { PAMControl made(text); }), expected);
        EXPECT_EQ(Thrown<Error>([&] { control = text; }), expected);
        EXPECT_EQ(Thrown<Error>([&] { (void)(control == text); }), expected);
        EXPECT_EQ(ValueOf(control), 3) << "a refused text leaves the control";
    }
}

TEST(PamControl, ValuesAndTextsAreNotChecked) {
    for (const int value : {kSmallest, -1, 0, 8, 99, kLargest}) EXPECT_EQ(ValueOf(ControlOf(value)), value);
    EXPECT_EQ(static_cast<std::string>(PAMControl(PAMControl::Bracketed, "no bracket")), "no bracket");
    EXPECT_EQ(static_cast<std::string>(PAMControl(PAMControl::Bracketed)), "");
    EXPECT_EQ(static_cast<std::string>(PAMControl(PAMControl::Required, "ignored")), "required");
}

TEST(PamControl, AssigningAValueClearsTheText) {
    PAMControl control("[a=b]"s);
    control = PAMControl::Bracketed;
    EXPECT_EQ(static_cast<std::string>(control), "");
    control = PAMControl::Optional;
    EXPECT_EQ(static_cast<std::string>(control), "optional");
}

TEST(PamControl, AssigningANameOverABracketGivesTheName) {
    PAMControl control("[a=b]"s);
    control = "optional"s;
    EXPECT_EQ(static_cast<std::string>(control), "optional");
    EXPECT_TRUE(control == PAMControl(PAMControl::Optional));
    control = "[c]"s;
    EXPECT_EQ(static_cast<std::string>(control), "[c]");
}

TEST(PamControl, TextCountsOnlyBetweenBrackets) {
    EXPECT_TRUE(PAMControl("required"s) == PAMControl(PAMControl::Required, "any"));
    EXPECT_TRUE(PAMControl(PAMControl::Required, "one") == PAMControl(PAMControl::Required, "other"));
    EXPECT_TRUE(PAMControl("[a]"s) == PAMControl(PAMControl::Bracketed, "[a]"));
    EXPECT_FALSE(PAMControl("[a]"s) == PAMControl("[b]"s));
    EXPECT_FALSE(PAMControl("[a]"s) == PAMControl(PAMControl::Required, "[a]"));
    EXPECT_FALSE(PAMControl(PAMControl::Required, "[a]") == PAMControl("[a]"s));
}

TEST(PamControl, BracketDoesNotParseWhatItIsComparedWith) {
    EXPECT_TRUE(PAMControl("[a]"s) == "[a]"s);
    EXPECT_FALSE(PAMControl("[a]"s) == "[b]"s);
    EXPECT_FALSE(PAMControl("[a]"s) == "no control"s);
    EXPECT_FALSE(PAMControl("[a]"s) == "required"s);
    EXPECT_TRUE(PAMControl(PAMControl::Bracketed, "no control") == "no control"s);
    EXPECT_FALSE(PAMControl(PAMControl::Required) == "[required]"s);
    EXPECT_FALSE(PAMControl() == "[a]"s);
}

TEST(PamControl, MessageOfANamelessValueStartsThere) {
    for (const int value : {0, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17}) {
        const std::string expected = std::string("Invalid Control: ").substr(static_cast<std::size_t>(value));
        EXPECT_EQ(Thrown<InvalidControlException>([&] { (void)static_cast<std::string>(ControlOf(value)); }), expected);
    }
    for (const int value : {kSmallest, -1, 18, 19, 1000, kLargest}) {
        EXPECT_THROW((void)static_cast<std::string>(ControlOf(value)), InvalidControlException) << value;
    }
}

}  // namespace
