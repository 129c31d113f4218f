#pragma once

#include "module/registrar_script.h"

#include <windows.h>

namespace orvel {

/// Makes what a script lists; `classes` stands for its root HKCR. Stops at the first failure and gives its Win32 code,
/// leaving what was made until then.
LSTATUS RegisterScript(const Script& script, HKEY classes);

/// Removes what a script lists, from its end to its beginning: named values, default values, then each key that may be
/// removed and has no subkey left. What is not there is no failure. Goes on after a failure and gives the first one's
/// Win32 code.
LSTATUS UnregisterScript(const Script& script, HKEY classes);

} // namespace orvel
