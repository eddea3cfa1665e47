#include "unfinished_join.h"

#include <unistd.h>

#include <utility>

#include "files.h"
#include "pluginkit/folders.h"

namespace nimbrel::ad {

bool UnfinishedJoin::IsThere() const { return access(_path.c_str(), F_OK) == 0; }

std::optional<UnfinishedJoin::Left> UnfinishedJoin::Find() const {
    auto keytab = ReadTrustedFile(_path);
    if (!keytab) {
        return std::nullopt;
    }
    std::optional<KeytabAccount> account;
    try {
        account = MachineAccountIn(keytab->View());
    } catch (const AdError&) {  // told below
    }
    if (!account) {
        throw DamagedRecordError(kStatusInternalError, "The record of an unfinished join, '" + _path +
                                                           "', is damaged; a leave without credentials removes it");
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
