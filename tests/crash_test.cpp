// Application crashes from the event to the sink, through the loaded module.

#include "tests/support/module_under_test.h"

#include <cstring>
#include <cwchar>
#include <string>
#include <tuple>
#include <utility>

namespace {

constexpr wchar_t kFlagLine[] = L"appcrash|contained [appcrash|contained] = true";
constexpr wchar_t kTimeLine[] = L"<br />Crash Time: 2024-03-05 07:08:09";
constexpr wchar_t kNothingLine[] = L"I No application crash available";

std::wstring DetailsLine(int ordinal, const std::wstring& details)
{
    return L"appcrash|crash_details|* [" + std::to_wstring(ordinal) + L"] = " + details;
}

std::wstring HostNameLine()
{
    wchar_t name[256] = L"";
    DWORD size = 256;
    GetComputerNameExW(ComputerNameNetBIOS, name, &size);
    return std::wstring(L"<br />Host Name: ") + name;
}

BOOL Give(const void* data, DWORD count, DWORD bytesEach, DWORD size, void* buffer, DWORD* used)
{
    *used = count;
    SetLastError(size < count ? ERROR_INSUFFICIENT_BUFFER : ERROR_SUCCESS);
    return size >= count && std::memcpy(buffer, data, size_t{count} * bytesEach) != nullptr;
}

// What EvtFormatMessage and EvtRender give while these have taken their places.
std::wstring givenMessage;
BOOL WINAPI GiveMessage(EVT_HANDLE, EVT_HANDLE, DWORD, DWORD, PEVT_VARIANT, DWORD, DWORD size, LPWSTR buffer,
                        DWORD* used)
{
    return Give(givenMessage.c_str(), static_cast<DWORD>(givenMessage.size()) + 1, sizeof(wchar_t), size, buffer, used);
}
EVT_VARIANT givenTime;
BOOL WINAPI GiveTime(EVT_HANDLE, EVT_HANDLE, DWORD, DWORD size, void* buffer, DWORD* used, DWORD*)
{
    return Give(&givenTime, sizeof(givenTime), 1, size, buffer, used);
}

class CrashTest : public ModuleTest {
protected:
    CrashTest()
    {
        EXPECT_EQ(Subscribe(), S_OK);
        LoadEvents(Event(L"first") + Event(L"second") + Event(L"third"));
        logger.Take();
    }
    static std::wstring Details(int ordinal, const std::wstring& message)
    {
        return DetailsLine(ordinal, message + kTimeLine + HostNameLine());
    }
};

TEST_F(CrashTest, ACrashIsWrittenOnceToTheCharacter)
{
    LoadEvents(Event(L"Line one\r\nGr\u00F6\u00DFe &lt;\u65E5\u672C&gt;"));
    Deliver(0);
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(sink.Take(), (Lines{kFlagLine, Details(1, L"Line one<br />Gr\u00F6\u00DFe <\u65E5\u672C>")}));
    EXPECT_EQ(logger.Take(), Lines{});
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(sink.Take(), Lines{});
    EXPECT_EQ(logger.Take(), (Lines{kNothingLine}));
    EXPECT_EQ(Replay().OpenHandles(ReplayContextHandle), 0U);
}

TEST_F(CrashTest, OnlyPairsOfCrAndLfBecomeMarkup)
{
    const ImportPatch patch(module, "EvtFormatMessage", &GiveMessage);
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
        {L"plain", L"plain"},     {L"", L""},
        {L"\r\n", L"<br />"},     {L"\r\n\r\na", L"<br /><br />a"},
        {L"a\rb\nc", L"a\rb\nc"}, {L"a\n\rb\r\r\n\nc\r", L"a\n\rb\r<br />\nc\r"}};
    for (const auto& [message, details] : cases) {
        givenMessage = message;
        Deliver(0);
        EXPECT_EQ(Collect(), S_OK);
        EXPECT_EQ(sink.Take(), (Lines{kFlagLine, Details(1, details)}));
    }
}

