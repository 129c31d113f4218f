#include "tools/replay/replay_control.h"

#include "tools/replay/actions.h"
#include "tools/replay/behaviour.h"
#include "tools/replay/handles.h"
#include "tools/replay/subscriber.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

using namespace orvel::replay;

namespace {

constexpr size_t kLargestExport = size_t{1} << 30; // it is held in memory several times while it is parsed

void CopyText(std::wstring_view text, wchar_t* buffer, DWORD characters)
{
    if (buffer != nullptr && characters != 0) {
        *std::copy_n(text.begin(), std::min<size_t>(text.size(), characters - 1), buffer) = L'\0';
    }
}

/// Runs `load`, which gives the XML, and makes the result the current log.
template <typename Load>
DWORD LoadLog(const Load& load, wchar_t* message, DWORD messageCharacters)
try {
    CopyText(L"", message, messageCharacters);
    SetCurrentLog(MakeLog(load()));
    return ERROR_SUCCESS;
} catch (const TextError& error) {
    CopyText(L"line " + std::to_wstring(error.line) + L", column " + std::to_wstring(error.column) + L": " +
                 error.reason,
             message, messageCharacters);
    return ERROR_INVALID_DATA;
} catch (DWORD code) {
    CopyText(L"the file cannot be read; check its name, its rights and that it has less than 1 GiB", message,
             messageCharacters);
    return code;
}

/// Decodes UTF-8 with or without a byte order mark, or UTF-16LE with one.
std::wstring DecodeText(std::string_view bytes)
{
    if (bytes.starts_with("\xFF\xFE")) {
        std::wstring text(bytes.size() / 2 - 1, L'\0');
        std::memcpy(text.data(), bytes.data() + 2, text.size() * sizeof(wchar_t));
        return text;
    }
    bytes.remove_prefix(bytes.starts_with("\xEF\xBB\xBF") ? 3 : 0);
    const auto convert = [&](DWORD flags, wchar_t* buffer, int size) {
        return MultiByteToWideChar(CP_UTF8, flags, bytes.data(), static_cast<int>(bytes.size()), buffer, size);
    };
    std::wstring text(static_cast<size_t>(convert(0, nullptr, 0)), L'\0');
    convert(0, text.data(), static_cast<int>(text.size()));
    if (!bytes.empty() && convert(MB_ERR_INVALID_CHARS, nullptr, 0) == 0) {
        const std::wstring_view valid(text.data(), std::min(text.find(L'\xFFFD'), text.size()));
        throw TextError{static_cast<size_t>(std::count(valid.begin(), valid.end(), L'\n')) + 1,
                        valid.size() - (valid.rfind(L'\n') + 1) + 1, // npos + 1 is 0
                        L"this is neither UTF-8 nor UTF-16LE with a byte order mark; keep the tool's output unchanged"};
    }
    return text;
}

std::wstring ReadFileText(const wchar_t* path)
{
    if (GetFileAttributesW(path) == INVALID_FILE_ATTRIBUTES) {
        throw DWORD{GetLastError()};
    }
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    if (!file || bytes.size() > kLargestExport) {
        throw file ? DWORD{ERROR_FILE_TOO_LARGE} : DWORD{ERROR_READ_FAULT};
    }
    return DecodeText(bytes);
}

/// Carries out one entry of the future.
DWORD PlayEntry(const std::shared_ptr<const Log>& log, size_t index)
{
    if (std::holds_alternative<Event>(log->entries[index])) {
        return Deliver({log, index, 1, ERROR_SUCCESS, nullptr});
    }
    const auto& action = std::get<Action>(log->entries[index]);
    const DWORD code = CarryOut(action);
    if (code != ERROR_SUCCESS) {
        Behaviour::Instance().SetRefusal(L"entry " + std::to_wstring(index + 1) + L", <" + action.node.name +
                                         L"> in line " + std::to_wstring(action.node.line) + L": error " +
                                         std::to_wstring(code));
    }
    return code;
}

} // namespace

extern "C" {

DWORD WINAPI ReplayLoad(const wchar_t* path, wchar_t* message, DWORD messageCharacters)
{
    return LoadLog([&] { return ReadFileText(path); }, message, messageCharacters);
}

DWORD WINAPI ReplayLoadText(const wchar_t* xml, wchar_t* message, DWORD messageCharacters)
{
    return LoadLog([&] { return std::wstring_view(xml); }, message, messageCharacters);
}

DWORD WINAPI ReplayCount()
{
    return static_cast<DWORD>(CurrentLog()->entries.size());
}

DWORD WINAPI ReplayPlay(ReplayProgress progress, void* context)
{
    const auto log = CurrentLog();
    const auto total = static_cast<DWORD>(log->entries.size());
    for (DWORD i = 0; i < total; ++i) {
        const DWORD code = PlayEntry(log, i);
        if (code != ERROR_SUCCESS) {
            return code;
        }
        if (progress != nullptr && !progress(context, i + 1, total)) {
            return ERROR_CANCELLED;
        }
    }
    return ERROR_SUCCESS;
}

DWORD WINAPI ReplayDeliver(DWORD index, DWORD times)
{
    auto log = CurrentLog();
    if (index >= log->entries.size() || !std::holds_alternative<Event>(log->entries[index])) {
        return ERROR_INVALID_PARAMETER;
    }
    return Deliver({std::move(log), index, times, ERROR_SUCCESS, nullptr});
}

DWORD WINAPI ReplayDeliverError(DWORD code)
{
    return code != ERROR_SUCCESS ? Deliver({nullptr, 0, 1, code, nullptr}) : DWORD{ERROR_INVALID_PARAMETER};
}

void WINAPI ReplaySetMode(DWORD modes)
{
    Behaviour::Instance().SetModes(modes);
    if ((modes & ReplayDeliverAfterClose) == 0) {
        SubscriberList::Instance().RemoveClosed();
    }
}

void WINAPI ReplayInject(ReplayFunction function, DWORD occurrence, ReplayFault fault, DWORD code)
{
    Behaviour::Instance().Inject(function, occurrence, fault, code);
}

void WINAPI ReplayReset()
{
    Behaviour::Instance().Reset();
    SubscriberList::Instance().RemoveClosed();
}

DWORD WINAPI ReplayCalls(ReplayFunction function)
{
    return Behaviour::Instance().Calls(function);
}

DWORD WINAPI ReplayOpenHandles(ReplayHandleKind kind)
{
    return HandleTable::Instance().CountOpen(kind);
}

DWORD WINAPI ReplayInvalidHandles()
{
    return HandleTable::Instance().CountInvalid();
}

DWORD WINAPI ReplayClosesInsideCallback()
{
    return Behaviour::Instance().ClosesInsideCallback();
}

void WINAPI ReplayLastRefusal(wchar_t* message, DWORD messageCharacters)
{
    CopyText(Behaviour::Instance().Refusal(), message, messageCharacters);
}

} // extern "C"
