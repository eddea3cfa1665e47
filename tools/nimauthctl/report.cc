#include "tools/nimauthctl/report.h"

#include <algorithm>

namespace nimbrel::nimauthctl {

Row& Row::Add(std::string_view name, Scalar value) {
    _values.emplace_back(name, std::move(value));
    return *this;
}

Row& Row::Stale() {
    _stale = true;
    return *this;
}

void Report::Add(std::string_view label, Scalar value) { _entries.push_back({std::string(label), std::move(value)}); }

void Report::TextOrNone(std::string_view label, std::string_view value) {
    if (value.empty()) {
        None(label);
    } else {
        Text(label, value);
    }
}

void Report::Coded(std::string_view label, std::int64_t value, std::string_view words) {
    _entries.push_back({std::string(label), CodedValue{value, std::string(words)}});
}

void Report::List(std::string_view rowLabel, std::string_view label) {
    _entries.push_back({std::string(label), ListValue{std::string(rowLabel), {}}});
}

void Report::Verbatim(std::string_view label, std::string_view text) {
    _entries.push_back({std::string(label), VerbatimValue{std::string(text)}});
}

Row& Report::AddRow(std::string_view rowLabel, std::string_view label, std::string_view headline) {
    if (Find(label) == nullptr) List(rowLabel, label);
    Row& row = std::get<ListValue>(Find(label)->value).rows.emplace_back();
    return row.Text(rowLabel, headline);
}

void Report::MarkStale(std::string_view label) {
    if (Entry* const entry = Find(label)) entry->stale = true;
}

void Report::Unavailable(std::string_view label, const Failure& failure) {
    _entries.push_back({std::string(label), UnavailableValue{}});
    AddFailure(failure);
}

void Report::AddFailure(const Failure& failure) {
    if (std::find(_failures.begin(), _failures.end(), failure) == _failures.end()) _failures.push_back(failure);
}

bool Report::HasStale() const {
    return std::any_of(_entries.begin(), _entries.end(), [](const Entry& entry) {
        if (entry.stale) return true;
        const auto* const list = std::get_if<ListValue>(&entry.value);
        return list != nullptr &&
               std::any_of(list->rows.begin(), list->rows.end(), [](const Row& row) { return row.IsStale(); });
    });
}

Report::Entry* Report::Find(std::string_view label) {
    const auto found =
        std::find_if(_entries.begin(), _entries.end(), [&](const Entry& entry) { return entry.label == label; });
    return found == _entries.end() ? nullptr : &*found;
}

}  // namespace nimbrel::nimauthctl
