// What the library writes is what the literal writer writes: bytes, flushes and stream state, for every short text that
// was read, for streams with other settings, and for streams that are full after any number of characters.

#include <gtest/gtest.h>

#include <iomanip>

#include "systemconfiguration/agreement.h"
#include "systemconfiguration/nss_outcome.h"
#include "systemconfiguration/pam_outcome.h"

namespace {

struct Output {
    std::string text;
    std::vector<std::string> flushed;
    std::ios_base::iostate state = std::ios_base::goodbit;
    std::streamsize width = 0;
    std::string error;

    bool operator==(const Output&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Output& output) {
    stream << '"' << Shown(output.text) << "\" state " << output.state << " width " << output.width << ' '
           << output.error;
    for (const std::string& line : output.flushed) stream << "\n  flushed \"" << Shown(line) << '"';
    return stream;
}

template <typename Prepare>
Output OutputOf(const auto& reader, std::size_t room, Prepare prepare) {
    RecordingOutput buffer(room);
    std::ostream stream(&buffer);
    prepare(stream);
    Output output;
    try {
        reader.Write(stream);
    } catch (const std::ios_base::failure& error) {
        output.error = error.what();
    }
    output.text = buffer.Text();
    output.flushed = buffer.Flushed();
    output.state = stream.rdstate();
    output.width = stream.width();
    return output;
}

// A text, read by both readers as far as it can be read.
template <typename Library, typename Literal>
struct Pair {
    explicit Pair(const std::string& text) {
        Read(library, text);
        Read(literal, text);
    }

    static void Read(auto& reader, const std::string& text) {
        std::istringstream stream(text);
        try {
            reader.Read(stream);
        } catch (const std::exception&) {
            // what was read before stays, and is written below
        }
    }

    template <typename Prepare>
    void ExpectSameOutput(std::size_t room, Prepare prepare) const {
        EXPECT_EQ(OutputOf(library, room, prepare), OutputOf(literal, room, prepare)) << "room for " << room;
    }

    Library library;
    Literal literal;
};

using PamPair = Pair<LibraryPamReader, LiteralPamReader>;
using NssPair = Pair<LibraryNssReader, LiteralNssReader>;

const std::string kPolicy =
    "session optional s a\nauth [a b] m p  q\nauth required n\npassword requisite o #\naccount include c\n";
const std::string kSwitch = "hosts: files [A=b c] \ngroup: x y\npasswd: a\nhosts: b\nrpc:  files\nethers: z [p q] r\n";

void LeaveAsItIs(std::ostream&) {}

TEST(WriterAgreement, EveryShortPolicy) {
    const Symbols symbols = {"auth", "account", "required", "[", "]", " ", "\n", "x"};
    AllTexts(symbols, {"session optional m ", "\nauth required m"}).Visit(4, [](const std::string& text) {
        PamPair(text).ExpectSameOutput(kNever, LeaveAsItIs);
        return Visited{!::testing::Test::HasFailure()};
    });
}

TEST(WriterAgreement, EveryShortConfiguration) {
    const Symbols symbols = {"passwd:", "files", "[", "]", " ", "\n", "x"};
    AllTexts(symbols, {"hosts: files ", "\npasswd: y  "}).Visit(4, [](const std::string& text) {
        NssPair(text).ExpectSameOutput(kNever, LeaveAsItIs);
        return Visited{!::testing::Test::HasFailure()};
    });
}

const std::function<void(std::ostream&)> kSettings[] = {
    LeaveAsItIs,
    [](std::ostream& stream) { stream << std::setw(20) << std::setfill('*'); },
    [](std::ostream& stream) { stream << std::setw(20) << std::left; },
    [](std::ostream& stream) { stream << std::setw(-5); },
    [](std::ostream& stream) { stream.exceptions(std::ios_base::badbit); },
    [](std::ostream& stream) { stream.exceptions(std::ios_base::failbit | std::ios_base::eofbit); },
    [](std::ostream& stream) { stream.setstate(std::ios_base::eofbit); },
    [](std::ostream& stream) { stream.setstate(std::ios_base::failbit); },
    [](std::ostream& stream) { stream.setstate(std::ios_base::badbit); },
    [](std::ostream& stream) { stream.imbue(CommaLocale()); },
};

// The stream is full after any number of characters, up to one more than there are.
TEST(WriterAgreement, EverySettingAndEveryRoom) {
    const PamPair policy(kPolicy);
    const NssPair configuration(kSwitch);
    for (const auto& setting : kSettings) {
        for (std::size_t room = 0; room <= kPolicy.size() + 30; ++room) {
            policy.ExpectSameOutput(room, setting);
            configuration.ExpectSameOutput(room, setting);
        }
    }
}

// Each insertion flushes then; how often is not the same, what is written is.
TEST(WriterAgreement, UnitbufWritesTheSameBytes) {
    const auto unitbuf = [](std::ostream& stream) { stream << std::unitbuf; };
    const PamPair policy(kPolicy);
    const NssPair configuration(kSwitch);
    for (std::size_t room = 0; room <= kPolicy.size() + 30; ++room) {
        EXPECT_EQ(OutputOf(policy.library, room, unitbuf).text, OutputOf(policy.literal, room, unitbuf).text);
        EXPECT_EQ(OutputOf(configuration.library, room, unitbuf).text,
                  OutputOf(configuration.literal, room, unitbuf).text);
    }
}

}  // namespace
