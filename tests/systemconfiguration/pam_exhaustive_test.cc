// Every short PAM policy text reads the same to the library as to the literal reader: result, exception, stream state,
// and place of the unread rest.

#include "systemconfiguration/agreement.h"
#include "systemconfiguration/pam_outcome.h"

namespace {

using PamAgreement = Agreement<LibraryPamReader, LiteralPamReader>;

const Symbols kSymbols = {"auth", "account", "required", "[", "]", "#", " ", "\t", "\n", "x", "\r", "-"};

// What stands before, and behind, is a whole rule, a broken one, an open bracket.
const Frame kFrames[] = {{"auth required m p\n", "\naccount include x y\n"},
                         {"auth ", "\naccount include x y\n"},
                         {"auth [", "] m\n"},
                         {"auth [x\n", "\naccount [y] m"},
                         {"session\toptional\tm\t", "auth required m"}};

class PamExhaustiveFrom : public ::testing::TestWithParam<std::string_view> {};

TEST_P(PamExhaustiveFrom, EveryTextAndShorterOnesInSlices) {
    PamAgreement::OnSlices(kSymbols, EXHAUSTIVE_LENGTH - 2, {GetParam(), ""});
    PamAgreement::OnText(kSymbols, EXHAUSTIVE_LENGTH - 1, {GetParam(), ""});
}

INSTANTIATE_TEST_SUITE_P(EverySymbol, PamExhaustiveFrom, ::testing::ValuesIn(kSymbols));

TEST(PamExhaustive, EveryTextInsideFrames) {
    for (const Frame& frame : kFrames) PamAgreement::OnSlices(kSymbols, EXHAUSTIVE_LENGTH - 2, frame);
}

TEST(PamExhaustive, EveryTwoCharacters) { PamAgreement::OnPairs({"auth required m", " parameter\n"}); }

TEST(PamExhaustive, EveryStreamSetting) {
    PamAgreement::OnSettings({"auth", "required", "[", "]", "#", " ", "\n", ",", "\v"}, EXHAUSTIVE_LENGTH - 3,
                             {"session optional m\n", "auth required m\n"});
}

TEST(PamExhaustive, EveryTextWithAnotherGlobalLocale) {
    const GlobalLocale comma(CommaLocale());
    const Symbols symbols = {"auth", "required", "[", "]", " ", "\n", ",", "\v"};
    PamAgreement::OnText(symbols, EXHAUSTIVE_LENGTH - 1);
    PamAgreement::OnText(symbols, EXHAUSTIVE_LENGTH - 2, {"auth required m ", "\n"});
}

TEST(PamExhaustive, ReadErrorAtEveryPlace) {
    PamAgreement::OnReadErrors(kSymbols, EXHAUSTIVE_LENGTH - 2);
    PamAgreement::OnReadErrors(kSymbols, EXHAUSTIVE_LENGTH - 4, {"auth [x y] m p q\n", " required m x\nauth a"});
}

}  // namespace
