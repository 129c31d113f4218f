#pragma once

#include <windows.h>

namespace orvel::replay {

/// Serves hosts that do not use the control functions: the first call loads the export that the environment variable
/// ORVEL_REPLAY names, if it is set, and plays it on another thread one second later, so that the host can subscribe
/// all its metrics. Returns 0, or the code of an export that cannot be read, which standard error explains.
DWORD StartUnattended();

} // namespace orvel::replay
