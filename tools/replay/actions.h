#pragma once

#include "tools/replay/event_record.h"

#include <windows.h>

namespace orvel::replay {

/// Carries out an action that changes a file or a registry value. Returns 0 or a Win32 code.
DWORD CarryOut(const Action& action);

/// Returns the milliseconds that a waiting action waits.
DWORD WaitTime(const Action& action);

} // namespace orvel::replay
