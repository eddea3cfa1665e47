#include "tools/nimauthctl/commands/interruption.h"

#include <string>

#include "tools/nimauthctl/failure.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr int kQuestionSeconds = 2;

std::string State(const StorePointer& store) try {
    const auto answer = AskWithin(kQuestionSeconds, [store] {
        const std::unique_ptr<authentication::StoreConfiguration> configuration(store->GetStoreConfiguration());
        return dynamic_cast<const authentication::ActiveDirectoryStoreConfiguration&>(*configuration).DomainDNSName();
    });
    if (!answer) return "whether the host is joined is not known, because the directory does not answer";
    return answer->empty() ? "the host is not joined" : "the host is joined to " + *answer;
} catch (...) {
    return "whether the host is joined is not known: " + DescribeCurrentException().message;
}

}  // namespace

void TellInterruption(const Interrupted& interruption, const StorePointer& store, Progress& progress,
                      const Invocation& invocation) {
    const std::string now = progress.Now();
    const bool isOpen = progress.OutcomeIsOpen();
    progress.End("interrupted");
    invocation.Trace("interrupted: asking for the host's state");
    throw InterruptedFailure(
        interruption.Signal(), "interrupted; " + State(store),
        now + (isOpen ? ", so the directory may have done its part without the host's knowing" : ""),
        isOpen ? "see 'nimauthctl status'; then repeat the command, which takes over what is there already"
               : "repeat the command when it suits; 'nimauthctl status' shows the host's state");
}

}  // namespace nimbrel::nimauthctl
