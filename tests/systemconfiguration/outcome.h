// What reading a text from a stream comes to, in a form that can be compared.

#ifndef NIMAUTH_TESTS_SYSTEMCONFIGURATION_OUTCOME_H_
#define NIMAUTH_TESTS_SYSTEMCONFIGURATION_OUTCOME_H_

#include <exception>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>

#include "systemconfiguration/stream_buffers.h"

struct Outcome {
    std::string model;  // everything that was read, as the reader's `Model` tells it
    std::string error;  // the class and text of the exception; empty where there was none
    std::ios_base::iostate state = std::ios_base::goodbit;
    std::size_t position = 0;  // of the first character that was left unread
    std::streamsize lastCount = 0;
    std::streamsize width = 0;

    bool operator==(const Outcome&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
    return stream << Shown(outcome.model) << "\n  error \"" << Shown(outcome.error) << "\" state " << outcome.state
                  << " position " << outcome.position << " gcount " << outcome.lastCount << " width " << outcome.width;
}

// How a text is put before a reader.
struct Source {
    std::string_view text;
    std::size_t slice = kNever;
    std::size_t errorAt = kNever;
    bool startsFilled = true;
};

inline std::ostream& operator<<(std::ostream& stream, const Source& source) {
    stream << '"' << Shown(source.text) << '"';
    if (source.slice != kNever) stream << ", " << source.slice << " at a time";
    if (source.errorAt != kNever) stream << ", unreadable at " << source.errorAt;
    if (!source.startsFilled) stream << ", nothing ready at first";
    return stream;
}

// The outcome of a reader for `source`, after `prepare` has changed the stream's settings. A reader has
//
//   void Read(std::istream&)                          reads into a model of its own
//   std::string Model()                               tells all of it, the library's and the literal one alike
//   static std::string ErrorClass(std::exception&)    names the class, alike too
template <typename Reader, typename Prepare>
Outcome OutcomeOf(const Source& source, Prepare prepare) {
    SlicedInput buffer(std::string(source.text), source.slice, source.errorAt, source.startsFilled);
    std::istream stream(&buffer);
    prepare(stream);
    Reader reader;
    Outcome outcome;
    try {
        reader.Read(stream);
    } catch (const std::exception& error) {
        outcome.error = Reader::ErrorClass(error) + error.what();
    }
    outcome.model = reader.Model();
    outcome.state = stream.rdstate();
    outcome.position = buffer.Position();
    outcome.lastCount = stream.gcount();
    outcome.width = stream.width();
    return outcome;
}

template <typename Reader>
Outcome OutcomeOf(const Source& source) {
    return OutcomeOf<Reader>(source, [](std::istream&) {});
}

#endif  // NIMAUTH_TESTS_SYSTEMCONFIGURATION_OUTCOME_H_
