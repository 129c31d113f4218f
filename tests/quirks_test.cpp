// Known misbehaviour of the Event Log: nothing is reported that it did not return. With the guarded module, these tests
// also show that nothing is read that the platform did not write.

#include "tests/support/module_under_test.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

enum Function { Render, Format };

enum Call { Sizing = 1, WithBuffer = 2, Both = Sizing | WithBuffer };

enum Fault {
    Fails,          // with a code
    FailsWithText,  // with a code, though the buffer was filled
    Truncated,      // succeeds, but fills only the first half of the buffer
    UsedTooLarge,   // reports more used than the size of the buffer
    HalfTheSize,    // asks for half of the buffer that is needed, and succeeds with half a buffer of junk
    NullValues,     // every value is a null variant whose union holds junk
    OtherTypes,     // every value has a type that was not asked for
    NoBufferNeeded, // succeeds at once without a buffer
};

enum Outcome {
    Whole,      // everything is known
    HalfValues, // of two values the second, the time, is missing
    OtherTime,  // the platform returned another time
    Timeless,   // the event's own time is not known
    Cut,        // only the front of the message is
    Messageless // the message is not known
};

struct Quirk {
    Function function;
    Call call;
    Fault fault;
    DWORD code;
    Outcome outcome;
};
constexpr Quirk kQuirks[] = {{Render, WithBuffer, Truncated, 0, HalfValues},
                             {Render, Sizing, HalfTheSize, 0, Timeless},
                             {Render, Both, HalfTheSize, 0, Timeless},
                             {Render, WithBuffer, UsedTooLarge, 0, Whole},
                             {Render, WithBuffer, NullValues, 0, OtherTime},
                             {Render, WithBuffer, OtherTypes, 0, OtherTime},
                             {Render, Sizing, NoBufferNeeded, 0, Timeless},
                             {Render, WithBuffer, Fails, ERROR_INSUFFICIENT_BUFFER, Timeless},
                             {Format, WithBuffer, Truncated, 0, Cut},
                             {Format, Sizing, HalfTheSize, 0, Messageless},
                             {Format, WithBuffer, UsedTooLarge, 0, Whole},
                             {Format, Sizing, NoBufferNeeded, 0, Messageless},
                             {Format, Sizing, Fails, ERROR_EVT_MESSAGE_NOT_FOUND, Messageless},
                             {Format, Sizing, Fails, ERROR_EVT_MESSAGE_ID_NOT_FOUND, Messageless},
                             {Format, Sizing, Fails, ERROR_EVT_MESSAGE_LOCALE_NOT_FOUND, Messageless},
                             {Format, Sizing, Fails, ERROR_EVT_UNRESOLVED_VALUE_INSERT, Messageless},
                             {Format, WithBuffer, Fails, ERROR_EVT_MESSAGE_NOT_FOUND, Messageless},
                             {Format, WithBuffer, Fails, ERROR_EVT_MESSAGE_ID_NOT_FOUND, Messageless},
                             {Format, WithBuffer, Fails, ERROR_EVT_MESSAGE_LOCALE_NOT_FOUND, Messageless},
                             {Format, WithBuffer, FailsWithText, ERROR_EVT_UNRESOLVED_VALUE_INSERT, Messageless},
                             {Format, WithBuffer, FailsWithText, ERROR_EVT_UNRESOLVED_PARAMETER_INSERT, Messageless},
                             {Format, WithBuffer, FailsWithText, ERROR_EVT_MAX_INSERTS_REACHED, Messageless}};

constexpr ULONGLONG kJunk = 0x01CD'CDCD'CDCD'CDCD; // as a FILETIME 2012-11-29 01:06:46.841 UTC

const Quirk* current = nullptr; // of the event that is delivered now
bool leavesLastError = false;   // a successful call leaves the last error as it was instead of setting 0

/// Makes a call whose buffer holds `size` units of `unit` bytes misbehave if it is the quirk's.
template <typename RealCall>
BOOL Misbehave(Function function, void* buffer, DWORD size, size_t unit, DWORD* used, const RealCall& call)
{
    const DWORD lastError = GetLastError();
    const bool isFaulty = current != nullptr && current->function == function &&
                          (current->call & (buffer == nullptr ? Sizing : WithBuffer)) != 0;
    const auto has = [&](Fault fault) { return isFaulty && current->fault == fault; };
    auto* const bytes = static_cast<char*>(buffer);
    const size_t half = size * unit / 2;
    const std::vector<char> before(bytes, bytes + (buffer == nullptr ? 0 : size * unit));
    BOOL isDone = has(NoBufferNeeded) || (has(HalfTheSize) && buffer != nullptr);
    if (has(NoBufferNeeded)) {
        *used = 0;
    } else if (isDone) {
        std::fill_n(bytes, size * unit, '\xCD');
    } else if (!has(Fails)) {
        isDone = call();
        *used = has(UsedTooLarge) ? size * 2 + 64 : has(HalfTheSize) ? *used / 2 : *used;
    }
    if (has(Truncated)) {
        std::copy(before.begin() + static_cast<ptrdiff_t>(half), before.end(), bytes + half);
    }
    if (has(NullValues) || has(OtherTypes)) {
        auto* const values = static_cast<EVT_VARIANT*>(buffer);
        for (DWORD i = 0; i < size / sizeof(EVT_VARIANT); ++i) {
            values[i].Type = has(NullValues) ? EvtVarTypeNull : EvtVarTypeHexInt32;
            values[i].UInt64Val = kJunk;
        }
    }
    if (has(Fails) || has(FailsWithText)) {
        SetLastError(current->code);
        return FALSE;
    }
    if (isDone) {
        SetLastError(leavesLastError ? lastError : ERROR_SUCCESS);
    }
    return isDone;
}

