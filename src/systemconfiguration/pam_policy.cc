#include "systemconfiguration/pam_policy.h"

#include <algorithm>
#include <cctype>
#include <istream>
#include <utility>

#include "systemconfiguration/names.h"
#include "systemconfiguration/pam_entry_reader.h"
#include "systemconfiguration/pam_names.h"
#include "systemconfiguration/stream_access.h"

namespace SystemConfiguration {
namespace {

// Reads the next comment, or the next rule into its stack, one word after the other.
void ReadNextByWords(std::istream& stream, PAMPolicy& policy) {
    while (std::isspace(stream.peek()) != 0) stream.get();
    // The end of the input is found by looking past it a second time, which leaves failbit beside eofbit.
    const int next = stream.peek();
    if (next == '#') {
        std::string comment;
        std::getline(stream, comment);
    } else if (next != std::istream::traits_type::eof()) {
        PAMFacility facility;
        stream >> facility;
        PAMEntry entry;
        stream >> entry;
        policy[facility].push_back(std::move(entry));
    }
}

// The stacks that have been filled so far, found without a look-up in the policy's map.
class StackFinder {
 public:
    explicit StackFinder(PAMPolicy& policy) : _policy(policy) {}

    PAMStack& operator[](PAMFacility::Facility facility) {
        PAMStack*& stack = _stacks[static_cast<std::size_t>(facility)];
        if (stack == nullptr) stack = &_policy[facility];
        return *stack;
    }

 private:
    PAMPolicy& _policy;
    PAMStack* _stacks[PAMFacility::Session + 1] = {};
};

// One line, without its '\n', that starts at a word. False if it is not a whole rule in itself.
bool ReadRule(std::string_view line, StackFinder& stacks) {
    Words words(line);
    const auto* const facility = FindName(kFacilityNames, words.Next());
    if (facility == nullptr) return false;
    RuleText rule;
    if (!PAMEntryReader::Divide(line.substr(words.Position()), rule)) return false;
    PAMStack& stack = stacks[facility->value];
    PAMEntry& entry = stack.emplace_back();
    try {
        PAMEntryReader::Fill(rule, entry);
    } catch (...) {
        stack.pop_back();  // memory ran out: there is no half rule
        throw;
    }
    return true;
}

// Reads the comments and rules that lie whole in the get area, and consumes them, also when memory runs out. Stops before
// a line that must be read word by word: one that is not there to its end, that the next line completes, or that throws.
void ReadReadyLines(std::streambuf& buffer, StackFinder& stacks) {
    GetArea area(buffer);
    const std::string_view text = area.Text();
    for (;;) {
        const std::size_t start = SkipSpace(text, area.Position());
        area.MoveTo(start);
        const std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) return;
        if (text[start] != '#' && !ReadRule(text.substr(start, end - start), stacks)) return;
        area.MoveTo(end + 1);
    }
}

}  // namespace

// The control is small, and taken by value as the interface has it.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
PAMEntry::PAMEntry(PAMControl control, std::string module) : _control(control), _module(std::move(module)) {}

bool PAMEntry::operator==(const PAMEntry& other) const {
    return static_cast<PAMControl::Control>(_control) == static_cast<PAMControl::Control>(other._control) &&
           _module == other._module && _parameters == other._parameters;
}

std::istream& operator>>(std::istream& stream, PAMEntry& entry) {
    PAMEntryReader::ReadWords(stream, entry);
    return stream;
}

PAMStack::PAMStack(const PAMFacility& facility) : _facility(facility) {}

PAMStack::iterator PAMStack::find(const std::string& module) {
    return std::find_if(begin(), end(), [&](const PAMEntry& entry) { return entry.module() == module; });
}

PAMStack::const_iterator PAMStack::find(const std::string& module) const {
    return std::find_if(begin(), end(), [&](const PAMEntry& entry) { return entry.module() == module; });
}

PAMPolicy::PAMPolicy(const std::string& name) : _name(name) {}
PAMPolicy::~PAMPolicy() = default;

PAMStack& PAMPolicy::operator[](PAMFacility facility) { return _stacks.try_emplace(facility, facility).first->second; }

std::istream& operator>>(std::istream& stream, PAMPolicy& policy) {
    const bool plain = IsClassicLocale() && HasPlainSettings(stream) && stream.rdbuf() != nullptr;
    StackFinder stacks(policy);
    while (!stream.fail()) {
        if (plain && stream.good()) ReadReadyLines(*stream.rdbuf(), stacks);
        ReadNextByWords(stream, policy);
    }
    return stream;
}

}  // namespace SystemConfiguration
