#include "module/registrar.h"
#include "tests/support/module_under_test.h"

#include <tlhelp32.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <thread>

namespace {

using namespace orvel;
using Lines = std::set<std::wstring>;

// All below a key, as "key", "key|name=text" and "key|name=#number" lines.
void Read(HKEY parent, const std::wstring& path, const wchar_t* keyName, Lines& lines)
{
    HKEY opened = nullptr;
    if (RegOpenKeyExW(parent, keyName, 0, KEY_READ, &opened) != ERROR_SUCCESS) {
        return;
    }
    const UniqueRegistryKey key(opened);
    std::vector<wchar_t> found(16384), text(32768);
    for (DWORD i = 0;; ++i) {
        auto length = static_cast<DWORD>(found.size()), size = static_cast<DWORD>(text.size() * 2), type = DWORD{};
        auto* data = reinterpret_cast<BYTE*>(text.data());
        if (RegEnumValueW(opened, i, found.data(), &length, nullptr, &type, data, &size) != ERROR_SUCCESS) {
            break;
        }
        text[size / 2] = L'\0';
        lines.insert(path + L"|" + found.data() + L"=" +
                     (type == REG_DWORD ? L"#" + std::to_wstring(*reinterpret_cast<DWORD*>(data)) : text.data()));
    }
    for (DWORD i = 0;; ++i) {
        auto length = static_cast<DWORD>(found.size());
        if (RegEnumKeyExW(opened, i, found.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            return;
        }
        // The platform itself spells one key in two ways.
        const wchar_t* name = _wcsicmp(found.data(), L"TypeLib") == 0 ? L"TypeLib" : found.data();
        const std::wstring below = (path.empty() ? L"" : path + L"\\") + name;
        lines.insert(below);
        Read(opened, below, found.data(), lines);
    }
}

Lines Tree(HKEY root, const wchar_t* path = L"Software\\Classes")
{
    Lines lines;
    Read(root, L"", path, lines);
    return lines;
}

constexpr wchar_t kOddFolder[] = L"C:\\Orvel's own f\u00f6lder, 100% \u65e5";

// The module where its path needs care; nothing of it is left registered whatever happens.
class OddModule : public ModuleUnderTest {
public:
    OddModule() : ModuleUnderTest(Copy()) {}
    ~OddModule() { Unregister(); }
    HRESULT Register() const { return Export<HRESULT WINAPI()>("DllRegisterServer")(); }
    HRESULT Unregister() const { return Export<HRESULT WINAPI()>("DllUnregisterServer")(); }
    HRESULT Install(BOOL install, const wchar_t* commandLine) const
    {
        return Export<HRESULT WINAPI(BOOL, const wchar_t*)>("DllInstall")(install, commandLine);
    }

private:
    static std::wstring Copy()
    {
        std::filesystem::create_directories(kOddFolder);
        const auto copy = std::filesystem::path(kOddFolder) / "Orvel_eventlog.dll";
        std::filesystem::copy_file(BuiltFile(L"Orvel_eventlog.dll"), copy,
                                   std::filesystem::copy_options::update_existing);
        return copy.wstring();
    }
};

// What registration adds below the classes; @ stands for the module's folder. Keys with content are implied.
constexpr wchar_t kAdded[] = LR"(AppID\{44D2B20B-C31C-43B7-A2E6-B5FA579BFDF2}|=Orvel_eventlog
AppID\Orvel_eventlog.dll|AppID={44D2B20B-C31C-43B7-A2E6-B5FA579BFDF2}
OrvelAgent.EventLogProvider.1|=Orvel Event Log Provider Class
OrvelAgent.EventLogProvider.1\CLSID|={DAF69464-F4E2-40C0-BCC3-A30E819975F0}
OrvelAgent.EventLogProvider|=Orvel Event Log Provider Class
OrvelAgent.EventLogProvider\CLSID|={DAF69464-F4E2-40C0-BCC3-A30E819975F0}
OrvelAgent.EventLogProvider\CurVer|=OrvelAgent.EventLogProvider.1
CLSID\{DAF69464-F4E2-40C0-BCC3-A30E819975F0}|=Orvel Event Log Provider Class
CLSID\{DAF69464-F4E2-40C0-BCC3-A30E819975F0}\InprocServer32|=@\Orvel_eventlog.dll
CLSID\{DAF69464-F4E2-40C0-BCC3-A30E819975F0}\InprocServer32|ThreadingModel=Both
CLSID\{DAF69464-F4E2-40C0-BCC3-A30E819975F0}\ProgID|=OrvelAgent.EventLogProvider.1
CLSID\{DAF69464-F4E2-40C0-BCC3-A30E819975F0}\VersionIndependentProgID|=OrvelAgent.EventLogProvider
CLSID\{DAF69464-F4E2-40C0-BCC3-A30E819975F0}\Programmable
CLSID\{DAF69464-F4E2-40C0-BCC3-A30E819975F0}\TypeLib|={BA21C1A6-3183-4E99-A464-6DF4178B7249}
TypeLib\{BA21C1A6-3183-4E99-A464-6DF4178B7249}
TypeLib\{BA21C1A6-3183-4E99-A464-6DF4178B7249}\1.0|=Orvel Event Log Provider 1.0 Type Library
TypeLib\{BA21C1A6-3183-4E99-A464-6DF4178B7249}\1.0\0
TypeLib\{BA21C1A6-3183-4E99-A464-6DF4178B7249}\1.0\0\win64|=@\Orvel_eventlog.dll
TypeLib\{BA21C1A6-3183-4E99-A464-6DF4178B7249}\1.0\FLAGS|=8
TypeLib\{BA21C1A6-3183-4E99-A464-6DF4178B7249}\1.0\HELPDIR|=@
)";

std::vector<std::wstring> Split(const wchar_t* text, wchar_t separator)
{
    std::vector<std::wstring> parts;
    std::wistringstream stream(text);
    for (std::wstring part; std::getline(stream, part, separator);) {
        parts.push_back(part);
    }
    return parts;
}

Lines Additions()
{
    Lines lines;
    for (std::wstring line : Split(kAdded, L'\n')) {
        if (const std::size_t folder = line.find(L'@'); folder != std::wstring::npos) {
            line.replace(folder, 1, kOddFolder);
        }
        lines.insert({L"+" + line, L"+" + line.substr(0, line.find(L'|'))});
    }
    return lines;
}

Lines Change(const Lines& before, const Lines& after)
{
    Lines change;
    for (const auto& [sign, from, other] : {std::tuple(L"+", &after, &before), std::tuple(L"-", &before, &after)}) {
        for (const std::wstring& line : *from) {
            if (!other->contains(line)) {
                change.insert(sign + line);
            }
        }
    }
    return change;
}

bool HasClass(HKEY root)
{
    return !Tree(root, L"Software\\Classes\\CLSID\\{DAF69464-F4E2-40C0-BCC3-A30E819975F0}").empty();
}

TEST(Registration, MakesItsOwnBranchAloneAndLeavesNothing)
{
    for (const bool isPerUser : {false, true}) {
        SCOPED_TRACE(isPerUser);
        HKEY own = isPerUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
        HKEY other = isPerUser ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
        // What others keep in a shared key must survive, and what the branches lack is not the module's to remove.
        for (const wchar_t* parent : {L"AppID", L"CLSID", L"TypeLib"}) {
            HKEY key = nullptr;
            const std::wstring path = std::wstring(L"Software\\Classes\\") + parent + L"\\Neighbour";
            ASSERT_EQ(RegCreateKeyW(own, path.c_str(), &key), ERROR_SUCCESS);
            RegCloseKey(key);
        }
        const OddModule module;
        const Lines before = Tree(own), otherBefore = Tree(other);
        if (isPerUser) {
            ASSERT_EQ(module.Install(TRUE, L"uSeR"), S_OK);
        }
        ASSERT_EQ(module.Register(), S_OK);
        const Lines once = Tree(own);
        Lines added = Change(before, once);
        std::erase_if(added, [](const std::wstring& line) { return line.starts_with(L"+Wow6432Node"); }); // mirrored
        EXPECT_EQ(Change(Additions(), added), Lines());
        EXPECT_EQ(module.Register(), S_OK);
        EXPECT_EQ(Change(once, Tree(own)), Lines());
        EXPECT_EQ(Change(otherBefore, Tree(other)), Lines());
        EXPECT_EQ(module.Unregister(), S_OK);
        EXPECT_EQ(Change(before, Tree(own)), Lines());
        EXPECT_EQ(module.Unregister(), S_OK);
    }
}

TEST(Registration, ChoosesTheUserByTheWholeWord)
{
    for (const auto& [commandLine, isPerUser] : std::vector<std::pair<const wchar_t*, bool>>{{L"user", true},
                                                                                             {L"USER", true},
                                                                                             {nullptr, false},
                                                                                             {L"", false},
                                                                                             {L"use", false},
                                                                                             {L"users", false},
                                                                                             {L"user ", false}}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(commandLine != nullptr ? commandLine : L"(null)")));
        const OddModule module;
        ASSERT_EQ(module.Install(TRUE, commandLine), S_OK);
        EXPECT_EQ(HasClass(HKEY_CURRENT_USER), isPerUser);
        EXPECT_EQ(HasClass(HKEY_LOCAL_MACHINE), !isPerUser);
        EXPECT_EQ(module.Install(FALSE, nullptr), S_OK); // the choice holds for later calls
        EXPECT_FALSE(HasClass(HKEY_CURRENT_USER));
    }
}

