#pragma once

#include "tools/console/failure.h"
#include "tools/console/options.h"

namespace orvel::console {

/// Reports what is wrong with a configuration and, given an export, what the provider would make of it. COM must be
/// initialised on the calling thread. Gives Ok, Problem or Differs; throws Failure when it cannot check.
ExitCode Check(const Options& options);

} // namespace orvel::console
