// Application crashes from the event to the sink, through the loaded module.

#include "tests/support/module_under_test.h"

#include <cwchar>
#include <string>
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

// What EvtFormatMessage returns while it is replaced.
std::wstring givenMessage;
BOOL WINAPI GiveMessage(EVT_HANDLE, EVT_HANDLE, DWORD id, DWORD count, PEVT_VARIANT, DWORD flags, DWORD size,
                        LPWSTR buffer, DWORD* used)
{
    EXPECT_TRUE(id == 0 && count == 0 && flags == EvtFormatMessageEvent);
    *used = static_cast<DWORD>(givenMessage.size()) + 1;
    // A success may leave any last error.
    SetLastError(size < *used ? ERROR_INSUFFICIENT_BUFFER : ERROR_MORE_DATA);
    return size >= *used && std::wmemcpy(buffer, givenMessage.c_str(), *used) != nullptr;
}

EVT_HANDLE WINAPI OpenMetadata(EVT_HANDLE session, const wchar_t* publisher, const wchar_t* file, LCID locale,
                               DWORD flags)
{
    EXPECT_TRUE(session == nullptr && file == nullptr && locale == 0 && flags == 0);
    EXPECT_STREQ(publisher, L"Application Error");
    return nullptr;
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

TEST(TestEnvironment, IsNeitherInUtcNorInEnglish)
{
    TIME_ZONE_INFORMATION zone{};
    GetTimeZoneInformation(&zone);
    EXPECT_EQ(zone.Bias, -345) << "run the tests with ctest --preset x64";
    EXPECT_EQ(PRIMARYLANGID(GetUserDefaultLangID()), LANG_GERMAN) << "run the tests with ctest --preset x64";
}

TEST_F(CrashTest, WritesEachCrashOnceWithMarkupForLineBreaks)
{
    const ImportPatch format(module, "EvtFormatMessage", &GiveMessage);
    const ImportPatch open(module, "EvtOpenPublisherMetadata", &OpenMetadata);
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
        {L"", L""},
        {L"\r\n\r\nGr\u00F6\u00DFe <\u65E5\u672C>", L"<br /><br />Gr\u00F6\u00DFe <\u65E5\u672C>"},
        {L"a\rb\nc\n\rd\r\r\n\ne\r", L"a\rb\nc\n\rd\r<br />\ne\r"}};
    for (const auto& [message, details] : cases) {
        givenMessage = message;
        Deliver(0);
        EXPECT_EQ(Collect(), S_OK);
        EXPECT_EQ(sink.Take(), (Lines{kFlagLine, Details(1, details)}));
        EXPECT_EQ(logger.Take(), Lines{});
        EXPECT_EQ(Collect(), S_OK);
        EXPECT_EQ(sink.Take(), Lines{});
        EXPECT_EQ(logger.Take(), (Lines{kNothingLine}));
    }
}

TEST_F(CrashTest, EventWhosePublisherCannotBeOpenedHasNoMessage)
{
    const ImportPatch open(module, "EvtOpenPublisherMetadata", &OpenMetadata);
    Deliver(0);
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(sink.Take(), Lines{});
    EXPECT_EQ(logger.Take(), (Lines{kNothingLine}));
}

TEST_F(CrashTest, QueriesTheComputerNameUntilItSucceeds)
{
    DWORD sizingError = ERROR_SUCCESS;
    DWORD nameError = ERROR_ACCESS_DENIED;
    BOOL named = FALSE;
    computerName = [&](wchar_t* buffer, DWORD* size) {
        if (buffer == nullptr) {
            EXPECT_EQ(*size, 0U);
            *size = 5;
        } else if (named) {
            std::wcscpy(buffer, L"PC01");
            *size = 4;
        }
        SetLastError(buffer == nullptr ? sizingError : nameError);
        return buffer != nullptr && named;
    };
    const ImportPatch patch(module, "GetComputerNameExW", &GiveComputerName);
    Deliver(0);
    sizingError = ERROR_MORE_DATA;
    Lines lines{L"E Failed to query the NetBIOS name buffer length"};
    // A negative code passes unchanged, of another one the low half counts.
    for (const auto& [error, code] :
         {std::pair<DWORD, DWORD>{5, 0x80070005}, {0x80041234, 0x80041234}, {0x82345, 0x80072345}}) {
        nameError = error;
        Deliver(1);
        lines.push_back(L"E Failed to query the NetBIOS name of the local machine" +
                        ExpectedSuffix(static_cast<HRESULT>(code)));
    }
    EXPECT_EQ(logger.Take(), lines);
    named = TRUE;
    Deliver(2);
    named = FALSE;
    Deliver(0);
    EXPECT_EQ(logger.Take(), Lines{});
    EXPECT_EQ(Collect(), S_OK);
    const std::wstring line = std::wstring(kTimeLine) + L"<br />Host Name: PC01";
    EXPECT_EQ(sink.Take(), (Lines{kFlagLine, DetailsLine(1, std::wstring(L"first") + kTimeLine),
                                  DetailsLine(2, std::wstring(L"second") + kTimeLine),
                                  DetailsLine(3, std::wstring(L"second") + kTimeLine),
                                  DetailsLine(4, std::wstring(L"second") + kTimeLine), DetailsLine(5, L"third" + line),
                                  DetailsLine(6, L"first" + line)}));
}

TEST_F(CrashTest, ThirdRefusalDropsTheRecord)
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
    Deliver(0);
    collect({S_FALSE, S_FALSE}, S_OK);
}

} // namespace
