#include "tools/replay/replay_control.h"

#include "tools/replay/actions.h"
#include "tools/replay/export_reader.h"
#include "tools/replay/handles.h"
#include "tools/replay/refusal.h"
#include "tools/replay/subscriber.h"
#include "tools/utf8.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <functional>
#include <iterator>

using namespace orvel::replay;

namespace {

constexpr size_t kLargestExport = size_t{1} << 30; // it is held in memory several times while it is parsed

std::atomic<DWORD> modes;

void CopyText(std::wstring_view text, wchar_t* buffer, DWORD characters)
{
    if (buffer != nullptr && characters != 0) {
        buffer[text.copy(buffer, characters - 1)] = L'\0';
    }
}

/// Copies the part of the query's line around the place of an error.
void CopyExcerpt(const Refusal& refusal, ReplayProblem& problem)
{
    constexpr size_t kAround = 60;
    const size_t place = refusal.position;
    const std::wstring_view before = std::wstring_view(refusal.source).substr(0, place);
    const size_t line = before.find_last_of(L"\r\n") + 1; // npos + 1 is 0
    const size_t start = std::max(line, place > kAround ? place - kAround : 0);
    const size_t end = std::min(refusal.source.find_first_of(L"\r\n", place), place + kAround);
    CopyText(refusal.source.substr(start, end - start), problem.excerpt, ARRAYSIZE(problem.excerpt));
    problem.position = static_cast<DWORD>(place - start);
}

/// Converts an export to UTF-8. Throws TextError for a file that is not an export.
std::string DecodeExport(std::string bytes)
{
    if (bytes.size() > kLargestExport) {
        FailAt(bytes, 0, L"the export is larger than 1 GiB; export fewer events");
    }
    bytes = orvel::DecodeText(std::move(bytes));
    if (bytes.find_first_not_of(" \t\r\n") == bytes.npos) {
        FailAt(bytes, 0, L"the export is empty; did the tool that wrote it fail? " + std::wstring(kHowToExport));
    }
    if (bytes.starts_with("ElfFile")) {
        FailAt(bytes, 0,
               L"this is a binary event log; turn it into an export with: "
               L"wevtutil qe FILE.evtx /lf:true /f:RenderedXml /e:Events");
    }
    if (const size_t zero = bytes.find('\0'); zero != bytes.npos) {
        FailAt(bytes, zero, L"this is a binary file; " + std::wstring(kHowToExport));
    }
    return bytes;
}

/// Carries out an action when all earlier deliveries have ended.
DWORD PlayAction(const Log& log, const Action& action, size_t index, const std::function<bool()>& goOn)
{
    const DWORD skipping =
        action.kind == Action::Wait ? ReplayWithoutActions | ReplayWithoutWaits : ReplayWithoutActions;
    if ((modes & skipping) != 0) {
        return ERROR_SUCCESS;
    }
    WaitForDeliveries();
    const DWORD code = CarryOut(action, goOn);
    if (code != ERROR_SUCCESS && code != ERROR_CANCELLED) {
        SetLastRefusal(L"entry " + std::to_wstring(index + 1) + L", <" + std::wstring(action.node.name) +
                       L"> in line " + std::to_wstring(PlaceOf(log.text, action.node.end).line) + L": error " +
                       std::to_wstring(code));
    }
    return code;
}

/// Returns how to deliver: `mode`, unless ReplaySetMode has chosen the caller's thread.
DeliveryMode ModeOr(DeliveryMode mode)
{
    return (modes & ReplayOnCallingThread) != 0 ? DeliveryMode::OnThisThread : mode;
}

/// Plays the entries in order.
DWORD Play(const std::shared_ptr<const Log>& log, ReplayProgress progress, void* context)
{
    const auto total = static_cast<DWORD>(log->entries.size());
    LogReader reader(log);
    for (DWORD i = 0; i < total; ++i) {
        const auto goOn = [&](DWORD done) { return progress == nullptr || progress(context, done, total); };
        const auto entry = reader.Read(i);
        const auto* const event = std::get_if<Event>(entry.get());
        const DWORD code = event != nullptr ? Deliver({{entry, event}}, ModeOr(DeliveryMode::Queued))
                                            : PlayAction(*log, std::get<Action>(*entry), i, [&] { return goOn(i); });
        if (code != ERROR_SUCCESS) {
            return code;
        }
        if (!goOn(i + 1)) {
            return ERROR_CANCELLED;
        }
    }
    return ERROR_SUCCESS;
}

} // namespace

