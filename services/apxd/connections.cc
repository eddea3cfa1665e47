#include "services/apxd/connections.h"

#include <sys/socket.h>

#include <algorithm>

namespace nimbrel::apxd {

namespace {

bool IsSameClient(const std::optional<Address>& a, const std::optional<Address>& b) {
    return a.has_value() == b.has_value() && (!a || a->Client() == b->Client());
}

}  // namespace

Connections::Connections(std::chrono::seconds patience, ConnectionLimits limits)
    : _patience(patience), _limits(limits), _watch([this] { Watch(); }) {}

Connections::~Connections() {
    {
        const std::lock_guard<std::mutex> lock(_lock);
        _ending = true;
    }
    _changed.notify_all();
    _watch.join();
}

const char* Connections::Refusal(const Visitor& visitor) {
    const std::lock_guard<std::mutex> lock(_lock);
    const char* const beyond = Beyond(visitor);
    if (beyond == nullptr || !visitor.allowed) return beyond;
    const auto others =
        std::count_if(_open.begin(), _open.end(), [](const auto& one) { return one.second.turnedAway; });
    return static_cast<std::size_t>(others) < kTurnedAway ? nullptr : beyond;
}

const char* Connections::Beyond(const Visitor& visitor) const {
    std::size_t alike = 0;
    std::size_t own = 0;
    for (const auto& [socket, connection] : _open) {
        if (connection.visitor.allowed != visitor.allowed || connection.turnedAway != nullptr) continue;
        ++alike;
        if (IsSameClient(connection.visitor.address, visitor.address)) ++own;
    }
    if (own >= (visitor.allowed ? _limits.ofOneClient : kOfOneOutsider)) return "too many connections of this client";
    if (visitor.allowed) return alike >= _limits.all ? "too many connections" : nullptr;
    return alike >= kOutsiders ? "too many connections of addresses that may not ask" : nullptr;
}

void Connections::Open(int socket, const Visitor& visitor) {
    {
        const std::lock_guard<std::mutex> lock(_lock);
        _open[socket] = {Clock::now() + _patience, visitor, visitor.allowed ? Beyond(visitor) : nullptr};
    }
    _changed.notify_all();
}

void Connections::Close(int socket) {
    {
        const std::lock_guard<std::mutex> lock(_lock);
        _open.erase(socket);
    }
    _changed.notify_all();
}

const char* Connections::TurnedAway(int socket) {
    const std::lock_guard<std::mutex> lock(_lock);
    const auto found = _open.find(socket);
    return found == _open.end() ? nullptr : found->second.turnedAway;
}

void Connections::Suspend(int socket) { SetDeadline(socket, Clock::time_point::max()); }
void Connections::Resume(int socket) { SetDeadline(socket, Clock::now() + _patience); }

bool Connections::WaitForNone(std::chrono::seconds time) {
    std::unique_lock<std::mutex> lock(_lock);
    return _changed.wait_for(lock, time, [this] { return _open.empty(); });
}

void Connections::SetDeadline(int socket, Clock::time_point deadline) {
    {
        const std::lock_guard<std::mutex> lock(_lock);
        const auto found = _open.find(socket);
        if (found != _open.end()) found->second.deadline = deadline;
    }
    _changed.notify_all();
}

// Who may not ask shall not fill the log either.
void Connections::LogCut(const Visitor& visitor) {
    LogLine line("cut");
    line.Add("client", TextOf(visitor.address)).Add("reason", "too slow");
    visitor.allowed ? line.Write() : _outsiders.Write(line, Clock::now());
}

// Returns the next deadline.
Connections::Clock::time_point Connections::CutOverdue() {
    auto next = Clock::time_point::max();
    for (auto& [socket, connection] : _open) {
        if (connection.deadline <= Clock::now()) {
            LogCut(connection.visitor);
            shutdown(socket, SHUT_RDWR);
            connection.deadline = Clock::time_point::max();
        }
        next = std::min(next, connection.deadline);
    }
    return next;
}

void Connections::Watch() {
    std::unique_lock<std::mutex> lock(_lock);
    while (!_ending) {
        const auto next = CutOverdue();
        if (next == Clock::time_point::max()) {
            _changed.wait(lock);
        } else {
            _changed.wait_until(lock, next);
        }
    }
}

}  // namespace nimbrel::apxd
