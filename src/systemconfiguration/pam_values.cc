#include <istream>
#include <ostream>

#include "systemconfiguration/names.h"
#include "systemconfiguration/pam_names.h"
#include "systemconfiguration/pam_policy.h"

namespace SystemConfiguration {
namespace {

constexpr std::string_view kInvalidFacility = "Invalid Facility: ";
constexpr std::string_view kInvalidControl = "Invalid Control: ";

PAMFacility::Facility ParseFacility(const std::string& name) {
    if (const auto* const entry = FindName(kFacilityNames, name)) return entry->value;
    throw InvalidFacilityException(std::string(kInvalidFacility) + name);
}

PAMControl::Control ParseControl(const std::string& text) {
    if (IsBracketed(text)) return PAMControl::Bracketed;
    if (const auto* const entry = FindName(kControlNames, text)) return entry->value;
    throw InvalidControlException(std::string(kInvalidControl) + text);
}

}  // namespace

InvalidFacilityException::InvalidFacilityException(const std::string& message) : _message(message) {}
InvalidFacilityException::~InvalidFacilityException() = default;
const char* InvalidFacilityException::what() const noexcept { return _message.c_str(); }

InvalidControlException::InvalidControlException(const std::string& message) : _message(message) {}
InvalidControlException::~InvalidControlException() = default;
const char* InvalidControlException::what() const noexcept { return _message.c_str(); }

PAMFacility::PAMFacility(const std::string& name) : _value(ParseFacility(name)) {}

PAMFacility& PAMFacility::operator=(Facility value) {
    _value = value;
    return *this;
}

PAMFacility& PAMFacility::operator=(const std::string& name) {
    _value = ParseFacility(name);
    return *this;
}

bool PAMFacility::operator==(const std::string& name) const { return _value == ParseFacility(name); }

PAMFacility::operator std::string() const {
    const std::string_view name = FindValue(kFacilityNames, _value);
    if (name.empty()) throw InvalidFacilityException(AdvancedPrefix(kInvalidFacility, _value));
    return std::string(name);
}

std::ostream& operator<<(std::ostream& stream, const PAMFacility& facility) {
    return stream << static_cast<std::string>(facility);
}

std::istream& operator>>(std::istream& stream, PAMFacility& facility) {
    std::string name;
    stream >> name;
    facility = name;
    return stream;
}

PAMControl::PAMControl(const std::string& text) : _value(ParseControl(text)) {
    if (_value == Bracketed) _text = text;
}

PAMControl& PAMControl::operator=(Control value) {
    _value = value;
    _text.clear();
    return *this;
}

PAMControl& PAMControl::operator=(const std::string& text) {
    _value = ParseControl(text);
    if (_value == Bracketed) _text = text;
    return *this;
}

bool PAMControl::operator==(const PAMControl& other) const {
    return _value == other._value && (_value != Bracketed || _text == other._text);
}

bool PAMControl::operator==(const std::string& text) const {
    return _value == Bracketed ? _text == text : _value == ParseControl(text);
}

PAMControl::operator std::string() const {
    if (_value == Bracketed) return _text;
    const std::string_view name = FindValue(kControlNames, _value);
    if (name.empty()) throw InvalidControlException(AdvancedPrefix(kInvalidControl, _value));
    return std::string(name);
}

}  // namespace SystemConfiguration