extern "C" {

DWORD WINAPI ReplayLoad(const wchar_t* path, wchar_t* message, DWORD messageCharacters)
{
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    if (!file) {
        CopyText(L"the file cannot be read; check its name and rights", message, messageCharacters);
        return ERROR_READ_FAULT;
    }
    return ReplayLoadBytes(bytes.data(), bytes.size(), message, messageCharacters);
}

DWORD WINAPI ReplayLoadBytes(const char* bytes, SIZE_T size, wchar_t* message, DWORD messageCharacters)
try {
    SetCurrentLog(std::make_shared<Log>(DecodeExport(std::string(bytes, size))));
    CopyText(L"", message, messageCharacters);
    return ERROR_SUCCESS;
} catch (const TextError& error) {
    CopyText(error.Text(), message, messageCharacters);
    return ERROR_INVALID_DATA;
}

DWORD WINAPI ReplayDeclare(ReplayDeclaration kind, const wchar_t* name)
{
    if (kind >= kDeclarationKinds || name == nullptr || *name == L'\0') {
        return ERROR_INVALID_PARAMETER;
    }
    Declare(static_cast<Action::Kind>(kind), name);
    return ERROR_SUCCESS;
}

DWORD WINAPI ReplayCount()
{
    return static_cast<DWORD>(CurrentLog()->entries.size());
}

ULONGLONG WINAPI ReplayEntryTime(DWORD index)
{
    const auto event = LogReader(CurrentLog()).ReadEvent(index);
    return event != nullptr ? CreationTime(event->xml).value_or(0) : 0;
}

DWORD WINAPI ReplayEvaluateQuery(const wchar_t* channel, const wchar_t* query, ReplayQueryCallback callback,
                                 void* context, ReplayProblem* problem)
try {
    const Selection selection = MakeSelection(channel, query);
    const auto log = CurrentLog();
    if (!log->entries.empty()) {
        CheckChannels(selection, *log);
    }
    LogReader reader(log);
    TextPlace place;
    for (size_t i = 0; i < log->entries.size(); ++i) {
        if (const auto event = reader.ReadEvent(i)) {
            const std::wstring name(event->channel);
            const std::wstring reason = selection.Explain(*event);
            place = PlaceOf(log->text, event->xml.end, place);
            const ReplayQueryResult result = {static_cast<DWORD>(place.line), static_cast<DWORD>(place.column),
                                              name.c_str(), reason.empty() ? nullptr : reason.c_str()};
            callback(context, &result);
        }
    }
    return ERROR_SUCCESS;
} catch (const Refusal& refusal) {
    CopyText(refusal.Text(), problem->reason, ARRAYSIZE(problem->reason));
    CopyExcerpt(refusal, *problem);
    return refusal.code;
}

DWORD WINAPI ReplayPlay(ReplayProgress progress, void* context)
{
    const DWORD code = Play(CurrentLog(), progress, context);
    WaitForDeliveries();
    return code;
}

void WINAPI ReplayWaitForDeliveries()
{
    WaitForDeliveries();
}

DWORD WINAPI ReplayDeliver(DWORD index, DWORD times)
{
    const auto event = LogReader(CurrentLog()).ReadEvent(index);
    DWORD code = event != nullptr ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
    for (DWORD i = 0; i < times && code == ERROR_SUCCESS; ++i) {
        code = Deliver({event}, ModeOr(DeliveryMode::Awaited));
    }
    return code;
}

DWORD WINAPI ReplayDeliverError(DWORD code)
{
    return code != ERROR_SUCCESS ? Deliver({nullptr, code}, ModeOr(DeliveryMode::Awaited))
                                 : DWORD{ERROR_INVALID_PARAMETER};
}

void WINAPI ReplayObserve(EVT_SUBSCRIBE_CALLBACK observer, void* context)
{
    SetObserver({observer, context});
}

void WINAPI ReplaySetMode(DWORD newModes)
{
    modes = newModes;
}

DWORD WINAPI ReplayOpenHandles(ReplayHandleKind kind)
{
    return HandleTable::Instance().CountOpen(kind);
}

DWORD WINAPI ReplayInvalidHandles()
{
    return HandleTable::Instance().CountInvalid();
}

void WINAPI ReplayLastRefusal(wchar_t* message, DWORD messageCharacters)
{
    CopyText(LastRefusal(), message, messageCharacters);
}

} // extern "C"
