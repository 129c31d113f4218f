#include "tests/support/module_under_test.h"

#include <array>
#include <stdexcept>

namespace {

// The tests' folder stands beside bin/, which holds what is shipped.
std::wstring BuiltFile(const wchar_t* name)
{
    std::array<wchar_t, 1024> path{};
    GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    std::wstring folder(path.data());
    for (int level = 0; level < 2; ++level) {
        folder.resize(folder.find_last_of(L"\\/"));
    }
    return folder + L"\\bin\\" + name;
}

} // namespace

ReplayClient& Replay()
{
    static ReplayClient client(BuiltFile(L"replay\\wevtapi.dll"));
    return client;
}

void LoadEvents(const std::wstring& xml)
{
    std::array<wchar_t, 512> message{};
    const DWORD error = Replay().LoadText((L"<Events>" + xml + L"</Events>").c_str(), message.data(),
                                          static_cast<DWORD>(message.size()));
    ASSERT_EQ(error, DWORD{ERROR_SUCCESS}) << testing::PrintToString(std::wstring(message.data()));
}

std::wstring CrashEvent(const std::wstring& message, const std::wstring& time)
{
    return L"<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System>"
           L"<Provider Name='Application Error'/><EventID>1000</EventID><TimeCreated SystemTime='" +
           time +
           L"'/><Channel>Application</Channel><Computer>DESK</Computer></System><EventData><Data>a.exe</Data>"
           L"</EventData><RenderingInfo Culture='en-US'><Message>" +
           message + L"</Message></RenderingInfo></Event>";
}

ComPtr<IXMLDOMElement> ParseElement(const wchar_t* xml)
{
    ComPtr<IXMLDOMDocument> document;
    ComPtr<IXMLDOMElement> element;
    VARIANT_BOOL parsed = VARIANT_FALSE;
    if (SUCCEEDED(CoCreateInstance(CLSID_DOMDocument, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument,
                                   reinterpret_cast<void**>(document.GetAddressOf()))) &&
        SUCCEEDED(document->loadXML(Bstr(xml), &parsed)) && parsed != VARIANT_FALSE) {
        document->get_documentElement(element.GetAddressOf());
    }
    if (!element) {
        throw std::runtime_error("the configuration cannot be parsed");
    }
    return element;
}

ComPtr<IXMLDOMElement> EveryEvent()
{
    return ParseElement(L"<metric><channel>Application</channel><query>*</query></metric>");
}

std::wstring ExpectedSuffix(HRESULT code)
{
    constexpr DWORD kUserDefaultLanguage = 0x400;
    std::array<wchar_t, 1024> text{};
    std::array<wchar_t, 1200> suffix{};
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, static_cast<DWORD>(code),
                       kUserDefaultLanguage, text.data(), static_cast<DWORD>(text.size()), nullptr);
    _snwprintf(suffix.data(), suffix.size() - 1, length != 0 ? L"  Error code 0x%08lx -- " : L"  Error code 0x%08lx.",
               code);
    return std::wstring(suffix.data()) + text.data();
}

ModuleUnderTest::ModuleUnderTest()
{
    Replay().Reset();
    handle_ = LoadLibraryW(BuiltFile(L"Orvel_eventlog.dll").c_str());
    if (handle_ == nullptr) {
        throw std::runtime_error("Orvel_eventlog.dll cannot be loaded");
    }
}

ModuleUnderTest::~ModuleUnderTest()
{
    EXPECT_EQ(CanUnload(), S_OK) << "something still holds the module";
    FreeLibrary(handle_);
}

HRESULT ModuleUnderTest::GetClassObject(REFIID iid, void** out, REFCLSID classId) const
{
    return Export<decltype(DllGetClassObject)>("DllGetClassObject")(classId, iid, out);
}

ComPtr<IOrvelDataProvider> ModuleUnderTest::CreateProvider() const
{
    ComPtr<IClassFactory> factory;
    ComPtr<IOrvelDataProvider> provider;
    if (FAILED(GetClassObject(IID_IClassFactory, reinterpret_cast<void**>(factory.GetAddressOf()))) ||
        FAILED(factory->CreateInstance(nullptr, __uuidof(IOrvelDataProvider),
                                       reinterpret_cast<void**>(provider.GetAddressOf())))) {
        throw std::runtime_error("the provider cannot be created");
    }
    return provider;
}

HRESULT ModuleUnderTest::CanUnload() const
{
    HRESULT hr = S_FALSE;
    for (int attempt = 0; attempt < 200 && hr != S_OK; ++attempt) {
        Sleep(attempt == 0 ? 0 : 10);
        hr = Export<decltype(DllCanUnloadNow)>("DllCanUnloadNow")();
    }
    return hr;
}

void** ImportPatch::FindSlot(HMODULE module, const char* name)
{
    auto* base = reinterpret_cast<BYTE*>(module);
    const auto* headers =
        reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const DWORD imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* dll = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + imports); dll->Name != 0; ++dll) {
        const auto* names = reinterpret_cast<ULONG_PTR*>(base + dll->OriginalFirstThunk);
        auto* slots = reinterpret_cast<void**>(base + dll->FirstThunk);
        for (; *names != 0; ++names, ++slots) {
            const bool byName = (*names & IMAGE_ORDINAL_FLAG) == 0;
            if (byName && std::string(reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + *names)->Name) == name) {
                return slots;
            }
        }
    }
    ADD_FAILURE() << "the module imports no " << name;
    return nullptr;
}

void* ImportPatch::Exchange(void* function)
{
    DWORD protection = 0;
    VirtualProtect(slot_, sizeof(*slot_), PAGE_READWRITE, &protection);
    void* previous = InterlockedExchangePointer(slot_, function);
    VirtualProtect(slot_, sizeof(*slot_), protection, &protection);
    return previous;
}