TEST_F(CrashTest, TheTimeLineIsThereForFileTimesThatTheSystemKnows)
{
    const ImportPatch patch(module, "EvtRender", &GiveTime);
    const std::tuple<DWORD, ULONGLONG, const wchar_t*> cases[] = {
        {EvtVarTypeFileTime, 0, L"<br />Crash Time: 1601-01-01 00:00:00"},
        {EvtVarTypeFileTime, 0x7FFFFFFFFFFFFFFF, L"<br />Crash Time: 30828-09-14 02:48:05"},
        {EvtVarTypeFileTime, 0x8000000000000000, L""},
        {EvtVarTypeFileTime, 0xFFFFFFFFFFFFFFFF, L""},
        {EvtVarTypeNull, 133540960899999999, L""},
        {EvtVarTypeUInt64, 133540960899999999, L""}};
    for (const auto& [type, time, line] : cases) {
        givenTime.FileTimeVal = time;
        givenTime.Type = type;
        Deliver(0);
        EXPECT_EQ(Collect(), S_OK);
        EXPECT_EQ(sink.Take(), (Lines{kFlagLine, DetailsLine(1, std::wstring(L"first") + line + HostNameLine())}));
    }
}

TEST_F(CrashTest, AnEventThatCannotBeReadLosesItsTimeOrItsRecordAndNothingElse)
{
    enum Lost { Nothing, Time, Record };
    const std::tuple<ReplayFunction, DWORD, ReplayFault, DWORD, Lost> cases[] = {
        {ReplayEvtCreateRenderContext, 1, ReplayFail, ERROR_ACCESS_DENIED, Time},
        {ReplayEvtRender, 1, ReplayFail, ERROR_INVALID_HANDLE, Time},
        {ReplayEvtRender, 2, ReplayFail, ERROR_INVALID_DATA, Time},
        {ReplayEvtRender, 1, ReplayNoBufferNeeded, 0, Time},
        {ReplayEvtRender, 2, ReplayNullValues, 0, Time},
        {ReplayEvtRender, 2, ReplayOtherTypes, 0, Time},
        {ReplayEvtOpenPublisherMetadata, 1, ReplayFail, ERROR_FILE_NOT_FOUND, Nothing}, // the event brings its text
        {ReplayEvtFormatMessage, 1, ReplayFail, ERROR_EVT_MESSAGE_NOT_FOUND, Record},
        {ReplayEvtFormatMessage, 1, ReplayNoBufferNeeded, 0, Record},
        {ReplayEvtFormatMessage, 2, ReplayFailWithText, ERROR_EVT_UNRESOLVED_VALUE_INSERT, Record}};
    for (const DWORD modes : {DWORD{0}, DWORD{ReplayLastErrorUntouched}}) {
        for (const auto& [function, occurrence, fault, code, lost] : cases) {
            SCOPED_TRACE(testing::Message() << function << '.' << occurrence << ": " << fault << ", modes " << modes);
            Replay().Reset();
            Replay().SetMode(modes);
            Replay().Inject(function, occurrence, fault, code);
            Deliver(0);
            Deliver(1);
            EXPECT_EQ(Collect(), S_OK);
            Lines wanted{kFlagLine};
            if (lost != Record) {
                wanted.push_back(
                    DetailsLine(1, L"first" + std::wstring(lost == Time ? L"" : kTimeLine) + HostNameLine()));
            }
            wanted.push_back(Details(static_cast<int>(wanted.size()), L"second"));
            EXPECT_EQ(sink.Take(), wanted);
        }
    }
    EXPECT_EQ(logger.Take(), Lines{});
    EXPECT_EQ(Replay().OpenHandles(ReplayContextHandle), 0U);
}

TEST_F(CrashTest, TheComputersNameIsAskedForUntilItIsKnownAndThenKept)
{
    DWORD sizingError = ERROR_SUCCESS;
    BOOL named = FALSE;
    computerName = [&](wchar_t* buffer, DWORD* size) {
        if (buffer == nullptr) {
            EXPECT_EQ(*size, 0U);
            *size = 5;
        } else if (named) {
            std::wcscpy(buffer, L"PC01");
            *size = 4;
        }
        SetLastError(buffer == nullptr ? sizingError : ERROR_ACCESS_DENIED);
        return buffer != nullptr && named;
    };
    const ImportPatch patch(module, "GetComputerNameExW", &GiveComputerName);
    Deliver(0);
    sizingError = ERROR_MORE_DATA;
    Deliver(1);
    EXPECT_EQ(logger.Take(), (Lines{L"E Failed to query the NetBIOS name buffer length",
                                    L"E Failed to query the NetBIOS name of the local machine" +
                                        ExpectedSuffix(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED))}));
    named = TRUE;
    Deliver(2);
    named = FALSE;
    Deliver(0);
    EXPECT_EQ(logger.Take(), Lines{});
    EXPECT_EQ(Collect(), S_OK);
    const std::wstring line = std::wstring(kTimeLine) + L"<br />Host Name: PC01";
    EXPECT_EQ(sink.Take(), (Lines{kFlagLine, DetailsLine(1, std::wstring(L"first") + kTimeLine),
                                  DetailsLine(2, std::wstring(L"second") + kTimeLine), DetailsLine(3, L"third" + line),
                                  DetailsLine(4, L"first" + line)}));
}

