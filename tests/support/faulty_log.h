#pragma once

// The replay log with faults: the functions of the Event Log and of replay_control.h, of which some can be made to
// misbehave as the platform has been seen to. The tests load this wevtapi.dll instead of the one that is shipped.

#include "tools/replay/replay_client.h"

/// Calls that are counted and can be made to fail.
enum ReplayFunction : DWORD {
    ReplayEvtSubscribe,
    ReplayEvtCreateRenderContext,
    ReplayEvtRender,
    ReplayEvtOpenPublisherMetadata,
    ReplayEvtFormatMessage,
    ReplayEvtClose,
    ReplayFunctionCount
};

/// How a call fails.
enum ReplayFault : DWORD {
    ReplayFail,           // fails with `code`
    ReplayFailWithText,   // EvtFormatMessage: fails with `code`, though the buffer was filled
    ReplayTruncated,      // succeeds, but fills only the first half of the buffer
    ReplayUsedTooLarge,   // succeeds, and reports more used than the size of the buffer
    ReplayLongerNextTime, // the sizing call asks for half of what is needed
    ReplayNullValues,     // EvtRender: every value is a null variant whose union holds junk
    ReplayOtherTypes,     // EvtRender: every value has a type that was not asked for
    ReplayNoBufferNeeded, // succeeds at once without a buffer
};

/// Modes besides those of ReplayMode, for ReplaySetMode: EvtClose of a subscription returns while its callback runs; a
/// successful call leaves the thread's last error alone instead of setting 0; a closed subscription is still called,
/// until the mode ends.
constexpr DWORD ReplayCloseDoesNotWait = 0x100;
constexpr DWORD ReplayLastErrorUntouched = 0x200;
constexpr DWORD ReplayDeliverAfterClose = 0x400;

extern "C" {

/// Makes the `occurrence`-th call (from 1, counted from now) of a function misbehave once.
void WINAPI ReplayInject(ReplayFunction function, DWORD occurrence, ReplayFault fault, DWORD code);

/// Resets faults, modes and the counts of calls; open handles stay open and counted.
void WINAPI ReplayReset();

/// Returns the calls made since the last reset.
DWORD WINAPI ReplayCalls(ReplayFunction function);

/// Returns how often a subscription was closed inside its own callback, which the platform may not survive.
DWORD WINAPI ReplayClosesInsideCallback();

} // extern "C"

/// The control functions of the replay log with faults.
class FaultyReplayClient : public ReplayClient {
public:
    using ReplayClient::ReplayClient;

    decltype(&ReplayInject) Inject = Control{module, "ReplayInject"};
    decltype(&ReplayReset) Reset = Control{module, "ReplayReset"};
    decltype(&ReplayCalls) Calls = Control{module, "ReplayCalls"};
    decltype(&ReplayClosesInsideCallback) ClosesInsideCallback = Control{module, "ReplayClosesInsideCallback"};
};
