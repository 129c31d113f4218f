// The logon timeline through the loaded module, where no export leads: raw registry values, sizes, faults, refusals.
// All else that a logon brings is in the golden cases.

#include "tests/support/module_under_test.h"

#include <string>
#include <string_view>

namespace {

using namespace std::literals;

constexpr wchar_t kLamina[] = L"eventlog|eventlog_lamina";
constexpr wchar_t kServiceKey[] = L"SYSTEM\\CurrentControlSet\\services\\korvex";
constexpr wchar_t kParametersKey[] = L"SYSTEM\\CurrentControlSet\\services\\korvex\\Parameters";
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HKEY standIn = nullptr; // what the module finds in place of HKEY_LOCAL_MACHINE

struct Value {
    DWORD type = REG_NONE; // REG_NONE: no value
    std::wstring_view text = {};
    size_t extraBytes = 0; // of an x after the text

    void Store(const wchar_t* key, const wchar_t* name) const
    {
        RegDeleteKeyValueW(standIn, key, name);
        if (type != REG_NONE) {
            const std::wstring padded = std::wstring(text) + L"x"; // else Wine would end an unterminated text
            const auto bytes = static_cast<DWORD>(text.size() * sizeof(wchar_t) + extraBytes);
            EXPECT_EQ(RegSetKeyValueW(standIn, key, name, type, padded.data(), bytes), ERROR_SUCCESS);
        }
    }
};

LSTATUS WINAPI OpenKey(HKEY root, const wchar_t* key, DWORD options, REGSAM access, HKEY* opened)
{
    EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(access, REGSAM{KEY_READ});
    return RegOpenKeyExW(standIn, key, options, access, opened);
}

Value nextValue; // what Manager1 becomes between the query for its size and the next
LSTATUS WINAPI QueryValue(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size)
{
    const LSTATUS error = RegQueryValueExW(key, name, reserved, type, data, size);
    if (data == nullptr && nextValue.type != REG_NONE) {
        nextValue.Store(kParametersKey, L"Manager1");
    }
    return error;
}

std::function<void()> beforeRead;
BOOL WINAPI Read(HANDLE file, void* buffer, DWORD size, DWORD* done, OVERLAPPED* overlapped)
{
    if (beforeRead) {
        beforeRead();
    }
    return ReadFile(file, buffer, size, done, overlapped);
}

/// Writes a text and `extraBytes` zeros at an offset and ends the file there. Without sharing it shows when the module
/// has left a file open.
void Write(const std::wstring& path, LONGLONG offset, const std::wstring& text, LONGLONG extraBytes = 0,
           DWORD share = 0)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, share, nullptr, OPEN_ALWAYS, 0, nullptr);
    LARGE_INTEGER position{};
    position.QuadPart = offset;
    DWORD written = 0;
    EXPECT_TRUE(SetFilePointerEx(file, position, nullptr, FILE_BEGIN));
    EXPECT_TRUE(WriteFile(file, text.data(), static_cast<DWORD>(text.size() * 2), &written, nullptr));
    position.QuadPart = extraBytes;
    EXPECT_TRUE(SetFilePointerEx(file, position, nullptr, FILE_CURRENT) && SetEndOfFile(file));
    CloseHandle(file);
}

/// A text of so many bytes that ends in a login response and an entry.
std::wstring Filled(size_t bytes, wchar_t id)
{
    const std::wstring end = L"Manager status 200 response MOUNTED-READ;;"s + id + L"\r\n";
    return std::wstring(bytes / 2 - end.size(), L'.') + end;
}

/// What follows the prefix in the lines that have it, each with a "|" after it.
std::wstring Join(const Lines& lines, std::wstring_view prefix)
{
    std::wstring joined;
    for (const std::wstring& line : lines) {
        joined += line.starts_with(prefix) ? line.substr(prefix.size()) + L"|" : L"";
    }
    return joined;
}

class LaminaTest : public ModuleTest {
protected:
    enum { kLogon, kResponse, kVolume, kAllDone, kLogoff };

