#include "embeddeddirectory/directory.h"

#include <utility>

#include "directory_impl.h"
#include "directory_schema.h"
#include "published_accounts.h"

namespace nimbrel::embedded {

Directory::Directory(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}
Directory::Directory(Directory&&) noexcept = default;
Directory& Directory::operator=(Directory&&) noexcept = default;
Directory::~Directory() = default;

void Directory::Impl::Publish() const noexcept {
    if (_isHosts) {
        PublishAccounts();
    }
}

Directory Directory::Open(const std::string& path, OpenMode mode) {
    const bool isHosts = path == kDefaultDirectoryPath;
    if (mode == OpenMode::CreateIfMissing) {
        return Directory(std::make_unique<Impl>(Database::OpenOrCreate(path, kDirectoryFormat), isHosts));
    }
    auto database = Database::OpenExisting(path, kDirectoryFormat, AccessOf(mode));
    if (!database) {
        throw DirectoryError(kStatusNoSuchDomain, "There is no embedded directory '" + path + "'");
    }
    return Directory(std::make_unique<Impl>(std::move(*database), isHosts));
}

DirectorySnapshot Directory::Export() const {
    const Turn turn = _impl->Read();
    DirectorySnapshot snapshot;
    snapshot.domains = ReadDomains(turn.Db());
    snapshot.users = ReadUsers(turn.Db(), std::nullopt);
    snapshot.organizationalUnits = ReadUnits(turn.Db(), std::nullopt);
    snapshot.computers = ReadComputers(turn.Db(), std::nullopt);
    snapshot.trusts = ReadTrusts(turn.Db(), std::nullopt);
    snapshot.controllers = ReadControllers(turn.Db(), std::nullopt);
    snapshot.rehearsals = ReadRehearsals(turn.Db());
    return snapshot;
}

}  // namespace nimbrel::embedded
