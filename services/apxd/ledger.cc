#include "services/apxd/ledger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "pluginkit/folders.h"
#include "pluginkit/whole_file.h"

namespace nimbrel::apxd {
namespace {

constexpr char kHeader[] = "nimbrel-apxd ledger 1";
constexpr std::size_t kMostNewLines = 10000;  // besides as many as there were
constexpr mode_t kMode = 0600;
// An earlier reading of the configuration may be giving the file back at this moment.
constexpr std::chrono::seconds kLockPatience{1};

[[noreturn]] void FailWith(int error, const std::string& path) {
    throw std::system_error(error, std::generic_category(), path);
}

// None, and `errno`, if it cannot be created. Of the mode under any umask.
kit::Descriptor Create(const std::string& path) {
    kit::Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_NOFOLLOW | O_CLOEXEC, kMode));
    return file && fchmod(file.Number(), kMode) != 0 ? kit::Descriptor() : std::move(file);
}

kit::Descriptor OpenFolderOf(const std::string& path) {
    kit::Descriptor folder(open(kit::FolderOf(path).c_str(), O_RDONLY | O_CLOEXEC));
    if (!folder) FailWith(errno, path);
    return folder;
}

// 0, or the error.
int WriteAll(int file, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = write(file, text.data() + done, text.size() - done);
        const int error = errno;
        if (count != -1) {
            done += static_cast<std::size_t>(count);
        } else if (error != EINTR) {
            return error;
        }
    }
    return fdatasync(file) == 0 ? 0 : errno;
}

std::string Line(const std::pair<std::string, std::string>& key, const Ledger::Entry& entry) {
    return std::string(entry.takenOver ? "T " : "H ") + key.first + ' ' + key.second + ' ' + entry.mark + ' ' +
           std::to_string(entry.time) + '\n';
}

}  // namespace

Ledger::Ledger(const std::string& path) : _path(path), _lock(path + ".lock", kit::OwnerLock::File::Stays) {
    if (!_lock.TryFor(kLockPatience)) throw std::runtime_error(path + ": in use by another process");
    ReadAll();
    Rewrite(_entries);
}

void Ledger::ReadAll() {
    struct stat status = {};
    if (lstat(_path.c_str(), &status) != 0 && errno == ENOENT) return;
    const std::optional<std::string> text = kit::ReadWholeFile(_path);
    const int error = errno;
    if (!text) FailWith(error, _path);
    std::istringstream stream(*text);
    stream.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    std::string line;
    if (!std::getline(stream, line) || line != kHeader) throw std::runtime_error(_path + ": not a ledger");
    while (std::getline(stream, line) && !stream.eof()) ReadLine(line);
}

void Ledger::ReadLine(const std::string& line) {
    std::istringstream words(line);
    words.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    std::string kind;
    Key key;
    Entry entry;
    words >> kind >> key.first >> key.second;
    if (kind == "F" && !key.second.empty()) {
        _entries.erase(key);
        return;
    }
    entry.takenOver = kind == "T";
    if ((kind != "H" && kind != "T") || !(words >> entry.mark >> entry.time)) {
        throw std::runtime_error(_path + ": damaged: " + line);
    }
    _entries[key] = entry;
}

// Under another name first, so that a crash leaves the old file or the new one.
void Ledger::Rewrite(const Entries& entries) {
    const std::string temporary = _path + ".new";
    std::string text = std::string(kHeader) + '\n';
    for (const auto& [key, entry] : entries) text += Line(key, entry);
    const kit::Descriptor folder = OpenFolderOf(_path);
    unlink(temporary.c_str());  // what a killed process left: nothing that has the name already is written to
    kit::Descriptor file = Create(temporary);
    int error = file ? WriteAll(file.Number(), text) : errno;
    if (error == 0 && rename(temporary.c_str(), _path.c_str()) != 0) error = errno;
    if (error != 0) {
        unlink(temporary.c_str());
        FailWith(error, _path);
    }
    _file = std::move(file);
    _kept = entries.size();
    _appended = 0;
    fsync(folder.Number());
}

// A line that did not get to the disk whole is taken back, or else the next one would continue it.
void Ledger::Append(const std::string& line) {
    struct stat before = {};
    if (fstat(_file.Number(), &before) != 0) FailWith(errno, _path);
    const int error = WriteAll(_file.Number(), line);
    if (error == 0) {
        ++_appended;
        return;
    }
    if (ftruncate(_file.Number(), before.st_size) != 0) Rewrite(_entries);
    FailWith(error, _path);
}

std::optional<Ledger::Entry> Ledger::Find(const std::string& name, const std::string& client) const {
    const std::lock_guard<std::mutex> lock(_mutex);
    const auto found = _entries.find({name, client});
    return found == _entries.end() ? std::nullopt : std::optional(found->second);
}

std::string Ledger::TakenOverBy(const std::string& name) const {
    const std::lock_guard<std::mutex> lock(_mutex);
    for (auto entry = _entries.lower_bound({name, ""}); entry != _entries.end() && entry->first.first == name;
         ++entry) {
        if (entry->second.takenOver) return entry->first.second;
    }
    return "";
}

void Ledger::Shorten(std::int64_t oldest) {
    Entries after = _entries;
    std::erase_if(after, [&](const auto& item) { return !item.second.takenOver && item.second.time < oldest; });
    Rewrite(after);
    _entries.swap(after);
}

void Ledger::Note(const std::string& name, const std::string& client, const Entry& entry, std::int64_t oldest) {
    const std::lock_guard<std::mutex> lock(_mutex);
    Entries noted = {{{name, client}, entry}};
    const auto& [key, kept] = *noted.begin();
    Append(Line(key, kept));
    // Nothing from here on may fail.
    _entries.erase(key);
    _entries.merge(noted);
    if (_appended <= kMostNewLines + _kept) return;
    try {
        Shorten(oldest);
    } catch (const std::exception&) {
        // the entry is on the disk; the file is made shorter another time
    }
}

void Ledger::Forget(const std::string& name, const std::string& client) {
    const std::lock_guard<std::mutex> lock(_mutex);
    const Key key = {name, client};
    Append("F " + name + ' ' + client + '\n');
    _entries.erase(key);
}

void Ledger::Prune(std::int64_t oldest, const std::set<std::string>& preStaged) {
    const std::lock_guard<std::mutex> lock(_mutex);
    Entries after = _entries;
    std::erase_if(after, [&](const auto& item) {
        const auto& [key, entry] = item;
        return entry.takenOver ? preStaged.count(key.first) == 0 : entry.time < oldest;
    });
    Rewrite(after);
    _entries.swap(after);
}

Ledger::Turn::Turn(Ledger& ledger, const std::string& name) : _ledger(ledger), _name(name) {
    std::unique_lock<std::mutex> lock(_ledger._mutex);
    _ledger._freed.wait(lock, [this] { return _ledger._busy.insert(_name).second; });
}

Ledger::Turn::~Turn() {
    {
        const std::lock_guard<std::mutex> lock(_ledger._mutex);
        _ledger._busy.erase(_name);
    }
    _ledger._freed.notify_all();
}

}  // namespace nimbrel::apxd
