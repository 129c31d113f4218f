// The logon timeline through the loaded module, as far as exports cannot show it: raw registry values, hostile logs, a
// message full of markers, faults, refusals. The golden cases have the rest.

#include "tests/support/module_under_test.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

namespace {

using namespace std::literals;

constexpr wchar_t kServiceKey[] = L"SYSTEM\\CurrentControlSet\\services\\korvex";
constexpr wchar_t kParametersKey[] = L"SYSTEM\\CurrentControlSet\\services\\korvex\\Parameters";
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

struct Value {
    DWORD type = REG_NONE; // REG_NONE: no value
    std::wstring_view text = {};
    size_t extraBytes = 0; // of an x after the text
};

/// Writes a text and `extraBytes` zeros at an offset and ends the file there.
void Write(const std::wstring& path, LONGLONG offset, const std::wstring& text, LONGLONG extraBytes = 0)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, kShareAll, nullptr, OPEN_ALWAYS, 0, nullptr);
    LARGE_INTEGER position{};
    position.QuadPart = offset;
    DWORD written = 0;
    EXPECT_TRUE(SetFilePointerEx(file, position, nullptr, FILE_BEGIN));
    EXPECT_TRUE(WriteFile(file, text.data(), static_cast<DWORD>(text.size() * 2), &written, nullptr));
    position.QuadPart = extraBytes;
    EXPECT_TRUE(SetFilePointerEx(file, position, nullptr, FILE_CURRENT) && SetEndOfFile(file));
    CloseHandle(file);
}

const std::wstring kLoginResponse = L"Manager status 200 response\r\n";

/// Returns a text of so many bytes that ends in a login response and an entry.
std::wstring Filled(size_t bytes, wchar_t id)
{
    const std::wstring end = kLoginResponse + L"MOUNTED-READ;;" + id + L"\r\n";
    return std::wstring(bytes / 2 - end.size(), L'.') + end;
}

/// Joins what follows the prefix in the lines that have it, each with a "|" after it.
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
    enum { kLogon, kResponse, kVolume, kAllDone };

    LaminaTest()
    {
        CreateDirectoryW(folder.c_str(), nullptr);
        CreateDirectoryW(logs.c_str(), nullptr);
        EXPECT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, keyName.c_str(), &standIn), ERROR_SUCCESS);
        Store(kServiceKey, L"ImagePath", {REG_SZ, folder + L"korvex.exe"});
        EXPECT_EQ(Subscribe(kLamina), S_OK);
        LoadEvents(AgentEvent(L"User is logging in") +
                   AgentEvent(L"Response 200 from Manager\nMOUNTED-READ;p;1\nMOUNTED-READ;q;\n") +
                   AgentEvent(L"New volume event (mounted): (VolumeType 2)") + AgentEvent(L"Last volume loaded"));
    }
    ~LaminaTest() override
    {
        EXPECT_TRUE(RemoveDirectoryW(logs.c_str()) && RemoveDirectoryW(folder.c_str()));
        RegCloseKey(standIn);
        EXPECT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, keyName.c_str()), ERROR_SUCCESS);
    }

    void Store(const wchar_t* key, const wchar_t* value, const Value& stored)
    {
        RegDeleteKeyValueW(standIn, key, value);
        if (stored.type != REG_NONE) {
            const std::wstring padded = std::wstring(stored.text) + L"x"; // else Wine would end an unterminated text
            const auto bytes = static_cast<DWORD>(stored.text.size() * sizeof(wchar_t) + stored.extraBytes);
            EXPECT_EQ(RegSetKeyValueW(standIn, key, value, stored.type, padded.data(), bytes), ERROR_SUCCESS);
        }
    }
    Lines Written()
    {
        EXPECT_EQ(Collect(kLamina), S_OK);
        return sink.Take();
    }
    /// Returns the lines of the search when all is done, and the plinths collected then. The code of a failed read is
    /// left out: after the line about the limit it is whatever last error the platform left.
    std::wstring Search()
    {
        logger.Take();
        const DWORD handles = Handles();
        Deliver(kAllDone);
        EXPECT_EQ(Handles(), handles);
        Lines lines = logger.Take();
        lines.erase(lines.begin(), std::find(lines.begin(), lines.end() - 1, L"I CollectLog") + 1);
        for (std::wstring& line : lines) {
            line.resize(line.starts_with(L"E Failed to read") ? line.find(L',') : line.size());
        }
        return Join(lines, L"") + Join(Written(), L"lamina|instances|* ");
    }

    const std::wstring name = L"orvel-test-" + std::to_wstring(GetCurrentProcessId());
    const std::wstring keyName = L"Software\\" + name;
    const std::wstring folder = _wgetenv(L"TEMP") + L"\\"s + name + L"\\";
    const std::wstring logs = folder + L"Logs", log = logs + L"\\korvex.log", backup = logs + L"\\korvex_bak.log";
    HKEY standIn = nullptr;           // what the module finds in place of HKEY_LOCAL_MACHINE
    Value nextManager;                // what Manager1 becomes between the query for its size and the next
    std::function<void()> beforeRead; // of a log
    const Patch<decltype(RegOpenKeyExW)> openKey{
        module, "RegOpenKeyExW",
        [this](auto open, HKEY root, const wchar_t* key, DWORD options, REGSAM access, HKEY* opened) {
            EXPECT_TRUE(root == HKEY_LOCAL_MACHINE && access == KEY_READ) << access;
            return open(standIn, key, options, access, opened);
        }};
    const Patch<decltype(RegQueryValueExW)> queryValue{
        module, "RegQueryValueExW",
        [this](auto query, HKEY key, auto value, auto reserved, auto type, BYTE* data, DWORD* size) {
            const LSTATUS error = query(key, value, reserved, type, data, size);
            if (data == nullptr && nextManager.type != REG_NONE) {
                Store(kParametersKey, L"Manager1", nextManager);
            }
            return error;
        }};
    const Patch<decltype(ReadFile)> read{module, "ReadFile", [this](auto readFile, auto... arguments) {
                                             if (beforeRead) {
                                                 beforeRead();
                                             }
                                             return readFile(arguments...);
                                         }};
};

