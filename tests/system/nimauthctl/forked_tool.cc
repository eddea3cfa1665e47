#include "forked_tool.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <stdexcept>

#include "tools/nimauthctl/questions.h"
#include "tools/nimauthctl/standard_streams.h"
#include "tools/nimauthctl/tool.h"

namespace nimbrel::testing {
namespace {

int MemoryFile(const std::string& text = "") {
    const int file = memfd_create("captured", MFD_CLOEXEC);
    if (file < 0) throw std::runtime_error("memfd_create");
    nimauthctl::WriteAll(file, text);
    lseek(file, 0, SEEK_SET);
    return file;
}

std::string TakeAll(int file) {
    std::string text(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
    if (pread(file, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("pread");
    close(file);
    return text;
}

[[noreturn]] void BeTheTool(const std::vector<std::string>& words, int input, int output, int errors, uid_t user) {
    setsid();  // no terminal
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
    if (user != 0 && (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0)) _exit(126);
    nimauthctl::GuardStandardStreams();
    _exit(nimauthctl::RunTool(words));
}

int Await(pid_t child, int seconds) {
    const int process = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    pollfd ended{process, POLLIN, 0};
    if (poll(&ended, 1, seconds * 1000) == 0) {
        kill(child, SIGTERM);
        if (poll(&ended, 1, seconds * 10'000) == 0) kill(child, SIGKILL);
    }
    close(process);
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

}  // namespace

ForkedResult RunForkedTool(const std::vector<std::string>& words, const std::string& input, uid_t user, int seconds) {
    const int in = MemoryFile(input);
    const int out = MemoryFile();
    const int errors = MemoryFile();
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("fork");
    if (child == 0) BeTheTool(words, in, out, errors, user);
    const int status = Await(child, seconds);
    close(in);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, WIFSIGNALED(status) ? WTERMSIG(status) : 0, TakeAll(out),
            TakeAll(errors)};
}

std::vector<std::string> WordsOf(const std::string& commandLine) {
    std::vector<std::string> words;
    bool inWord = false;
    char quote = 0;
    for (const char c : commandLine) {
        if (quote != 0 ? c == quote : (c == '\'' || c == '"')) {
            quote = quote != 0 ? 0 : c;
            if (!inWord) words.emplace_back();
            inWord = true;
        } else if (quote == 0 && (c == '|' || c == '<' || c == '>')) {
            break;
        } else if (quote == 0 && c == ' ') {
            inWord = false;
        } else {
            if (!inWord) words.emplace_back();
            inWord = true;
            words.back() += c;
        }
    }
    if (!words.empty()) words.erase(words.begin());
    return words;
}

}  // namespace nimbrel::testing
