#pragma once

#include "module/registrar_script.h"

#include <windows.h>

namespace orvel {

/// Writes the values and keys that a script lists for `key`: HKCR for the whole script. Returns the Win32 code of the
/// first failure, where registration stops; whatever was already written stays.
LSTATUS RegisterContents(const ScriptKey& listed, HKEY key);

/// Removes the keys and values that a script lists for `key`, in reverse order. A listed key is removed after its
/// contents, unless it is NoRemove, they could not be removed, or other subkeys are left in it. Skips missing keys and
/// values. Continues after a failure and returns the Win32 code of the first one.
LSTATUS UnregisterContents(const ScriptKey& listed, HKEY key);

} // namespace orvel
