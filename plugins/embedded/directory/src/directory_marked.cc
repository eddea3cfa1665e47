// Computer accounts, as an authentication proxy creates them.

#include <utility>

#include "directory_impl.h"
#include "secret_hash.h"

namespace nimbrel::embedded {
namespace {

// The mark is the salt of the secret's hash. So it cannot outlive the secret, whoever changes that, and one look at the
// row tells whether a secret is still the one that was handed out.
struct MarkedSecret {
    kit::Secret secret = kit::Secret::Random();
    std::string hash;

    explicit MarkedSecret(const std::string& mark) : hash(HashMarkedSecret(secret.View(), mark)) {}
};

void RequireWaiting(const ComputerRow& computer, const std::string& expectedMark) {
    if (!computer.preStaged || (!expectedMark.empty() && SaltOf(computer.secretHash) != expectedMark)) {
        throw DirectoryError(kStatusAccountExists,
                             "The computer account '" + computer.name + "' is in use, or another one's to hand out");
    }
    if (!computer.enabled) {
        throw DirectoryError(kStatusAccountDisabled, "The computer account '" + computer.name + "' is disabled");
    }
}

}  // namespace

PreStagedComputer Directory::StageMarkedComputer(const std::string& domain, const std::string& name,
                                                 const std::string& unit, const std::string& mark) {
    const MarkedSecret marked(mark);
    ComputerRow computer;
    computer.name = ComputerName(name);
    computer.preStaged = true;
    computer.secretHash = marked.hash;
    Turn turn = _impl->Write();
    const DomainRow row = RequireReachableDomain(turn.Db(), domain);
    computer.unitId = RequireUnit(turn.Db(), row, unit);
    PreStagedComputer result = {InsertPreStaged(turn.Db(), row, computer), std::string(marked.secret.View())};
    turn.Commit();
    return result;
}

PreStagedComputer Directory::RestageMarkedComputer(const std::string& domain, const std::string& name,
                                                   const std::string& expectedMark, const std::string& mark) {
    const MarkedSecret marked(mark);
    const std::string account = ComputerName(name);
    Turn turn = _impl->Write();
    const DomainRow row = RequireReachableDomain(turn.Db(), domain);
    ComputerRow computer = RequireComputer(turn.Db(), row, account);
    RequireWaiting(computer, expectedMark);
    computer.secretHash = marked.hash;
    ++computer.keyVersion;
    UpdateComputer(turn.Db(), computer);
    PreStagedComputer result = {ToInfo(turn.Db(), computer, row.info), std::string(marked.secret.View())};
    turn.Commit();
    return result;
}

}  // namespace nimbrel::embedded
