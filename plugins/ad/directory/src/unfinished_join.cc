#include "unfinished_join.h"

#include <utility>

#include "addirectory/ad_error.h"
#include "files.h"
#include "pluginkit/folders.h"

namespace nimbrel::ad {

std::optional<UnfinishedJoin::Left> UnfinishedJoin::Find() const {
    auto keytab = ReadTrustedFile(_path);
    if (!keytab) {
        return std::nullopt;
    }
    auto account = MachineAccountIn(keytab->View());
    if (!account) {
        throw AdError(kStatusInternalError, "The record of an unfinished join, '" + _path + "', is damaged");
    }
    return Left{std::move(*account), std::move(*keytab)};
}

void UnfinishedJoin::Record(const KeytabAccount& account, const MachineKeys& keys) const {
    kit::MakeFolders(kit::FolderOf(_path), kFolderMode);
    WriteMachineKeytab(_path, account, keys);
}

void UnfinishedJoin::Restore(const Left& left) const {
    FileReplacement replacement(_path);
    replacement.Write(left.keytab.View());
    replacement.Commit();
}

void UnfinishedJoin::Forget() const {
    RemoveFile(_path);
    RemoveLeftover(_path);
}

}  // namespace nimbrel::ad
