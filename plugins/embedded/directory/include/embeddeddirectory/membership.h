// This host's own side of an embedded domain: which domain it has joined, its machine account and that account's
// secret, its preferred controllers and its smart-card services. It is a file of its own, apart from the directory, so
// that the host's secret and the domain's account can fall out of step as they do in real life.
//
// File: mode 0600 under any umask, created by the first change. The secret stands in it in clear, as in a keytab; it is
// overwritten when the host leaves. A missing file reads as "not a member".
//
// Threads: an object may be used from any number of threads; several objects and processes may use one file.
//
// Errors: `DirectoryError` with 2691 (already joined), 2692 (not joined), 1359 (storage), 5 (may not be used).
//
//     Membership membership = Membership::Open();
//     if (auto current = membership.Current()) Show(current->domain.dnsName, current->distinguishedName);

#ifndef NIMBREL_EMBEDDED_MEMBERSHIP_H_
#define NIMBREL_EMBEDDED_MEMBERSHIP_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "embeddeddirectory/directory_error.h"
#include "embeddeddirectory/directory_types.h"
#include "pluginkit/secret.h"

namespace nimbrel::embedded {

inline constexpr char kDefaultMembershipPath[] = "/var/lib/nimbrel/embedded-membership.db";

struct MembershipInfo {
    DomainInfo domain;
    std::string accountName;         // "NODE01", without the "$"
    std::string distinguishedName;   // as it was at the join
    std::string organizationalUnit;  // path form; empty for the default container
    std::string hostPrincipal;       // "host/node01.corp.test@CORP.TEST"
    std::uint32_t keyVersion = 1;
};

// Everything that the file holds, except the secret.
struct MembershipSnapshot {
    std::optional<MembershipInfo> membership;
    std::vector<std::string> preferredControllers;
    std::vector<std::string> smartCardServices;
};

class MembershipChange;

class Membership {
 public:
    // Touches nothing yet. The two look-ups are for calls that read, see `OpenMode`; a change is made as ever.
    static Membership Open(const std::string& path = kDefaultMembershipPath, OpenMode mode = OpenMode::MustExist);

    Membership(Membership&&) noexcept;
    Membership& operator=(Membership&&) noexcept;
    Membership(const Membership&) = delete;
    Membership& operator=(const Membership&) = delete;
    ~Membership();

    // Unset when the host is not joined.
    std::optional<MembershipInfo> Current() const;
    // The machine account's secret. Throws 2692.
    kit::Secret MachineSecret() const;

    // Keeps every other process from changing the file until the change is committed or destroyed.
    MembershipChange BeginChange();

    // In the order of preference; may be set before a join, is emptied by a leave.
    std::vector<std::string> PreferredControllers() const;
    void SetPreferredControllers(const std::vector<std::string>& controllers);
    // The services for which smart-card log-in is enabled; a setting of the host, kept over joins and leaves.
    std::vector<std::string> SmartCardServices() const;
    void SetSmartCardServices(const std::vector<std::string>& services);

    MembershipSnapshot Export() const;

 private:
    Membership(std::string path, OpenMode mode) : _path(std::move(path)), _mode(mode) {}

    std::string _path;
    OpenMode _mode;
};

// One change of the membership, durable once `Commit` returns; destroyed before that it leaves the file as it was. Used
// by one thread; keep it short, other writers wait.
class MembershipChange {
 public:
    MembershipChange(MembershipChange&&) noexcept;
    MembershipChange& operator=(MembershipChange&&) noexcept;
    MembershipChange(const MembershipChange&) = delete;
    MembershipChange& operator=(const MembershipChange&) = delete;
    ~MembershipChange();

    // The membership inside this change.
    std::optional<MembershipInfo> Current() const;
    // Throws 2691 when there is one already.
    void Record(const MembershipInfo& membership, std::string_view secret);
    // Throws 2692 when there is none.
    void Forget();
    void Commit();

 private:
    friend class Membership;
    class Impl;
    explicit MembershipChange(std::unique_ptr<Impl> impl);

    std::unique_ptr<Impl> _impl;
};

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_MEMBERSHIP_H_
