#pragma once

#include "tools/replay/event_record.h"

#include <windows.h>

#include <functional>

namespace orvel::replay {

/// Carries out an action that is no declaration. Returns 0, a Win32 code, or ERROR_CANCELLED if the action waits and
/// `goOn`, which is called every 50 ms, returned false.
DWORD CarryOut(const Action& action, const std::function<bool()>& goOn);

} // namespace orvel::replay
