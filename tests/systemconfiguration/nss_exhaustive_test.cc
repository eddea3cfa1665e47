// Every short name-service switch text reads the same to the library as to the literal reader: result, exception,
// stream state, and place of the unread rest.

#include "systemconfiguration/agreement.h"
#include "systemconfiguration/nss_outcome.h"

namespace {

using NssAgreement = Agreement<LibraryNssReader, LiteralNssReader>;

const Symbols kSymbols = {"passwd:", "hosts:", "files", "[", "]", " ", "\n", "#", "x", ":", "\r", "\v"};

// The last is long enough behind the bracket for the jump to land inside the line.
const Frame kFrames[] = {{"passwd: ", "\nhosts: files x\n"},
                         {"hosts: files ", "] x"},
                         {"hosts: a [b", " d e"},
                         {"hosts: a", " b c d e f g h i j k l m n o p q r s [t u] v w "}};

class NssExhaustiveFrom : public ::testing::TestWithParam<std::string_view> {};

TEST_P(NssExhaustiveFrom, EveryTextAndShorterOnesInSlices) {
    NssAgreement::OnSlices(kSymbols, EXHAUSTIVE_LENGTH - 2, {GetParam(), ""});
    NssAgreement::OnText(kSymbols, EXHAUSTIVE_LENGTH - 1, {GetParam(), ""});
}

INSTANTIATE_TEST_SUITE_P(EverySymbol, NssExhaustiveFrom, ::testing::ValuesIn(kSymbols));

TEST(NssExhaustive, EveryTextInsideFrames) {
    for (const Frame& frame : kFrames) NssAgreement::OnSlices(kSymbols, EXHAUSTIVE_LENGTH - 2, frame);
}

TEST(NssExhaustive, EveryTwoCharacters) { NssAgreement::OnPairs({"hosts: f", " service\n"}); }

TEST(NssExhaustive, EveryStreamSetting) {
    NssAgreement::OnSettings({"hosts:", "files", "[", "]", " ", "\n", ",", "\v"}, EXHAUSTIVE_LENGTH - 3,
                             {"passwd: files\n", "\nhosts: files "});
}

TEST(NssExhaustive, EveryTextWithAnotherGlobalLocale) {
    const GlobalLocale comma(CommaLocale());
    const Symbols symbols = {"hosts:", "files", "[", "]", " ", "\n", ",", "\v"};
    NssAgreement::OnText(symbols, EXHAUSTIVE_LENGTH - 1);
    NssAgreement::OnText(symbols, EXHAUSTIVE_LENGTH - 2, {"hosts: a ", " b c d e f g h i j k l m n [o,p] q"});
}

TEST(NssExhaustive, ReadErrorAtEveryPlace) {
    NssAgreement::OnReadErrors(kSymbols, EXHAUSTIVE_LENGTH - 2);
    NssAgreement::OnReadErrors(kSymbols, EXHAUSTIVE_LENGTH - 4, {"hosts: files [x y]\n", " files\nhosts: x "});
}

}  // namespace
