#pragma once

#include "tools/replay/event_record.h"

#include <windows.h>

namespace orvel::replay {

/// Carries an action out: changes a file or a registry value, or waits. Gives 0 or a Win32 code.
DWORD CarryOut(const Action& action);

} // namespace orvel::replay
