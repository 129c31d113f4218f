#include "tools/console/verify.h"

#include "host/bstr.h"
#include "host/format.h"
#include "tools/console/event_counter.h"
#include "tools/console/host_objects.h"
#include "tools/console/input.h"
#include "tools/console/provider_module.h"
#include "tools/console/session.h"
#include "tools/console/terminal.h"
#include "tools/console/text.h"
#include "tools/function_of.h"

#include <msxml2.h>

#include <chrono>
#include <memory>

namespace orvel::console {

using Microsoft::WRL::ComPtr;

namespace {

constexpr wchar_t kProgId[] = L"OrvelAgent.EventLogProvider";
constexpr wchar_t kPublisher[] = L"Application Error";
constexpr wchar_t kChannel[] = L"Application";
constexpr wchar_t kQuery[] = L"*[System[Provider[@Name='Application Error'] and (EventID=1000)]]";
constexpr DWORD kEventId = 1000;
constexpr WORD kCategory = 100;

void Report(const char* step, const std::string& finding)
{
    WriteData(std::string(step) + std::string(14 - std::string_view(step).size(), ' ') + finding + "\n");
}

void Require(bool isGood, ExitCode code, const std::string& text)
{
    if (!isGood) {
        throw Failure(code, text);
    }
}

/// The module registered for the current user, until it is removed.
class UserRegistration {
public:
    explicit UserRegistration(std::wstring path) : path_(std::move(path)) {}
    UserRegistration(const UserRegistration&) = delete;
    UserRegistration& operator=(const UserRegistration&) = delete;

    void Register() const
    {
        const HRESULT hr = Install(TRUE);
        Require(SUCCEEDED(hr), ExitCode::Registration,
                ToUtf8(path_) + " cannot be registered for this user: " + Describe(hr) +
                    "; it must lie beside this program, with the same word size");
    }

    /// Returns what is wrong afterwards; empty if everything was removed.
    std::string Remove() const
    {
        const HRESULT hr = Install(FALSE);
        if (FAILED(hr)) {
            return "the module cannot be removed from the user's classes: " + Describe(hr);
        }
        for (const wchar_t* const left :
             {L"OrvelAgent.EventLogProvider", L"OrvelAgent.EventLogProvider.1", L"AppID\\Orvel_eventlog.dll",
              L"CLSID\\{DAF69464-F4E2-40C0-BCC3-A30E819975F0}", L"TypeLib\\{BA21C1A6-3183-4E99-A464-6DF4178B7249}"}) {
            HKEY key = nullptr;
            const std::wstring name = std::wstring(L"Software\\Classes\\") + left;
            if (RegOpenKeyExW(HKEY_CURRENT_USER, name.c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS) {
                RegCloseKey(key);
                return "HKEY_CURRENT_USER\\" + ToUtf8(name) + " is still there";
            }
        }
        return {};
    }

private:
    HRESULT Install(BOOL isInstallation) const
    {
        const std::unique_ptr<HINSTANCE__, decltype(&FreeLibrary)> module(LoadLibraryW(path_.c_str()), &FreeLibrary);
        HRESULT(STDAPICALLTYPE* const install)(BOOL, LPCWSTR) = FunctionOf{module.get(), "DllInstall"};
        return install != nullptr ? install(isInstallation, L"user") : HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
    }

    const std::wstring path_;
};

/// The event that is written: what its publisher's message inserts, in order. The first text marks it.
struct WrittenEvent {
    std::wstring mark = FormatString(L"orvel-verify-%lu-%llu.exe", GetCurrentProcessId(), GetTickCount64());
    std::vector<std::wstring> inserts = {mark,
                                         L"1.2.3.4",
                                         L"65a1b2c3",
                                         L"orvel-verify.dll",
                                         L"5.6.7.8",
                                         L"65d4e5f6",
                                         L"c0000005",
                                         L"0000000000001234",
                                         L"4d2",
                                         L"1dc8b3a7b7f1c4e",
                                         L"C:\\" + mark,
                                         L"C:\\orvel-verify.dll",
                                         L"verify",
                                         L"",
                                         L""};

    void WriteToLiveLog() const
    {
        const std::unique_ptr<void, decltype(&DeregisterEventSource)> source(RegisterEventSourceW(nullptr, kPublisher),
                                                                             &DeregisterEventSource);
        std::vector<const wchar_t*> texts;
        for (const std::wstring& insert : inserts) {
            texts.push_back(insert.c_str());
        }
        const bool isWritten =
            source != nullptr && ReportEventW(source.get(), EVENTLOG_ERROR_TYPE, kCategory, kEventId, nullptr,
                                              static_cast<WORD>(texts.size()), 0, texts.data(), nullptr);
        Require(isWritten, ExitCode::Writing,
                "the event cannot be written: " + Describe(HRESULT_FROM_WIN32(GetLastError())));
    }

