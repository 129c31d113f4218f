// The log of the layering agent's service as an adversary: it is locked, no file, full of holes, too long, cut short
// between two looks, or full of markers that lead nowhere.

#include "tests/support/module_under_test.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr wchar_t kLamina[] = L"eventlog|eventlog_lamina";
constexpr DWORD64 kGiB = DWORD64{1} << 30;
const std::wstring kResponse = L"Manager status 200 response\r\n";

std::filesystem::path folder; // with a Logs folder in it
HANDLE heldOpen = INVALID_HANDLE_VALUE;

std::wstring LogPath()
{
    return folder / L"Logs" / L"korvex.log";
}

LSTATUS WINAPI OpenSomeKey(HKEY, LPCWSTR, DWORD, REGSAM access, HKEY* key)
{
    return RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, access, key);
}
LSTATUS WINAPI GiveImagePath(HKEY, LPCWSTR name, DWORD*, DWORD*, BYTE* data, DWORD* bytes)
{
    const std::wstring path = folder / L"korvex.exe";
    if (std::wcscmp(name, L"ImagePath") != 0 || *bytes < (path.size() + 1) * sizeof(wchar_t)) {
        return ERROR_FILE_NOT_FOUND;
    }
    std::wmemcpy(reinterpret_cast<wchar_t*>(data), path.c_str(), path.size() + 1);
    return ERROR_SUCCESS;
}

void Append(const std::wstring& text)
{
    std::ofstream(std::filesystem::path(LogPath()), std::ios::binary | std::ios::app)
        .write(reinterpret_cast<const char*>(text.data()), static_cast<std::streamsize>(text.size() * sizeof(wchar_t)));
}
/// Makes the log that long, without writing anything.
void Resize(DWORD64 bytes)
{
    std::filesystem::resize_file(LogPath(), bytes);
}
BOOL WINAPI GiveSizeAndTruncate(HANDLE file, LARGE_INTEGER* size)
{
    const BOOL done = GetFileSizeEx(file, size);
    if (size->QuadPart > 100) {
        Resize(10);
    }
    return done;
}

class HostileLogTest : public ModuleTest {
protected:
    HostileLogTest()
    {
        folder = std::filesystem::temp_directory_path() / L"orvel hostile log";
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder / L"Logs");
        EXPECT_EQ(Subscribe(kLamina), S_OK);
        const auto* const time = L"2024-03-05T07:08:09Z";
        LoadEvents(Event(L"User is logging in", time, L"korvex") + Event(L"Last volume loaded", time, L"korvex"));
    }
    ~HostileLogTest() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    size_t CollectedPlinths()
    {
        sink.Take();
        EXPECT_EQ(Collect(kLamina), S_OK);
        size_t plinths = 0;
        for (const std::wstring& line : sink.Take()) {
            plinths += line.starts_with(L"lamina|instances|*") ? 1 : 0;
        }
        return plinths;
    }

    ImportPatch openKey{module, "RegOpenKeyExW", &OpenSomeKey};
    ImportPatch queryValue{module, "RegQueryValueExW", &GiveImagePath};
};

