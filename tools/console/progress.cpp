#include "tools/console/progress.h"

#include <io.h>

#include <cstdio>
#include <string>

namespace orvel::console {

using namespace std::chrono_literals;

Progress::Progress() : isTerminal_(_isatty(_fileno(stderr)) != 0), next_(Clock::now() + 1s) {}

void Progress::Show(DWORD done, DWORD total, std::chrono::seconds wait)
{
    const Clock::time_point now = Clock::now();
    if (now < next_ || (wait != 0s && !isTerminal_)) {
        return;
    }
    // A terminal's line is rewritten; a file gets a line now and then.
    next_ = now + (isTerminal_ ? 200ms : 2000ms);
    isShown_ = true;
    const unsigned percent = static_cast<unsigned>(100ULL * done / (total == 0 ? 1 : total));
    const std::string next = wait == 0s ? "" : ", the next in " + std::to_string(wait.count()) + " s";
    std::fprintf(stderr, isTerminal_ ? "\rreplayed %lu of %lu (%u %%)%-28s" : "replayed %lu of %lu (%u %%)%s\n", done,
                 total, percent, next.c_str());
    std::fflush(stderr);
}

void Progress::Finish()
{
    if (isTerminal_ && isShown_) {
        std::fputs("\n", stderr);
    }
}

} // namespace orvel::console
