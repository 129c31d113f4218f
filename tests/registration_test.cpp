#include "host/unique_resource.h"
#include "module/registrar_script.h"
#include "tests/support/module_under_test.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <tuple>

namespace {

using namespace orvel;
using Tree = std::set<std::wstring>;

/// Returns all below a key, as "key" and "key|name=text" lines.
Tree Read(HKEY root, const wchar_t* path = L"Software\\Classes", const std::wstring& shown = L"")
{
    Tree lines;
    HKEY opened = nullptr;
    RegOpenKeyExW(root, path, 0, KEY_READ, &opened);
    const UniqueKey key(opened);
    std::vector<wchar_t> found(16384), text(32768);
    for (DWORD i = 0;; ++i) {
        DWORD length = 16384, size = 65534;
        auto* data = reinterpret_cast<BYTE*>(text.data());
        if (RegEnumValueW(opened, i, found.data(), &length, nullptr, nullptr, data, &size) != ERROR_SUCCESS) {
            break;
        }
        text[size / 2] = L'\0';
        lines.insert(shown + L"|" + found.data() + L"=" + text.data());
    }
    for (DWORD i = 0; RegEnumKeyW(opened, i, found.data(), 16384) == ERROR_SUCCESS; ++i) {
        // The platform itself spells one key in two ways.
        const wchar_t* name = _wcsicmp(found.data(), L"TypeLib") == 0 ? L"TypeLib" : found.data();
        if (_wcsicmp(name, L"Wow6432Node") != 0) { // which mirrors the whole branch
            const std::wstring below = (shown.empty() ? L"" : shown + L"\\") + name;
            lines.insert(below);
            lines.merge(Read(opened, name, below));
        }
    }
    return lines;
}

constexpr wchar_t kOddFolder[] = L"C:\\Orvel's own f\u00f6lder, 100% \u65e5";

// The module where its path needs care; nothing of it is left registered whatever happens.
class OddModule : public ModuleUnderTest {
public:
    OddModule() : ModuleUnderTest(Copy()) {}
    ~OddModule() { Unregister(); }
    HRESULT(WINAPI* const Register)() = orvel::FunctionOf{*this, "DllRegisterServer"};
    HRESULT(WINAPI* const Unregister)() = orvel::FunctionOf{*this, "DllUnregisterServer"};
    HRESULT(WINAPI* const Install)(BOOL, const wchar_t*) = orvel::FunctionOf{*this, "DllInstall"};

private:
    static std::wstring Copy()
    {
        const std::wstring copy = std::wstring(kOddFolder) + L"\\Orvel_eventlog.dll";
        CreateDirectoryW(kOddFolder, nullptr);
        EXPECT_TRUE(CopyFileW(ModuleFile().c_str(), copy.c_str(), FALSE));
        return copy;
    }
};

// What registration adds below the classes; @ stands for the module's folder. Keys with content are implied.
Tree Additions()
{
    Tree lines;
    std::wifstream file("registration/added.txt");
    for (std::wstring line; std::getline(file, line);) {
        if (!line.starts_with(L'#')) {
            line = std::regex_replace(line, std::wregex(L"win64"), sizeof(void*) == 8 ? L"win64" : L"win32");
            lines.insert(line.substr(0, line.find(L'|')));
            lines.insert(std::regex_replace(line, std::wregex(L"@"), kOddFolder));
        }
    }
    return lines;
}

Tree Change(const Tree& before, const Tree& after)
{
    Tree change;
    std::ranges::set_symmetric_difference(before, after, std::inserter(change, change.end()));
    return change;
}

TEST(Registration, MakesTheBranchOfTheCommandLineAloneAndLeavesNothing)
{
    constexpr wchar_t kLeftInClass[] = L"Software\\Classes\\CLSID\\{DAF69464-F4E2-40C0-BCC3-A30E819975F0}\\Left";
    constexpr wchar_t kProgId[] = L"Software\\Classes\\OrvelAgent.EventLogProvider";
    constexpr wchar_t kAddedToProgId[] = L"Software\\Classes\\OrvelAgent.EventLogProvider\\Neighbour";
    constexpr wchar_t kMachinesClass[] = L"Interface\\{00000000-0000-0000-C000-000000000046}"; // IUnknown's
    // What others keep in a key must survive, and what the branches lack is not the module's to remove.
    for (const HKEY branch : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE}) {
        for (const wchar_t* parent : {L"AppID", L"CLSID", L"TypeLib"}) {
            const std::wstring path = std::wstring(L"Software\\Classes\\") + parent + L"\\Neighbour";
            ASSERT_EQ(RegSetValueW(branch, path.c_str(), REG_SZ, L"", 0), ERROR_SUCCESS);
        }
    }
    const Tree userBefore = Read(HKEY_CURRENT_USER), machineBefore = Read(HKEY_LOCAL_MACHINE);
    for (const std::wstring commandLine : {L"uSeR", L"", L"use", L"users"}) {
        SCOPED_TRACE(testing::PrintToString(commandLine));
        const bool isPerUser = commandLine == L"uSeR";
        const HKEY branch = isPerUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
        ASSERT_EQ(RegSetValueW(branch, kLeftInClass, REG_SZ, L"old", 0), ERROR_SUCCESS);
        const OddModule module;
        ASSERT_EQ(module.Install(TRUE, commandLine.c_str()), S_OK);
        EXPECT_EQ(module.Register(), S_OK); // the choice holds for later calls, and twice is once
        const Tree user = Change(userBefore, Read(HKEY_CURRENT_USER));
        const Tree machine = Change(machineBefore, Read(HKEY_LOCAL_MACHINE));
        EXPECT_EQ(Change(Additions(), isPerUser ? user : machine), Tree());
        EXPECT_EQ(isPerUser ? machine : user, Tree());
        EXPECT_EQ(RegQueryValueW(HKEY_CLASSES_ROOT, kMachinesClass, nullptr, nullptr), ERROR_SUCCESS) << "redirected";
        ASSERT_EQ(RegSetValueW(branch, kAddedToProgId, REG_SZ, L"", 0), ERROR_SUCCESS);
        EXPECT_EQ(module.Unregister(), S_OK);
        EXPECT_EQ(Read(branch, kProgId), (Tree{L"Neighbour", L"Neighbour|="}));
        EXPECT_EQ(RegDeleteTreeW(branch, kProgId), ERROR_SUCCESS);
        EXPECT_EQ(module.Install(FALSE, nullptr), S_OK);
    }
    EXPECT_EQ(Change(userBefore, Read(HKEY_CURRENT_USER)), Tree());
    EXPECT_EQ(Change(machineBefore, Read(HKEY_LOCAL_MACHINE)), Tree());
}

