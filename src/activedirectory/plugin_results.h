// Taking results from a plug-in: copy, then give back through the plug-in's own release function, in that order, on
// every way out.

#ifndef NIMAUTH_ACTIVEDIRECTORY_PLUGIN_RESULTS_H_
#define NIMAUTH_ACTIVEDIRECTORY_PLUGIN_RESULTS_H_

#include <cstddef>
#include <memory>
#include <string>

#include "authentication/provider_abi.h"

namespace nimbrel::authentication {

// Releases one result of a plug-in when it goes out of scope, also when copying the result throws. A null result is not
// released; a null release function is not called.
class PluginResult {
 public:
    PluginResult(void* result, NimauthRelease release) : _result(result), _release(release) {}
    PluginResult(const PluginResult&) = delete;
    PluginResult& operator=(const PluginResult&) = delete;
    ~PluginResult() {
        if (_result != nullptr && _release != nullptr) _release(_result);
    }

 private:
    void* _result;
    NimauthRelease _release;
};

// Null reads as the empty text.
inline std::string TextOrEmpty(const char* text) { return text == nullptr ? std::string() : std::string(text); }

// Copies a text and gives it back.
inline std::string TakeText(char* text, NimauthRelease release) {
    const PluginResult result(text, release);
    return TextOrEmpty(text);
}

// Copies a null-terminated array of texts and gives it back as a whole; null reads as no texts.
template <typename Container>
Container TakeTexts(char** texts, NimauthRelease release) {
    const PluginResult result(texts, release);
    Container copies;
    for (char** text = texts; text != nullptr && *text != nullptr; ++text) copies.emplace_back(*text);
    return copies;
}

// Fills `pointers`, which has room for one more than there are texts, with the strings' own characters and a null.
template <typename Container>
void FillTextPointers(const Container& texts, const char** pointers) {
    for (const std::string& text : texts) *pointers++ = text.c_str();
    *pointers = nullptr;
}

}  // namespace nimbrel::authentication

#endif  // NIMAUTH_ACTIVEDIRECTORY_PLUGIN_RESULTS_H_
