#pragma once

#include "tools/console/failure.h"
#include "tools/console/options.h"

namespace orvel::console {

// COM must be initialised on the calling thread. Both throw Failure.

/// Runs the provider over the live Event Log or an export, printing each collection and a summary at the end.
void Run(const Options& options);

/// Reports what is wrong with a configuration and, given an export, what the provider would make of it. Gives Ok,
/// Problem or Differs.
ExitCode Check(const Options& options);

} // namespace orvel::console
