// Whatever a provider or a file has told the tool: as JSON the answer can be parsed and says the same, as text it has
// the lines that it was to have and nothing that a terminal would act on.
//
// Input: values as fields; the last one is a failure's message.

#include <nlohmann/json.hpp>

#include "fuzz.h"
#include "tools/nimauthctl/report.h"

namespace {

using fuzzing::Require;
using nimbrel::nimauthctl::Failure;
using nimbrel::nimauthctl::Report;
using Json = nlohmann::json;

bool IsUtf8(const std::string& text) {
    try {
        static_cast<void>(Json(text).dump());
        return true;
    } catch (const Json::type_error&) {
        return false;
    }
}

bool Says(const Json& value, const std::string& text) {
    return value.is_string() && (!IsUtf8(text) || value.get<std::string>() == text);
}

void CheckText(const std::string& text, std::size_t lines) {
    std::size_t found = 0;
    for (const char c : text) {
        found += c == '\n' ? 1 : 0;
        Require(c == '\n' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7f), "no control character gets through");
    }
    Require(found == lines, "a value is no line of its own");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::Input input(data, size);
    const std::string name = input.Field();
    const std::string user = input.Field();
    const std::string words = input.Field();
    const std::string note = input.Field();
    const std::string message = input.Rest();

    Report report;
    report.Text("domain name", name);
    report.Text("controller", words);
    report.AddRow("user", "users", user).Text("full name", name).Flag("locked", true);
    report.Note(note);
    CheckText(report.AsText(), 4);
    report.AddFailure({"E", 5, message, name, words, user});

    const Json json = Json::parse(report.AsJson());
    Require(json["schema"] == 1 && Says(json["domainName"], name) && Says(json["controller"], words), "values");
    Require(json["users"].size() == 1 && Says(json["users"][0]["fullName"], name), "rows");
    Require(Says(json["errors"][0]["message"], message) && Says(json["notes"][0], note), "failures and remarks");
    const Json failure = Json::parse(nimbrel::nimauthctl::FailureAsJson({"E", 5, message, name, words, user}));
    Require(Says(failure["error"]["message"], message), "a failure alone");
    return 0;
}