TEST_F(LaminaTest, ReadsTheManagerFromTerminatedTextsOnly)
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
                 {{REG_SZ, L"a:443:b\0"sv}, L"a|", {}},
                 {{REG_SZ, L"b\0:c\0"sv}, L"b|", {}},
                 {{REG_SZ, L"\0"sv}, empty, {}},
                 {{REG_SZ, L""}, empty, {}},
                 {{REG_SZ, L"unended"}, invalid, {}},
                 {{REG_SZ, L"odd\0"sv, 1}, longer, {}},
                 {{REG_DWORD, L"d\0"sv}, invalid, {}},
                 {{REG_MULTI_SZ, L"m\0\0"sv}, invalid, {}},
                 {{REG_SZ, L"short\0"sv}, longer, {REG_SZ, L"longer\0"sv}},
                 {{REG_SZ, L"long\0"sv}, L"les|", {REG_SZ, L"les\0"sv}},
                 {{REG_SZ, L"long\0"sv}, invalid, {REG_SZ, L"\0"sv, 1}},
                 {{REG_SZ, L"text\0"sv}, invalid, {REG_DWORD, L"d\0"sv}}};
    for (const auto& example : cases) {
        Store(kParametersKey, L"Manager1", example.value);
        nextManager = example.next;
        const std::wstring written = Join(Written(), L"lamina|mgr [lamina|mgr] = ");
        EXPECT_EQ(Join(logger.Take(), L"W ") + written, example.wanted);
    }
}

TEST_F(LaminaTest, FindsTheLogDirectoryBesideAnyImagePath)
{
    const auto found = [](const std::wstring& image, const std::wstring& directory) {
        const std::wstring line = L"image path: " + image + L"|";
        return line + line + L"log path: " + directory + L"\\Logs\\|";
    };
    const std::wstring longest(1023, L'a'), tooLong = longest + L'\0';
    const std::pair<Value, std::wstring> cases[] = {
        {{REG_SZ, L"\"C:\\a b\\c.exe\" -k C:\\x\0"sv}, found(L"\"C:\\a b\\c.exe\" -k C:\\x", L"C:\\a b\\c.exe -k C:")},
        {{REG_EXPAND_SZ, L"%A%\\k.exe\0"sv}, found(L"%A%\\k.exe", L"%A%")},
        {{REG_SZ, L"k.exe\0"sv}, found(L"k.exe", L"k.exe")},
        {{REG_SZ, L""}, found(L"", L"")},
        {{REG_SZ, L"D:\\unended\\k"}, found(L"D:\\unended\\k", L"D:\\unended")},
        {{REG_SZ, L"D:\\odd\\", 1}, found(L"D:\\odd\\x", L"D:\\odd")},
        {{REG_BINARY, L"D:\\b\\c\0\\d"sv}, found(L"D:\\b\\c", L"D:\\b")},
        {{REG_DWORD, L"\"\\"}, found(L"\"\\", L"")},
        {{REG_SZ, longest}, found(longest, longest)},
        {{REG_SZ, tooLong}, L"value ImagePath, error: 234|"},
        {{}, L"value ImagePath, error: 2|"}};
    for (const auto& [value, wanted] : cases) {
        Store(kServiceKey, L"ImagePath", value);
        logger.Take();
        Deliver(kLogon);
        const Lines lines = logger.Take();
        EXPECT_EQ(Join(lines, L"E Failed to query ") + Join(lines, L"I korvex "), wanted);
    }
}