int callsUntilFailure;
std::vector<LCID> locales;

bool Fails()
{
    return --callsUntilFailure == 0;
}

LSTATUS WINAPI SetOrFail(HKEY key, const wchar_t* name, DWORD reserved, DWORD type, const BYTE* data, DWORD size)
{
    return Fails() ? ERROR_ACCESS_DENIED : RegSetValueExW(key, name, reserved, type, data, size);
}

HRESULT WINAPI RegisterOrFail(ITypeLib* library, OLECHAR* path, OLECHAR* help)
{
    return Fails() ? TYPE_E_REGISTRYACCESS : RegisterTypeLib(library, path, help);
}

WINBOOL WINAPI RecordLocale(LCID locale)
{
    locales.push_back(locale);
    return SetThreadLocale(locale);
}

TEST(Registration, FailureAnywhereIsTakenBackByInstallation)
{
    const OddModule module;
    const ImportPatch set(module, "RegSetValueExW", SetOrFail);
    const ImportPatch typeLibrary(module, "RegisterTypeLib", RegisterOrFail);
    const ImportPatch locale(module, "SetThreadLocale", RecordLocale);
    const Lines before = Tree(HKEY_CURRENT_USER);
    constexpr int kSteps = 14; // 13 values and the type library
    for (int step = 1; step <= kSteps + 1; ++step) {
        SCOPED_TRACE(step);
        callsUntilFailure = step;
        locales.clear();
        EXPECT_EQ(module.Install(TRUE, L"user"), step < kSteps    ? HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)
                                                 : step == kSteps ? TYPE_E_REGISTRYACCESS
                                                                  : S_OK);
        EXPECT_EQ(locales, (std::vector<LCID>{LOCALE_SYSTEM_DEFAULT, GetThreadLocale()}));
        EXPECT_EQ(Tree(HKEY_CURRENT_USER) == before, step <= kSteps);
    }
    ASSERT_EQ(module.Unregister(), S_OK);
    // Without installation the failure's code alone is given; after the module's script the class is not tried.
    callsUntilFailure = 1;
    EXPECT_EQ(module.Register(), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    EXPECT_FALSE(HasClass(HKEY_CURRENT_USER));
}

