#include "tools/console/progress.h"

#include <io.h>

#include <cstdio>

namespace orvel::console {

using namespace std::chrono_literals;

Progress::Progress() : isTerminal_(_isatty(_fileno(stderr)) != 0), next_(Clock::now() + 1s) {}

void Progress::Show(DWORD done, DWORD total)
{
    const Clock::time_point now = Clock::now();
    if (now < next_) {
        return;
    }
    // A terminal's line is rewritten; a file gets a line now and then.
    next_ = now + (isTerminal_ ? 200ms : 2000ms);
    isShown_ = true;
    std::fprintf(stderr, "%sreplayed %lu of %lu (%u %%)%s", isTerminal_ ? "\r" : "", done, total,
                 static_cast<unsigned>(100ULL * done / (total == 0 ? 1 : total)),
                 isTerminal_ ? "                        " : "\n"); // blanks over a wait that was shown
    std::fflush(stderr);
}

void Progress::ShowWait(DWORD done, DWORD total, std::chrono::seconds rest)
{
    if (isTerminal_ && Clock::now() >= next_) {
        next_ = Clock::now() + 200ms;
        isShown_ = true;
        std::fprintf(stderr, "\rreplayed %lu of %lu, the next in %lld s        ", done, total,
                     static_cast<long long>(rest.count()));
        std::fflush(stderr);
    }
}

void Progress::Finish()
{
    if (isTerminal_ && isShown_) {
        std::fputs("\n", stderr);
    }
}

} // namespace orvel::console
