#include "tools/nimauthctl/commands/trust_report.h"

#include <set>

#include "authentication/exceptions.h"
#include "tools/nimauthctl/trust_words.h"

namespace nimbrel::nimauthctl {
namespace {

using authentication::Domain;

constexpr char kAnswer[] = "answer";
constexpr char kAnswers[] = "answers";
constexpr char kTrustedDomain[] = "trusted domain";
constexpr char kTrustedDomains[] = "trusted domains";

std::string Reason(const Settings& settings) {
    const std::string seconds = std::to_string(settings.timeoutSeconds);
    if (settings.timeoutGiven) return "no answer within --timeout " + seconds;
    return "no answer within " + seconds + " s, the default of --timeout";
}

}  // namespace

void AnswerLog::Note(const std::string& question, bool stale) {
    _asked.emplace_back(question, stale);
    if (!stale) _answered[question] = Clock::now();
}

void AnswerLog::Show(Report& report) const {
    report.List(kAnswer, kAnswers);
    for (const auto& [question, stale] : _asked) {
        Row& row = report.AddRow(kAnswer, kAnswers, question);
        const auto answered = _answered.find(question);
        if (answered == _answered.end()) {
            row.None("age-seconds");
        } else {
            row.Number("age-seconds",
                       std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - answered->second).count());
        }
        row.Flag("stale", stale);
        if (stale) row.Text("because", Reason(_settings));
    }
}

void TrustReport::ShowTrustState() {
    const auto answer = AskTraced(_invocation, "the trust state", [this] { return _store->GetDomainTrustState(); });
    _log.Note("trust state", answer.stale);
    _report.Coded("trust state", answer.value, TrustStateWords(_provider, answer.value));
    if (answer.stale) _report.MarkStale("trust state");
}

void TrustReport::ShowTrustedDomains(bool isMember) try {
    const auto answer = AskTraced(_invocation, "the trusted domains", [this] { return _store->GetTrustedDomains(); });
    _log.Note(kTrustedDomains, answer.stale);
    _report.List(kTrustedDomain, kTrustedDomains);
    if (answer.stale) _report.MarkStale(kTrustedDomains);
    std::set<std::string> shown;
    for (const Domain& domain : answer.value) {
        if (shown.insert(domain.DNSName()).second) ShowTrustedDomain(domain);
    }
} catch (const authentication::FileNotFoundException&) {
    // So a provider says that the host is no member, which is news only if it said otherwise before.
    if (isMember) throw;
    _report.List(kTrustedDomain, kTrustedDomains);
}

void TrustReport::ShowTrustedDomain(const Domain& domain) {
    Row& row = _report.AddRow(kTrustedDomain, kTrustedDomains, domain.DNSName()).Text("netbios", domain.NetBIOSName());
    try {
        const auto answer = AskTraced(_invocation, "the relationship to " + domain.DNSName(),
                                      [&] { return _store->GetDomainTrustRelationship(domain.DNSName()); });
        _log.Note("relationship to " + domain.DNSName(), answer.stale);
        row.Number("relationship", answer.value).Text("means", TrustRelationshipWords(_provider, answer.value));
        if (answer.stale) row.Stale();
    } catch (...) {
        row.None("relationship");
        _report.AddFailure(DescribeCurrentException());
    }
}

void TrustReport::ShowOwnRelationship(const std::string& domain) {
    const auto answer = AskTraced(_invocation, "the relationship to " + domain,
                                  [&] { return _store->GetDomainTrustRelationship(domain); });
    _log.Note("own relationship", answer.stale);
    _report.Coded("own relationship", answer.value, TrustRelationshipWords(_provider, answer.value));
    if (answer.stale) _report.MarkStale("own relationship");
}

}  // namespace nimbrel::nimauthctl
