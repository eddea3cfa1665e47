// The file under the configuration store: who may read it, and what happens when it is damaged, in the way or out of
// room.

#include <dlfcn.h>
#include <sqlite3.h>
#include <sys/mman.h>

#include <cerrno>
#include <chrono>

#include "config_store.h"
#include "host.h"
#include "platform/orbconfigstore/src/sqlite_store.h"

namespace {

using OrbConfigStore::ConfigStoreException;
using OrbConfigStore::SqliteStore;
using ::testing::Test;

class ConfigStoreDamage : public Test {
 protected:
    void Write(const Values& values) { WriteObject(_store, _id, values); }
    std::optional<Values> Read() { return ReadObject(_store, _id); }

    // The text of the failure, or "no failure".
    template <class Operation>
    static std::string ErrorOf(Operation operation) {
        try {
            operation();
        } catch (const ConfigStoreException& error) {
            return error.what();
        }
        return "no failure";
    }
    std::string WriteError() {
        return ErrorOf([this] { Write({{"n", "new"}}); });
    }
    std::string ReadError() {
        return ErrorOf([this] { Read(); });
    }
    std::string RemoveError() {
        return ErrorOf([this] { _store.RemoveObject(_id); });
    }
    std::string Expected(const std::string& verb, const std::string& reason) const {
        return "Cannot " + verb + " the object contract/group/one in " + _path + ": " + reason;
    }
    // Every operation fails for this reason.
    void ExpectUnusable(const std::string& reason) {
        EXPECT_EQ(ReadError(), Expected("read", reason));
        EXPECT_EQ(WriteError(), Expected("write", reason));
        EXPECT_EQ(RemoveError(), Expected("remove", reason));
    }
    // Runs a statement on the file with SQLite itself.
    void Sql(const char* sql) {
        const OrbConfigStore::Activity activity = {_path, "prepare"};
        OrbConfigStore::Database(_path, activity).Execute(sql);
    }

    const TemporaryFolder _folder;
    const std::string _path = _folder / "configstore.db";
    const ConfigStoreObjectId _id = ContractId("one");
    SqliteStore _store{_path, "global"};
    const Values _old = {{"n", "old"}};
};

TEST_F(ConfigStoreDamage, ReadingAndRemovingNeverCreateTheFile) {
    EXPECT_EQ(Read(), std::nullopt);
    _store.RemoveObject(_id);
    EXPECT_FALSE(std::filesystem::exists(_path));
}

TEST_F(ConfigStoreDamage, ReadingWithoutAFolderFindsNothing) {
    SqliteStore store(_folder / "missing/configstore.db", "global");
    EXPECT_EQ(store.GetObject(_id), nullptr);
}

TEST_F(ConfigStoreDamage, MissingFolderIsMadeWhateverTheUmask) {
    for (const mode_t mask : {0000, 0022, 0077, 0777}) {
        const std::string folder = _folder / std::to_string(mask);
        SqliteStore store(folder + "/configstore.db", "global");
        const mode_t before = umask(mask);
        WriteObject(store, _id, _old);
        umask(before);
        EXPECT_EQ(ModeOf(folder), 0755U) << std::oct << mask;
        EXPECT_EQ(ModeOf(folder + "/configstore.db"), 0600U) << std::oct << mask;
        EXPECT_EQ(ReadObject(store, _id), _old);
    }
}

TEST_F(ConfigStoreDamage, FilesBesideItAreTheOwnersAloneWhateverTheUmask) {
    Write(_old);
    for (const mode_t mask : {0000, 0022, 0777}) {
        const mode_t before = umask(mask);
        const OrbConfigStore::Activity activity = {_path, "look"};
        OrbConfigStore::Database database(_path, activity);
        database.Execute("BEGIN IMMEDIATE; DELETE FROM value; COMMIT");
        umask(before);
        EXPECT_EQ(ModeOf(_path + "-wal"), 0600U) << std::oct << mask;
        EXPECT_EQ(ModeOf(_path + "-shm"), 0600U) << std::oct << mask;
    }
}

TEST_F(ConfigStoreDamage, NothingLiesBesideTheFileBetweenOperations) {
    Write(_old);
    Read();
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(_folder.Path())) names.push_back(entry.path());
    EXPECT_EQ(names, std::vector<std::string>{_path});
}