    LaminaTest()
    {
        CreateDirectoryW(folder.c_str(), nullptr);
        CreateDirectoryW((folder + L"Logs").c_str(), nullptr);
        EXPECT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, keyName.c_str(), &standIn), ERROR_SUCCESS);
        Value{REG_SZ, folder + L"korvex.exe"}.Store(kServiceKey, L"ImagePath");
        EXPECT_EQ(Subscribe(kLamina), S_OK);
        const auto agent = [](const wchar_t* message, const wchar_t* time) { return Event(message, time, L"korvex"); };
        LoadEvents(agent(L"User is logging in", L"1970-01-01T00:00:01Z") +
                   agent(L"Response 200 from Manager\nMOUNTED-READ;p;1\nMOUNTED-READ;q;\n", L"1970-01-01T00:00:02Z") +
                   agent(L"New volume event (mounted): (VolumeType 2)", L"1970-01-01T00:00:03Z") +
                   agent(L"Last volume loaded", L"1970-01-01T00:00:04Z") +
                   agent(L"User is logging off", L"1970-01-01T00:00:05Z"));
    }
    ~LaminaTest() override
    {
        DeleteFileW(log.c_str());
        DeleteFileW(backup.c_str());
        EXPECT_TRUE(RemoveDirectoryW((folder + L"Logs").c_str()) && RemoveDirectoryW(folder.c_str()));
        RegCloseKey(standIn);
        EXPECT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, keyName.c_str()), ERROR_SUCCESS);
    }

    Lines Written()
    {
        EXPECT_EQ(Collect(kLamina), S_OK);
        return sink.Take();
    }
    /// The error lines of the search when all is done, and the plinths it finds.
    std::wstring Search()
    {
        logger.Take();
        Deliver(kAllDone);
        return Join(logger.Take(), L"E ") + Join(Written(), L"lamina|instances|* ");
    }

    const std::wstring name = L"orvel-test-" + std::to_wstring(GetCurrentProcessId());
    const std::wstring keyName = L"Software\\" + name;
    const std::wstring folder = _wgetenv(L"TEMP") + L"\\"s + name + L"\\";
    const std::wstring log = folder + L"Logs\\korvex.log";
    const std::wstring backup = folder + L"Logs\\korvex_bak.log";
    const ImportPatch openKey{module, "RegOpenKeyExW", &OpenKey}, queryValue{module, "RegQueryValueExW", &QueryValue};
    const ImportPatch read{module, "ReadFile", &Read};
};

TEST_F(LaminaTest, TheManagerIsTakenFromAnyTextThatEndsAndFromNothingElse)
{
    const std::wstring empty = L"Lamina manager host value in registry is empty.|";
    const std::wstring code = L"Failed to get Lamina Manager host information from registry.  Error code 0x8007000";
    const std::wstring absent = code + L"2.|", invalid = code + L"d.|";
    const std::wstring longer = code.substr(0, code.size() - 1) + L"ea.|";
    const struct {
        Value value;
        std::wstring_view wanted; // the warning or the host
        Value next;
    } cases[] = {{{}, absent, {}}, // no key yet
                 {{REG_SZ, L"a:443\0"sv}, L"a|", {}},
                 {{}, absent, {}},
                 {{REG_EXPAND_SZ, L"%A%\0"sv}, L"%A%|", {}},
                 {{REG_SZ, L"b\0:c\0"sv}, L"b|", {}},
                 {{REG_SZ, L"\0"sv}, empty, {}},
                 {{REG_SZ, L""}, empty, {}},
                 {{REG_SZ, L"unended"}, invalid, {}},
                 {{REG_SZ, L"odd\0"sv, 1}, longer, {}},
                 {{REG_SZ, L"", 1}, longer, {}},
                 {{REG_DWORD, L"d\0"sv}, invalid, {}},
                 {{REG_BINARY, L"b\0"sv}, invalid, {}},
                 {{REG_MULTI_SZ, L"m\0\0"sv}, invalid, {}},
                 {{REG_SZ, L"short\0"sv}, longer, {REG_SZ, L"longer\0"sv}},
                 {{REG_SZ, L"long\0"sv}, L"les|", {REG_SZ, L"les\0"sv}},
                 {{REG_SZ, L"long\0"sv}, invalid, {REG_SZ, L"\0"sv, 1}},
                 {{REG_SZ, L"text\0"sv}, invalid, {REG_DWORD, L"d\0"sv}},
                 {{REG_SZ, L"text\0"sv}, empty, {REG_SZ, L""}}};
    for (const auto& example : cases) {
        example.value.Store(kParametersKey, L"Manager1");
        nextValue = example.next;
        const std::wstring written = Join(Written(), L"lamina|mgr [lamina|mgr] = ");
        EXPECT_EQ(Join(logger.Take(), L"W ") + written, example.wanted);
    }
    nextValue = {};
}