char malformedScript[] = "HKCR { Made = s 'x' \n Open {";

void* WINAPI GiveMalformed(HGLOBAL)
{
    return malformedScript;
}

DWORD WINAPI GiveMalformedSize(HMODULE, HRSRC)
{
    return sizeof(malformedScript) - 1;
}

TEST(Registration, MalformedScriptChangesNothing)
{
    const OddModule module;
    const ImportPatch text(module, "LockResource", GiveMalformed);
    const ImportPatch size(module, "SizeofResource", GiveMalformedSize);
    const Lines before = Tree(HKEY_CURRENT_USER);
    EXPECT_EQ(module.Install(TRUE, L"user"), DISP_E_EXCEPTION);
    EXPECT_EQ(module.Register(), DISP_E_EXCEPTION);
    EXPECT_EQ(Change(before, Tree(HKEY_CURRENT_USER)), Lines());
}

TEST(RegistrarScript, NamesThePlaceOfWhatIsWrong)
{
    const auto nested = [](int levels, const wchar_t* inside) {
        std::wstring opened = L"HKCR {", closed;
        for (int i = 1; i < levels; ++i) {
            opened += L" k {";
            closed += L" }";
        }
        return opened + inside + closed;
    };
    // A # stands where the fault is reported; without one the script is good.
    std::vector<std::wstring> scripts = Split(
        LR"(#;#HKXX { };HKCR #k;HKCR { } #};HKCR { #'k'';HKCR { a#'b' };HKCR { k = #};HKCR { k = #x '1' };HKCR { k = s #})"
        LR"(;HKCR { k = d #'0xA' };HKCR { k = d #'4294967296' };HKCR { k = d #'' };HKCR { val n #};HKCR { val #= s 'x' })"
        LR"(;HKCR { NoRemove #ForceRemove k };HKCR { Delete k #= s 'x' };HKCR { #'' };HKCR { #'%EMPTY%' };HKCR { #a\b })"
        LR"(;HKCR { #'%NAME%' };HKCR { k = s '50#% off' }
;HKCR {
 k = s '#%OTHER%' };HKCR { k
#;hkcr { k = s '%NAME%' { val 'it''s' = d '&hFFFFffff' } } HKEY_LOCAL_MACHINE { Delete x })",
        L';');
    scripts.insert(scripts.end(),
                   {L"HKCR { #" + std::wstring(256, L'k') + L" }", nested(64, L" }"), nested(65, L" #}")});
    for (std::wstring text : scripts) {
        SCOPED_TRACE(testing::PrintToString(text));
        const std::size_t mark = text.find(L'#');
        const std::wstring before = text.substr(0, mark);
        const auto line = static_cast<std::size_t>(std::ranges::count(before, L'\n'));
        const bool isGood = mark == std::wstring::npos;
        if (!isGood) {
            text.erase(mark, 1);
        }
        try {
            ParseScript(text, {{L"NAME", L"it's {a}\\%B% = \u00e9"}, {L"EMPTY", L""}});
            EXPECT_TRUE(isGood);
        } catch (const ScriptError& error) {
            EXPECT_FALSE(isGood) << error.line << ":" << error.column;
            EXPECT_EQ(error.line, line + 1);
            EXPECT_EQ(error.column, before.size() - (before.rfind(L'\n') + 1) + 1);
        }
    }
}

TEST(RegistrarScript, RunsBothWays)
{
    constexpr wchar_t kScratch[] = L"Software\\OrvelRegistrarTest";
    HKEY opened = nullptr;
    RegDeleteTreeW(HKEY_CURRENT_USER, kScratch);
    ASSERT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, kScratch, &opened), ERROR_SUCCESS);
    const UniqueRegistryKey scratch(opened);
    const auto run = [&](auto direction, const wchar_t* text) {
        EXPECT_EQ(direction(ParseScript(text, {{L"P", L"C:\\it's 100% {\u65e5}\\a b.dll"}}), opened), ERROR_SUCCESS);
    };
    const auto tree = [&] { return Tree(HKEY_CURRENT_USER, kScratch); };
    run(RegisterScript, L"HKCR { Kept { Old } Gone { Below { Deeper } } Emptied = s 'old' { Old } }");
    constexpr wchar_t kText[] = L"HKCR { NoRemove Kept = s '50%%' { val V = s '%P%' New = d &H10 } Delete Gone "
                                L"ForceRemove 'Emptied' { 'it''s' } Mine = s 'x' { val N = d 7 } }";
    run(RegisterScript, kText);
    EXPECT_EQ(tree(),
              (Lines{L"Kept", L"Kept|=50%", L"Kept|V=C:\\it's 100% {\u65e5}\\a b.dll", L"Kept\\Old", L"Kept\\New",
                     L"Kept\\New|=#16", L"Emptied", L"Emptied\\it's", L"Mine", L"Mine|=x", L"Mine|N=#7"}));
    run(RegisterScript, L"HKCR { Mine { Neighbour } }");
    run(UnregisterScript, kText);
    EXPECT_EQ(tree(), (Lines{L"Kept", L"Kept|=50%", L"Kept\\Old", L"Mine", L"Mine\\Neighbour"}));
    RegDeleteTreeW(HKEY_CURRENT_USER, kScratch);
}

