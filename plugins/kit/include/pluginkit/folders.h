#ifndef NIMBREL_PLUGINKIT_FOLDERS_H_
#define NIMBREL_PLUGINKIT_FOLDERS_H_

#include <sys/types.h>

#include <string>
#include <vector>

namespace nimbrel::kit {

// "/" for "/file", "." for "file".
std::string FolderOf(const std::string& path);

// Makes the folder, with this mode under any umask. It is on the disk when this returns: what is put into it and
// synchronised outlives a power cut. False if it was there. Throws `StatusError`, see `ThrowFileError`.
bool MakeFolder(const std::string& folder, mode_t mode);

// The same with its parents, which have mode 0755. Returns those made, outermost first.
std::vector<std::string> MakeFolders(const std::string& folder, mode_t mode);

// Puts on the disk what is called how in the folder. Throws as above.
void SyncFolder(const std::string& folder);

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_FOLDERS_H_