const std::wstring kLong(200'000, L'x');
const Lines kNoResponse = {L"I Read logs from korvex.log", L"E Failed to find login response from the log"};

struct Attack {
    const char* name;
    void (*atLogon)();
    void (*atSearch)();
    size_t plinths;
    Lines lines; // after "CollectLog"
};
void PrintTo(const Attack& attack, std::ostream* out)
{
    *out << attack.name;
}
const Attack kAttacks[] = {
    {"Locked",
     [] { Append(L"1"); },
     [] {
         heldOpen = CreateFileW(LogPath().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
         EXPECT_NE(heldOpen, INVALID_HANDLE_VALUE);
     },
     0,
     {L"E Failed to open log file, error: 32"}},
    {"Directory",
     [] { Append(L"1"); },
     [] {
         std::filesystem::remove(LogPath());
         std::filesystem::create_directory(LogPath());
     },
     0,
     {L"E Failed to open log file, error: 5"}},
    {"DirectoryFromTheLogonOn",
     [] { std::filesystem::create_directory(LogPath()); },
     [] {},
     0,
     {L"E Failed to open log file, error: 5"}},
    {"Hole", [] { Append(L"1"); },
     [] {
         Resize(300'000);
         Append(kResponse + L"MOUNTED-READ;p;i\r\n");
     },
     0, kNoResponse},
    {"FiveGiBAtTheSearch",
     [] { Append(L"1"); },
     [] { Resize(5 * kGiB); },
     0,
     {L"I Read logs from korvex.log", L"E Asked to read 1073741822 bytes, exceed max read bytes"}},
    {"FiveGiBAtTheLogon",
     [] {
         Append(L"1");
         Resize(5 * kGiB);
     },
     [] { Resize(10); },
     0,
     {L"I Read logs from korvex.log and korvex_bak.log", L"I Log file not exist",
      L"E Failed to open backup log file, error: 2"}},
    {"ShrinksBetweenSizeAndRead", [] { Append(L"1"); },
     [] { Append(kResponse + L"MOUNTED-READ;p;i\r\n" + std::wstring(100, L'x')); }, 0, kNoResponse},
    {"EntriesOfHundredsOfKilobytes",
     [] { Append(L"1"); },
     [] { Append(kResponse + L"MOUNTED-READ;" + kLong + L";i\r\nMOUNTED-READ;p;i"); },
     1,
     {L"I Read logs from korvex.log", L"I Find plinth path: " + kLong, L"I Find plinth id: i"}},
    {"MarkersToTheBrim",
     [] { Append(L"1"); },
     [] {
         std::wstring text = kResponse;
         while (text.size() < 262'000) {
             text += L"MOUNTED-READ;";
         }
         Append(text);
     },
     0,
     {L"I Read logs from korvex.log"}},
};

class HostileLogAttackTest : public HostileLogTest, public testing::WithParamInterface<Attack> {};

TEST_P(HostileLogAttackTest, IsToldAndLeavesNothingHeld)
{
    const Attack& attack = GetParam();
    std::unique_ptr<ImportPatch> shrink;
    attack.atLogon();
    Deliver(0);
    attack.atSearch();
    if (std::string(attack.name).starts_with("Shrinks")) {
        shrink = std::make_unique<ImportPatch>(module, "GetFileSizeEx", &GiveSizeAndTruncate);
    }
    logger.Take();
    DWORD handlesBefore = 0;
    DWORD handlesAfter = 0;
    GetProcessHandleCount(GetCurrentProcess(), &handlesBefore);
    Deliver(1);
    GetProcessHandleCount(GetCurrentProcess(), &handlesAfter);
    EXPECT_EQ(handlesAfter, handlesBefore);
    Lines lines = logger.Take();
    const auto start = std::find(lines.begin(), lines.end(), L"I CollectLog");
    ASSERT_NE(start, lines.end());
    lines.erase(lines.begin(), start + 1);
    if (lines.size() > attack.lines.size() && lines.back().starts_with(L"E Failed to read from log file, error: ")) {
        lines.pop_back(); // its code is whatever the platform left last
    }
    EXPECT_EQ(lines, attack.lines);
    EXPECT_EQ(CollectedPlinths(), attack.plinths);
    CloseHandle(std::exchange(heldOpen, INVALID_HANDLE_VALUE));
    EXPECT_NO_THROW(std::filesystem::remove_all(folder)) << "somebody holds a file";
    Deliver(0); // the next logon goes its way
    EXPECT_EQ(CollectedPlinths(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Log, HostileLogAttackTest, testing::ValuesIn(kAttacks),
                         [](const auto& attack) { return std::string(attack.param.name); });

// Work that grew with the square of the markers would take days.
std::wstring longMessage;
BOOL WINAPI GiveLongMessage(EVT_HANDLE, EVT_HANDLE, DWORD, DWORD, PEVT_VARIANT, DWORD, DWORD size, LPWSTR buffer,
                            DWORD* used)
{
    *used = static_cast<DWORD>(longMessage.size()) + 1;
    if (size < *used) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::wmemcpy(buffer, longMessage.c_str(), *used);
    return TRUE;
}

TEST_F(HostileLogTest, AMillionMarkersAreReadOnce)
{
    const ImportPatch patch(module, "EvtFormatMessage", &GiveLongMessage);
    logger.levels = 1;
    struct {
        const wchar_t* marker;
        const wchar_t* end;
        size_t plinths;
    } const cases[] = {{L"MOUNTED-READ;", L"", 0},
                       {L"MOUNTED-READ;", L"\r\n", 1},
                       {L"MOUNTED-READ", L";\r\n", 0},
                       {L"MOUNTED-READ;;\r\n", L"", 1'000'000}};
    for (const auto& each : cases) {
        longMessage = L"User is logging in";
        Deliver(0); // forgets the plinths
        longMessage = L"Response 200 from Manager";
        for (int i = 0; i < 1'000'000; ++i) {
            longMessage += each.marker;
        }
        longMessage += each.end;
        Deliver(0);
        EXPECT_EQ(CollectedPlinths(), each.plinths);
    }
    longMessage = {};
}

} // namespace
