// What a domain's trust looks like from this host, and how old each answer is.

#ifndef NIMAUTHCTL_COMMANDS_TRUST_REPORT_H_
#define NIMAUTHCTL_COMMANDS_TRUST_REPORT_H_

#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "authentication/directory_types.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {

// When the directory last answered each question. One log may see many looks: then the age of a stale answer tells since
// when the shown value is the last known one.
class AnswerLog {
 public:
    explicit AnswerLog(const Settings& settings) : _settings(settings) {}

    // Forgets which questions this look asked, not when they were answered.
    void BeginLook() { _asked.clear(); }

    void Note(const std::string& question, bool stale);

    // One row for each question of this look: its age in seconds (none: never answered), whether it is stale, and the
    // setting whose time-out struck.
    void Show(Report& report) const;

 private:
    using Clock = std::chrono::steady_clock;

    const Settings& _settings;
    std::vector<std::pair<std::string, bool>> _asked;
    std::map<std::string, Clock::time_point> _answered;
};

// Runs one part of a look; a failure makes `label` unavailable and leaves the other parts alone.
template <typename Part>
void TryPart(const std::string& label, Report& report, Part part) {
    try {
        part();
    } catch (...) {
        report.Unavailable(label, DescribeCurrentException());
    }
}

// Asks and shows. Each function throws what its question ends with, but for the relationships to trusted domains, whose
// failures are added to the report.
class TrustReport {
 public:
    // All must outlive the object. `provider` is the configured provider's name, for the words.
    TrustReport(StorePointer store, std::string provider, const Invocation& invocation, AnswerLog& log, Report& report)
        : _store(std::move(store)),
          _provider(std::move(provider)),
          _invocation(invocation),
          _log(log),
          _report(report) {}

    void ShowTrustState();
    // `isMember`: whether the membership is known for certain; then a provider's "not a member" is a failure.
    void ShowTrustedDomains(bool isMember);
    void ShowOwnRelationship(const std::string& domain);

 private:
    void ShowTrustedDomain(const authentication::Domain& domain);

    StorePointer _store;
    std::string _provider;
    const Invocation& _invocation;
    AnswerLog& _log;
    Report& _report;
};

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_COMMANDS_TRUST_REPORT_H_