TEST_F(LaminaTest, TheLogsFolderIsMadeOfWhateverTheImagePathHolds)
{
    const std::wstring longest(1023, L'a'), tooLong = longest + L'\0';
    const struct {
        Value value;
        std::wstring_view image, folder; // or the error line
    } cases[] = {
        {{REG_SZ, L"\"C:\\a b\\c.exe\" -k C:\\x\0"sv}, L"\"C:\\a b\\c.exe\" -k C:\\x", L"C:\\a b\\c.exe -k C:"},
        {{REG_EXPAND_SZ, L"%A%\\k.exe\0"sv}, L"%A%\\k.exe", L"%A%"},
        {{REG_SZ, L"k.exe\0"sv}, L"k.exe", L"k.exe"},
        {{REG_SZ, L""}, L"", L""},
        {{REG_SZ, L"D:\\unended\\k"}, L"D:\\unended\\k", L"D:\\unended"},
        {{REG_SZ, L"D:\\odd\\", 1}, L"D:\\odd\\x", L"D:\\odd"},
        {{REG_BINARY, L"D:\\b\\c\0\\d"sv}, L"D:\\b\\c", L"D:\\b"},
        {{REG_DWORD, L"\"\\"}, L"\"\\", L""},
        {{REG_SZ, longest}, longest, longest},
        {{REG_SZ, tooLong}, L"E Failed to query value ImagePath, error: 234", L""},
        {{}, L"E Failed to query value ImagePath, error: 2", L""}};
    for (const auto& example : cases) {
        example.value.Store(kServiceKey, L"ImagePath");
        Lines wanted(2, L"I korvex image path: "s.append(example.image));
        wanted.push_back(L"I korvex log path: "s.append(example.folder) + L"\\Logs\\");
        if (example.image.starts_with(L"E ")) {
            wanted = {std::wstring(example.image)};
        }
        logger.Take();
        Deliver(kLogon);
        const Lines lines = logger.Take(); // after the event's line and "PrepareCollectLog"
        EXPECT_EQ(Lines(lines.begin() + 2, lines.begin() + 2 + static_cast<ptrdiff_t>(wanted.size())), wanted);
    }
}

TEST_F(LaminaTest, ReadsAreLimitedEndAtAZeroAndCountModulo4GiB)
{
    constexpr LONGLONG kMost = 0x80000, kRotated = kMost + 100, k4GiB = 0x100000000;
    const std::wstring asked = L"Asked to read 524289 bytes, exceed max read bytes|Failed to read ";
    const struct {
        LONGLONG begin, tailExtra, headExtra;
        std::wstring wanted; // how it begins: the code after the limit's line is anything
    } cases[] = {{100, 0, 0, L"[1] = |"},
                 {100, 0, 1, asked + L"from log file, error: "},
                 {kRotated, 0, 0, L"[2] = |[1] = |"},
                 {kRotated, 1, 0, asked + L"from backup log, error: "},
                 {kRotated, 0, 1, asked + L"logs, error: "}};
    for (const auto& example : cases) {
        Write(log, example.begin, L"");
        Deliver(kLogon);
        Write(backup, example.begin, Filled(kMost, L'2'), example.tailExtra);
        Write(log, example.begin == kRotated ? 0 : example.begin, Filled(kMost, L'1'), example.headExtra);
        EXPECT_EQ(Search().substr(0, example.wanted.size()), example.wanted);
    }
    Write(log, 8, Filled(100, L'3') + L'\0' + Filled(100, L'4'), k4GiB - 202);
    Deliver(kLogon);
    Write(log, k4GiB + 8 + 202, L"");
    EXPECT_EQ(Search(), L"[3] = |") << "what stands from 8 on, up to the zero";
}

