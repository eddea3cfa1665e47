// The report as a JSON object.

#include <nlohmann/json.hpp>

#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

using Json = nlohmann::ordered_json;

// What every object begins with. A change that breaks a reader raises the number.
Json NewObject() { return Json{{"schema", 1}}; }

std::string Dump(const Json& object) { return object.dump(2, ' ', false, Json::error_handler_t::replace) + '\n'; }

struct ScalarJson {
    Json operator()(std::monostate) const { return nullptr; }
    Json operator()(bool value) const { return value; }
    Json operator()(std::int64_t value) const { return value; }
    Json operator()(const std::string& value) const { return value; }
};

Json ToJson(const Scalar& value) { return std::visit(ScalarJson(), value); }

Json ToJson(const Row& row) {
    Json object = Json::object();
    for (const auto& [name, value] : row.Values()) object[JsonName(name)] = ToJson(value);
    if (row.IsStale()) object["stale"] = true;
    return object;
}

Json ToJson(const Failure& failure) {
    const auto orNull = [](const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); };
    return {{"exception", failure.exception}, {"code", failure.code},           {"message", failure.message},
            {"where", orNull(failure.where)}, {"cause", orNull(failure.cause)}, {"remedy", orNull(failure.remedy)},
            {"log", orNull(failure.log)}};
}

}  // namespace

class ReportJson {
 public:
    static Json Of(const Report& report) {
        Json object = NewObject();
        Json stale = Json::array();
        for (const Report::Entry& entry : report._entries) {
            Put(entry, object);
            if (entry.stale) stale.push_back(JsonName(entry.label));
        }
        if (!stale.empty()) object["stale"] = stale;
        if (!report._notes.empty()) object["notes"] = report._notes;
        for (const Failure& failure : report._failures) object["errors"].push_back(ToJson(failure));
        return object;
    }

 private:
    static void Put(const Report::Entry& entry, Json& object) {
        const std::string name = JsonName(entry.label);
        Json& value = object[name] = nullptr;
        if (const auto* scalar = std::get_if<Scalar>(&entry.value)) {
            value = ToJson(*scalar);
        } else if (const auto* list = std::get_if<Report::ListValue>(&entry.value)) {
            if (entry.stale && list->rows.empty()) return;  // nothing is known, which is not the same as nothing
            value = Json::array();
            for (const Row& row : list->rows) value.push_back(ToJson(row));
        } else if (const auto* coded = std::get_if<Report::CodedValue>(&entry.value)) {
            value = coded->value;
            object[name + "Text"] = coded->words;
        } else if (const auto* verbatim = std::get_if<Report::VerbatimValue>(&entry.value)) {
            value = verbatim->text;
        }
    }
};

std::string Report::AsJson() const { return Dump(ReportJson::Of(*this)); }

std::string FailureAsJson(const Failure& failure) {
    Json object = NewObject();
    object["error"] = ToJson(failure);
    return Dump(object);
}

std::string JsonText(std::string_view text) { return Json(text).dump(-1, ' ', false, Json::error_handler_t::replace); }

std::string JsonName(std::string_view label) {
    std::string name;
    bool upper = false;
    for (const char c : label) {
        if (c == ' ' || c == '-') {
            upper = true;
        } else {
            name += upper && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
            upper = false;
        }
    }
    return name;
}

}  // namespace nimbrel::nimauthctl
