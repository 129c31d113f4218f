#pragma once

#include "tools/console/failure.h"
#include "tools/console/options.h"

namespace orvel::console {

/// Checks a configuration and, given an export, prints what it selects and what the provider would write. Returns
/// Problem, NotUnderstood or Differs, the first of these that applies, else Ok. COM must be initialised. Throws
/// Failure.
ExitCode Check(const Options& options);

} // namespace orvel::console