GUID IdOf(ITypeLib& library)
{
    TLIBATTR* attributes = nullptr;
    EXPECT_EQ(library.GetLibAttr(&attributes), S_OK);
    EXPECT_EQ(MAKELONG(attributes->wMinorVerNum, attributes->wMajorVerNum), 0x10000);
    const GUID id = attributes->guid;
    library.ReleaseTLibAttr(attributes);
    return id;
}

TEST(TypeLibrary, RefersToTheHostsInterfaces)
{
    const OddModule module;
    const std::wstring file = std::wstring(kOddFolder) + L"\\Orvel_eventlog.dll";
    ComPtr<ITypeLib> host, library;
    ASSERT_EQ(LoadTypeLibEx((file + L"\\2").c_str(), REGKIND_REGISTER, host.GetAddressOf()), S_OK);
    ASSERT_EQ(LoadTypeLibEx(file.c_str(), REGKIND_NONE, library.GetAddressOf()), S_OK);
    EXPECT_EQ(IdOf(*library.Get()), kProviderLibrary);
    BSTR name = nullptr;
    ASSERT_EQ(library->GetDocumentation(-1, &name, nullptr, nullptr, nullptr), S_OK);
    EXPECT_STREQ(name, L"EventLogProviderLib");
    SysFreeString(name);
    EXPECT_EQ(library->GetTypeInfoCount(), 1U) << "nothing of the host's is copied";

    ComPtr<ITypeInfo> provider;
    ASSERT_EQ(library->GetTypeInfoOfGuid(kProviderClass, provider.GetAddressOf()), S_OK);
    UINT index = 0;
    for (const IID& iid : {__uuidof(IOrvelDataProvider), __uuidof(IDataProvider), __uuidof(IDataProviderEx)}) {
        HREFTYPE reference = 0;
        ComPtr<ITypeInfo> referred;
        ComPtr<ITypeLib> container;
        TYPEATTR* attributes = nullptr;
        ASSERT_EQ(provider->GetRefTypeOfImplType(index++, &reference), S_OK);
        ASSERT_EQ(provider->GetRefTypeInfo(reference, referred.GetAddressOf()), S_OK);
        ASSERT_EQ(referred->GetTypeAttr(&attributes), S_OK);
        EXPECT_EQ(attributes->guid, iid);
        referred->ReleaseTypeAttr(attributes);
        ASSERT_EQ(referred->GetContainingTypeLib(container.GetAddressOf(), nullptr), S_OK);
        EXPECT_EQ(IdOf(*container.Get()), kHostLibrary);
    }
    EXPECT_EQ(UnRegisterTypeLib(kHostLibrary, kLibraryMajor, kLibraryMinor, LOCALE_NEUTRAL, SYS_WIN64), S_OK);
}

TEST(Activation, ByEitherProgIdInBothApartmentKinds)
{
    const OddModule module;
    ASSERT_EQ(module.Register(), S_OK);
    for (const DWORD apartment : {COINIT_MULTITHREADED, COINIT_APARTMENTTHREADED}) {
        std::thread([&] {
            ASSERT_EQ(CoInitializeEx(nullptr, apartment), S_OK);
            for (const wchar_t* progId : {L"OrvelAgent.EventLogProvider", L"OrvelAgent.EventLogProvider.1"}) {
                CLSID found = {};
                ComPtr<IOrvelDataProvider> provider;
                EXPECT_EQ(CLSIDFromProgID(progId, &found), S_OK);
                EXPECT_EQ(found, kProviderClass);
                EXPECT_EQ(CoCreateInstance(found, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IOrvelDataProvider),
                                           reinterpret_cast<void**>(provider.GetAddressOf())),
                          S_OK);
                EXPECT_TRUE(provider && provider->UnsubscribeAll() == S_OK);
            }
            CoUninitialize();
        }).join();
    }
}

} // namespace
