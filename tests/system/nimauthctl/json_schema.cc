#include "json_schema.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

namespace nimbrel::testing {
namespace {

using Json = nlohmann::json;

bool IsOfType(const Json& value, const std::string& type) {
    if (type == "integer") return value.is_number_integer();
    if (type == "null") return value.is_null();
    return type == value.type_name();  // "object", "array", "string", "boolean"
}

bool IsOfTypes(const Json& value, const Json& types) {
    if (types.is_string()) return IsOfType(value, types);
    return std::any_of(types.begin(), types.end(), [&](const Json& type) { return IsOfType(value, type); });
}

void RequireKnownWords(const Json& schema) {
    static const std::set<std::string> kKnown = {
        "$schema",    "title",    "description",         "$defs", "$ref", "anyOf", "type", "const", "enum", "items",
        "properties", "required", "additionalProperties"};
    for (const auto& [word, value] : schema.items()) {
        if (!kKnown.contains(word)) throw std::runtime_error("unknown word in a schema: " + word);
    }
}

}  // namespace

std::string SchemaFolder::Check(const std::string& file, const Json& value) {
    return Against(file, Load(file), value, "result");
}

std::string SchemaFolder::CheckOutput(const std::vector<std::string>& words, const std::string& output) {
    const Json object = Json::parse(output, nullptr, false);
    if (!object.is_object()) return "no object: " + output;
    std::string name;
    for (const std::string& word : words) {
        name += (name.empty() ? "" : "-") + word;
        if (Has(name + ".json")) return Check(name + ".json", object);
    }
    return "there is no schema for " + name;
}

bool SchemaFolder::Has(const std::string& file) const { return std::filesystem::exists(_path + '/' + file); }

std::string SchemaFolder::Against(const std::string& file, const Json& schema, const Json& value,
                                  const std::string& where) {
    RequireKnownWords(schema);
    if (schema.contains("$ref")) {
        const std::string reference = schema["$ref"];
        const std::size_t mark = reference.find('#');
        const std::string target = mark == 0 ? file : reference.substr(0, mark);
        return Against(target, Load(target).at(Json::json_pointer(reference.substr(mark + 1))), value, where);
    }
    if (schema.contains("anyOf")) {
        std::string problems;
        for (const Json& choice : schema["anyOf"]) {
            const std::string problem = Against(file, choice, value, where);
            if (problem.empty()) return "";
            problems += (problems.empty() ? "" : "; or ") + problem;
        }
        return problems;
    }
    if (schema.contains("type") && !IsOfTypes(value, schema["type"])) {
        return where + " is " + value.dump() + ", not of type " + schema["type"].dump();
    }
    if (schema.contains("const") && value != schema["const"]) return where + " is not " + schema["const"].dump();
    if (schema.contains("enum") &&
        std::find(schema["enum"].begin(), schema["enum"].end(), value) == schema["enum"].end()) {
        return where + " is " + value.dump() + ", not one of " + schema["enum"].dump();
    }
    if (value.is_array() && schema.contains("items")) {
        for (std::size_t at = 0; at < value.size(); ++at) {
            const std::string problem =
                Against(file, schema["items"], value[at], where + '[' + std::to_string(at) + ']');
            if (!problem.empty()) return problem;
        }
    }
    return value.is_object() ? AgainstObject(file, schema, value, where) : "";
}

std::string SchemaFolder::AgainstObject(const std::string& file, const Json& schema, const Json& value,
                                        const std::string& where) {
    for (const Json& name : schema.value("required", Json::array())) {
        if (!value.contains(name.get<std::string>())) return where + " lacks " + name.dump();
    }
    const Json properties = schema.value("properties", Json::object());
    for (const auto& [name, member] : value.items()) {
        if (!properties.contains(name)) {
            if (!schema.value("additionalProperties", true)) return where + " has " + name + ", which is not described";
            continue;
        }
        const std::string problem = Against(file, properties[name], member, where + '.' + name);
        if (!problem.empty()) return problem;
    }
    return "";
}

const Json& SchemaFolder::Load(const std::string& file) {
    const auto found = _files.find(file);
    if (found != _files.end()) return found->second;
    std::ifstream stream(_path + '/' + file);
    Json schema = Json::parse(stream, nullptr, false);
    if (schema.is_discarded()) throw std::runtime_error("no schema: " + _path + '/' + file);
    return _files.emplace(file, std::move(schema)).first->second;
}

}  // namespace nimbrel::testing
