// What happened, in order, and what the plug-ins are to answer.
//
// Plug-ins, and the stand-ins of calls_*.cc that a test links, write one line for each thing that they are asked:
//
//     read UserVars.ActiveDirectoryVerifyAPXCertificate
//     proxy loaded
//     domain(192.0.2.7, 1, 0A:1B, PEM)
//     info: Adding host to domain: Attempt (1/4)
//
// One thread only: what is tested runs on its caller's.

#ifndef TESTS_PROXY_JOURNAL_H_
#define TESTS_PROXY_JOURNAL_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace nimbrel::authentication::test {

class Journal {
 public:
    static void Add(const std::string& line);

    static std::vector<std::string> Lines();

    // The lines that begin with `prefix`.
    static std::vector<std::string> Lines(const std::string& prefix);

    // Runs `observer` before each line is added.
    static void WhenAdded(std::function<void(const std::string& line)> observer);

    // Forgets lines and observer.
    static void Clear();
};

class Script {
 public:
    // The statuses of the next calls of `operation`, one each; then 0 again.
    static void Answer(const std::string& operation, const std::vector<std::uint32_t>& statuses);

    // Makes a result another text, or null.
    static void SetText(const std::string& name, const std::optional<std::string>& text);

    // All calls succeed, with the results CORP, corp.test, S-1-5-21-1-2-3, FIELD2, FIELD3.
    static void Reset();
};

}  // namespace nimbrel::authentication::test

#endif  // TESTS_PROXY_JOURNAL_H_