TEST_F(LaminaTest, TheServiceIsNeverBlocked)
{
    Deliver(kLogon);
    Write(log, 0, Filled(100, L'1'));
    beforeRead = [&] {
        EXPECT_TRUE(MoveFileExW(log.c_str(), backup.c_str(), MOVEFILE_REPLACE_EXISTING));
        Write(backup, 0, Filled(100, L'2'), 0, kShareAll);
        Write(log, 0, Filled(100, L'3'), 0, kShareAll);
        EXPECT_TRUE(DeleteFileW(backup.c_str()));
    };
    EXPECT_EQ(Search(), L"[2] = |") << "the file that was opened";
    Deliver(kLogon);
    Write(log, 100, Filled(100, L'4'));
    beforeRead = [&] { Write(log, 0, Filled(100, L'5'), 0, kShareAll); };
    EXPECT_EQ(Search(), L"Failed to find login response from the log|") << "truncated after the look at its length";
    beforeRead = nullptr;
}

TEST_F(LaminaTest, ARefusalEndsTheTimesOrThePlinthsAndOnlyThePlinthsResultIsGiven)
{
    const Lines all = {L"lamina|logon_timestamp [lamina] = #1000",
                       L"lamina|logon_response_timestamp [lamina] = #2000",
                       L"lamina|volumes_ready_timestamp [lamina] = #3000",
                       L"lamina|all_done_timestamp [lamina] = #4000",
                       L"lamina|mgr [lamina|mgr] = m",
                       L"lamina|instances [lamina|instances] = true",
                       L"lamina|instances|* [1] = p",
                       L"lamina|instances|* [(null)] = q"};
    constexpr size_t kManager = 4, kFlag = 5, kLast = 7;
    const std::wstring suffix = ExpectedSuffix(E_ACCESSDENIED);
    Value{REG_SZ, L"m\0"sv}.Store(kParametersKey, L"Manager1");
    for (const DWORD event : {kLogon, kResponse, kVolume, kAllDone}) {
        Deliver(event);
    }
    EXPECT_EQ(Written(), all);
    logger.Take();
    for (size_t refused = 0; refused <= kLast; ++refused) {
        sink.results.assign(refused, S_OK);
        sink.results.push_back(E_ACCESSDENIED);
        EXPECT_EQ(Collect(kLamina), refused == kFlag || refused == kLast ? E_ACCESSDENIED : S_OK) << refused;
        Lines written = all;
        Lines lines{(refused == kFlag ? L"E Failed to write metric flag '" : L"E Failed to collect metric '") +
                    all[refused].substr(0, all[refused].find(L' ')) + L"'." + suffix};
        if (refused < kManager) {
            written.erase(written.begin() + static_cast<ptrdiff_t>(refused) + 1, written.begin() + kManager);
            lines.push_back(L"E Failed to write attach time metrics." + suffix);
        } else if (refused == kFlag) {
            written.resize(kFlag + 1);
        }
        EXPECT_EQ(sink.Take(), written) << refused;
        EXPECT_EQ(logger.Take(), lines);
    }
    EXPECT_EQ(provider->QueryMetricEx(_bstr_t(kLamina), 0, nullptr), E_POINTER);
}

TEST_F(LaminaTest, WhatCannotBeReadOfAnEventIsThatOfTheOneBefore)
{
    const struct {
        ReplayFunction function;
        DWORD occurrence;
        ReplayFault fault;
        const wchar_t* times; // of volumes ready and all done; a lost message is the latter's again
    } cases[] = {{ReplayEvtCreateRenderContext, 1, ReplayFail, L"[lamina] = #4000|[lamina] = #4000|"},
                 {ReplayEvtRender, 1, ReplayFail, L"[lamina] = #4000|[lamina] = #4000|"},
                 {ReplayEvtRender, 2, ReplayFail, L"[lamina] = #4000|[lamina] = #4000|"},
                 {ReplayEvtFormatMessage, 1, ReplayFail, L"[lamina] = #1000|[lamina] = #3000|"},
                 {ReplayEvtFormatMessage, 2, ReplayFailWithText, L"[lamina] = #1000|[lamina] = #3000|"},
                 {ReplayEvtSubscribe, 1, ReplayFail, L"[lamina] = #3000|[lamina] = #4000|"}};
    for (const auto& example : cases) {
        for (const DWORD event : {kLogoff, kLogon, kAllDone}) {
            Deliver(event);
        }
        Replay().Inject(example.function, example.occurrence, example.fault, ERROR_EVT_UNRESOLVED_VALUE_INSERT);
        Deliver(kVolume);
        const Lines written = Written();
        EXPECT_EQ(Join(written, L"lamina|volumes_ready_timestamp ") + Join(written, L"lamina|all_done_timestamp "),
                  example.times);
    }
}

} // namespace
