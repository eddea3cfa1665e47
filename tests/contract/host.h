// What the tests of the platform libraries do to their private host: files, mounts, processes, privileges.

#ifndef TESTS_CONTRACT_HOST_H_
#define TESTS_CONTRACT_HOST_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <linux/magic.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/temporary_folder.h"

extern char** environ;

namespace host {

// Ends the tests of a program that was started outside a private root: they write the host's real paths.
class PrivateRoot : public ::testing::Environment {
 public:
    void SetUp() override {
        struct statfs root = {};
        struct statfs etc = {};
        ASSERT_EQ(statfs("/", &root), 0);
        ASSERT_EQ(statfs("/etc", &etc), 0);
        const bool isPrivate = root.f_type == TMPFS_MAGIC && etc.f_type == OVERLAYFS_SUPER_MAGIC;
        ASSERT_TRUE(isPrivate) << "start this program with scripts/private-root";
    }
};

// To be called once, when the program starts.
inline ::testing::Environment* RequirePrivateRoot() {
    return ::testing::AddGlobalTestEnvironment(std::make_unique<PrivateRoot>().release());
}

inline ino_t InodeOf(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) throw std::runtime_error("cannot stat " + path);
    return status.st_ino;
}

// A mount that goes away again.
class Mount {
 public:
    // A file system in memory of `size` ("256k").
    static Mount Memory(const std::string& target, const std::string& size) {
        return {"tmpfs", target, "tmpfs", 0, "size=" + size};
    }
    // `source` shown at `target` too.
    static Mount Bind(const std::string& source, const std::string& target) {
        return {source, target, "", MS_BIND, ""};
    }
    Mount(Mount&& other) noexcept : _target(std::exchange(other._target, "")) {}
    Mount& operator=(Mount&&) = delete;
    ~Mount() {
        if (!_target.empty()) umount2(_target.c_str(), MNT_DETACH);
    }

    void Remount(bool readOnly) {
        unsigned long flags = MS_REMOUNT | MS_BIND;
        if (readOnly) flags |= MS_RDONLY;
        if (mount("none", _target.c_str(), nullptr, flags, nullptr) != 0) throw std::runtime_error("remount");
    }

 private:
    Mount(const std::string& source, std::string target, const std::string& type, unsigned long flags,
          const std::string& options)
        : _target(std::move(target)) {
        if (mount(source.c_str(), _target.c_str(), type.c_str(), flags, options.c_str()) != 0) {
            throw std::runtime_error("cannot mount on " + _target);
        }
    }
    std::string _target;
};

// The system log of a private root: what programs say to it.
class SystemLog {
 public:
    SystemLog() : _fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::string("/dev/log").copy(address.sun_path, sizeof(address.sun_path) - 1);
        if (bind(_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            throw std::runtime_error("cannot listen on /dev/log");
        }
    }
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;
    ~SystemLog() {
        close(_fd);
        unlink("/dev/log");
    }

    // Everything that has been logged since the last time, with its priority ("<12>Nov 21 ... text").
    std::string Take() {
        std::string all;
        char message[8192];
        for (ssize_t size = 0; (size = recv(_fd, message, sizeof(message), 0)) > 0;) {
            all.append(message, static_cast<std::size_t>(size)).append("\n");
        }
        return all;
    }

 private:
    const int _fd;
};

// Takes all room of the file system that `path` lies on, leaving `leave` bytes free.
inline void FillUp(const std::string& path, std::size_t leave) {
    std::ofstream file(path, std::ios::binary);
    const std::string block(4096, 'f');
    while (file.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
    }
    file.close();
    const auto size = std::filesystem::file_size(path);
    std::filesystem::resize_file(path, size > leave ? size - leave : 0);
}

// While it lives, the calling thread has no capability: files are opened as their modes say, even by root.
class Unprivileged {
 public:
    Unprivileged() {
        Get();
        SetEffective({0, 0});
    }
    Unprivileged(const Unprivileged&) = delete;
    Unprivileged& operator=(const Unprivileged&) = delete;
    ~Unprivileged() { SetEffective({_data[0].permitted, _data[1].permitted}); }

 private:
    void Get() {
        if (syscall(SYS_capget, &_header, _data) != 0) throw std::runtime_error("capget");
    }
    void SetEffective(std::vector<__u32> effective) {
        _data[0].effective = effective[0];
        _data[1].effective = effective[1];
        if (syscall(SYS_capset, &_header, _data) != 0) std::terminate();
    }
    __user_cap_header_struct _header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct _data[2] = {};
};

// A process running a program, with its standard output as a pipe. Killed if it still runs when this goes away.
class Child {
 public:
    // `input` becomes its standard input.
    explicit Child(std::vector<std::string> words, int input = STDIN_FILENO) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        std::vector<char*> arguments;
        for (std::string& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        const int error = posix_spawn(&_pid, arguments[0], &actions, nullptr, arguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        _output = ends[0];
        if (error != 0) throw std::runtime_error("cannot run " + words[0]);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        if (_pid > 0) Kill();
        close(_output);
    }

    // The next line of the output, or what is left of it.
    std::string ReadLine() {
        std::string line;
        char c = 0;
        while (read(_output, &c, 1) == 1 && c != '\n') line.push_back(c);
        return line;
    }

    // Waits for the end and returns the exit status, or the negative number of the signal.
    int Wait() {
        int status = 0;
        while (waitpid(_pid, &status, 0) < 0) {
        }
        _pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    int Kill() {
        kill(_pid, SIGKILL);
        return Wait();
    }

 private:
    pid_t _pid = -1;
    int _output = -1;
};

// Runs a program to its end and expects it to succeed.
inline void Run(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) line += word + " ";
    EXPECT_EQ(Child(words).Wait(), 0) << line;
}

}  // namespace host

#endif  // TESTS_CONTRACT_HOST_H_
