// A management agent in miniature: it keeps a status page up to date, and a controller that hangs makes the page stale
// instead of hanging the agent.
//
//     agent PAGE [TIMEOUT-SECONDS [INTERVAL-SECONDS [COUNT]]]
//
// The page is a file that always holds one whole report:
//
//     state: stale (1 question unanswered)
//     domain: corp.test
//     trust state: 1
//     trusted domain: trust.test relationship 5

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <functional>
#include <iostream>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include "authentication/background_work.h"
#include "authentication/directory_store.h"

namespace auth = nimbrel::authentication;

namespace {

// A few threads that run the library's work items. The library never asks a question a second time while its first call
// still hangs, so that a hung controller holds one thread for each kind of question and no more.
class Pool {
 public:
    explicit Pool(int threads) {
        for (int i = 0; i < threads; ++i) std::thread([this] { Work(); }).detach();
    }

    void Post(std::function<void()> work) {
        const std::lock_guard<std::mutex> lock(_mutex);
        _queue.push_back(std::move(work));
        _changed.notify_one();
    }

    // How many items are waiting or running.
    int Open() {
        const std::lock_guard<std::mutex> lock(_mutex);
        return static_cast<int>(_queue.size()) + _running;
    }

 private:
    void Work() {
        for (std::unique_lock<std::mutex> lock(_mutex);;) {
            _changed.wait(lock, [this] { return !_queue.empty(); });
            std::function<void()> work = std::move(_queue.front());
            _queue.pop_front();
            ++_running;
            lock.unlock();
            work();
            work = nullptr;
            lock.lock();
            --_running;
        }
    }

    std::mutex _mutex;  // guards the queue and the count; never held while an item runs
    std::condition_variable _changed;
    std::deque<std::function<void()>> _queue;
    int _running = 0;
};

// An item ends a moment after its answer is in the cache: that moment is no staleness.
int Unanswered(Pool& pool) {
    for (int tries = 0; tries < 20 && pool.Open() > 0; ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return pool.Open();
}

// The page changes as a whole or not at all. It is built under a name that nobody can have put a link at.
bool ReplacePage(const std::string& path, const std::string& text) {
    std::string built = path + ".XXXXXX";
    const int file = mkostemp(built.data(), O_CLOEXEC);
    if (file < 0) return false;
    const bool written = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    const bool complete = fchmod(file, 0644) == 0 && written;
    if (close(file) == 0 && complete && std::rename(built.c_str(), path.c_str()) == 0) return true;
    unlink(built.c_str());
    return false;
}

// Everything comes from the cache: this never waits for the directory.
void WritePage(const std::string& path, int unanswered) {
    const auth::ADCache& cache = auth::ActiveDirectoryStore::Cache();
    std::ostringstream page;
    if (unanswered == 0) {
        page << "state: fresh\n";
    } else {
        page << "state: stale (" << unanswered << (unanswered == 1 ? " question" : " questions") << " unanswered)\n";
    }
    page << "domain: " << (cache.IsDomainMember() ? cache.GetConfiguration().DomainDNSName() : "none") << '\n'
         << "trust state: " << cache.GetDomainTrustState() << '\n';
    for (const auth::Domain& domain : cache.GetTrustedDomains()) {
        page << "trusted domain: " << domain.DNSName() << " relationship "
             << cache.GetDomainTrustRelationship(domain.DNSName()) << '\n';
    }
    if (!ReplacePage(path, page.str())) std::cerr << "unable to write '" << path << "'\n";
}

int Run(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: agent PAGE [TIMEOUT-SECONDS [INTERVAL-SECONDS [COUNT]]]\n";
        return 2;
    }
    const auto number = [&](int index, int usual) { return argc > index ? std::atoi(argv[index]) : usual; };
    // Never destroyed: a hung call may outlive everything else.
    static Pool& pool = *new Pool(8);
    auth::NimauthThreadUtil::SetScheduler([](std::function<void()> work) { pool.Post(std::move(work)); });
    auth::ActiveDirectoryStore store(number(2, 5));
    const int count = number(4, 0);
    for (int looks = 1;; ++looks) {
        store.UpdateCache(std::nullopt);
        WritePage(argv[1], Unanswered(pool));
        if (looks == count) return 0;
        std::this_thread::sleep_for(std::chrono::seconds(number(3, 10)));
    }
}

}  // namespace

int main(int argc, char** argv) {
    int status = 1;
    try {
        status = Run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
    }
    // Work items may hang for as long as they like.
    _exit(status);
}
