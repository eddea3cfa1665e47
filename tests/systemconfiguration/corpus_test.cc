// The login files of real systems: what the documents in docs/formats say of each, and what the literal readers make of
// it, is what the library does. The corpora of the fuzzers are read alike.

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "systemconfiguration/documented_rows.h"
#include "systemconfiguration/nss_outcome.h"
#include "systemconfiguration/pam_outcome.h"
#include "systemconfiguration/same_reading.h"

namespace {

using Texts = std::map<std::string, std::string>;
using Words = std::vector<std::string>;

const std::filesystem::path kFiles = std::filesystem::path(SOURCES) / "tests/systemconfiguration/corpus";
const std::filesystem::path kFormats = std::filesystem::path(SOURCES) / "docs/formats";
const std::filesystem::path kFuzzing = std::filesystem::path(SOURCES) / "fuzz/corpus";

Words Lines(const std::string& text) {
    Words lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

std::string Joined(const Words& words, const std::string& separator) {
    std::string joined;
    for (const std::string& word : words) joined += (joined.empty() ? "" : separator) + word;
    return joined;
}

// "| `file` | accepted | 4 rules | 2 comments |" or "| `file` | `Invalid Facility: @include` | 4 rules | line 7 on |".
std::string PamRow(const std::string& name, const std::string& text) {
    const Outcome outcome = OutcomeOf<LibraryPamReader>(Source{text});
    const auto rules = std::count(outcome.model.begin(), outcome.model.end(), '{');
    std::ostringstream row;
    row << "| `" << name << "` | ";
    if (!outcome.error.empty()) {
        const auto read = text.begin() + static_cast<std::ptrdiff_t>(outcome.position);
        row << '`' << outcome.error.substr(outcome.error.find(": ") + 2) << "` | " << rules << " | line "
            << 1 + std::count(text.begin(), read, '\n') << " on |";
        return row.str();
    }
    const Words lines = Lines(text);
    const auto isComment = [](const std::string& line) { return line[line.find_first_not_of(" \t")] == '#'; };
    const auto comments = std::count_if(lines.begin(), lines.end(),
                                        [&](const std::string& line) { return !line.empty() && isComment(line); });
    row << "accepted | " << rules << " |";
    if (comments > 0) row << ' ' << comments << (comments == 1 ? " comment" : " comments");
    if (outcome.model.find("|#") != std::string::npos) row << ", one more read as parameters";
    row << " |";
    return row.str();
}

// The services of each line as nsswitch.conf(5) has them: comments and brackets are no services.
std::vector<std::pair<std::string, Words>> MeantServices(const std::string& text) {
    std::vector<std::pair<std::string, Words>> meant;
    for (std::string line : Lines(text)) {
        line = line.substr(0, line.find('#'));
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        std::string name;
        std::istringstream(line.substr(0, colon)) >> name;
        std::string services = line.substr(colon + 1);
        for (std::size_t open; (open = services.find('[')) != std::string::npos;) {
            services.replace(open, services.find(']', open) - open + 1, " ");
        }
        Words words;
        std::istringstream stream(services);
        for (std::string word; stream >> word;) words.push_back(word);
        meant.emplace_back(name, words);
    }
    return meant;
}

// The words of one list that are not in the other.
Words Missing(const Words& words, const Words& list) {
    Words missing;
    std::copy_if(words.begin(), words.end(), std::back_inserter(missing),
                 [&](const std::string& word) { return std::find(list.begin(), list.end(), word) == list.end(); });
    return missing;
}

Words Modules(std::deque<SystemConfiguration::NSSService>& services) {
    Words modules;
    for (const auto& service : services) modules.push_back(service.module());
    return modules;
}

// A line's part of a table cell: "hosts: dns mdns".
void AddWords(Words& cell, const std::string& database, const Words& words) {
    if (!words.empty()) cell.push_back(database + ": " + Joined(words, " "));
}

// "| `file` | accepted | databases not known | services lost | words that are no services |", or with the exception.
std::string NssRow(const std::string& name, const std::string& text) {
    SystemConfiguration::NSSConfiguration configuration;
    std::istringstream stream(text);
    std::string outcome = "accepted";
    try {
        stream >> configuration;
    } catch (const std::out_of_range&) {
        outcome = "`std::out_of_range`";
    }
    Words unknown;
    Words lost;
    Words wrong;
    for (const auto& [database, meant] : MeantServices(text)) {
        try {
            const Words read = Modules(configuration[database]);
            AddWords(lost, database, Missing(meant, read));
            AddWords(wrong, database, Missing(read, meant));
        } catch (const SystemConfiguration::InvalidDatabaseException&) {
            unknown.push_back(database);
        }
    }
    std::string row = "| `" + name + "` | " + outcome + " |";
    for (const Words& cell : {Words{Joined(unknown, ", ")}, lost, wrong}) {
        const std::string words = Joined(cell, "; ");
        row += words.empty() ? " |" : " " + words + " |";
    }
    return row;
}

void ExpectDocumented(const Texts& files, const std::string& document,
                      std::string (*rowOf)(const std::string&, const std::string&)) {
    Texts documented = DocumentedRows(kFormats / document);
    for (const auto& [name, text] : files) {
        EXPECT_EQ(documented[name], rowOf(name, text));
        documented.erase(name);
    }
    EXPECT_TRUE(documented.empty()) << "no such file: " << documented.begin()->first;
}

TEST(Corpus, EveryPolicyIsDocumented) { ExpectDocumented(ReadFolder(kFiles / "pam"), "pam-policy.md", PamRow); }

TEST(Corpus, EveryConfigurationIsDocumented) {
    ExpectDocumented(ReadFolder(kFiles / "nss"), "nss-configuration.md", NssRow);
}

TEST(Corpus, HoldsTheFilesOfManyPackages) {
    std::map<std::string, int> packages;
    for (const std::string folder : {"pam", "nss"}) {
        for (const auto& [name, text] : ReadFolder(kFiles / folder)) {
            if (name.rfind("debian_", 0) == 0) ++packages[name.substr(7, name.find('_', 7) - 7)];
        }
    }
    packages.erase("generated");
    packages.erase("desktop");
    EXPECT_GE(packages.size(), 25U);
}

template <typename Library, typename Literal>
void ExpectAgreement(const std::filesystem::path& folder, std::size_t atLeast) {
    const Texts files = ReadFolder(folder);
    EXPECT_GE(files.size(), atLeast);
    for (const auto& [name, text] : files) {
        std::ostringstream log;
        EXPECT_TRUE((SameReading<Library, Literal>(text, log))) << name << ": " << log.str();
    }
}

TEST(Corpus, PoliciesReadAsTheLiteralReaderReadsThem) {
    ExpectAgreement<LibraryPamReader, LiteralPamReader>(kFiles / "pam", 60);
    ExpectAgreement<LibraryPamReader, LiteralPamReader>(kFuzzing / "pam_policy", 25);
}

TEST(Corpus, ConfigurationsReadAsTheLiteralReaderReadsThem) {
    ExpectAgreement<LibraryNssReader, LiteralNssReader>(kFiles / "nss", 10);
    ExpectAgreement<LibraryNssReader, LiteralNssReader>(kFuzzing / "nss_configuration", 27);
}

// What was read as a whole, is written and read again, is what it was.
TEST(Corpus, WrittenPoliciesReadBack) {
    for (const auto& [name, text] : ReadFolder(kFiles / "pam")) {
        LibraryPamReader first;
        std::istringstream stream(text);
        try {
            first.Read(stream);
        } catch (const std::exception&) {
            continue;  // the table above tells which
        }
        std::stringstream written;
        first.Write(written);
        LibraryPamReader second;
        second.Read(written);
        EXPECT_EQ(second.Model(), first.Model()) << name;
    }
}

}  // namespace
