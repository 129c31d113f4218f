#pragma once

#include "tools/console/options.h"

namespace orvel::console {

/// Loads the module, subscribes, lets the events come, collects and takes everything down again. COM must be
/// initialised on the calling thread. Throws Failure.
void Run(const Options& options);

} // namespace orvel::console
