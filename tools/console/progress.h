#pragma once

#include <windows.h>

#include <chrono>

namespace orvel::console {

/// Shows on standard error how far a long replay has come; a short one shows nothing.
class Progress {
public:
    Progress();
    /// Called often; writes at most a few times a second. `wait`: until the next entry, which only a terminal shows.
    void Show(DWORD done, DWORD total, std::chrono::seconds wait = {});
    /// Ends the line that is being rewritten, if there is one.
    void Finish();

private:
    using Clock = std::chrono::steady_clock;
    const bool isTerminal_;
    Clock::time_point next_;
    bool isShown_ = false;
};

} // namespace orvel::console
