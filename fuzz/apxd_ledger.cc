// Any ledger reads to what a plain reader makes of it, is written anew when it is opened, and then is the same each
// time.

#include <map>
#include <sstream>
#include <vector>

#include "fuzz.h"
#include "services/apxd/ledger.h"

namespace {

using fuzzing::Require;
using nimbrel::apxd::Ledger;

struct Literal {
    std::map<std::pair<std::string, std::string>, Ledger::Entry> entries;
    bool good = true;
};

Literal Read(const std::string& text) {
    Literal literal;
    std::istringstream lines(text);
    std::string line;
    literal.good =
        text.empty() ? false : static_cast<bool>(std::getline(lines, line)) && line == "nimbrel-apxd ledger 1";
    while (literal.good && std::getline(lines, line) && !lines.eof()) {
        std::istringstream words(line);
        std::string kind;
        std::string name;
        std::string client;
        Ledger::Entry entry;
        words >> kind >> name >> client;
        entry.takenOver = kind == "T";
        const bool isEntry = (kind == "H" || kind == "T") && words >> entry.mark >> entry.time;
        literal.good = isEntry || (kind == "F" && !client.empty());
        if (isEntry) literal.entries[{name, client}] = entry;
        if (kind == "F") literal.entries.erase({name, client});
    }
    return literal;
}

bool Opens(const std::string& path, const Literal& literal) {
    try {
        const Ledger ledger(path);
        for (const auto& [key, entry] : literal.entries) {
            const auto found = ledger.Find(key.first, key.second);
            Require(
                found && found->mark == entry.mark && found->time == entry.time && found->takenOver == entry.takenOver,
                "every entry is there");
            if (entry.takenOver) Require(!ledger.TakenOverBy(key.first).empty(), "an account knows who took it over");
        }
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const fuzzing::ScratchFolder folder;
    static const std::string path = folder / "ledger";
    const std::string text = fuzzing::Input(data, size).Rest();
    const Literal literal = Read(text);
    fuzzing::WriteFile(path, text);
    Require(Opens(path, literal) == literal.good, "the same texts are ledgers");
    const std::string written = fuzzing::ReadFile(path);
    Require(literal.good || written == text, "what is no ledger is left alone");
    if (!literal.good) return 0;
    Require(Read(written).entries.size() == literal.entries.size(), "nothing else is in it");
    Require(Opens(path, literal) && fuzzing::ReadFile(path) == written, "opened again it is the same");
    return 0;
}
