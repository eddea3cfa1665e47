// The library's PAM policy reader and the literal one, in the shape of `OutcomeOf`.

#ifndef NIMAUTH_TESTS_SYSTEMCONFIGURATION_PAM_OUTCOME_H_
#define NIMAUTH_TESTS_SYSTEMCONFIGURATION_PAM_OUTCOME_H_

#include <exception>
#include <istream>
#include <list>
#include <ostream>
#include <string>
#include <typeinfo>

#include "systemconfiguration/literal_pam.h"
#include "systemconfiguration/outcome.h"
#include "systemconfiguration/pam_policy.h"

inline std::string PamErrorClass(const std::exception& error) {
    using namespace SystemConfiguration;
    if (dynamic_cast<const InvalidFacilityException*>(&error) != nullptr) return "facility: ";
    if (dynamic_cast<const literal_pam::InvalidFacility*>(&error) != nullptr) return "facility: ";
    if (dynamic_cast<const InvalidControlException*>(&error) != nullptr) return "control: ";
    if (dynamic_cast<const literal_pam::InvalidControl*>(&error) != nullptr) return "control: ";
    return std::string(typeid(error).name()) + ": ";
}

// One rule: "{1|module|word|word|}", or "{7[a b]|module|}".
inline void AddRule(std::string& text, int control, const std::string& bracket, const std::string& module,
                    const std::list<std::string>& parameters) {
    text.append(1, '{').append(std::to_string(control)).append(bracket);
    text.append(1, '|').append(module).append(1, '|');
    for (const std::string& parameter : parameters) text.append(parameter).append(1, '|');
    text.append(1, '}');
}

class LibraryPamReader {
 public:
    void Read(std::istream& stream) { stream >> _policy; }
    void Write(std::ostream& stream) const { stream << _policy; }

    // For each facility that has rules its number, a colon, and the rules.
    std::string Model() {
        using namespace SystemConfiguration;
        std::string text;
        for (int value = PAMFacility::Account; value <= PAMFacility::Session; ++value) {
            PAMStack& stack = _policy[static_cast<PAMFacility::Facility>(value)];
            if (stack.empty()) continue;
            const PAMFacility::Facility facility = stack.Facility();
            text.append(std::to_string(facility)).append(1, ':');
            for (PAMEntry& entry : stack) {
                const PAMControl::Control control = entry.control();
                const bool bracketed = control == PAMControl::Bracketed;
                AddRule(text, control, bracketed ? static_cast<std::string>(entry.control()) : "", entry.module(),
                        entry.parameters());
            }
        }
        return text;
    }

    static std::string ErrorClass(const std::exception& error) { return PamErrorClass(error); }

 private:
    SystemConfiguration::PAMPolicy _policy{"sample"};
};

class LiteralPamReader {
 public:
    void Read(std::istream& stream) { literal_pam::ReadPolicy(stream, _policy); }
    void Write(std::ostream& stream) const { literal_pam::WritePolicy(stream, _policy); }

    std::string Model() const {
        std::string text;
        for (const auto& [facility, entries] : _policy) {
            text.append(std::to_string(facility)).append(1, ':');
            for (const literal_pam::Entry& entry : entries) {
                AddRule(text, entry.control.value, entry.control.text, entry.module, entry.parameters);
            }
        }
        return text;
    }

    static std::string ErrorClass(const std::exception& error) { return PamErrorClass(error); }

 private:
    literal_pam::Policy _policy;
};

#endif  // NIMAUTH_TESTS_SYSTEMCONFIGURATION_PAM_OUTCOME_H_