TEST_F(ConfigStoreDamage, RightsOfOthersAreTakenAway) {
    Write(_old);
    ASSERT_EQ(chmod(_path.c_str(), 0644), 0);
    EXPECT_EQ(Read(), _old);
    EXPECT_EQ(ModeOf(_path), 0600U);
}

TEST_F(ConfigStoreDamage, SymbolicLinkIsNotFollowed) {
    Write(_old);
    const std::string target = _folder / "target.db";
    std::filesystem::rename(_path, target);
    std::filesystem::create_symlink(target, _path);
    const std::string before = ReadFile(target);
    ExpectUnusable("the file is a symbolic link");
    EXPECT_TRUE(ReadFile(target) == before);
}

TEST_F(ConfigStoreDamage, DanglingSymbolicLinkCreatesNothing) {
    std::filesystem::create_symlink(_folder / "target.db", _path);
    ExpectUnusable("the file is a symbolic link");
    EXPECT_FALSE(std::filesystem::exists(_folder / "target.db"));
}

TEST_F(ConfigStoreDamage, FolderMayBeASymbolicLink) {
    std::filesystem::create_directory(_folder / "real");
    std::filesystem::create_symlink("real", _folder / "link");
    SqliteStore linked(_folder / "link/configstore.db", "global");
    SqliteStore real(_folder / "real/configstore.db", "global");
    WriteObject(linked, _id, _old);
    EXPECT_EQ(ReadObject(real, _id), _old);
}

TEST_F(ConfigStoreDamage, FolderInTheWayIsRefused) {
    std::filesystem::create_directory(_path);
    ExpectUnusable("it is not a regular file");
}

TEST_F(ConfigStoreDamage, PipeInTheWayDoesNotHang) {
    ASSERT_EQ(mkfifo(_path.c_str(), 0600), 0);
    ExpectUnusable("it is not a regular file");
}

TEST_F(ConfigStoreDamage, EmptyFileIsDamageAndNotANewStore) {
    WriteFile(_path, "");
    ExpectUnusable("the file is empty, its contents were lost; restore it or remove it");
    EXPECT_EQ(ReadFile(_path), "");
}

TEST_F(ConfigStoreDamage, TextFileIsNotADatabase) {
    const std::string text = "domain_name = corp.test\n";
    WriteFile(_path, text);
    ExpectUnusable("file is not a database");
    EXPECT_EQ(ReadFile(_path), text);
}

TEST_F(ConfigStoreDamage, AnotherProgramsDatabaseIsLeftAlone) {
    Write(_old);
    Sql("PRAGMA journal_mode = DELETE; PRAGMA application_id = 7");
    const std::string before = ReadFile(_path);
    ExpectUnusable("the file is a database, but not a configuration store");
    EXPECT_TRUE(ReadFile(_path) == before);
}

TEST_F(ConfigStoreDamage, NewerSchemaIsRefusedAndKept) {
    Write(_old);
    Sql("PRAGMA user_version = 2");
    const std::string before = ReadFile(_path);
    ExpectUnusable("the store has schema version 2 and this library knows version 1; a newer library wrote it");
    EXPECT_TRUE(ReadFile(_path) == before);
}

TEST_F(ConfigStoreDamage, BackupWithoutWriteAheadModeIsUsed) {
    Write(_old);
    Sql("PRAGMA journal_mode = DELETE");
    EXPECT_EQ(Read(), _old);
    Write({{"n", "new"}});
    EXPECT_EQ(Read(), (Values{{"n", "new"}}));
}

