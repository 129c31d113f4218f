// Known misbehaviour of the Event Log: nothing is reported that it did not return. With the guarded module, these tests
// also show that nothing is read that the platform did not write.

#include "tests/support/module_under_test.h"

#include <algorithm>
#include <span>
#include <string>
#include <tuple>
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

/// What is reported of an event: the crash, empty for none; the times of the logon and of its volumes.
struct Outcome {
    const wchar_t* crash;
    const wchar_t* logon;
    const wchar_t* volumes;
};
constexpr Outcome kWhole = {L"Faulted<br />Crash Time: 2024-03-05 07:08:09", L"#1709622490000", L"#1709622492000"};
// Of the two values of an agent's event the second, the time, is missing: it counts as one at the time of the logon.
constexpr Outcome kHalfValues = {kWhole.crash, kWhole.logon, kWhole.logon};
constexpr Outcome kOtherTime = {L"Faulted<br />Crash Time: 2012-11-29 01:06:46", kWhole.logon, L"#1354151206841"};
constexpr Outcome kTimeless = {L"Faulted", kWhole.logon, kWhole.logon};
constexpr Outcome kCut = {L"Faul<br />Crash Time: 2024-03-05 07:08:09", kWhole.logon, kWhole.logon};
// An agent's event without its message counts as another logon.
constexpr Outcome kMessageless = {L"", kWhole.volumes, kWhole.volumes};

struct Quirk {
    Function function;
    Call call;
    Fault fault;
    const Outcome& outcome;
    DWORD code = ERROR_SUCCESS;
};
constexpr Quirk kQuirks[] = {{Render, WithBuffer, Truncated, kHalfValues},
                             {Render, Sizing, HalfTheSize, kTimeless},
                             {Render, Both, HalfTheSize, kTimeless},
                             {Render, WithBuffer, UsedTooLarge, kWhole},
                             {Render, WithBuffer, NullValues, kOtherTime},
                             {Render, WithBuffer, OtherTypes, kOtherTime},
                             {Render, Sizing, NoBufferNeeded, kTimeless},
                             {Render, WithBuffer, Fails, kTimeless, ERROR_INSUFFICIENT_BUFFER},
                             {Format, WithBuffer, Truncated, kCut},
                             {Format, Sizing, HalfTheSize, kMessageless},
                             {Format, WithBuffer, UsedTooLarge, kWhole},
                             {Format, Sizing, NoBufferNeeded, kMessageless},
                             {Format, Sizing, Fails, kMessageless, ERROR_EVT_MESSAGE_NOT_FOUND},
                             {Format, Sizing, Fails, kMessageless, ERROR_EVT_MESSAGE_ID_NOT_FOUND},
                             {Format, Sizing, Fails, kMessageless, ERROR_EVT_MESSAGE_LOCALE_NOT_FOUND},
                             {Format, Sizing, Fails, kMessageless, ERROR_EVT_UNRESOLVED_VALUE_INSERT},
                             {Format, WithBuffer, Fails, kMessageless, ERROR_EVT_MESSAGE_NOT_FOUND},
                             {Format, WithBuffer, Fails, kMessageless, ERROR_EVT_MESSAGE_ID_NOT_FOUND},
                             {Format, WithBuffer, Fails, kMessageless, ERROR_EVT_MESSAGE_LOCALE_NOT_FOUND},
                             {Format, WithBuffer, FailsWithText, kMessageless, ERROR_EVT_UNRESOLVED_VALUE_INSERT},
                             {Format, WithBuffer, FailsWithText, kMessageless, ERROR_EVT_UNRESOLVED_PARAMETER_INSERT},
                             {Format, WithBuffer, FailsWithText, kMessageless, ERROR_EVT_MAX_INSERTS_REACHED}};

constexpr ULONGLONG kJunk = 0x01CD'CDCD'CDCD'CDCD; // as a FILETIME 2012-11-29 01:06:46.841 UTC

const Quirk* current = nullptr; // of the event that is delivered now

