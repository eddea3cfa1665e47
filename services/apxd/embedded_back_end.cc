#include "services/apxd/embedded_back_end.h"

#include <utility>

#include "embeddeddirectory/directory.h"

namespace nimbrel::apxd {
namespace {

using embedded::Directory;
using embedded::DirectoryError;
using embedded::PreStagedComputer;

// Both sides speak of the same numbers.
template <typename Call>
auto Translated(const Call& call) {
    try {
        return call();
    } catch (const DirectoryError& error) {
        if (error.Status() == kNoSuchDomain) throw Unreachable(error.what());
        throw Refusal(error.Status(), error.what());
    }
}

HandOver ToHandOver(PreStagedComputer staged) {
    return {staged.computer.name + '$', SecretText(std::move(staged.oneTimeSecret))};
}

class EmbeddedBackEnd : public BackEnd {
 public:
    EmbeddedBackEnd(std::string directoryFile, std::string domain)
        : _directoryFile(std::move(directoryFile)), _domain(std::move(domain)) {}

    DomainFacts Domain() override {
        return Translated([this] {
            const auto domain = Open().FindDomain(_domain);
            if (!domain) throw Refusal(kNoSuchDomain, "the directory does not hold the domain " + _domain);
            return DomainFacts{domain->netbiosName, domain->dnsName, domain->sid};
        });
    }
    void RequireReachable() override {}  // it lies on the disk
    HandOver Create(const NewAccount& account) override {
        return Translated([&] {
            return ToHandOver(
                Open().StageMarkedComputer(_domain, account.name, account.organizationalUnit, account.mark));
        });
    }
    HandOver Renew(const std::string& name, const std::string& mark) override {
        return Translated([&] { return ToHandOver(Open().RestageMarkedComputer(_domain, name, mark, mark)); });
    }
    HandOver TakeOver(const std::string& name, const std::string& mark) override {
        return Translated([&] { return ToHandOver(Open().RestageMarkedComputer(_domain, name, "", mark)); });
    }

 private:
    Directory Open() const { return Directory::Open(_directoryFile); }

    const std::string _directoryFile;
    const std::string _domain;
};

}  // namespace

std::unique_ptr<BackEnd> MakeEmbeddedBackEnd(const std::string& directoryFile, const std::string& domain) {
    return std::make_unique<EmbeddedBackEnd>(directoryFile, domain);
}

}  // namespace nimbrel::apxd