// A cut file is never taken for one that lacks the object, and is not made worse.
TEST_F(ConfigStoreDamage, TruncatedFileIsNoticedAtEverySize) {
    Write(_old);
    const std::string whole = ReadFile(_path);
    for (std::size_t size = 1; size < whole.size(); size += size < 600 ? 1 : 61) {
        WriteFile(_path, whole.substr(0, size));
        EXPECT_NE(ReadError(), "no failure") << size;
        EXPECT_NE(WriteError(), "no failure") << size;
        EXPECT_TRUE(ReadFile(_path) == whole.substr(0, size)) << size;
    }
    WriteFile(_path, whole);
    EXPECT_EQ(Read(), _old);
}

TEST_F(ConfigStoreDamage, OverwrittenPageIsNoticedOrNotNeeded) {
    Write(_old);
    const std::string whole = ReadFile(_path);
    constexpr std::size_t kPage = 4096;
    int noticed = 0;
    for (std::size_t offset = 0; offset < whole.size(); offset += kPage) {
        WriteFile(_path, std::string(whole).replace(offset, kPage, kPage, 'Z'));
        std::string error = ErrorOf([this] { EXPECT_EQ(Read(), _old); });
        if (error != "no failure") ++noticed;
    }
    EXPECT_GE(noticed, 3) << "of " << whole.size() / kPage << " pages";
}

TEST_F(ConfigStoreDamage, UnreadableFileIsRefusedWithTheSystemsText) {
    Write(_old);
    ASSERT_EQ(chmod(_path.c_str(), 0000), 0);
    {
        const host::Unprivileged unprivileged;
        ExpectUnusable("Permission denied");
    }
    ASSERT_EQ(chmod(_path.c_str(), 0600), 0);
    EXPECT_EQ(Read(), _old);
}

TEST_F(ConfigStoreDamage, FolderThatMayNotBeWrittenIsNamed) {
    ASSERT_EQ(chmod(_folder.Path().c_str(), 0500), 0);
    const host::Unprivileged unprivileged;
    EXPECT_EQ(Read(), std::nullopt);
    EXPECT_EQ(WriteError(), Expected("write", "Permission denied"));
}

TEST_F(ConfigStoreDamage, ReadOnlyFileSystemLosesNothing) {
    host::Mount mount = host::Mount::Memory(_folder.Path(), "1m");
    Write(_old);
    mount.Remount(true);
    EXPECT_THAT(WriteError(), ::testing::StartsWith(Expected("write", "")));
    EXPECT_THAT(RemoveError(), ::testing::StartsWith(Expected("remove", "")));
    EXPECT_THAT(ReadError(), ::testing::StartsWith(Expected("read", "")));
    mount.Remount(false);
    EXPECT_EQ(Read(), _old);
}

TEST_F(ConfigStoreDamage, NoStoreOnAReadOnlyFileSystem) {
    host::Mount mount = host::Mount::Memory(_folder.Path(), "1m");
    mount.Remount(true);
    EXPECT_EQ(Read(), std::nullopt);
    EXPECT_EQ(WriteError(), Expected("write", "Read-only file system"));
}

