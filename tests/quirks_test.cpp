// Known misbehaviour of the Event Log: nothing is reported that it did not return. With the guarded module, these tests
// also show that nothing is read that the platform did not write.

#include "tests/support/module_under_test.h"

#include <string>

namespace {

enum Outcome {
    Whole,      // everything is known
    HalfValues, // of two values the second, the time, is missing
    OtherTime,  // the platform returned another time
    Timeless,   // the event's own time is not known
    Cut,        // only the front of the message is
    Messageless // the message is not known
};

struct Quirk {
    ReplayFunction function;
    DWORD occurrence; // 1: the sizing call, 2: the call with the buffer
    ReplayFault fault;
    DWORD code;
    Outcome outcome;
};
constexpr Quirk kQuirks[] = {
    {ReplayEvtRender, 2, ReplayTruncated, 0, HalfValues},
    {ReplayEvtRender, 1, ReplayLongerNextTime, 0, Timeless},
    {ReplayEvtRender, 2, ReplayUsedTooLarge, 0, Whole},
    {ReplayEvtRender, 2, ReplayNullValues, 0, OtherTime},
    {ReplayEvtRender, 2, ReplayOtherTypes, 0, OtherTime},
    {ReplayEvtRender, 1, ReplayNoBufferNeeded, 0, Timeless},
    {ReplayEvtRender, 2, ReplayFail, ERROR_INSUFFICIENT_BUFFER, Timeless},
    {ReplayEvtFormatMessage, 2, ReplayTruncated, 0, Cut},
    {ReplayEvtFormatMessage, 1, ReplayLongerNextTime, 0, Messageless},
    {ReplayEvtFormatMessage, 2, ReplayUsedTooLarge, 0, Whole},
    {ReplayEvtFormatMessage, 1, ReplayNoBufferNeeded, 0, Messageless},
    {ReplayEvtFormatMessage, 1, ReplayFail, ERROR_EVT_MESSAGE_NOT_FOUND, Messageless},
    {ReplayEvtFormatMessage, 1, ReplayFail, ERROR_EVT_MESSAGE_ID_NOT_FOUND, Messageless},
    {ReplayEvtFormatMessage, 1, ReplayFail, ERROR_EVT_MESSAGE_LOCALE_NOT_FOUND, Messageless},
    {ReplayEvtFormatMessage, 1, ReplayFail, ERROR_EVT_UNRESOLVED_VALUE_INSERT, Messageless},
    {ReplayEvtFormatMessage, 2, ReplayFail, ERROR_EVT_MESSAGE_NOT_FOUND, Messageless},
    {ReplayEvtFormatMessage, 2, ReplayFail, ERROR_EVT_MESSAGE_ID_NOT_FOUND, Messageless},
    {ReplayEvtFormatMessage, 2, ReplayFail, ERROR_EVT_MESSAGE_LOCALE_NOT_FOUND, Messageless},
    {ReplayEvtFormatMessage, 2, ReplayFailWithText, ERROR_EVT_UNRESOLVED_VALUE_INSERT, Messageless},
    {ReplayEvtFormatMessage, 2, ReplayFailWithText, ERROR_EVT_UNRESOLVED_PARAMETER_INSERT, Messageless},
    {ReplayEvtFormatMessage, 2, ReplayFailWithText, ERROR_EVT_MAX_INSERTS_REACHED, Messageless}};

class QuirksTest : public ModuleTest, public testing::WithParamInterface<DWORD> {
protected:
    /// Returns what `metric` writes after event 0, delivered as it is, and event 1, delivered with the quirk.
    Lines Play(const wchar_t* metric, const Quirk& quirk)
    {
        EXPECT_EQ(Subscribe(metric), S_OK);
        Deliver(0);
        Replay().Reset();
        Replay().SetMode(GetParam());
        Replay().Inject(quirk.function, quirk.occurrence, quirk.fault, quirk.code);
        Deliver(1);
        EXPECT_EQ(Replay().DeliverError(15011), 0U);
        EXPECT_EQ(Replay().Calls(ReplayEvtOpenPublisherMetadata), 1U) << "an error is no event";
        EXPECT_EQ(Collect(metric), S_OK);
        EXPECT_EQ(Unsubscribe(metric), S_OK);
        EXPECT_EQ(Replay().OpenHandles(ReplayContextHandle) + Replay().InvalidHandles(), 0U);
        return sink.Take();
    }
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
    const auto at = [](const wchar_t* message, const wchar_t* time) { return Event(message, time, L"korvex"); };
    LoadEvents(at(L"User is logging in", L"2024-03-05T07:08:10Z") +
               at(L"New volume event (mounted): (VolumeType 2)", L"2024-03-05T07:08:12Z"));
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

INSTANTIATE_TEST_SUITE_P(LastError, QuirksTest, testing::Values(0, ReplayLastErrorUntouched),
                         [](const auto& mode) { return mode.param == 0 ? "IsSet" : "IsUntouched"; });

} // namespace
