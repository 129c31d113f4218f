// Checks that a parsed script, printed with every word quoted, parses to the same script, and that the position of an
// error lies within the script.
#include "module/registrar_script.h"

#include "tools/fuzz/fuzz.h"

namespace orvel {
namespace {

std::wstring Print(const ScriptKey& parent)
{
    constexpr const wchar_t* kModes[] = {L"", L" NoRemove", L" ForceRemove"};
    std::wstring text = L" {";
    for (const auto& [name, value] : parent.values) {
        text += L" val '" + name + L"' = s '" + value + L"'";
    }
    for (const ScriptKey& key : parent.keys) {
        text += kModes[static_cast<size_t>(key.mode)] + (L" '" + key.name) + L"'" + Print(key);
    }
    return text + L" }";
}

std::wstring ParseAndPrint(std::wstring_view text)
{
    return L"HKCR" + Print(ParseScript(text, {{L"%MODULE%", L"C:\\{a} b.dll"}, {L"%APPID%", L""}}));
}

} // namespace
} // namespace orvel

void orvel::Fuzz(std::wstring_view text, std::string_view)
{
    try {
        const std::wstring printed = ParseAndPrint(text);
        assert(ParseAndPrint(printed) == printed);
    } catch (const ScriptError& error) {
        assert(error.line >= 1 && error.line <= static_cast<size_t>(std::count(text.begin(), text.end(), L'\n')) + 1);
        for (size_t line = 1; line < error.line; ++line) {
            TakeUntil(text, L'\n');
        }
        assert(error.column >= 1 && error.column <= TakeUntil(text, L'\n').size() + 1);
    }
}
