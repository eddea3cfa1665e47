#include "adlogins/log_ins.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <exception>
#include <iterator>
#include <new>
#include <optional>
#include <utility>

#include "cached_data.h"
#include "file_changes.h"
#include "files.h"
#include "names.h"
#include "pluginkit/folders.h"
#include "pluginkit/owner_lock.h"
#include "record.h"
#include "snippets.h"
#include "sssd_service.h"
#include "sssd_settings.h"

namespace nimbrel::ad {
namespace {

// The parts have a namespace of their own, because one plug-in links this library beside others.
using namespace logins;

constexpr char kRecordFolder[] = "/var/lib/nimbrel";
constexpr char kRecordFile[] = "/var/lib/nimbrel/ad-log-ins.conf";
constexpr char kRecordLock[] = "/var/lib/nimbrel/.ad-log-ins.lock";
constexpr char kDomainFile[] = "/etc/sssd/conf.d/50-nimauth-domain.conf";
constexpr char kControllersFile[] = "/etc/sssd/conf.d/55-nimauth-controllers.conf";
constexpr char kSmartCardFile[] = "/etc/sssd/conf.d/60-nimauth-smartcard.conf";
constexpr char kSssdConfiguration[] = "/etc/sssd";
constexpr auto kTurnTime = std::chrono::seconds(10);
constexpr mode_t kRecordFolderMode = 0755;
constexpr mode_t kSssdFolderMode = 0711;  // as its packages have it

Record ReadRecord(const std::string& root) {
    const auto file = ReadFile(root + kRecordFile);
    return file ? ParseRecord(file->text) : Record();
}

std::vector<std::string> WithoutRepeats(const std::vector<std::string>& texts) {
    std::vector<std::string> unique;
    for (const auto& text : texts) {
        if (std::find(unique.begin(), unique.end(), text) == unique.end()) unique.push_back(text);
    }
    return unique;
}

// Every file as the record wants it. The record comes first: a process that is killed half-way has then decided for the
// new state, which the next call completes. The domain comes last, because it is what SSSD begins with.
std::vector<FileChange> FilesFor(const std::string& root, const Record& record, const LogInOptions& options,
                                 const std::vector<std::string>& services) {
    std::vector<FileChange> files = {{root + kRecordFile, FormatRecord(record)},
                                     {root + kSmartCardFile, std::nullopt},
                                     {root + kControllersFile, std::nullopt},
                                     {root + kDomainFile, std::nullopt}};
    if (!record.domain) return files;
    if (record.smartCardServices) files[1].text = SmartCardSnippet(*record.smartCardServices);
    if (!record.controllers.empty()) files[2].text = ControllersSnippet(*record.domain, record.controllers);
    files[3].text = DomainSnippet(*record.domain, options, services);
    return files;
}

std::vector<std::string> NamesOf(const DomainLogIns& domain) {
    std::vector<std::string> names = {domain.dnsName};
    names.insert(names.end(), domain.trustedForests.begin(), domain.trustedForests.end());
    return names;
}

// The domains that SSSD may have served because of us: those of the record, and those of our file where the record was
// lost.
std::vector<std::string> ServedDomains(const std::string& root, const Record& record) {
    SssdSettings settings;
    AddSssdSettings(ReadFileIfPossible(root + kDomainFile).value_or(""), settings);
    std::vector<std::string> names = record.domain ? NamesOf(*record.domain) : std::vector<std::string>();
    std::copy_if(settings.domains.begin(), settings.domains.end(), std::back_inserter(names), IsDnsName);
    return WithoutRepeats(names);
}

std::vector<std::string> Without(const std::vector<std::string>& texts, const std::vector<std::string>& others) {
    std::vector<std::string> left;
    std::copy_if(texts.begin(), texts.end(), std::back_inserter(left), [&](const std::string& text) {
        return std::find(others.begin(), others.end(), text) == others.end();
    });
    return left;
}

// Innermost first. Once SSSD is installed its packages own them; a folder in use stays in any case.
void RemoveEmptySssdFolders(const std::string& root) {
    if (SssdService(root).IsInstalled()) return;
    for (const char* const folder : {kSssdFolder, kSssdConfiguration}) {
        if (rmdir((root + folder).c_str()) == 0) continue;
        const int error = errno;
        if (error != ENOENT && error != ENOTEMPTY) kit::ThrowFileError("remove", root + folder, error);
    }
}

// Makes the folders that SSSD's packages would bring. They are gone again if the change fails.
class SssdFolders {
 public:
    explicit SssdFolders(const std::string& root) : _root(root) {
        try {
            kit::MakeFolders(root + kSssdConfiguration, kSssdFolderMode);
            kit::MakeFolders(root + kSssdFolder, kSssdFolderMode);
        } catch (...) {  // the destructor of a half-made object does not run
            Remove();
            throw;
        }
    }
    SssdFolders(const SssdFolders&) = delete;
    SssdFolders& operator=(const SssdFolders&) = delete;
    ~SssdFolders() {
        if (!_kept) Remove();
    }

    void Keep() { _kept = true; }

 private:
    void Remove() const {
        try {
            RemoveEmptySssdFolders(_root);
        } catch (const std::exception&) {  // exhausted memory too: this runs in a destructor
            // An empty folder is all that stays, and there is a failure on its way already.
        }
    }

