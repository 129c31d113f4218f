#pragma once

#include "module/provider_ids.h"
#include "tests/support/faulty_log.h"
#include "tests/support/host_fakes.h"
#include "tests/support/import_patch.h"
#include "tools/dom_element.h"
#include "tools/function_of.h"

#include <windows.h>
#include <OrvelAgent.h>
#include <comdef.h>
#include <msxml2.h>
#include <winevt.h>
#include <wrl/client.h>

#include <functional>
#include <string>

using Microsoft::WRL::ComPtr;

using orvel::kProviderClass;
inline constexpr wchar_t kCrash[] = L"eventlog|eventlog_appcrash";
inline constexpr wchar_t kLamina[] = L"eventlog|eventlog_lamina";

/// Returns the full path of the built module, or of the variant whose folder ORVEL_MODULE_FOLDER names.
std::wstring ModuleFile();

/// The replay log with faults, which stands in for the Event Log in this process; loaded on first use.
FaultyReplayClient& Replay();

/// Loads events, to be delivered later; fails the test when they cannot be read.
void LoadEvents(const std::wstring& events);

/// Returns one event of an export, in channel Application.
std::wstring Event(const std::wstring& message, const wchar_t* time = L"2024-03-05T07:08:09.9999999Z",
                   const wchar_t* publisher = L"Application Error");

/// Returns one event of the layering agent.
inline std::wstring AgentEvent(const std::wstring& message, const wchar_t* time = L"2024-03-05T07:08:09Z")
{
    return Event(message, time, L"korvex");
}

/// Returns the number of this process's handles.
inline DWORD Handles()
{
    DWORD handles = 0;
    GetProcessHandleCount(GetCurrentProcess(), &handles);
    return handles;
}

/// A configuration that subscribes to channel Application.
inline const std::wstring kApplication = L"<metric><channel>Application</channel><query>*</query></metric>";

/// Returns a configuration that selects the events of one publisher.
inline std::wstring EventsOf(const std::wstring& publisher)
{
    return L"<metric><channel>Application</channel><query>*[System[Provider[@Name='" + publisher +
           L"']]]</query></metric>";
}

/// Parses a configuration element with the system's MSXML.
inline ComPtr<IXMLDOMElement> Configuration(const std::wstring& xml = kApplication)
{
    return orvel::ParseElement(xml.c_str());
}

/// Returns the suffix of an error line, with the system's text for the code.
std::wstring ExpectedSuffix(HRESULT code);

/// The built Orvel_eventlog.dll, loaded for the life of this object. Fails the test when something holds the module
/// after that.
class ModuleUnderTest {
public:
    /// Loads the built file, or its copy at `path`.
    explicit ModuleUnderTest(const std::wstring& path = ModuleFile());
    ~ModuleUnderTest();
    ModuleUnderTest(const ModuleUnderTest&) = delete;
    ModuleUnderTest& operator=(const ModuleUnderTest&) = delete;

    operator HMODULE() const { return handle_; } // NOLINT(google-explicit-constructor): it stands for the handle
    bool IsMapped() const { return GetModuleHandleW(path_.c_str()) != nullptr; }
    /// Frees the module without waiting for anything. Called once.
    void Free();
    /// Throws `_com_error`.
    ComPtr<IOrvelDataProvider> CreateProvider() const;

private:
    const std::wstring path_;
    HMODULE handle_; // null after Free

public:
    decltype(&DllCanUnloadNow) const CanUnloadNow = orvel::FunctionOf{handle_, "DllCanUnloadNow"};
    decltype(&DllGetClassObject) const GetClassObject = orvel::FunctionOf{handle_, "DllGetClassObject"};
};

/// Waits, up to five seconds, until a condition holds, and returns whether it does.
template <typename Condition>
bool Eventually(Condition condition)
{
    for (int wait = 0; wait < 1000; ++wait) {
        if (condition()) {
            return true;
        }
        Sleep(5);
    }
    return false;
}

/// A host, the loaded module and one provider whose host is set.
class ModuleTest : public testing::Test {
protected:
    ModuleTest() { CreateProvider(); }
    void CreateProvider()
    {
        provider = module.CreateProvider();
        EXPECT_EQ(provider->SetHost(&logger, &host), S_OK);
    }
    HRESULT Subscribe(const wchar_t* name = kCrash, const std::wstring& xml = kApplication)
    {
        return provider->SubscribeMetric(_bstr_t(name), Configuration(xml).Get());
    }
    HRESULT Unsubscribe(const wchar_t* name = kCrash) { return provider->UnsubscribeMetric(_bstr_t(name)); }
    HRESULT Collect(const wchar_t* name = kCrash) { return provider->QueryMetricEx(_bstr_t(name), 0, &sink); }
    static void Deliver(DWORD index, DWORD times = 1) { EXPECT_EQ(Replay().Deliver(index, times), 0U); }
    /// Waits for the pool to close subscriptions that were ended inside a metric.
    static bool AreSubscribed(DWORD most)
    {
        return Eventually([&] { return Replay().OpenHandles(ReplaySubscriptionHandle) <= most; });
    }

    RecordingLogger logger;
    HostObject host;
    RecordingSink sink;
    ModuleUnderTest module;
    ComPtr<IOrvelDataProvider> provider;
};
