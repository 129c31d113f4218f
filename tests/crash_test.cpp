// Application crashes from the event to the sink, through the loaded module.

#include "tests/support/module_under_test.h"

#include <cwchar>
#include <string>
#include <utility>

namespace {

constexpr wchar_t kFlagLine[] = L"appcrash|contained [appcrash|contained] = true";

class CrashTest : public ModuleTest {
protected:
    CrashTest()
    {
        EXPECT_EQ(Subscribe(), S_OK);
        LoadEvents(Event(L"first") + Event(L"second") + Event(L"third"));
        logger.Take();
    }
    static std::wstring Details(int ordinal, const std::wstring& message, const std::wstring& host = L"PC01")
    {
        return L"appcrash|crash_details|* [" + std::to_wstring(ordinal) + L"] = " + message +
               L"<br />Crash Time: 2024-03-05 07:08:09" + (host.empty() ? L"" : L"<br />Host Name: " + host);
    }

    DWORD nameError = ERROR_SUCCESS;
    const Patch<decltype(GetComputerNameExW)> computerName{
        module, "GetComputerNameExW", [this](auto, COMPUTER_NAME_FORMAT format, wchar_t* buffer, DWORD* size) {
            EXPECT_TRUE(format == ComputerNameNetBIOS && *size == (buffer == nullptr ? 0 : 5)) << *size;
            *size = 5;
            SetLastError(buffer == nullptr ? ERROR_MORE_DATA : nameError);
            return buffer != nullptr && nameError == ERROR_SUCCESS && std::wcscpy(buffer, L"PC01") != nullptr;
        }};
};

TEST(TestEnvironment, IsNeitherInUtcNorInEnglish)
{
    TIME_ZONE_INFORMATION zone{};
    GetTimeZoneInformation(&zone);
    EXPECT_EQ(zone.Bias, -345) << "run the tests with ctest --preset x64";
    EXPECT_EQ(PRIMARYLANGID(GetUserDefaultLangID()), LANG_GERMAN) << "run the tests with ctest --preset x64";
}

TEST_F(CrashTest, WithAnEmptyMessageIsWrittenOnce)
{
    const Patch<decltype(EvtFormatMessage)> format(
        module, "EvtFormatMessage",
        [](auto, auto, auto, DWORD id, DWORD count, auto, DWORD flags, DWORD size, wchar_t*, DWORD* used) {
            EXPECT_TRUE(id == 0 && count == 0 && flags == EvtFormatMessageEvent);
            *used = 1;
            SetLastError(size == 0 ? ERROR_INSUFFICIENT_BUFFER : ERROR_MORE_DATA); // a success may leave any last error
            return size != 0;
        });
    const Patch<decltype(EvtOpenPublisherMetadata)> open(
        module, "EvtOpenPublisherMetadata",
        [](auto, EVT_HANDLE session, const wchar_t* publisher, const wchar_t* file, LCID locale, DWORD flags) {
            EXPECT_TRUE(session == nullptr && file == nullptr && locale == 0 && flags == 0);
            EXPECT_STREQ(publisher, L"Application Error");
            return nullptr;
        });
    Deliver(0);
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(sink.Take(), (Lines{kFlagLine, Details(1, L"")}));
    EXPECT_EQ(logger.Take(), Lines{});
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(sink.Take(), Lines{});
    EXPECT_EQ(logger.Take(), Lines{L"I No application crash available"});
}

TEST_F(CrashTest, QueriesTheComputerNameUntilItSucceeds)
{
    Lines written{kFlagLine};
    Lines logged;
    // A negative code passes unchanged, of another one the low half counts.
    for (const auto& [error, code] :
         {std::pair<DWORD, DWORD>{5, 0x80070005}, {0x80041234, 0x80041234}, {0x82345, 0x80072345}}) {
        nameError = error;
        Deliver(0);
        written.push_back(Details(static_cast<int>(written.size()), L"first", L""));
        logged.push_back(L"E Failed to query the NetBIOS name of the local machine" +
                         ExpectedSuffix(static_cast<HRESULT>(code)));
    }
    for (const DWORD error : {ERROR_SUCCESS, ERROR_ACCESS_DENIED}) {
        nameError = error;
        Deliver(1);
        written.push_back(Details(static_cast<int>(written.size()), L"second"));
    }
    EXPECT_EQ(logger.Take(), logged);
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(sink.Take(), written);
}

TEST_F(CrashTest, ThirdRefusalDropsTheRecord)
{
    const std::wstring flagRefused = L"E Failed to write metric flag 'appcrash|contained'.";
    const std::wstring detailRefused = L"E Failed to collect metric 'appcrash|crash_details|*'.";
    for (DWORD index = 0; index < 3; ++index) {
        Deliver(index);
    }
    const auto collect = [&](std::deque<HRESULT> results, const Lines& logged) {
        const HRESULT wanted = results.back();
        sink.results = std::move(results);
        EXPECT_EQ(Collect(), wanted);
        EXPECT_EQ(logger.Take(), logged);
        return sink.Take();
    };
    // The flag is refused: no record counts it.
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(collect({E_FAIL}, {flagRefused + ExpectedSuffix(E_FAIL)}), (Lines{kFlagLine}));
    }
    // A success of another kind is a success, and is not passed on.
    EXPECT_EQ(collect({S_FALSE, S_FALSE, E_ACCESSDENIED}, {detailRefused + ExpectedSuffix(E_ACCESSDENIED)}),
              (Lines{kFlagLine, Details(1, L"first"), Details(2, L"second")}));
    // Without a sink nothing is lost, whether there is none or an object that is none.
    EXPECT_EQ(provider->QueryMetricEx(_bstr_t(kCrash), 1, nullptr), E_POINTER);
    EXPECT_EQ(provider->QueryMetric(_bstr_t(kCrash), 2, nullptr), E_POINTER);
    EXPECT_EQ(provider->QueryMetric(_bstr_t(kCrash), 3, &host), E_POINTER);
    EXPECT_EQ(logger.Take(), Lines(3, flagRefused + ExpectedSuffix(E_POINTER)));
    collect({S_OK, E_FAIL}, {detailRefused + ExpectedSuffix(E_FAIL)});
    collect({S_OK, E_ABORT}, {detailRefused + ExpectedSuffix(E_ABORT),
                              L"I Collecting metric has exceeded max failure times. Delete event from list ''"});
    EXPECT_EQ(provider->QueryMetric(_bstr_t(kCrash), 4, &sink), S_OK);
    EXPECT_EQ(sink.Take(), (Lines{kFlagLine, Details(1, L"third")}));
    Deliver(0);
    sink.results = {S_FALSE, S_FALSE};
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(logger.Take(), Lines{});
}

} // namespace
