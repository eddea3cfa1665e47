// What has to be taken back if a step of a transaction fails: the latest step first, each whatever becomes of the
// others.

#ifndef NIMBREL_AD_UNDO_LIST_H_
#define NIMBREL_AD_UNDO_LIST_H_

#include <syslog.h>

#include <exception>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "pluginkit/log_text.h"

namespace nimbrel::ad {

class UndoList {
 public:
    UndoList() = default;
    UndoList(const UndoList&) = delete;
    UndoList& operator=(const UndoList&) = delete;
    // Takes everything back unless `Keep` was called.
    ~UndoList() {
        for (auto step = _steps.rbegin(); step != _steps.rend(); ++step) {
            Run(*step);
        }
    }

    // `what` says in the log what was left behind should the step fail: "the machine account".
    void Add(std::string what, std::function<void()> undo) { _steps.push_back({std::move(what), std::move(undo)}); }
    void Keep() { _steps.clear(); }

 private:
    struct Step {
        std::string what;
        std::function<void()> undo;
    };

    // Logged: the failure that made it necessary is the one to report.
    static void Run(const Step& step) noexcept {
        try {
            step.undo();
        } catch (const std::exception& error) {
            syslog(LOG_WARNING, "A failed domain join leaves %s behind: %s", step.what.c_str(),
                   kit::LogText(error.what()).Text());
        }
    }

    std::vector<Step> _steps;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_UNDO_LIST_H_
