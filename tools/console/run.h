#pragma once

#include "tools/console/options.h"

namespace orvel::console {

/// Runs the provider over the live Event Log or an export, printing each collection and a summary at the end. COM must
/// be initialised on the calling thread. Throws Failure.
void Run(const Options& options);

} // namespace orvel::console
