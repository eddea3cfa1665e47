// Taking results from a plug-in: copy, then give back through the plug-in's own release function, in that order, on
// every way out.

#ifndef NIMAUTH_ACTIVEDIRECTORY_PLUGIN_RESULTS_H_
#define NIMAUTH_ACTIVEDIRECTORY_PLUGIN_RESULTS_H_

#include <cxxabi.h>

#include <string>

#include "authentication/provider_abi.h"

namespace nimbrel::authentication {

// A null result is not released; a null release function is not called.
inline void Release(void* result, NimauthRelease release) {
    if (result != nullptr && release != nullptr) release(result);
}

// What `copy` makes of results that `giveBack` gives back afterwards, also when copying throws. What the release function
// throws goes to the caller, who may be a worker that must not take the process down.
template <typename Copy, typename GiveBack>
auto CopyThenGiveBack(const Copy& copy, const GiveBack& giveBack) -> decltype(copy()) {
    auto copied = [&] {
        try {
            return copy();
        } catch (const abi::__forced_unwind&) {
            throw;  // the plug-in is ending the thread, so it is not called again
        } catch (...) {
            giveBack();
            throw;
        }
    }();
    giveBack();
    return copied;
}

template <typename Copy>
auto TakeResult(void* result, NimauthRelease release, const Copy& copy) -> decltype(copy()) {
    return CopyThenGiveBack(copy, [result, release] { Release(result, release); });
}

// Null reads as the empty text.
inline std::string TextOrEmpty(const char* text) { return text == nullptr ? std::string() : std::string(text); }

// Copies a text and gives it back.
inline std::string TakeText(char* text, NimauthRelease release) {
    return TakeResult(text, release, [text] { return TextOrEmpty(text); });
}

// Copies a null-terminated array of texts and gives it back as a whole; null reads as no texts.
template <typename Container>
Container TakeTexts(char** texts, NimauthRelease release) {
    return TakeResult(texts, release, [texts] {
        Container copies;
        for (char** text = texts; text != nullptr && *text != nullptr; ++text) copies.emplace_back(*text);
        return copies;
    });
}

// Fills `pointers`, which has room for one more than there are texts, with the strings' own characters and a null.
template <typename Container>
void FillTextPointers(const Container& texts, const char** pointers) {
    for (const std::string& text : texts) *pointers++ = text.c_str();
    *pointers = nullptr;
}

}  // namespace nimbrel::authentication

#endif  // NIMAUTH_ACTIVEDIRECTORY_PLUGIN_RESULTS_H_
