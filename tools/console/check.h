#pragma once

#include "tools/console/failure.h"
#include "tools/console/options.h"

namespace orvel::console {

/// Reports what is wrong with a configuration and, given an export, what the provider would make of it. Returns Ok,
/// Problem, NotUnderstood or Differs, the first that applies in the order 9, 18, 10. COM must be initialised. Throws
/// Failure.
ExitCode Check(const Options& options);

} // namespace orvel::console
