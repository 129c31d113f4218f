#include "tests/support/module_under_test.h"

#include "tools/utf8.h"

#include <filesystem>
#include <stdexcept>

// The main function is GoogleTest's, which knows nothing of COM.
[[maybe_unused]] static const HRESULT comInitialised = CoInitializeEx(nullptr, COINIT_MULTITHREADED);

/// Returns the folder of the build, which holds the tests' folder, bin/ and the folders of the module's variants.
static std::wstring BuildFolder()
{
    wchar_t program[1024] = L"";
    GetModuleFileNameW(nullptr, program, 1024);
    return std::filesystem::path(program).parent_path().parent_path().wstring();
}

std::wstring ModuleFile()
{
    wchar_t variant[64] = L"bin";
    GetEnvironmentVariableW(L"ORVEL_MODULE_FOLDER", variant, 64);
    return BuildFolder() + L"\\" + variant + L"\\Orvel_eventlog.dll";
}

FaultyReplayClient& Replay()
{
    static FaultyReplayClient client(BuildFolder() + L"\\tests\\replay\\wevtapi.dll");
    return client;
}

void LoadEvents(const std::wstring& events)
{
    wchar_t message[512] = L"";
    const std::string xml = orvel::ToUtf8(L"<Events xmlns:replay='urn:orvel:replay'>" + events + L"</Events>");
    EXPECT_EQ(Replay().LoadBytes(xml.data(), xml.size(), message, 512), 0U) << message;
}

std::wstring Event(const std::wstring& message, const wchar_t* time, const wchar_t* publisher)
{
    return std::wstring(L"<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System>"
                        L"<Provider Name='") +
           publisher + L"'/><EventID>1000</EventID><TimeCreated SystemTime='" + time +
           L"'/><Channel>Application</Channel></System><RenderingInfo Culture='en-US'><Message>" + message +
           L"</Message></RenderingInfo></Event>";
}

std::wstring ExpectedSuffix(HRESULT code)
{
    constexpr DWORD kUserDefaultLanguage = 0x400;
    wchar_t text[512] = L"";
    wchar_t suffix[600] = L"";
    FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, static_cast<DWORD>(code),
                   kUserDefaultLanguage, text, 512, nullptr);
    _snwprintf(suffix, 599, L"  Error code 0x%08lx%ls%ls", code, text[0] != 0 ? L" -- " : L".", text);
    return suffix;
}

ModuleUnderTest::ModuleUnderTest(const std::wstring& path)
    : path_(path), handle_((Replay().SetMode(0), LoadLibraryW(path.c_str())))
{
    if (handle_ == nullptr) {
        throw std::runtime_error("Orvel_eventlog.dll cannot be loaded");
    }
}

ModuleUnderTest::~ModuleUnderTest()
{
    if (handle_ != nullptr) {
        EXPECT_EQ(CanUnloadNow(), S_OK) << "an object or a lock is left";
        Free();
    }
    EXPECT_TRUE(Eventually([&] { return !IsMapped(); })) << "a loader reference is left";
}

void ModuleUnderTest::Free()
{
    FreeLibrary(std::exchange(handle_, nullptr));
}

ComPtr<IOrvelDataProvider> ModuleUnderTest::CreateProvider() const
{
    ComPtr<IClassFactory> factory;
    ComPtr<IOrvelDataProvider> provider;
    _com_util::CheckError(GetClassObject(kProviderClass, IID_PPV_ARGS(factory.GetAddressOf())));
    _com_util::CheckError(factory->CreateInstance(nullptr, IID_PPV_ARGS(provider.GetAddressOf())));
    return provider;
}