    void Replay(const ReplayClient& replay) const
    {
        SYSTEMTIME now{};
        GetSystemTime(&now);
        const std::wstring message = L"Faulting application name: " + inserts[0] + L", version: " + inserts[1] +
                                     L"\nFaulting module name: " + inserts[3] + L", version: " + inserts[4];
        const std::wstring xml = FormatString(
            L"<Events><Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System><Provider "
            L"Name='%s'/>"
            L"<EventID>%lu</EventID><TimeCreated SystemTime='%04d-%02d-%02dT%02d:%02d:%02d.000Z'/><Channel>%s</Channel>"
            L"</System><RenderingInfo><Message>%s</Message></RenderingInfo></Event></Events>",
            kPublisher, kEventId, now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, kChannel,
            message.c_str());
        wchar_t problem[256] = L"";
        const bool isPlayed = replay.LoadText(xml.c_str(), problem, ARRAYSIZE(problem)) == ERROR_SUCCESS &&
                              replay.Play(nullptr, nullptr) == ERROR_SUCCESS;
        Require(isPlayed, ExitCode::Writing, "the event cannot be replayed: " + ToUtf8(problem));
    }

    /// What is missing in the collected record; empty if it is the written event's.
    std::string Difference(const std::wstring& record) const
    {
        wchar_t computer[MAX_COMPUTERNAME_LENGTH + 1] = L"";
        DWORD size = ARRAYSIZE(computer);
        GetComputerNameExW(ComputerNameNetBIOS, computer, &size);
        for (const std::wstring& expected :
             {inserts[0], inserts[1], inserts[3], inserts[4], std::wstring(L"<br />Crash Time: "),
              L"<br />Host Name: " + std::wstring(computer)}) {
            if (record.find(expected) == record.npos) {
                return "the value has no '" + ToUtf8(expected) + "'";
            }
        }
        return {};
    }
};

ComPtr<IXMLDOMElement> ConfigurationElement()
{
    ComPtr<IXMLDOMDocument> document;
    ComPtr<IXMLDOMElement> root;
    CLSID documentClass{};
    VARIANT_BOOL isLoaded = VARIANT_FALSE;
    const std::wstring xml =
        std::wstring(L"<metric><channel>") + kChannel + L"</channel><query>" + kQuery + L"</query></metric>";
    if (SUCCEEDED(CLSIDFromProgID(L"Msxml2.DOMDocument.6.0", &documentClass)) &&
        SUCCEEDED(CoCreateInstance(documentClass, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument,
                                   reinterpret_cast<void**>(document.GetAddressOf())))) {
        document->loadXML(MakeBstr(xml.c_str()).get(), &isLoaded);
        document->get_documentElement(root.GetAddressOf());
    }
    Require(root != nullptr, ExitCode::Creation, "MSXML 6 cannot read a configuration");
    return root;
}

/// Collects until a record carries the event's mark.
std::wstring AwaitRecord(IOrvelDataProvider& provider, Sink& sink, const WrittenEvent& event,
                         const EventCounter& counter)
{
    constexpr std::chrono::seconds kPatience(30);
    constexpr DWORD kPause = 200;
    const UniqueBstr name = MakeBstr(kCrashMetric);
    const auto end = std::chrono::steady_clock::now() + kPatience;
    do {
        const HRESULT hr = provider.QueryMetric(name.get(), 0, &sink);
        Require(SUCCEEDED(hr), ExitCode::Collection, "the collection failed: " + Describe(hr));
        for (const MetricValue& value : sink.Take()) {
            if (value.text.find(event.mark) != value.text.npos) {
                return value.text;
            }
        }
        Require(!IsStopped(kPause), ExitCode::Stopped, "stopped by Ctrl+C");
    } while (std::chrono::steady_clock::now() < end);
    const unsigned long long seen =
        counter.Counted(EventCounter::Recorded) + counter.Counted(EventCounter::WithoutMessage);
    throw Failure(ExitCode::Delivery,
                  "the event's record did not come within 30 seconds; meanwhile the Event Log delivered " +
                      std::to_string(seen) + " such events to this program, " +
                      std::to_string(counter.Counted(EventCounter::WithoutMessage)) + " without a message");
}

/// Whether hosts of this word size find the provider; the ProgID alone may be the other word size's.
bool IsInstalled()
{
    CLSID providerClass{};
    HKEY server = nullptr;
    const bool isInstalled =
        SUCCEEDED(CLSIDFromProgID(kProgId, &providerClass)) &&
        RegOpenKeyExW(HKEY_CLASSES_ROOT, L"CLSID\\{DAF69464-F4E2-40C0-BCC3-A30E819975F0}\\InprocServer32", 0, KEY_READ,
                      &server) == ERROR_SUCCESS;
    if (isInstalled) {
        RegCloseKey(server);
    }
    return isInstalled;
}

/// From the creation of the provider to its unloading.
void VerifyProvider(const ReplayClient* replay)
{
    CLSID providerClass{};
    const HRESULT found = CLSIDFromProgID(kProgId, &providerClass);
    Require(SUCCEEDED(found), ExitCode::Creation, ToUtf8(kProgId) + " leads to no class: " + Describe(found));
    // Before the module: it must outlive the provider's references.
    Logger logger(static_cast<LONG>(LogLevel::Error) | static_cast<LONG>(LogLevel::Warning));
    Host host;
    Sink sink;
    const ComPtr<IXMLDOMElement> configuration = ConfigurationElement();
    ProviderModule module({}, {});
    Report("Provider", "created by its ProgID from " + ToUtf8(module.Path()));

    HRESULT hr = module.Provider().SetHost(&logger, &host);
    if (SUCCEEDED(hr)) {
        hr = module.Provider().SubscribeMetric(MakeBstr(kCrashMetric).get(), configuration.Get());
    }
    Require(SUCCEEDED(hr), ExitCode::Subscription, "the subscription failed: " + Describe(hr));
    const MetricConfiguration metric = {.name = kCrashMetric, .place = {}, .channel = kChannel, .query = kQuery};
    EventCounter& counter = EventCounter::Create(metric);
    const DWORD refusal = counter.Subscribe(metric);
    Require(counter.IsSubscribed(), ExitCode::Subscription,
            "this computer has no live Event Log, or it refuses a subscription to the channel Application" +
                (refusal == ERROR_SUCCESS ? std::string() : ": " + Describe(HRESULT_FROM_WIN32(refusal))) +
                "; verify --replay checks the rest without it");
    Report("Subscription", ToUtf8(std::wstring(kChannel) + L", " + kQuery));

    const WrittenEvent event;
    if (replay != nullptr) {
        event.Replay(*replay);
    } else {
        event.WriteToLiveLog();
    }
    Report("Event", std::string(replay != nullptr ? "replayed" : "wrote") + " 'Application Error' 1000 of " +
                        ToUtf8(event.mark));
    const std::wstring record = AwaitRecord(module.Provider(), sink, event, counter);
    Report("Value", "collected, " + std::to_string(record.size()) + " characters:");
    WriteData(ToUtf8(L"  " + Wrapped(Printable(record), 0, 2)) + "\n");
    const std::string difference = event.Difference(record);
    Require(difference.empty(), ExitCode::Value, difference);
    Report("Comparison", "the value holds what was written");

    counter.Stop();
    module.Provider().UnsubscribeAll();
    module.Unload();
    Require(logger.References() + host.References() + sink.References() == 0, ExitCode::Unclean,
            "the module is unloaded but still holds references on the host's objects");
    Report("Unloading", "the module released everything");
}

} // namespace

void Verify(const Options& options)
{
    std::optional<ReplayClient> replay; // loaded before the module, which is to find this Event Log
    if (options.replayOwn) {
        replay.emplace(LoadReplayLog());
    }
    const ReplayClient* const log = replay ? &*replay : nullptr;
    if (IsInstalled()) {
        Report("Installation", ToUtf8(kProgId) + " is installed");
        VerifyProvider(log);
        Report("Removal", "nothing, the installed provider stays");
    } else {
        const UserRegistration registration(std::filesystem::path(ModulePath(nullptr)).parent_path() /
                                            L"Orvel_eventlog.dll");
        registration.Register();
        Report("Installation",
               ToUtf8(kProgId) + " is not installed; registered the module beside this program for the user");
        std::optional<Failure> failure;
        try {
            VerifyProvider(log);
        } catch (...) {
            failure = CurrentFailure();
        }
        const std::string left = registration.Remove();
        Report("Removal", left.empty() ? "removed the registration, nothing is left" : left);
        if (failure) {
            throw *failure;
        }
        Require(left.empty(), ExitCode::Removal, left);
    }
    Report("Result", "the provider works on this computer");
}

} // namespace orvel::console