    const std::string& _root;
    bool _kept = false;
};

// `left`: the domains that SSSD is to forget.
void BringAlong(const std::string& root, const SssdService& sssd, const std::vector<std::string>& left, bool changed) {
    if (!left.empty()) {
        sssd.Stop();
        RemoveCachedData(root, left);
        sssd.Start();
    } else if (changed || !sssd.IsRunning()) {
        sssd.Restart();
    }
}

// Brings the files and SSSD into the state of the record. `domainsBefore`: those that SSSD served until now.
void Apply(const std::string& root, const LogInOptions& options, const Record& record,
           const std::vector<std::string>& domainsBefore) {
    const SssdService sssd(root);
    if (!record.domain) {
        ChangeFiles(FilesFor(root, record, options, {}));
        return;
    }
    const auto left = Without(domainsBefore, NamesOf(*record.domain));
    SssdFolders folders(root);
    const bool changed = ChangeFiles(FilesFor(root, record, options, sssd.ServicesToName()));
    folders.Keep();
    // The change is made by now, and is not to look as if it had failed because SSSD could not be told.
    try {
        BringAlong(root, sssd, left, changed);
    } catch (const std::bad_alloc&) {
        syslog(LOG_WARNING, "Out of memory: SSSD was not told about its new settings; they hold from its next start");
    }
}

// Those who change the same files take turns, for as long as each has this object.
class Turn {
 public:
    explicit Turn(const std::string& root) : _lock(root + kRecordLock, kit::OwnerLock::File::GoesWithTheLock) {
        kit::MakeFolders(root + kRecordFolder, kRecordFolderMode);
        if (!_lock.TryFor(kTurnTime)) kit::ThrowFileError("lock", root + kRecordLock, EWOULDBLOCK);
    }

 private:
    kit::OwnerLock _lock;
};

// Changes the record and brings everything else into line with it.
template <typename Edit>
void Change(const std::string& root, const LogInOptions& options, Edit edit) {
    CheckOptions(options);
    const Turn turn(root);
    Record record = ReadRecord(root);
    const auto domainsBefore = ServedDomains(root, record);
    edit(record);
    Apply(root, options, record, domainsBefore);
}

bool IsThere(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

bool HasAnything(const std::string& root) {
    // The lock is there if somebody changes something now, or was killed meanwhile.
    const char* const files[] = {kRecordFile, kDomainFile, kControllersFile, kSmartCardFile, kRecordLock};
    return std::any_of(std::begin(files), std::end(files), [&](const char* file) { return IsThere(root + file); });
}

// What SSSD knows of the domains goes while it does not run; then it runs again if it has something else to serve.
void Forget(const std::string& root, const Record& record, const std::vector<std::string>& domains) {
    const SssdService sssd(root);
    sssd.Stop();
    std::optional<kit::StatusError> failure;
    try {
        RemoveCachedData(root, domains);
    } catch (const kit::StatusError& error) {  // the domains that stay are to be served all the same
        failure = error;
    }
    if (record.sssdRan || !ReadForeignSssdSettings(root).domains.empty()) sssd.Start();
    if (failure) throw kit::StatusError(*failure);
}

// What was set and not joined: a next join needs it.
Record SettingsIn(const Record& record) {
    Record settings;
    settings.controllers = record.controllers;
    settings.smartCardServices = record.smartCardServices;
    return settings;
}

std::optional<std::string> RecordText(const Record& record) {
    const bool isEmpty = !record.domain && record.controllers.empty() && !record.smartCardServices;
    return isEmpty ? std::nullopt : std::optional(FormatRecord(record));
}

// Takes the domain away; `whatStays` tells of a record what is left of it.
template <typename WhatStays>
void TakeAway(const std::string& root, WhatStays whatStays) {
    if (!HasAnything(root)) return;
    const Turn turn(root);
    const Record record = ReadRecord(root);
    const auto domains = ServedDomains(root, record);
    const std::vector<std::string> files = {root + kDomainFile, root + kControllersFile, root + kSmartCardFile};
    ChangeFiles({{files[0], std::nullopt}, {files[1], std::nullopt}, {files[2], std::nullopt}});
    if (!domains.empty()) Forget(root, record, domains);
    for (const auto& file : files) RemoveLeftovers(file);
    RemoveEmptySssdFolders(root);
    // Last, so that a leave that was cut short can be repeated.
    ChangeFiles({{root + kRecordFile, RecordText(whatStays(record))}});
}

}  // namespace

LogIns::LogIns(std::string root, LogInOptions options) : _root(std::move(root)), _options(std::move(options)) {}

void LogIns::Enable(const DomainLogIns& domain) {
    CheckDomain(domain);
    if (!IsThere(_root + domain.keytab)) {
        throw kit::StatusError(kit::status::kStatusFileNotFound, "The keytab '" + domain.keytab + "' is missing");
    }
    Change(_root, _options, [&](Record& record) {
        if (!record.domain) record.sssdRan = SssdService(_root).IsRunning();
        record.domain = domain;
        record.domain->trustedForests = UsableForests(Without(WithoutRepeats(domain.trustedForests), {domain.dnsName}));
    });
}

void LogIns::Disable() {
    TakeAway(_root, [](const Record&) { return Record(); });
}

void LogIns::DisableDomain() { TakeAway(_root, SettingsIn); }

void LogIns::SetPreferredControllers(const std::vector<std::string>& controllers) {
    CheckControllers(controllers);
    Change(_root, _options, [&](Record& record) { record.controllers = WithoutRepeats(controllers); });
}

std::vector<std::string> LogIns::PreferredControllers() const { return ReadRecord(_root).controllers; }

void LogIns::SetSmartCardServices(const std::vector<std::string>& services) {
    CheckServices(services);
    Change(_root, _options, [&](Record& record) { record.smartCardServices = WithoutRepeats(services); });
}

std::vector<std::string> LogIns::SmartCardServices() const {
    return ReadRecord(_root).smartCardServices.value_or(std::vector<std::string>());
}

}  // namespace nimbrel::ad