BOOL WINAPI RenderBadly(EVT_HANDLE context, EVT_HANDLE event, DWORD flags, DWORD size, void* buffer, DWORD* used,
                        DWORD* count)
{
    decltype(&EvtRender) const render = Real("EvtRender");
    return Misbehave(Render, buffer, size, 1, used,
                     [&] { return render(context, event, flags, size, buffer, used, count); });
}

BOOL WINAPI FormatBadly(EVT_HANDLE publisher, EVT_HANDLE event, DWORD id, DWORD count, EVT_VARIANT* values, DWORD flags,
                        DWORD size, wchar_t* buffer, DWORD* used)
{
    decltype(&EvtFormatMessage) const format = Real("EvtFormatMessage");
    return Misbehave(Format, buffer, size, sizeof(wchar_t), used,
                     [&] { return format(publisher, event, id, count, values, flags, size, buffer, used); });
}

EVT_HANDLE WINAPI CreateContext(DWORD count, const wchar_t** paths, DWORD flags)
{
    decltype(&EvtCreateRenderContext) const create = Real("EvtCreateRenderContext");
    const DWORD lastError = GetLastError();
    const EVT_HANDLE context = create(count, paths, flags);
    SetLastError(leavesLastError ? lastError : ERROR_SUCCESS);
    return context;
}

class QuirksTest : public ModuleTest, public testing::WithParamInterface<bool> {
protected:
    QuirksTest() { leavesLastError = GetParam(); }

    /// Returns what `metric` writes after event 0, delivered as it is, and event 1, delivered with the quirk.
    Lines Play(const wchar_t* metric, const Quirk& quirk)
    {
        EXPECT_EQ(Subscribe(metric), S_OK);
        Deliver(0);
        const DWORD publishers = Replay().OpenHandles(ReplayPublisherHandle);
        current = &quirk;
        Deliver(1);
        EXPECT_EQ(Replay().DeliverError(15011), 0U);
        EXPECT_EQ(Replay().OpenHandles(ReplayPublisherHandle), publishers + 1) << "an error is no event";
        current = nullptr;
        EXPECT_EQ(Collect(metric), S_OK);
        EXPECT_EQ(Unsubscribe(metric), S_OK);
        EXPECT_EQ(Replay().OpenHandles(ReplayContextHandle) + Replay().InvalidHandles(), 0U);
        return sink.Take();
    }

    const ImportPatch render{module, "EvtRender", &RenderBadly}, format{module, "EvtFormatMessage", &FormatBadly},
        create{module, "EvtCreateRenderContext", &CreateContext};
};

TEST_P(QuirksTest, ReportsWhatIsKnownOfACrash)
{
    LoadEvents(Event(L"before") + Event(L"Faulted"));
    const std::wstring time = L"<br />Crash Time: 2024-03-05 07:08:09";
    for (const Quirk& quirk : kQuirks) {
        SCOPED_TRACE(&quirk - kQuirks);
        const Lines seen = Play(kCrash, quirk);
        ASSERT_EQ(seen.size(), quirk.outcome == Messageless ? 2U : 3U);
        const std::wstring hostName = seen[1].substr(seen[1].find(L"<br />Host"));
        EXPECT_EQ(seen[1], std::wstring(L"appcrash|crash_details|* [1] = before").append(time).append(hostName));
        std::wstring secondTime = time;
        if (quirk.outcome == OtherTime) {
            secondTime = L"<br />Crash Time: 2012-11-29 01:06:46";
        } else if (quirk.outcome == Timeless) {
            secondTime = L"";
        }
        if (quirk.outcome != Messageless) {
            EXPECT_EQ(seen[2], std::wstring(L"appcrash|crash_details|* [2] = ") +
                                   (quirk.outcome == Cut ? L"Faul" : L"Faulted") + secondTime + hostName);
        }
    }
}

TEST_P(QuirksTest, KeepsWhatIsKnownOfALogon)
{
    LoadEvents(AgentEvent(L"User is logging in", L"2024-03-05T07:08:10Z") +
               AgentEvent(L"New volume event (mounted): (VolumeType 2)", L"2024-03-05T07:08:12Z"));
    for (const Quirk& quirk : kQuirks) {
        SCOPED_TRACE(&quirk - kQuirks);
        // Without its message the second event counts as another logon, without its time as one at the first's.
        const std::wstring first = L"#1709622490000";
        const std::wstring second = L"#1709622492000";
        const std::wstring logon = quirk.outcome == Messageless ? second : first;
        std::wstring ready = logon;
        if (quirk.outcome == Whole) {
            ready = second;
        } else if (quirk.outcome == OtherTime) {
            ready = L"#1354151206841";
        }
        EXPECT_EQ(Play(kLamina, quirk), (Lines{L"lamina|logon_timestamp [lamina] = " + logon,
                                               L"lamina|logon_response_timestamp [lamina] = " + logon,
                                               L"lamina|volumes_ready_timestamp [lamina] = " + ready,
                                               L"lamina|all_done_timestamp [lamina] = " + ready}));
    }
}

INSTANTIATE_TEST_SUITE_P(LastError, QuirksTest, testing::Bool(),
                         [](const auto& mode) { return mode.param ? "IsUntouched" : "IsSet"; });

} // namespace
