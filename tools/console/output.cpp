#include "tools/console/output.h"

#include "tools/console/failure.h"
#include "tools/console/terminal.h"
#include "tools/utf8.h"

#include <io.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <utility>

namespace orvel::console {

using namespace std::chrono_literals;

namespace {

/// What a mark keeps of the console's attributes and what it adds to them, from kPlain to kBad.
constexpr struct {
    DWORD kept, added;
} kColours[] = {{0xFFFF, 0},
                {0xFFFF, FOREGROUND_INTENSITY},
                {0xFFF0, FOREGROUND_GREEN},
                {0xFFF0, FOREGROUND_RED | FOREGROUND_INTENSITY}};

/// Writes in UTF-16, which does not depend on the console's code page, and in pieces, because WriteConsoleW fails for a
/// text that exceeds the heap of the console.
bool WriteToConsole(HANDLE console, std::wstring_view text)
{
    constexpr size_t kPiece = 8000;
    while (!text.empty()) {
        const bool isSplit = text.size() > kPiece && IS_HIGH_SURROGATE(text[kPiece - 1]);
        const size_t size = std::min(text.size(), isSplit ? kPiece - 1 : kPiece);
        DWORD written = 0;
        if (!WriteConsoleW(console, text.data(), static_cast<DWORD>(size), &written, nullptr)) {
            return false;
        }
        text.remove_prefix(size);
    }
    return true;
}

std::mutex outputLock;
bool isProgressShown = false; // on a line of a terminal that is not ended

void LeaveProgressLine()
{
    if (std::exchange(isProgressShown, false)) {
        std::fputs("\n", stderr);
        std::fflush(stderr);
    }
}

/// Returns whether all of it was written. SetConsoleTextAttribute works on every version of Windows.
bool WriteMarked(std::FILE* file, DWORD stream, std::string_view text)
{
    const std::lock_guard guard(outputLock);
    LeaveProgressLine();
    const HANDLE console = GetStdHandle(stream);
    CONSOLE_SCREEN_BUFFER_INFO info{};
    const bool isConsole = GetConsoleScreenBufferInfo(console, &info) != FALSE;
    const bool isColoured = isConsole && GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) <= 1; // 1: empty
    bool isWritten = std::fflush(file) == 0;
    while (!text.empty()) {
        const size_t end = std::min(text.find_first_of("\1\2\3\4"), text.size());
        isWritten &= isConsole ? WriteToConsole(console, ToWide(text.substr(0, end)))
                               : std::fwrite(text.data(), 1, end, file) == end;
        if (end < text.size() && isColoured) {
            const auto& [kept, added] = kColours[text[end] - kPlain];
            SetConsoleTextAttribute(console, static_cast<WORD>((info.wAttributes & kept) | added));
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return std::fflush(file) == 0 && isWritten;
}

} // namespace

void WriteData(std::string_view utf8)
{
    Require(WriteMarked(stdout, STD_OUTPUT_HANDLE, utf8), ExitCode::Collection,
            "standard output cannot be written; is the disk full or the pipe closed?");
}

void WriteLine(std::string_view utf8)
{
    WriteMarked(stderr, STD_ERROR_HANDLE, std::string(utf8) + "\n");
}

void ShowProgress(DWORD done, DWORD total, std::chrono::seconds wait)
{
    using std::chrono::steady_clock;
    static const bool isTerminal = _isatty(_fileno(stderr)) != 0;
    static steady_clock::time_point next = steady_clock::now() + 1s;
    const std::lock_guard guard(outputLock);
    const steady_clock::time_point now = steady_clock::now();
    if (now < next || (wait != 0s && !isTerminal)) {
        return;
    }
    // A terminal's line is rewritten; a file gets a line every two seconds.
    next = now + (isTerminal ? 200ms : 2000ms);
    isProgressShown = isTerminal;
    const unsigned percent = static_cast<unsigned>(100ULL * done / total);
    const std::string rest = wait == 0s ? "" : ", the next in " + std::to_string(wait.count()) + " s";
    std::fprintf(stderr, isTerminal ? "\rreplayed %lu of %lu (%u %%)%-28s" : "replayed %lu of %lu (%u %%)%s\n", done,
                 total, percent, rest.c_str());
    std::fflush(stderr);
}

void EndProgress()
{
    const std::lock_guard guard(outputLock);
    LeaveProgressLine();
}

void Say(const char* kind, const std::string& utf8)
{
    const wchar_t mark = *kind == 'n' ? kHeading : kBad;
    WriteLine("eventlog_console: " + ToUtf8(Marked(mark, ToWide(kind) + L":")) + " " + utf8);
}

} // namespace orvel::console
