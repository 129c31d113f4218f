#include "host/format.h"
#include "host/unique_resource.h"
#include "tools/console/commands.h"
#include "tools/console/input.h"
#include "tools/console/output.h"
#include "tools/console/session.h"
#include "tools/console/terminal.h"
#include "tools/dom_element.h"
#include "tools/function_of.h"
#include "tools/utf8.h"

#include <memory>

namespace orvel::console {

namespace {

constexpr wchar_t kClassKey[] = L"CLSID\\{DAF69464-F4E2-40C0-BCC3-A30E819975F0}";
constexpr wchar_t kPublisher[] = L"Application Error";
constexpr wchar_t kChannel[] = L"Application";
constexpr wchar_t kQuery[] = L"*[System[Provider[@Name='Application Error'] and (EventID=1000)]]";
constexpr DWORD kEventId = 1000;
constexpr WORD kCategory = 100;
// Details of the event that the record must contain.
constexpr wchar_t kVersion[] = L"1.2.3.4";
constexpr wchar_t kModule[] = L"orvel-verify.dll";
constexpr wchar_t kModuleVersion[] = L"5.6.7.8";

void Report(const char* step, const std::string& finding)
{
    WriteData(std::string(step) + std::string(14 - std::string_view(step).size(), ' ') + finding + "\n");
}

bool KeyExists(HKEY root, const std::wstring& path)
{
    HKEY key = nullptr;
    RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key);
    return UniqueKey(key) != nullptr;
}

/// Adds or removes a module's registration for the current user.
HRESULT InstallForUser(const std::wstring& path, BOOL isInstallation)
{
    const std::unique_ptr<HINSTANCE__, ReleaseWith<FreeLibrary>> module(LoadLibraryW(path.c_str()));
    HRESULT(STDAPICALLTYPE* const install)(BOOL, LPCWSTR) = FunctionOf{module.get(), "DllInstall"};
    return install != nullptr ? install(isInstallation, L"user") : HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
}

/// Removes a module's registration for the current user. Throws Failure, also if something of it is left.
void RemoveForUser(const std::wstring& path)
{
    const HRESULT hr = InstallForUser(path, FALSE);
    Require(SUCCEEDED(hr), ExitCode::Removal,
            "cannot remove the module's registration for this user: " + Describe(hr) +
                "; retry with: regsvr32 /s /u /n /i:user Orvel_eventlog.dll");
    for (const wchar_t* const key :
         {L"OrvelAgent.EventLogProvider", L"OrvelAgent.EventLogProvider.1", L"AppID\\Orvel_eventlog.dll", kClassKey,
          L"TypeLib\\{BA21C1A6-3183-4E99-A464-6DF4178B7249}"}) {
        const std::wstring name = std::wstring(L"Software\\Classes\\") + key;
        Require(!KeyExists(HKEY_CURRENT_USER, name), ExitCode::Removal,
                "HKEY_CURRENT_USER\\" + ToUtf8(name) + " still exists after the removal; delete it with reg delete");
    }
}

void WriteToLiveLog(const std::wstring& application)
{
    const std::wstring path = L"C:\\" + application;
    const wchar_t* inserts[] = {application.c_str(),
                                kVersion,
                                L"65a1b2c3",
                                kModule,
                                kModuleVersion,
                                L"65d4e5f6",
                                L"c0000005",
                                L"0000000000001234",
                                L"4d2",
                                L"1dc8b3a7b7f1c4e",
                                path.c_str(),
                                L"C:\\orvel-verify.dll",
                                L"verify",
                                L"",
                                L""};
    const std::unique_ptr<void, ReleaseWith<DeregisterEventSource>> source(RegisterEventSourceW(nullptr, kPublisher));
    const bool isWritten = source != nullptr && ReportEventW(source.get(), EVENTLOG_ERROR_TYPE, kCategory, kEventId,
                                                             nullptr, ARRAYSIZE(inserts), 0, inserts, nullptr);
    Require(isWritten, ExitCode::Writing,
            "cannot write an event to the channel Application: " + Describe(HRESULT_FROM_WIN32(GetLastError())) +
                "; verify --replay checks the rest without it");
}

void Replay(const ReplayClient& replay, const std::wstring& application)
{
    SYSTEMTIME now{};
    GetSystemTime(&now);
    const std::string xml = ToUtf8(FormatString(
        L"<Events><Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System><Provider Name='%s'/>"
        L"<EventID>%lu</EventID><TimeCreated SystemTime='%04d-%02d-%02dT%02d:%02d:%02d.000Z'/><Channel>%s</Channel>"
        L"</System><RenderingInfo><Message>Faulting application name: %s, version: %s\nFaulting module name: %s, "
        L"version: %s</Message></RenderingInfo></Event></Events>",
        kPublisher, kEventId, now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, kChannel,
        application.c_str(), kVersion, kModule, kModuleVersion));
    wchar_t problem[256] = L"";
    const bool isPlayed = replay.LoadBytes(xml.data(), xml.size(), problem, ARRAYSIZE(problem)) == ERROR_SUCCESS &&
                          replay.Play(nullptr, nullptr) == ERROR_SUCCESS;
    Require(isPlayed, ExitCode::Writing, "cannot replay the event: " + ToUtf8(problem));
}

/// Throws Failure unless the record has the event's details.
void CompareRecord(const std::wstring& record, const std::wstring& application)
{
    for (const std::wstring& expected :
         {application, std::wstring(kVersion), std::wstring(kModule), std::wstring(kModuleVersion),
          std::wstring(L"<br />Crash Time: "), L"<br />Host Name: " + ToWide(ComputerName())}) {
        Require(record.find(expected) != record.npos, ExitCode::Value,
                "the collected value does not contain '" + ToUtf8(expected) + "'");
    }
}

/// Returns the metric that the event becomes, as a configuration file would have it.
MetricConfiguration Configuration()
try {
    const std::wstring xml = FormatString(L"<metric><channel>%s</channel><query>%s</query></metric>", kChannel, kQuery);
    return {kCrashMetric, "verify", ParseElement(xml.c_str()), kChannel, kQuery};
} catch (const std::runtime_error& error) {
    throw Failure(ExitCode::Creation, error.what());
}

/// Returns whether hosts of this architecture find the provider; the ProgID alone may be registered by the other one.
bool IsInstalled()
{
    CLSID providerClass{};
    return SUCCEEDED(CLSIDFromProgID(kProgId, &providerClass)) &&
           KeyExists(HKEY_CLASSES_ROOT, std::wstring(kClassKey) + L"\\InprocServer32");
}

/// Creates the registered provider, verifies it with an event and unloads it. Throws Failure.
void VerifyProvider(const Options& options, const std::optional<ReplayClient>& replay)
{
    Require(IsInstalled(), ExitCode::Creation, ToUtf8(kProgId) + " is not registered");
    // The name of the crashed application identifies the event.
    const std::wstring application =
        FormatString(L"orvel-verify-%lu-%llu.exe", GetCurrentProcessId(), GetTickCount64());
    std::wstring record;
    Session session(options, replay, [&](const Collection& collection) {
        for (const MetricValue& value : collection.values) {
            record = value.text.find(application) != value.text.npos ? value.text : record;
        }
    });
    Report("Provider", "created by its ProgID from " + ToUtf8(session.ModulePath()));

    const MetricTally& tally = session.Subscribe(Configuration());
    Require(tally.refusal.empty(), ExitCode::Subscription,
            "this computer has no live Event Log, or it refuses a subscription to the channel Application: " +
                tally.refusal + "; verify --replay checks the rest without it");
    Report("Subscription", ToUtf8(std::wstring(kChannel) + L", " + kQuery));

    if (replay) {
        Replay(*replay, application);
    } else {
        WriteToLiveLog(application);
    }
    Report("Event", std::string(replay ? "replayed" : "wrote") + " 'Application Error' 1000 of " + ToUtf8(application));

    constexpr DWORD kPause = 200; // milliseconds
    const ULONGLONG end = GetTickCount64() + 30000;
    do {
        Require(session.CollectAll(), ExitCode::Collection, "the collection failed");
    } while (record.empty() && !IsStopped(kPause) && GetTickCount64() < end);
    if (record.empty()) {
        Require(!IsStopped(), ExitCode::Stopped, "stopped by Ctrl+C");
        const unsigned long long withoutMessage = tally.counter->Counted(EventCounter::WithoutMessage);
        throw Failure(ExitCode::Delivery,
                      "the metric had no value for the event within 30 seconds; meanwhile the Event Log delivered " +
                          std::to_string(tally.counter->Counted(EventCounter::Recorded) + withoutMessage) +
                          " such events to this program, " + std::to_string(withoutMessage) + " without a message");
    }
    Report("Value", "collected, " + std::to_string(record.size()) + " characters:");
    WriteData(ToUtf8(L"  " + Wrapped(Printable(record), 0, 2)) + "\n");
    CompareRecord(record, application);
    Report("Comparison", "the value matches the event");

    session.End();
    Report("Unloading", "the module released everything");
}

} // namespace

void Verify(const Options& options)
{
    const std::optional<ReplayClient> replay = LoadReplay(options);
    if (IsInstalled()) {
        Report("Installation", ToUtf8(kProgId) + " is installed");
        VerifyProvider(options, replay);
        Report("Removal", "none; the provider stays installed");
    } else {
        const std::wstring path = PathBesideProgram(L"Orvel_eventlog.dll");
        const HRESULT hr = InstallForUser(path, TRUE);
        Require(SUCCEEDED(hr), ExitCode::Registration,
                "cannot register " + ToUtf8(path) + " for this user: " + Describe(hr) +
                    "; put a module of this program's architecture beside the program");
        Report("Installation",
               ToUtf8(kProgId) + " is not installed; registered the module beside this program for the user");
        const std::optional<Failure> failure = FailureOf([&] { VerifyProvider(options, replay); });
        const std::optional<Failure> removalFailure = FailureOf([&] { RemoveForUser(path); });
        Report("Removal", removalFailure ? removalFailure->what() : "removed the registration, nothing is left");
        if (failure || removalFailure) {
            throw failure ? *failure : *removalFailure;
        }
    }
    Report("Result", "the provider works on this computer");
}

} // namespace orvel::console