// Room runs out at another step of the write each time.
TEST_F(ConfigStoreDamage, FullDiskKeepsTheOldObject) {
    const host::Mount mount = host::Mount::Memory(_folder.Path(), "512k");
    int failed = 0;
    int written = 0;
    for (std::size_t room = 0; room <= 160 * 1024; room += 4096) {
        Write(_old);
        host::FillUp(_folder / "filler", room);
        const Values larger = {{"n", std::string(20'000, 'n')}};
        const std::string error = ErrorOf([&] { Write(larger); });
        std::filesystem::remove(_folder / "filler");
        (error == "no failure" ? written : failed) += 1;
        EXPECT_EQ(Read(), error == "no failure" ? larger : _old) << room << " bytes left: " << error;
    }
    EXPECT_GT(failed, 0);
    EXPECT_GT(written, 0);
}

TEST_F(ConfigStoreDamage, StoreIsNotHalfMadeOnAFullDisk) {
    const host::Mount mount = host::Mount::Memory(_folder.Path(), "512k");
    int failed = 0;
    for (std::size_t room = 0; room <= 128 * 1024; room += 4096) {
        host::FillUp(_folder / "filler", room);
        const std::string error = WriteError();
        std::filesystem::remove(_folder / "filler");
        if (error == "no failure") {
            EXPECT_EQ(Read(), (Values{{"n", "new"}}));
        } else {
            ++failed;
            EXPECT_EQ(Read(), std::nullopt) << room << " bytes left: " << error;
        }
        Write(_old);
        EXPECT_EQ(Read(), _old);
        std::filesystem::remove(_path);
    }
    EXPECT_GT(failed, 0);
}

// A process that is killed between its last write and the closing leaves the log.
TEST_F(ConfigStoreDamage, LogOfALostStoreIsNotPlayedIntoTheNext) {
    const std::string log = _path + "-wal";
    const std::string left = _folder / "left";
    Write(_old);
    {
        const OrbConfigStore::Activity activity = {_path, "keep the log"};
        OrbConfigStore::Database other(_path, activity);
        other.Execute("BEGIN; SELECT * FROM object");
        Write({{"n", "newer"}});
        std::filesystem::copy_file(log, left);
    }
    ASSERT_FALSE(std::filesystem::exists(log));
    ASSERT_GT(std::filesystem::file_size(left), 0U);
    std::filesystem::remove(_path);
    for (const std::string name : {"-wal", "-journal"}) {
        std::filesystem::copy_file(left, _path + name);
        ExpectUnusable("the file is gone, and " + _path + name +
                       " holds changes of it; put the file back beside it, or remove that one, too");
        EXPECT_FALSE(std::filesystem::exists(_path));
        std::filesystem::remove(_path + name);
    }
    WriteFile(log, "");
    EXPECT_EQ(Read(), std::nullopt);
    Write(_old);
    EXPECT_EQ(Read(), _old);
}

void* NoSharedMemory(void*, std::size_t, int, int, int, off_t) {
    errno = ENODEV;
    return MAP_FAILED;
}

TEST_F(ConfigStoreDamage, NoStoreWhereProcessesCannotShareMemory) {
    sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
    ASSERT_EQ(system->xSetSystemCall(system, "mmap", reinterpret_cast<sqlite3_syscall_ptr>(NoSharedMemory)), SQLITE_OK);
    const std::string error = WriteError();
    system->xSetSystemCall(system, "mmap", nullptr);
    EXPECT_EQ(error, Expected("write", "disk I/O error (No such device)"));
    EXPECT_TRUE(std::filesystem::is_empty(_folder.Path()));
    EXPECT_EQ(Read(), std::nullopt);
}

TEST_F(ConfigStoreDamage, LockHeldByAnotherIsWaitedForAndThenNamed) {
    Write(_old);
    const OrbConfigStore::Activity activity = {_path, "hold"};
    // A process of its own holds the lock: the store's closing of the file would drop a lock of this process.
    int held[2];
    int release[2];
    ASSERT_EQ(pipe2(held, O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(release, O_CLOEXEC), 0);
    const pid_t holder = fork();
    if (holder == 0) {
        char byte = 0;
        OrbConfigStore::Database database(_path, activity);
        database.Execute("BEGIN EXCLUSIVE");
        const bool talked = write(held[1], &byte, 1) == 1 && read(release[0], &byte, 1) == 1;
        database.Execute("ROLLBACK");
        _exit(talked ? 0 : 1);
    }
    char byte = 0;
    ASSERT_EQ(read(held[0], &byte, 1), 1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(WriteError(), Expected("write", "database is locked"));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(9));
    EXPECT_EQ(Read(), _old);
    ASSERT_EQ(write(release[1], &byte, 1), 1);
    int status = -1;
    EXPECT_EQ(waitpid(holder, &status, 0), holder);
    EXPECT_EQ(status, 0);
    Write({{"n", "new"}});
    for (const int end : {held[0], held[1], release[0], release[1]}) close(end);
}

}  // namespace
