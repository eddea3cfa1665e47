#include "proxy/journal.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <iterator>
#include <map>
#include <utility>

#include "proxy/script.h"

namespace nimbrel::authentication::test {
namespace {

struct Book {
    std::vector<std::string> lines;
    std::function<void(const std::string&)> observer;
    std::map<std::string, std::deque<std::uint32_t>> statuses;
    std::map<std::string, std::optional<std::string>> texts;
};

// Never destroyed: calls are noted to the very end of the process.
Book& TheBook() {
    static Book* book = new Book;
    return *book;
}

__attribute__((format(printf, 1, 0))) std::string Format(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, format, arguments)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

}  // namespace

void Journal::Add(const std::string& line) {
    if (TheBook().observer) TheBook().observer(line);
    TheBook().lines.push_back(line);
}

std::vector<std::string> Journal::Lines() { return TheBook().lines; }

std::vector<std::string> Journal::Lines(const std::string& prefix) {
    std::vector<std::string> found;
    std::copy_if(TheBook().lines.begin(), TheBook().lines.end(), std::back_inserter(found),
                 [&](const std::string& line) { return line.rfind(prefix, 0) == 0; });
    return found;
}

void Journal::WhenAdded(std::function<void(const std::string& line)> observer) {
    TheBook().observer = std::move(observer);
}

void Journal::Clear() {
    TheBook().lines.clear();
    TheBook().observer = nullptr;
}

void Script::Answer(const std::string& operation, const std::vector<std::uint32_t>& statuses) {
    TheBook().statuses[operation].assign(statuses.begin(), statuses.end());
}

void Script::SetText(const std::string& name, const std::optional<std::string>& text) { TheBook().texts[name] = text; }

void Script::Reset() {
    TheBook().statuses.clear();
    TheBook().texts = {{"netbios", "CORP"},
                       {"dns", "corp.test"},
                       {"sid", "S-1-5-21-1-2-3"},
                       {"field2", "FIELD2"},
                       {"field3", "FIELD3"}};
}

}  // namespace nimbrel::authentication::test

using nimbrel::authentication::test::Journal;
using nimbrel::authentication::test::TheBook;

void ScriptWrite(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Journal::Add(nimbrel::authentication::test::Format(format, arguments));
    va_end(arguments);
}

uint32_t ScriptStatus(const char* operation) {
    auto& statuses = TheBook().statuses[operation];
    if (statuses.empty()) return 0;
    const std::uint32_t status = statuses.front();
    statuses.pop_front();
    return status;
}

const char* ScriptText(const char* name) {
    const auto& text = TheBook().texts.at(name);
    return text ? text->c_str() : nullptr;
}
