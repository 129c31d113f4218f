#include "metric/event_reading.h"

#include <cstdlib>
#include <cwchar>

namespace orvel {

namespace {

DWORD Render(EVT_HANDLE context, EVT_HANDLE event, DWORD size, EVT_VARIANT* values, DWORD& used)
{
    DWORD propertyCount = 0;
    SetLastError(ERROR_SUCCESS);
    EvtRender(context, event, EvtRenderEventValues, size, values, &used, &propertyCount);
    return GetLastError();
}

bool Format(EVT_HANDLE publisher, EVT_HANDLE event, DWORD size, wchar_t* text, DWORD& used)
{
    SetLastError(ERROR_SUCCESS);
    return EvtFormatMessage(publisher, event, 0, 0, nullptr, EvtFormatMessageEvent, size, text, &used) != FALSE;
}

} // namespace

DWORD RenderEventValues(EventHandle& context, EVT_HANDLE event, std::span<const wchar_t* const> paths,
                        const std::function<void(const EVT_VARIANT*)>& onValues)
{
    if (!context) {
        SetLastError(ERROR_SUCCESS);
        context.reset(EvtCreateRenderContext(static_cast<DWORD>(paths.size()),
                                             const_cast<const wchar_t**>(paths.data()), EvtRenderContextValues));
        const DWORD error = GetLastError();
        if (error != ERROR_SUCCESS) {
            return error;
        }
    }

    DWORD size = 0;
    DWORD error = Render(context.get(), event, 0, nullptr, size);
    if (error == ERROR_SUCCESS) {
        onValues(nullptr);
    }
    if (error != ERROR_INSUFFICIENT_BUFFER) {
        return error;
    }
    // Zeroed: if the platform reports success but fills only a part, the remaining values are null.
    const UniqueMalloc<EVT_VARIANT> values(static_cast<EVT_VARIANT*>(std::calloc(size, 1)));
    if (!values) {
        return ERROR_OUTOFMEMORY;
    }
    DWORD used = 0;
    error = Render(context.get(), event, size, values.get(), used);
    if (error == ERROR_SUCCESS) {
        const bool isWhole = size >= paths.size() * sizeof(EVT_VARIANT);
        onValues(isWhole ? values.get() : nullptr);
    }
    return error;
}

DWORD FormatEventMessage(EVT_HANDLE publisher, EVT_HANDLE event, const std::function<void(std::wstring_view)>& onText)
{
    DWORD size = 0;
    const bool needsNoBuffer = Format(publisher, event, 0, nullptr, size);
    DWORD error = GetLastError();
    if (needsNoBuffer || error != ERROR_INSUFFICIENT_BUFFER) {
        return error;
    }
    // Zeroed and read with a limit: the platform may report success without having written the whole text.
    const UniqueMalloc<wchar_t> text(static_cast<wchar_t*>(std::calloc(size, sizeof(wchar_t))));
    if (!text) {
        return error;
    }
    DWORD used = 0;
    const bool isFormatted = Format(publisher, event, size, text.get(), used);
    error = GetLastError();
    if (isFormatted) {
        onText({text.get(), wcsnlen(text.get(), size)});
    }
    return error;
}

} // namespace orvel
