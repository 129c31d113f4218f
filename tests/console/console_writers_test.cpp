// Cases that no golden file can have: text that is not valid Unicode, and unusual timestamps of a logon.

#include "tools/console/terminal.h"
#include "tools/console/writers.h"

#include <gtest/gtest.h>

namespace {

using namespace orvel::console;

std::string JsonOf(const std::wstring& text)
{
    return ToJsonLines({2, L"m", {{L"k", L"", VT_BSTR, text, 0}}, {}});
}

TEST(JsonLines, EscapeOnlyWhatJsonRequires)
{
    const auto line = [](const std::string& value) {
        return R"({"collection":2,"metric":"m","key":"k","instance":"","type":"VT_BSTR","value":")" + value + "\"}\n";
    };
    EXPECT_EQ(JsonOf(L"\"\\/\b\r\n\t\x1f\x7f"), line("\\\"\\\\/\\u0008\\r\\n\\t\\u001f\x7f"));
    EXPECT_EQ(JsonOf(std::wstring(L"a\0b", 3)), line("a\\u0000b"));
    EXPECT_EQ(JsonOf(L"\xd83d\xde00 \xd83d \xde00\xd83d"), line("\xf0\x9f\x98\x80 \\ud83d \\ude00\\ud83d"));
}

std::wstring Picture(std::vector<ULONGLONG> times, const std::wstring& plinth)
{
    const wchar_t* keys[] = {L"lamina|logon_timestamp", L"lamina|logon_response_timestamp",
                             L"lamina|volumes_ready_timestamp", L"lamina|all_done_timestamp"};
    Collection collection = {1, L"eventlog|eventlog_lamina", {}, {L"Not got time stamps for lamina event."}};
    for (size_t i = 0; i < times.size(); ++i) {
        collection.values.push_back({keys[i], L"lamina", VT_UI8, L"", times[i]});
    }
    if (!plinth.empty()) {
        collection.values.push_back({L"lamina|instances|*", L"7", VT_BSTR, plinth, 0});
    }
    return DrawTimeline(collection);
}

TEST(Timeline, TakesAnyNumbers)
{
    EXPECT_NE(Picture({5, 5, 5, 5}, L"").find(L"0.000 s  |o\n  no plinths"), std::wstring::npos);
    EXPECT_NE(Picture({~0ULL, 0, 1, ~0ULL - 999}, L"").find(L"Logon on ?,"), std::wstring::npos);
    EXPECT_NE(Picture({10000, 9000, 11000, 10000}, L"").find(L"00:00:09.000      -1.000 s      -1.000 s"),
              std::wstring::npos);
    EXPECT_EQ(Picture({}, L"C:\\a\x1b[2J"), L"\n  no timeline\n    Not got time stamps for lamina event.\n"
                                            L"  plinths\n    7  C:\\a\xfffd[2J\n");
    EXPECT_EQ(Picture({}, L""), L"");
}

TEST(Terminal, WrapsLinesBetweenCharacters)
{
    EXPECT_EQ(Wrapped(L"ab cd ef", 5, 2), L"ab cd\n  ef");
    EXPECT_EQ(Wrapped(L"abcdefg\n\nh", 3, 1), L"abc\n def\n g\n\n h");
    EXPECT_EQ(Wrapped(L"日本語", 5, 0), L"日本\n語");
    EXPECT_EQ(Wrapped(L"e\u0301e\u0301\xd83d\xde00", 2, 0), L"e\u0301e\u0301\n\xd83d\xde00");
    EXPECT_EQ(Wrapped(L"日本", 1, 0), L"日\n本");
    EXPECT_EQ(Wrapped(L"a b日", 2, 0), L"a\nb\n日");
}

} // namespace