TEST_F(LaminaTest, SurvivesHostileLogsAndHoldsNoFile)
{
    using Step = std::function<void()>;
    constexpr LONGLONG kMost = 0x80000, kRotated = kMost + 100, k4GiB = 0x100000000, k5GiB = 0x140000000;
    const auto writes = [this](LONGLONG offset, const std::wstring& text = L"", LONGLONG extraBytes = 0) {
        return [=, this] { Write(log, offset, text, extraBytes); };
    };
    const auto rotates = [this](LONGLONG tailExtra, LONGLONG headExtra) {
        return [=, this] {
            Write(backup, kRotated, Filled(kMost, L'2'), tailExtra);
            Write(log, 0, Filled(kMost, L'1'), headExtra);
        };
    };
    const Step folderForLog = [this] {
        DeleteFileW(log.c_str());
        CreateDirectoryW(log.c_str(), nullptr);
    };
    HANDLE held = nullptr;
    const Step locks = [&] { held = CreateFileW(log.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr); };
    const Step movesWhileRead = [&] {
        Write(log, 2, Filled(100, L'1'));
        beforeRead = [&] {
            EXPECT_TRUE(MoveFileExW(log.c_str(), backup.c_str(), MOVEFILE_REPLACE_EXISTING));
            Write(backup, 2, Filled(100, L'2'));
            Write(log, 2, Filled(100, L'3'));
            EXPECT_TRUE(DeleteFileW(backup.c_str()));
        };
    };
    const Step shrinksBeforeRead = [&] {
        Write(log, 100, Filled(100, L'4'));
        beforeRead = [&] { Write(log, 0, Filled(100, L'5')); };
    };
    const std::wstring longPath(200'000, L'x'), longEntry = L"MOUNTED-READ;" + longPath + L";i\r\nMOUNTED-READ;p;i";
    const auto found = [](const std::wstring& id, const std::wstring& path = L"") {
        return L"I Find plinth path: " + path + L"|I Find plinth id: " + id + L"|";
    };
    const std::wstring one = L"I Read logs from korvex.log|", both = L"I Read logs from korvex.log and korvex_bak.log|";
    const std::wstring tooMany = L"E Asked to read 524289 bytes, exceed max read bytes|E Failed to read ";
    const std::wstring noResponse = one + L"E Failed to find login response from the log|";
    const std::tuple<const char*, Step, Step, std::wstring> cases[] = {
        {"up to the limit", writes(100), writes(100, Filled(kMost, L'1')), one + found(L"1") + L"[1] = |"},
        {"above", writes(100), writes(100, Filled(kMost, L'1'), 1), one + tooMany + L"from log file|"},
        {"both", writes(kRotated), rotates(0, 0), both + found(L"2") + found(L"1") + L"[2] = |[1] = |"},
        {"backup above", writes(kRotated), rotates(1, 0), both + tooMany + L"from backup log|"},
        {"new log above", writes(kRotated), rotates(0, 1), both + tooMany + L"logs|"},
        {"sizes modulo 4 GiB, text up to a zero", writes(k4GiB + 8),
         writes(8, Filled(100, L'3') + L'\0' + Filled(100, L'4'), k4GiB), one + found(L"3") + L"[3] = |"},
        {"5 GiB at the search", writes(2), writes(k5GiB),
         one + L"E Asked to read 1073741822 bytes, exceed max read bytes|E Failed to read from log file|"},
        {"5 GiB at the logon", writes(k5GiB), writes(10),
         both + L"I Log file not exist|E Failed to open backup log file, error: 2|"},
        {"locked", writes(2), locks, L"E Failed to open log file, error: 32|"},
        {"folder", writes(2), folderForLog, L"E Failed to open log file, error: 5|"},
        {"hole", writes(2), writes(300'000, Filled(100, L'1')), noResponse},
        {"long entry", writes(2), writes(2, kLoginResponse + longEntry),
         one + found(L"i", longPath) + L"[i] = " + longPath + L"|"},
        {"moved while read", writes(2), movesWhileRead, one + found(L"2") + L"[2] = |"},
        {"shrinks between size and read", writes(100), shrinksBeforeRead, noResponse}};
    for (const auto& [attack, atLogon, atSearch, wanted] : cases) {
        SCOPED_TRACE(attack);
        atLogon();
        Deliver(kLogon);
        EXPECT_EQ(Join(Written(), L"lamina|instances"), L"") << "the logon before leaves no plinths";
        atSearch();
        EXPECT_EQ(Search(), wanted);
        beforeRead = nullptr;
        Deliver(kAllDone);
        EXPECT_EQ(Join(logger.Take(), L"I CollectLog"), L"") << "a logon is searched for once";
        CloseHandle(std::exchange(held, nullptr));
        DeleteFileW(backup.c_str());
        EXPECT_TRUE(DeleteFileW(log.c_str()) || RemoveDirectoryW(log.c_str()));
        EXPECT_TRUE(RemoveDirectoryW(logs.c_str()) && CreateDirectoryW(logs.c_str(), nullptr)) << "a file is held";
    }
}

TEST_F(LaminaTest, ReadsTheLogAnewThoughTheLogonCouldNotPrepareIt)
{
    Write(log, 0, L"");
    Deliver(kLogon);
    Write(log, 0, Filled(100, L'1'));
    const std::wstring found = L"I Read logs from korvex.log|I Find plinth path: |I Find plinth id: 1|[1] = |";
    EXPECT_EQ(Search(), found);
    Store(kServiceKey, L"ImagePath", {});
    Deliver(kLogon);
    EXPECT_EQ(Search(), found) << "once, and not behind the text of the first search";
    EXPECT_TRUE(DeleteFileW(log.c_str()));
}

// Work that grew with the square of the markers would take days.
TEST_F(LaminaTest, ReadsAMillionMarkersOnce)
{
    logger.levels = 1;
    const std::tuple<std::wstring_view, std::wstring_view, ptrdiff_t> cases[] = {
        {L"MOUNTED-READ;", L".", 0},
        {L"MOUNTED-READ;", L"\n.", 1},
        {L"MOUNTED-READ", L";\n.", 0},
        {L"MOUNTED-READ;;\n", L".", 1'000'000}};
    for (const auto& [marker, end, plinths] : cases) {
        std::wstring message = L"Response 200 from Manager";
        for (int i = 0; i < 1'000'000; ++i) {
            message += marker;
        }
        LoadEvents(AgentEvent(L"User is logging in") + AgentEvent(message.append(end)));
        Deliver(kLogon); // forgets the plinths
        Deliver(kResponse);
        const Lines written = Written();
        const auto isPlinth = [](const std::wstring& line) { return line.starts_with(L"lamina|instances|*"); };
        EXPECT_EQ(std::count_if(written.begin(), written.end(), isPlinth), plinths);
    }
}

TEST_F(LaminaTest, ReturnsTheResultOfThePlinthsOnly)
{
    Store(kParametersKey, L"Manager1", {REG_SZ, L"m\0"sv});
    for (const DWORD event : {kLogon, kResponse, kVolume, kAllDone}) {
        Deliver(event);
    }
    EXPECT_EQ(Join(Written(), L"lamina|instances|* "), L"[1] = p|[(null)] = q|");
    // The first four values are times, of which a refused one is the last; then manager, flag and two plinths.
    constexpr std::pair<size_t, HRESULT> kWanted[] = {{5, S_OK}, {6, S_OK},           {7, S_OK}, {8, S_OK},
                                                      {8, S_OK}, {6, E_ACCESSDENIED}, {8, S_OK}, {8, E_ACCESSDENIED}};
    for (const auto& wanted : kWanted) {
        sink.results.assign(static_cast<size_t>(&wanted - kWanted), S_OK);
        sink.results.push_back(E_ACCESSDENIED);
        EXPECT_EQ(Collect(kLamina), wanted.second);
        EXPECT_EQ(sink.Take().size(), wanted.first);
    }
}

} // namespace
