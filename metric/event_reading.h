#pragma once

#include "host/unique_resource.h"

#include <windows.h>
#include <winevt.h>

#include <functional>
#include <span>
#include <string_view>

namespace orvel {

/// Owner of an Event Log handle.
using EventHandle = std::unique_ptr<std::remove_pointer_t<EVT_HANDLE>, ReleaseWith<EvtClose>>;

/// Reads selected values of an event. Called on the thread that delivers the event: its handle is valid only there.
///
/// `context`: the render context. Created over `paths` when null; later calls with the same paths reuse it.
/// `paths`: XPath expressions of the values, e.g. "Event/System/EventID".
/// `onValues`: called once on success with an array of one EVT_VARIANT per path, in path order, valid during the call.
/// The pointer is null when the platform returned less than that array.
///
/// Returns 0, ERROR_OUTOFMEMORY when the buffer cannot be allocated, or the platform's Win32 code.
DWORD RenderEventValues(EventHandle& context, EVT_HANDLE event, std::span<const wchar_t* const> paths,
                        const std::function<void(const EVT_VARIANT*)>& onValues);

/// Formats an event's message with the metadata of its publisher. Called on the thread that delivers the event.
///
/// `publisher`: handle of EvtOpenPublisherMetadata; null is passed on to the platform.
/// `onText`: called once with the whole text, which is valid during the call. Not called when formatting fails or needs
/// no buffer.
///
/// Returns the thread's last Win32 error, 0 on success.
DWORD FormatEventMessage(EVT_HANDLE publisher, EVT_HANDLE event, const std::function<void(std::wstring_view)>& onText);

} // namespace orvel
