// Thread cancellation around the libraries that a provider stands on, which cannot be left half-way.

#ifndef NIMBREL_PLUGINKIT_CANCELLATION_H_
#define NIMBREL_PLUGINKIT_CANCELLATION_H_

namespace nimbrel::kit {

// Puts off thread cancellation for as long as it lives.
class CancellationShield {
 public:
    CancellationShield();
    CancellationShield(const CancellationShield&) = delete;
    CancellationShield& operator=(const CancellationShield&) = delete;
    ~CancellationShield();

    // Inside its life time: lets the caller's own setting count again.
    void Lower() const;
    void Raise() const;

 private:
    int _before = 0;
};

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_CANCELLATION_H_
