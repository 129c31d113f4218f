#pragma once

#include "tools/replay/event_record.h"

#include <windows.h>

namespace orvel::replay {

/// Carries an action out that changes a file or a registry value. Gives 0 or a Win32 code.
DWORD CarryOut(const Action& action);

/// How many milliseconds a waiting action waits.
DWORD WaitTime(const Action& action);

} // namespace orvel::replay
