#include "metric/event_reading.h"

#include "host/text_search.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

namespace orvel {

namespace {

struct FreeDeleter {
    void operator()(void* block) const noexcept { std::free(block); }
};

DWORD Render(EVT_HANDLE context, EVT_HANDLE event, DWORD size, void* buffer, DWORD& used)
{
    DWORD propertyCount = 0;
    SetLastError(ERROR_SUCCESS);
    EvtRender(context, event, EvtRenderEventValues, size, buffer, &used, &propertyCount);
    return GetLastError();
}

bool Format(EVT_HANDLE publisher, EVT_HANDLE event, DWORD size, wchar_t* buffer, DWORD& used)
{
    SetLastError(ERROR_SUCCESS);
    return EvtFormatMessage(publisher, event, 0, 0, nullptr, EvtFormatMessageEvent, size, buffer, &used) != FALSE;
}

} // namespace

DWORD RenderEventValues(EVT_HANDLE& context, EVT_HANDLE event, std::span<const wchar_t* const> paths,
                        const std::function<void(EVT_VARIANT*&)>& onValues)
{
    if (context == nullptr) {
        SetLastError(ERROR_SUCCESS);
        context = EvtCreateRenderContext(static_cast<DWORD>(paths.size()), const_cast<const wchar_t**>(paths.data()),
                                         EvtRenderContextValues);
        const DWORD error = GetLastError();
        if (error != ERROR_SUCCESS) {
            return error;
        }
    }

    std::unique_ptr<void, FreeDeleter> buffer;
    DWORD used = 0;
    DWORD error = Render(context, event, 0, nullptr, used);
    if (error == ERROR_INSUFFICIENT_BUFFER) {
        buffer.reset(std::malloc(used));
        if (!buffer) {
            return ERROR_OUTOFMEMORY;
        }
        // A platform that reports success without filling everything must yield null variants, not old memory.
        std::memset(buffer.get(), 0, used);
        const DWORD size = used;
        error = Render(context, event, size, buffer.get(), used);
        if (size < paths.size() * sizeof(EVT_VARIANT)) {
            buffer.reset();
        }
    }
    if (error == ERROR_SUCCESS) {
        auto* values = static_cast<EVT_VARIANT*>(buffer.get());
        onValues(values);
    }
    return error;
}

DWORD FormatEventMessage(EVT_HANDLE publisher, EVT_HANDLE event, const std::function<void(std::wstring_view)>& onText)
{
    DWORD used = 0;
    if (Format(publisher, event, 0, nullptr, used)) {
        return GetLastError();
    }
    DWORD error = GetLastError();
    // The text's buffer is zeroed and longer than asked for, so that a text without its terminator ends all the same;
    // by as much as the search for the end looks at in one go.
    constexpr DWORD kSpare = 16;
    if (error != ERROR_INSUFFICIENT_BUFFER || used > std::numeric_limits<DWORD>::max() - kSpare) {
        return error;
    }
    const size_t size = used + kSpare;
    const std::unique_ptr<wchar_t, FreeDeleter> text(static_cast<wchar_t*>(std::calloc(size, sizeof(wchar_t))));
    if (!text) {
        return error;
    }
    const bool formatted = Format(publisher, event, used, text.get(), used);
    error = GetLastError();
    if (formatted) {
        onText({text.get(), FindCharacter({text.get(), size}, L'\0', 0)});
    }
    return error;
}

EVT_HANDLE OpenPublisherMetadata(const wchar_t* publisher)
{
    return EvtOpenPublisherMetadata(nullptr, publisher, nullptr, 0, 0);
}

} // namespace orvel
