#include "services/apxd/ledger.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "pluginkit/whole_file.h"

namespace nimbrel::apxd {
namespace {

constexpr char kHeader[] = "nimbrel-apxd ledger 1";
constexpr std::size_t kMostOutdatedLines = 10000;
constexpr mode_t kMode = 0600;
constexpr int kCreate = O_CREAT | O_CLOEXEC | O_NOFOLLOW;

[[noreturn]] void FailWith(int error, const std::string& path) {
    throw std::system_error(error, std::generic_category(), path);
}

// A negative number, and errno, if it cannot be opened.
int Open(const std::string& path, int flags) {
    const int file = open(path.c_str(), flags, kMode);
    // The umask may have taken rights. What has further names is somebody else's file.
    struct stat status = {};
    const bool isOurs = file >= 0 && (flags & O_CREAT) != 0 && fstat(file, &status) == 0 && status.st_nlink == 1;
    if (!isOurs || fchmod(file, kMode) == 0) return file;
    const int error = errno;
    close(file);
    errno = error;
    return -1;
}

int OpenOrFail(const std::string& path, int flags) {
    const int file = Open(path, flags);
    const int error = errno;
    if (file < 0) FailWith(error, path);
    return file;
}

// 0, or the error.
int WriteAll(int file, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = write(file, text.data() + done, text.size() - done);
        const int error = errno;
        if (count < 0 && error != EINTR) return error;
        if (count > 0) done += static_cast<std::size_t>(count);
    }
    return fdatasync(file) == 0 ? 0 : errno;
}

std::string Line(const std::pair<std::string, std::string>& key, const Ledger::Entry& entry) {
    return std::string(entry.takenOver ? "T " : "H ") + key.first + ' ' + key.second + ' ' + entry.mark + ' ' +
           std::to_string(entry.time) + '\n';
}

}  // namespace

Ledger::Ledger(const std::string& path) : _path(path), _lockFile(OpenOrFail(path + ".lock", O_RDWR | kCreate)) {
    try {
        if (flock(_lockFile, LOCK_EX | LOCK_NB) != 0) {
            const int error = errno;
            if (error == EWOULDBLOCK) throw std::runtime_error(path + ": in use by another process");
            FailWith(error, path);
        }
        ReadAll();
        Rewrite(_entries);
    } catch (...) {
        close(_lockFile);
        throw;
    }
}

Ledger::~Ledger() {
    if (_file >= 0) close(_file);
    close(_lockFile);
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
void Ledger::Rewrite(const std::map<Key, Entry>& entries) {
    const std::string temporary = _path + ".new";
    std::string text = std::string(kHeader) + '\n';
    for (const auto& [key, entry] : entries) text += Line(key, entry);
    const std::size_t slash = _path.rfind('/');
    const int folder = OpenOrFail(slash == std::string::npos ? "." : _path.substr(0, slash + 1), O_RDONLY | O_CLOEXEC);
    unlink(temporary.c_str());  // what a killed process left: nothing that has the name already is written to
    const int file = Open(temporary, O_WRONLY | O_EXCL | O_APPEND | kCreate);
    int error = file < 0 ? errno : WriteAll(file, text);
    if (error == 0 && rename(temporary.c_str(), _path.c_str()) != 0) error = errno;
    if (error != 0) {
        close(folder);
        if (file >= 0) close(file);
        unlink(temporary.c_str());
        FailWith(error, _path);
    }
    if (_file >= 0) close(_file);
    _file = file;
    _appended = 0;
    fsync(folder);
    close(folder);
}

// A line that did not get to the disk whole is taken back, or else the next one would continue it.
void Ledger::Append(const std::string& line) {
    struct stat before = {};
    if (fstat(_file, &before) != 0) FailWith(errno, _path);
    const int error = WriteAll(_file, line);
    if (error == 0) {
        ++_appended;
        return;
    }
    if (ftruncate(_file, before.st_size) != 0) Rewrite(_entries);
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

void Ledger::Note(const std::string& name, const std::string& client, const Entry& entry) {
    const std::lock_guard<std::mutex> lock(_mutex);
    std::map<Key, Entry> noted = {{{name, client}, entry}};
    const auto& [key, kept] = *noted.begin();
    Append(Line(key, kept));
    // Nothing from here on may fail.
    _entries.erase(key);
    _entries.merge(noted);
    if (_appended <= kMostOutdatedLines + _entries.size()) return;
    try {
        Rewrite(_entries);
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
    std::map<Key, Entry> after = _entries;
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