TEST(Registration, InstallationTakesBackAFailureAnywhere)
{
    const OddModule module;
    int callsUntilFailure = 0;
    std::vector<LCID> locales;
    std::map<HKEY, bool> isDeletable; // whether a key was opened with DELETE access, which RegDeleteTreeW requires
    const Patch<decltype(RegSetValueExW)> set(module, "RegSetValueExW", [&](auto function, auto... arguments) {
        return --callsUntilFailure == 0 ? ERROR_ACCESS_DENIED : function(arguments...);
    });
    const Patch<decltype(RegisterTypeLib)> library(module, "RegisterTypeLib", [&](auto function, auto... arguments) {
        return --callsUntilFailure == 0 ? TYPE_E_REGISTRYACCESS : function(arguments...);
    });
    const Patch<decltype(SetThreadLocale)> locale(module, "SetThreadLocale", [&](auto function, LCID id) {
        locales.push_back(id);
        return function(id);
    });
    const Patch<decltype(RegCreateKeyExW)> create(module, "RegCreateKeyExW", [&](auto function, auto... arguments) {
        const LSTATUS status = function(arguments...);
        const auto all = std::tie(arguments...);
        isDeletable[*std::get<7>(all)] = (std::get<5>(all) & DELETE) != 0;
        return status;
    });
    const Patch<decltype(RegDeleteTreeW)> tree(module, "RegDeleteTreeW", [&](auto function, HKEY key, auto subkey) {
        return isDeletable[key] ? function(key, subkey) : ERROR_ACCESS_DENIED;
    });
    const Tree before = Read(HKEY_CURRENT_USER);
    constexpr int kSteps = 14; // 13 values and the type library
    for (int step = 1; step <= kSteps + 1; ++step) {
        SCOPED_TRACE(step);
        callsUntilFailure = step;
        locales.clear();
        const HRESULT failure = step < kSteps ? HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED) : TYPE_E_REGISTRYACCESS;
        EXPECT_EQ(module.Install(TRUE, L"user"), step <= kSteps ? failure : S_OK);
        EXPECT_EQ(locales, (std::vector<LCID>{LOCALE_SYSTEM_DEFAULT, GetThreadLocale()}));
        EXPECT_EQ(Read(HKEY_CURRENT_USER) == before, step <= kSteps);
    }
    ASSERT_EQ(module.Unregister(), S_OK);
    // Without installation the failure's code alone is given; after the module's script the class is not tried.
    callsUntilFailure = 1;
    EXPECT_EQ(module.Register(), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    EXPECT_FALSE(Read(HKEY_CURRENT_USER).contains(L"OrvelAgent.EventLogProvider"));
    // What is no script changes nothing.
    const Tree left = Read(HKEY_CURRENT_USER);
    std::string script = "HKCR { Made = s 'x' \n Open {";
    script.resize(65536, ' '); // longer than the one that it replaces
    const Patch<decltype(LockResource)> text(module, "LockResource", [&](auto...) { return script.data(); });
    EXPECT_EQ(module.Install(TRUE, L"user"), DISP_E_EXCEPTION);
    EXPECT_EQ(module.Register(), DISP_E_EXCEPTION);
    EXPECT_EQ(Change(left, Read(HKEY_CURRENT_USER)), Tree());
}

