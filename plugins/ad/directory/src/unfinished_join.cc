#include "unfinished_join.h"

#include "addirectory/ad_error.h"
#include "files.h"
#include "pluginkit/folders.h"

namespace nimbrel::ad {

std::optional<KeytabAccount> UnfinishedJoin::Find() const {
    const auto keytab = ReadTrustedFile(_path);
    if (!keytab) {
        return std::nullopt;
    }
    auto account = MachineAccountIn(keytab->View());
    if (!account) {
        throw AdError(kStatusInternalError, "The record of an unfinished join, '" + _path + "', is damaged");
    }
    return account;
}

void UnfinishedJoin::Record(const KeytabAccount& account, const MachineKeys& keys) const {
    kit::MakeFolders(kit::FolderOf(_path), kFolderMode);
    WriteMachineKeytab(_path, account, keys);
}

void UnfinishedJoin::Forget() const {
    RemoveFile(_path);
    RemoveLeftover(_path);
}

}  // namespace nimbrel::ad