TEST_F(CrashTest, ARefusalEndsTheCollectionAndTheThirdOneDropsTheRecord)
{
    const std::wstring flagRefused = L"E Failed to write metric flag 'appcrash|contained'.";
    const std::wstring detailRefused = L"E Failed to collect metric 'appcrash|crash_details|*'.";
    const std::wstring dropped = L"I Collecting metric has exceeded max failure times. Delete event from list ''";
    for (DWORD index = 0; index < 3; ++index) {
        Deliver(index);
    }
    const auto collect = [&](std::deque<HRESULT> results, HRESULT wanted) {
        sink.results = std::move(results);
        EXPECT_EQ(Collect(), wanted);
    };
    // The flag is refused: no record counts it.
    for (int round = 0; round < 3; ++round) {
        collect({E_FAIL}, E_FAIL);
        EXPECT_EQ(sink.Take(), (Lines{kFlagLine}));
        EXPECT_EQ(logger.Take(), (Lines{flagRefused + ExpectedSuffix(E_FAIL)}));
    }
    // A success of another kind is a success, and is not passed on.
    collect({S_FALSE, S_FALSE, E_ACCESSDENIED}, E_ACCESSDENIED);
    EXPECT_EQ(sink.Take(), (Lines{kFlagLine, Details(1, L"first"), Details(2, L"second")}));
    EXPECT_EQ(logger.Take(), (Lines{detailRefused + ExpectedSuffix(E_ACCESSDENIED)}));
    // Without a sink nothing is lost, whether there is none or an object that is none.
    EXPECT_EQ(provider->QueryMetricEx(_bstr_t(kCrash), 1, nullptr), E_POINTER);
    EXPECT_EQ(provider->QueryMetric(_bstr_t(kCrash), 2, nullptr), E_POINTER);
    EXPECT_EQ(provider->QueryMetric(_bstr_t(kCrash), 3, &host), E_POINTER);
    const std::wstring noSink = flagRefused + ExpectedSuffix(E_POINTER);
    EXPECT_EQ(logger.Take(), (Lines{noSink, noSink, noSink}));
    collect({S_OK, E_FAIL}, E_FAIL);
    EXPECT_EQ(logger.Take(), (Lines{detailRefused + ExpectedSuffix(E_FAIL)}));
    collect({S_OK, E_ABORT}, E_ABORT);
    EXPECT_EQ(logger.Take(), (Lines{detailRefused + ExpectedSuffix(E_ABORT), dropped}));
    sink.Take();
    EXPECT_EQ(provider->QueryMetric(_bstr_t(kCrash), 4, &sink), S_OK);
    EXPECT_EQ(sink.Take(), (Lines{kFlagLine, Details(1, L"third")}));
    EXPECT_EQ(logger.Take(), Lines{});
}

TEST_F(CrashTest, OutOfMemoryLeavesAsTheSystemsErrorAndLosesNothing)
{
    Deliver(0);
    {
        BSTR(WINAPI * none)(const OLECHAR*) = [](const OLECHAR*) -> BSTR { return nullptr; };
        const ImportPatch patch(module, "SysAllocString", none);
        try {
            Collect();
            ADD_FAILURE() << "a value was written without its key";
        } catch (const _com_error& error) {
            EXPECT_EQ(error.Error(), E_OUTOFMEMORY);
        }
    }
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(sink.Take(), (Lines{kFlagLine, Details(1, L"first")}));
}

TEST_F(CrashTest, EveryEventLeavesItsPublisherOpenAndErrorsAreNoEvents)
{
    const DWORD open = Replay().OpenHandles(ReplayPublisherHandle);
    Deliver(0, 5);
    EXPECT_EQ(Replay().OpenHandles(ReplayPublisherHandle), open + 5);
    EXPECT_EQ(Replay().DeliverError(15011), 0U);
    EXPECT_EQ(Replay().Calls(ReplayEvtOpenPublisherMetadata), 5U);
}

} // namespace
