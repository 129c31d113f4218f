#pragma once

#include "tools/console/failure.h"
#include "tools/console/options.h"

namespace orvel::console {

/// Checks a configuration and, given an export, prints what it selects and what the provider would write. Returns
/// Problem, NotUnderstood or Differs, the first of these that applies, else Ok. COM must be initialised. Throws
/// Failure.
ExitCode Check(const Options& options);

/// Checks on this computer that an event becomes a metric, and reports each step on standard output. Creates the
/// provider by its ProgID, subscribes it, writes an event (or replays one with `options.replayOwn`), collects the
/// metric and compares. If no provider is installed, Orvel_eventlog.dll beside the program is registered for the user
/// during the check. COM must be initialised. Throws Failure with the exit code of the step that failed, after removing
/// that registration.
void Verify(const Options& options);

} // namespace orvel::console
