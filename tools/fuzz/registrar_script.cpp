// A script that is read, printed in full quotes and read again means the same; a refused one is refused within itself.
#include "module/registrar_script.h"

#include "tools/fuzz/fuzz.h"

namespace orvel {
namespace {

std::wstring Quoted(std::wstring_view text)
{
    std::wstring quoted = L" '";
    for (const wchar_t unit : text) {
        quoted.append(unit == L'\'' || unit == L'%' ? 2 : 1, unit);
    }
    return quoted + L"'";
}

std::wstring Print(const ScriptValue& value)
{
    const auto* const text = std::get_if<std::wstring>(&value);
    return text != nullptr ? L" = s" + Quoted(*text) : L" = d " + std::to_wstring(std::get<std::uint32_t>(value));
}

std::wstring Print(const ScriptKey& parent, size_t depth)
{
    constexpr const wchar_t* kModes[] = {L"", L" NoRemove", L" ForceRemove", L" Delete"};
    std::wstring text = L" {";
    for (const auto& [name, value] : parent.values) {
        text += L" val" + Quoted(name) + Print(value);
    }
    for (const ScriptKey& key : parent.keys) {
        const bool isLeaf = key.values.empty() && key.keys.empty();
        assert(depth <= 64 && !key.name.empty() && key.name.size() <= 255);
        assert(key.name.find(L'\\') == key.name.npos && key.name.find(L'\0') == key.name.npos);
        assert(key.mode != ScriptMode::Delete || (!key.value && isLeaf));
        text += kModes[static_cast<size_t>(key.mode)] + Quoted(key.name) + (key.value ? Print(*key.value) : L"");
        text += isLeaf ? L"" : Print(key, depth + 1);
    }
    return text + L" }";
}

std::wstring ReadAndPrint(std::wstring_view text)
{
    std::wstring printed;
    for (const auto& [root, key] : ParseScript(text, {{L"MODULE", L"C:\\it's 5%\\{a} b.dll"}, {L"EMPTY", L""}})) {
        printed += (root == ScriptRoot::Classes ? L" HKCR" : root == ScriptRoot::User ? L" HKCU" : L" HKLM");
        printed += Print(key, 1);
    }
    return printed;
}

} // namespace
} // namespace orvel

void orvel::Fuzz(std::wstring_view text, std::string_view)
{
    try {
        const std::wstring printed = ReadAndPrint(text);
        text = {};
        assert(ReadAndPrint(printed) == printed);
    } catch (const ScriptError& error) {
        assert(error.line >= 1 && error.line <= static_cast<size_t>(std::count(text.begin(), text.end(), L'\n')) + 1);
        for (size_t line = 1; line < error.line; ++line) {
            TakeUntil(text, L'\n');
        }
        assert(error.column >= 1 && error.column <= TakeUntil(text, L'\n').size() + 1);
    }
}
