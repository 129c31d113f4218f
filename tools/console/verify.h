#pragma once

#include "tools/console/options.h"

namespace orvel::console {

/// Checks the whole path from a written event to its metric on this computer, reporting each step on standard output:
/// the installed provider, or Orvel_eventlog.dll beside the program registered for the user meanwhile, is created by
/// its ProgID and subscribed; an event is written, or replayed with `options.replayOwn`, collected and compared. COM
/// must be initialised. Throws Failure with the exit code of the step that failed, after removing the registration.
void Verify(const Options& options);

} // namespace orvel::console
