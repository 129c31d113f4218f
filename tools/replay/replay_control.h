#pragma once

// How a console, a test or a benchmark drives the replay log. The functions are exported by the replay log's
// wevtapi.dll beside the Event Log's own. Load that DLL by its full path before the module and find them with
// GetProcAddress, as replay_client.h does: an import would load the system's wevtapi.dll instead.
//
// All functions may be called from any thread, but not from inside a delivery unless said otherwise. Those that return
// a DWORD return 0 or a Win32 code.

#include <windows.h>
#include <winevt.h>

/// Kinds of handles, counted separately.
enum ReplayHandleKind : DWORD {
    ReplaySubscriptionHandle,
    ReplayContextHandle,
    ReplayPublisherHandle,
    ReplayEventHandle, // open only while its delivery runs
};

/// What ReplayDeclare declares.
enum ReplayDeclaration : DWORD {
    ReplayChannel,          // a channel that can be subscribed to
    ReplayPublisher,        // a publisher whose metadata can be opened
    ReplayMissingPublisher, // a publisher whose metadata cannot be opened, even if the export has events from it
};

/// How events are delivered; combined as a mask. 0 is what the platform documents.
enum ReplayMode : DWORD {
    ReplayOnCallingThread = 1, // ReplayPlay and ReplayDeliver call back on the caller's own thread
    ReplayWithoutWaits = 2,    // ReplayPlay skips actions that wait
    ReplayWithoutActions = 4,  // ReplayPlay skips all actions
};

/// Called after each entry, event or action, with the number of entries done and the total, and from time to time while
/// an action waits. Returns FALSE to stop.
typedef BOOL(CALLBACK* ReplayProgress)(void* context, DWORD done, DWORD total);

/// Whether a query selects one event. The texts are valid during the call.
struct ReplayQueryResult {
    DWORD line; // of the export, where the event's start tag ends
    DWORD column;
    const wchar_t* channel;
    const wchar_t* reason; // why the query does not select the event; null when it does
};

typedef void(CALLBACK* ReplayQueryCallback)(void* context, const ReplayQueryResult* result);

/// Why a query is refused.
struct ReplayProblem {
    wchar_t reason[512];
    wchar_t excerpt[128]; // the part of the query around the place; empty when the reason has no place
    DWORD position;       // of the place within the excerpt, from 0
};

extern "C" {

/// Reads an export (`wevtutil qe LOG /f:RenderedXml /e:Events`, with replay actions between the events) and makes it
/// the current log; nothing is delivered yet. On failure, `message` explains it with line and column.
DWORD WINAPI ReplayLoad(const wchar_t* path, wchar_t* message, DWORD messageCharacters);

/// As ReplayLoad, but reads an export in memory.
DWORD WINAPI ReplayLoadBytes(const char* bytes, SIZE_T size, wchar_t* message, DWORD messageCharacters);

/// Declares a channel or publisher that the desktop has or lacks, as the declarations in an export do. Holds until the
/// process ends; call it before subscribing.
/// Returns ERROR_INVALID_PARAMETER (87) for an unknown kind or an empty name.
DWORD WINAPI ReplayDeclare(ReplayDeclaration kind, const wchar_t* name);

/// Returns the number of loaded entries, events and actions alike.
DWORD WINAPI ReplayCount();

/// Returns when an entry was created, in 100-ns units since 1601-01-01 UTC; 0 for an action and for an event without a
/// time.
ULONGLONG WINAPI ReplayEntryTime(DWORD index);

/// Evaluates a query on all loaded events in order, as a subscription would, without delivering any, and calls
/// `callback` for each. Returns 0, or the code that EvtSubscribe fails with here, with the reason in `problem`: 50 (not
/// supported) if the replay log does not support the query, a code of the Event Log if Microsoft's documentation
/// excludes it. Channels are not checked before an export is loaded.
DWORD WINAPI ReplayEvaluateQuery(const wchar_t* channel, const wchar_t* query, ReplayQueryCallback callback,
                                 void* context, ReplayProblem* problem);

/// Plays all entries in order: each event is queued for every subscription that selects it, each action is carried out
/// when all earlier deliveries have ended. Returns when all deliveries have ended: 0, ERROR_CANCELLED (1223) if
/// `progress` stopped it, or the code of an action that failed; see ReplayLastRefusal. `progress` may be null.
DWORD WINAPI ReplayPlay(ReplayProgress progress, void* context);

/// Blocks until the callbacks of all events played so far have returned. `progress` may call it.
void WINAPI ReplayWaitForDeliveries();

/// Sets a callback that receives each event just before a subscription does, on the same thread and with the same
/// handle. It applies to subscriptions that are opened later; null for none. It must stay valid until the process ends.
void WINAPI ReplayObserve(EVT_SUBSCRIBE_CALLBACK observer, void* context);

/// Delivers one loaded event, `times` times, and returns when all deliveries have ended. May run on several threads at
/// once; deliveries to one subscription are still one at a time. Returns ERROR_INVALID_PARAMETER (87) if there is no
/// such event. Like the other functions that deliver, returns ERROR_POSSIBLE_DEADLOCK (1131) inside a callback.
DWORD WINAPI ReplayDeliver(DWORD index, DWORD times);

/// Calls every subscription with action 0 and a Win32 code, as the platform reports missing records.
DWORD WINAPI ReplayDeliverError(DWORD code);

/// Replaces the modes.
void WINAPI ReplaySetMode(DWORD newModes);

/// Returns the number of open handles of a kind.
DWORD WINAPI ReplayOpenHandles(ReplayHandleKind kind);

/// Returns the number of calls with a handle that was closed, never opened or of another kind, with an event's handle
/// after its callback, and of attempts to close an event's handle. They failed with 6.
DWORD WINAPI ReplayInvalidHandles();

/// Copies the reason why the last EvtSubscribe of any thread failed, with the place in the query or the channel; an
/// empty text after a success. After a ReplayPlay that failed: the entry whose action failed.
void WINAPI ReplayLastRefusal(wchar_t* message, DWORD messageCharacters);

} // extern "C"
