#pragma once

// The replay log with an EvtClose that behaves as the documentation does not exclude. The tests load this wevtapi.dll
// instead of the one that is shipped.

#include "tools/replay/replay_client.h"

/// Modes besides those of ReplayMode, for ReplaySetMode: EvtClose of a subscription returns while its callback runs; a
/// closed subscription is still called, until the mode ends.
constexpr DWORD ReplayCloseDoesNotWait = 0x100;
constexpr DWORD ReplayDeliverAfterClose = 0x400;

/// Returns how often a subscription was closed inside its own callback, which the platform may not survive.
extern "C" DWORD WINAPI ReplayClosesInsideCallback();

/// The control functions of the replay log with faults.
class FaultyReplayClient : public ReplayClient {
public:
    using ReplayClient::ReplayClient;

    decltype(&ReplayClosesInsideCallback) ClosesInsideCallback = Control{module, "ReplayClosesInsideCallback"};
};