TEST(RegistrarScript, ReportsWhereItIsMalformed)
{
    // A # stands where the fault is reported; without one the script is good.
    for (const std::wstring script :
         {L"#", L"#HKXX { }", L"HKCR #k", L"HKCR { } #}", L"HKCR { k = #}", L"HKCR { k = #x '1' }", L"HKCR { k = s #}",
          L"HKCR { val #= s 'x' }", L"HKCR { val n #}", L"HKCR { k = s #'%OTHER%' }", L"HKCR { k = s #'%NAME' }",
          L"HKCR {\n k { } #", L"HKCR {\n k = s '\n' #= }", L"HKCR\n{ #'k }",
          L"HKCR\r\n{ NoRemove k = s '%NAME%' { val 'a b' = s '' } ForceRemove '{' }"}) {
        std::wstring text = script;
        std::erase(text, L'#');
        try {
            ParseScript(text, {{L"%NAME%", L"it's {a}\\%B% = \u00e9"}});
        } catch (const ScriptError& error) {
            std::size_t start = 0;
            for (std::size_t line = 1; line < error.line; ++line) {
                start = text.find(L'\n', start) + 1;
            }
            EXPECT_LE(start + error.column - 1, text.find(L'\n', start)) << "a column past its line's end";
            text.insert(start + error.column - 1, L"#");
        }
        EXPECT_EQ(text, script);
    }
}

TEST(TypeLibrary, RefersToTheHostsInterfaces)
{
    const OddModule module;
    ASSERT_EQ(module.Register(), S_OK);
    const std::wstring file = std::wstring(kOddFolder) + L"\\Orvel_eventlog.dll\\2";
    ComPtr<ITypeLib> host, library;
    ASSERT_EQ(LoadTypeLibEx(file.c_str(), REGKIND_REGISTER, host.GetAddressOf()), S_OK);
    ASSERT_EQ(LoadRegTypeLib(kProviderLibrary, kLibraryMajor, kLibraryMinor, LOCALE_NEUTRAL, library.GetAddressOf()),
              S_OK);
    _bstr_t name;
    ASSERT_EQ(library->GetDocumentation(-1, name.GetAddress(), nullptr, nullptr, nullptr), S_OK);
    EXPECT_STREQ(name, L"EventLogProviderLib");
    EXPECT_EQ(library->GetTypeInfoCount(), 1U) << "nothing of the host's is copied";

    ComPtr<ITypeInfo> provider;
    ASSERT_EQ(library->GetTypeInfoOfGuid(kProviderClass, provider.GetAddressOf()), S_OK);
    UINT index = 0;
    for (const wchar_t* const interfaceName : {L"IOrvelDataProvider", L"IDataProvider", L"IDataProviderEx"}) {
        HREFTYPE reference = 0;
        ComPtr<ITypeInfo> referred;
        ComPtr<ITypeLib> container;
        ASSERT_EQ(provider->GetRefTypeOfImplType(index++, &reference), S_OK);
        ASSERT_EQ(provider->GetRefTypeInfo(reference, referred.GetAddressOf()), S_OK);
        ASSERT_EQ(referred->GetDocumentation(MEMBERID_NIL, name.GetAddress(), nullptr, nullptr, nullptr), S_OK);
        EXPECT_STREQ(name, interfaceName);
        ASSERT_EQ(referred->GetContainingTypeLib(container.GetAddressOf(), nullptr), S_OK);
        ASSERT_EQ(container->GetDocumentation(-1, name.GetAddress(), nullptr, nullptr, nullptr), S_OK);
        EXPECT_STREQ(name, L"OrvelAgentLib");
    }
    EXPECT_EQ(UnRegisterTypeLib(kHostLibrary, kLibraryMajor, kLibraryMinor, LOCALE_NEUTRAL,
                                sizeof(void*) == 8 ? SYS_WIN64 : SYS_WIN32),
              S_OK);
}

} // namespace
