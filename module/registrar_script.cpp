#include "module/registrar_script.h"

#include <algorithm>
#include <array>

namespace orvel {

namespace {

using namespace std::literals;

constexpr std::size_t kMaxDepth = 64;
constexpr std::size_t kMaxKeyName = 255;
constexpr std::wstring_view kBlanks = L" \t\r\n\v\f";
constexpr std::array kKeywords = {L"NoRemove"sv, L"ForceRemove"sv, L"Delete"sv, L"val"sv};

struct Word {
    std::wstring_view text; // without the outer quotes; empty and bare at the end of the script
    bool isQuoted = false;
    std::size_t offset = 0;
};

wchar_t Lower(wchar_t c)
{
    return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

bool Is(const Word& word, std::wstring_view keyword)
{
    return !word.isQuoted &&
           std::ranges::equal(word.text, keyword, [](wchar_t a, wchar_t b) { return Lower(a) == Lower(b); });
}

class Parser {
public:
    Parser(std::wstring_view text, const ScriptReplacements& replacements) : text_(text), replacements_(replacements)
    {
        Advance();
    }

    Script Parse()
    {
        Script script;
        do {
            const ScriptRoot root = TakeRoot();
            Expect(L"{", L"a root is followed by '{'");
            TakeEntries(script.emplace_back(root, ScriptKey()).second, 1);
        } while (!IsEnd());
        return script;
    }

private:
    [[noreturn]] void Fail(std::size_t offset, const wchar_t* reason) const
    {
        const std::wstring_view before = text_.substr(0, offset);
        const auto line = static_cast<std::size_t>(std::ranges::count(before, L'\n'));
        const std::size_t lineStart = line == 0 ? 0 : before.rfind(L'\n') + 1;
        throw ScriptError{line + 1, offset - lineStart + 1, reason};
    }

    bool IsEnd() const { return word_.text.empty() && !word_.isQuoted; }

    // Moves to the next word.
    void Advance()
    {
        position_ = std::min(text_.find_first_not_of(kBlanks, position_), text_.size());
        const std::size_t start = position_;
        const bool isQuoted = start < text_.size() && text_[start] == L'\'';
        if (isQuoted) {
            do {
                position_ = text_.find(L'\'', position_ + 1);
                if (position_ == std::wstring_view::npos) {
                    Fail(start, L"the quoted text has no end");
                }
                ++position_;
            } while (position_ < text_.size() && text_[position_] == L'\'');
            word_ = {text_.substr(start + 1, position_ - start - 2), true, start};
        } else {
            position_ = std::min(text_.find_first_of(kBlanks, start), text_.size());
            word_ = {text_.substr(start, position_ - start), false, start};
            if (const std::size_t quote = word_.text.find(L'\''); quote != std::wstring_view::npos) {
                Fail(start + quote, L"a quote inside a word that does not begin with one");
            }
        }
    }

    bool Skip(std::wstring_view keyword)
    {
        const bool found = Is(word_, keyword);
        if (found) {
            Advance();
        }
        return found;
    }

    void Expect(std::wstring_view keyword, const wchar_t* reason)
    {
        if (!Skip(keyword)) {
            Fail(word_.offset, reason);
        }
    }

    ScriptRoot TakeRoot()
    {
        if (Skip(L"HKCR") || Skip(L"HKEY_CLASSES_ROOT")) {
            return ScriptRoot::Classes;
        }
        if (Skip(L"HKCU") || Skip(L"HKEY_CURRENT_USER")) {
            return ScriptRoot::User;
        }
        Expect(Is(word_, L"HKLM") ? L"HKLM" : L"HKEY_LOCAL_MACHINE", L"a root is HKCR, HKCU or HKLM");
        return ScriptRoot::Machine;
    }

    // The current word with doubled quotes and replacements resolved.
    std::wstring TakeText(const wchar_t* reason)
    {
        if (IsEnd() || Is(word_, L"{") || Is(word_, L"}") || Is(word_, L"=")) {
            Fail(word_.offset, reason);
        }
        const std::wstring_view raw = word_.text;
        const std::size_t offset = word_.offset + (word_.isQuoted ? 1 : 0);
        std::wstring text;
        for (std::size_t i = 0; i < raw.size(); ++i) {
            if (raw[i] == L'%') {
                const std::size_t end = raw.find(L'%', i + 1);
                if (end == std::wstring_view::npos) {
                    Fail(offset + i, L"a replacement has no end; a percent sign is written twice");
                }
                const auto found = replacements_.find(raw.substr(i + 1, end - i - 1));
                if (end == i + 1) {
                    text += L'%';
                } else if (found != replacements_.end()) {
                    text += found->second;
                } else {
                    Fail(offset + i, L"an unknown replacement");
                }
                i = end;
            } else {
                text += raw[i];
                i += raw[i] == L'\'' ? 1 : 0;
            }
        }
        Advance();
        return text;
    }

    std::wstring TakeKeyName()
    {
        const Word word = word_;
        if (std::ranges::any_of(kKeywords, [&](std::wstring_view keyword) { return Is(word, keyword); })) {
            Fail(word.offset, L"a keyword where a name is expected; a key of that name is quoted");
        }
        std::wstring name = TakeText(L"a name is expected");
        if (name.empty() || name.size() > kMaxKeyName || name.find_first_of(L"\\\0"sv) != std::wstring::npos) {
            Fail(word.offset, L"a key's name has 1 to 255 characters and no backslash");
        }
        return name;
    }

    ScriptValue TakeValue()
    {
        if (Skip(L"s")) {
            return TakeText(L"a text is expected");
        }
        Expect(L"d", L"a value is s, a text, or d, a number");
        const std::size_t offset = word_.offset;
        const std::wstring text = TakeText(L"a number is expected");
        const bool isHexadecimal = text.size() > 2 && text[0] == L'&' && Lower(text[1]) == L'h';
        const std::uint64_t base = isHexadecimal ? 16 : 10;
        std::uint64_t number = 0;
        for (const wchar_t c : std::wstring_view(text).substr(isHexadecimal ? 2 : 0)) {
            const std::size_t digit = L"0123456789abcdef"sv.find(Lower(c));
            number = digit < base ? number * base + digit : UINT64_MAX;
            if (number > UINT32_MAX) {
                Fail(offset, L"not a number of 32 bits");
            }
        }
        if (text.empty()) {
            Fail(offset, L"not a number of 32 bits");
        }
        return static_cast<std::uint32_t>(number);
    }

    void TakeEntries(ScriptKey& parent, std::size_t depth)
    {
        if (depth > kMaxDepth) {
            Fail(word_.offset, L"nested too deeply");
        }
        while (!Skip(L"}")) {
            if (IsEnd()) {
                Fail(word_.offset, L"a '}' is missing");
            }
            if (Skip(L"val")) {
                std::wstring name = TakeText(L"a name is expected");
                Expect(L"=", L"a value's name is followed by '='");
                parent.values.emplace_back(std::move(name), TakeValue());
            } else {
                TakeKey(parent.keys.emplace_back(), depth);
            }
        }
    }

    void TakeKey(ScriptKey& key, std::size_t depth)
    {
        key.mode = Skip(L"NoRemove")      ? ScriptMode::NoRemove
                   : Skip(L"ForceRemove") ? ScriptMode::ForceRemove
                   : Skip(L"Delete")      ? ScriptMode::Delete
                                          : ScriptMode::Plain;
        key.name = TakeKeyName();
        if (key.mode != ScriptMode::Delete) {
            if (Skip(L"=")) {
                key.value = TakeValue();
            }
            if (Skip(L"{")) {
                TakeEntries(key, depth + 1);
            }
        }
    }

    std::wstring_view text_;
    const ScriptReplacements& replacements_;
    std::size_t position_ = 0;
    Word word_;
};

} // namespace

Script ParseScript(std::wstring_view text, const ScriptReplacements& replacements)
{
    return Parser(text, replacements).Parse();
}

} // namespace orvel
