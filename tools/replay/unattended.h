#pragma once

#include <windows.h>

namespace orvel::replay {

/// For hosts that know nothing of the replay log: at its first call loads the export that the environment variable
/// ORVEL_REPLAY names, if it is set, and plays it on a thread of its own a second later, so that the host can subscribe
/// all its metrics. Gives 0, or the code of an export that cannot be read, which standard error explains.
DWORD StartUnattended();

} // namespace orvel::replay
