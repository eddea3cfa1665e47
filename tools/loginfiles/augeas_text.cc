#include "tools/loginfiles/augeas_text.h"

#include <augeas.h>

#include <algorithm>
#include <cstdlib>

#include "tools/loginfiles/logins_error.h"

namespace nimbrel::logins {
namespace {

constexpr char kTree[] = "/text";
constexpr char kInput[] = "/input";
constexpr char kOutput[] = "/output";

// libaugeas ends a text at a null character, and marks places in its own texts with the four bytes behind it: it ends
// the process when it meets them where it expects its own.
void RequireOrdinary(const std::string& text, const std::string& what) {
    const bool ordinary = std::none_of(text.begin(), text.end(), [](char c) { return c >= '\0' && c <= '\4'; });
    if (ordinary) return;
    throw LoginsError(LoginsError::Kind::Refused, "libaugeas cannot " + what + ": it holds a control character");
}

}  // namespace

void AugeasText::Close::operator()(augeas* handle) const { aug_close(handle); }

AugeasText::AugeasText(const std::string& lens, const std::string& text)
    : _augeas(aug_init("/dev/null", nullptr, AUG_NO_MODL_AUTOLOAD | AUG_NO_LOAD | AUG_NO_ERR_CLOSE)), _lens(lens) {
    if (_augeas == nullptr || aug_error(_augeas.get()) != AUG_NOERROR) {
        throw LoginsError(LoginsError::Kind::System, "libaugeas cannot be used", "see that its lenses are installed");
    }
    RequireOrdinary(text, "read the file");
    // The lenses want a line end behind the last line.
    _endAdded = !text.empty() && !text.ends_with('\n');
    Check(aug_set(_augeas.get(), kInput, (text + (_endAdded ? "\n" : "")).c_str()) == 0, "store the text");
    Check(aug_text_store(_augeas.get(), _lens.c_str(), kInput, kTree) == 0, "read the file");
}

// With the line and the reason where libaugeas knows them.
void AugeasText::Check(bool good, const std::string& what) const {
    if (good) return;
    const char* line = nullptr;
    const char* message = nullptr;
    aug_get(_augeas.get(), (std::string("/augeas/text") + kTree + "/error/line").c_str(), &line);
    aug_get(_augeas.get(), (std::string("/augeas/text") + kTree + "/error/message").c_str(), &message);
    std::string text = "libaugeas cannot " + what;
    if (line != nullptr) text += ", line " + std::string(line);
    if (message != nullptr) text += ": " + std::string(message);
    if (message == nullptr && aug_error(_augeas.get()) != AUG_NOERROR) {
        text += std::string(": ") + aug_error_message(_augeas.get());
    }
    throw LoginsError(LoginsError::Kind::Refused, text);
}

std::string AugeasText::Full(const std::string& path) const {
    return path.starts_with('/') ? path : std::string(kTree) + '/' + path;
}

std::vector<std::string> AugeasText::Match(const std::string& path) const {
    char** found = nullptr;
    const int count = aug_match(_augeas.get(), Full(path).c_str(), &found);
    Check(count >= 0, "search for " + path);
    std::vector<std::string> paths;
    for (int index = 0; index < count; ++index) {
        paths.emplace_back(found[index]);
        std::free(found[index]);
    }
    std::free(found);
    return paths;
}

std::string AugeasText::Value(const std::string& path) const {
    const char* value = nullptr;
    Check(aug_get(_augeas.get(), Full(path).c_str(), &value) >= 0, "look at " + path);
    return value == nullptr ? "" : value;
}

void AugeasText::Set(const std::string& path, const std::string& value) {
    RequireOrdinary(value, "set " + path);
    Check(aug_set(_augeas.get(), Full(path).c_str(), value.c_str()) == 0, "set " + path);
}

void AugeasText::InsertBefore(const std::string& path, const std::string& label) {
    Check(aug_insert(_augeas.get(), Full(path).c_str(), label.c_str(), 1) == 0, "insert before " + path);
}

void AugeasText::InsertBehind(const std::string& path, const std::string& label) {
    Check(aug_insert(_augeas.get(), Full(path).c_str(), label.c_str(), 0) == 0, "insert behind " + path);
}

void AugeasText::Remove(const std::string& path) {
    Check(aug_rm(_augeas.get(), Full(path).c_str()) > 0, "remove " + path);
}

std::string AugeasText::Text() {
    Check(aug_text_retrieve(_augeas.get(), _lens.c_str(), kInput, kTree, kOutput) == 0, "write the file");
    std::string text = Value(kOutput);
    if (_endAdded && text.ends_with('\n')) text.pop_back();
    return text;
}

}  // namespace nimbrel::logins
