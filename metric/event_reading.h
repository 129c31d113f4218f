#pragma once

#include <windows.h>
#include <winevt.h>

#include <functional>
#include <span>
#include <string_view>

namespace orvel {

/// Reads selected values of an event.
///
/// `context`: the render context; created over `paths` when null and then kept for later calls with the same paths.
/// The caller owns it and closes it with EvtClose.
/// `paths`: XPath expressions of the values, e.g. "Event/System/EventID".
/// `onValues`: called once on success with an array of one EVT_VARIANT per path, in path order, valid during the call.
/// The pointer is null when the platform gave no values, or fewer bytes than that array needs.
///
/// Gives 0, ERROR_OUTOFMEMORY (14) when the buffer could not be allocated, or the platform's Win32 code; `onValues` is
/// called only for 0. Meant for the event's own delivery thread: the event handle is valid only there.
DWORD RenderEventValues(EVT_HANDLE& context, EVT_HANDLE event, std::span<const wchar_t* const> paths,
                        const std::function<void(EVT_VARIANT*&)>& onValues);

/// Formats an event's message text with the metadata of its publisher.
///
/// `publisher`: handle of EvtOpenPublisherMetadata; null is passed on to the platform.
/// `onText`: called once with the text, NUL-terminated and valid during the call, only when all of it could be
/// formatted.
///
/// Gives the Win32 code that the platform left: 0 on success; a message that needs no buffer gives 0 without a call of
/// `onText`.
DWORD FormatEventMessage(EVT_HANDLE publisher, EVT_HANDLE event, const std::function<void(std::wstring_view)>& onText);

/// Opens the metadata of a publisher by name on the local computer, in the thread's locale. Null on failure. The
/// metrics leave the handle open: one per event.
EVT_HANDLE OpenPublisherMetadata(const wchar_t* publisher);

} // namespace orvel