/// Makes a call with a buffer of so many bytes misbehave as the current quirk says.
BOOL Misbehave(char* buffer, size_t bytes, DWORD* used, const std::function<BOOL()>& call)
{
    SetLastError(current->code);
    switch (current->fault) {
    case Fails:
        return FALSE;
    case FailsWithText:
        call();
        SetLastError(current->code);
        return FALSE;
    case NoBufferNeeded:
        *used = 0;
        return TRUE;
    case HalfTheSize:
        if (buffer != nullptr) {
            std::fill_n(buffer, bytes, '\xCD');
            return TRUE;
        }
        call();
        *used /= 2;
        return FALSE;
    case UsedTooLarge:
        call();
        *used = static_cast<DWORD>(bytes) * 2 + 64;
        return TRUE;
    case Truncated: {
        const std::vector<char> before(buffer + bytes / 2, buffer + bytes);
        call();
        std::ranges::copy(before, buffer + bytes / 2);
        return TRUE;
    }
    case NullValues:
    case OtherTypes:
        call();
        for (EVT_VARIANT& value : std::span(reinterpret_cast<EVT_VARIANT*>(buffer), bytes / sizeof(EVT_VARIANT))) {
            value.Type = current->fault == NullValues ? EvtVarTypeNull : EvtVarTypeHexInt32;
            value.UInt64Val = kJunk;
        }
        return TRUE;
    }
    return FALSE;
}

class QuirksTest : public ModuleTest, public testing::WithParamInterface<bool> {
protected:
    /// Calls a function whose argument number `kSize` is the size of a buffer in `Unit`s, followed by the buffer and
    /// the used size.
    template <Function kFunction, size_t kSize, typename Unit>
    static BOOL Intercept(auto function, auto... arguments)
    {
        const auto all = std::tie(arguments...);
        auto* const buffer = static_cast<char*>(static_cast<void*>(std::get<kSize + 1>(all)));
        const int kind = buffer == nullptr ? Sizing : WithBuffer;
        const DWORD lastError = GetLastError();
        const auto call = [&] { return function(arguments...); };
        const bool isFaulty = current != nullptr && current->function == kFunction && (current->call & kind) != 0;
        const BOOL isDone =
            isFaulty ? Misbehave(buffer, std::get<kSize>(all) * sizeof(Unit), std::get<kSize + 2>(all), call) : call();
        if (isDone) {
            SetLastError(GetParam() ? lastError : ERROR_SUCCESS);
        }
        return isDone;
    }

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

    const Patch<decltype(EvtRender)> render{module, "EvtRender",
                                            [](auto... call) { return Intercept<Render, 3, char>(call...); }};
    const Patch<decltype(EvtFormatMessage)> format{module, "EvtFormatMessage",
                                                   [](auto... call) { return Intercept<Format, 6, wchar_t>(call...); }};
    const Patch<decltype(EvtCreateRenderContext)> create{module, "EvtCreateRenderContext",
                                                         [](auto function, auto... arguments) {
                                                             const DWORD lastError = GetLastError();
                                                             const EVT_HANDLE context = function(arguments...);
                                                             SetLastError(GetParam() ? lastError : ERROR_SUCCESS);
                                                             return context;
                                                         }};
};

TEST_P(QuirksTest, ReportsWhatIsKnownOfACrash)
{
    const std::wstring hostLine = std::wstring(L"<br />Host Name: ") + _wgetenv(L"COMPUTERNAME");
    LoadEvents(Event(L"before") + Event(L"Faulted"));
    for (const Quirk& quirk : kQuirks) {
        SCOPED_TRACE(&quirk - kQuirks);
        Lines wanted{L"appcrash|contained [appcrash|contained] = true",
                     L"appcrash|crash_details|* [1] = before<br />Crash Time: 2024-03-05 07:08:09" + hostLine};
        if (*quirk.outcome.crash != L'\0') {
            wanted.push_back(std::wstring(L"appcrash|crash_details|* [2] = ") + quirk.outcome.crash + hostLine);
        }
        EXPECT_EQ(Play(kCrash, quirk), wanted);
    }
}

TEST_P(QuirksTest, ReportsWhatIsKnownOfALogon)
{
    LoadEvents(AgentEvent(L"User is logging in", L"2024-03-05T07:08:10Z") +
               AgentEvent(L"New volume event (mounted): (VolumeType 2)", L"2024-03-05T07:08:12Z"));
    for (const Quirk& quirk : kQuirks) {
        SCOPED_TRACE(&quirk - kQuirks);
        const std::wstring logon = quirk.outcome.logon, volumes = quirk.outcome.volumes;
        EXPECT_EQ(Play(kLamina, quirk), (Lines{L"lamina|logon_timestamp [lamina] = " + logon,
                                               L"lamina|logon_response_timestamp [lamina] = " + logon,
                                               L"lamina|volumes_ready_timestamp [lamina] = " + volumes,
                                               L"lamina|all_done_timestamp [lamina] = " + volumes}));
    }
}

INSTANTIATE_TEST_SUITE_P(LastError, QuirksTest, testing::Bool(),
                         [](const auto& mode) { return mode.param ? "IsUntouched" : "IsSet"; });

} // namespace
