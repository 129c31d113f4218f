#include "module/registrar_script.h"

#include <algorithm>

namespace orvel {

namespace {

constexpr std::wstring_view kBlanks = L" \t\r\n";
constexpr std::wstring_view kWordEnds = L" \t\r\n'";
constexpr wchar_t kQuote = L'\'';

class Parser {
public:
    Parser(std::wstring_view text, const ScriptReplacements& replacements) : text_(text), replacements_(replacements)
    {
        Advance();
    }

    ScriptKey Parse()
    {
        Expect(L"HKCR", L"a script begins with HKCR");
        Expect(L"{", L"a '{' is missing");
        ScriptKey classes;
        TakeEntries(classes);
        if (!word_.empty()) {
            Fail(L"nothing may follow the last '}'");
        }
        return classes;
    }

private:
    /// Reports the current word.
    [[noreturn]] void Fail(const wchar_t* reason) const
    {
        const std::wstring_view before = text_.substr(0, wordStart_);
        const auto line = static_cast<std::size_t>(std::ranges::count(before, L'\n')) + 1;
        const std::size_t lineStart = before.rfind(L'\n') + 1; // 0 in the first line
        throw ScriptError{line, wordStart_ - lineStart + 1, reason};
    }

    void Advance()
    {
        wordStart_ = std::min(text_.find_first_not_of(kBlanks, next_), text_.size());
        if (!text_.substr(wordStart_).starts_with(kQuote)) {
            next_ = std::min(text_.find_first_of(kWordEnds, wordStart_), text_.size());
        } else if (const std::size_t end = text_.find(kQuote, wordStart_ + 1); end != std::wstring_view::npos) {
            next_ = end + 1;
        } else {
            Fail(L"the closing quote is missing");
        }
        word_ = text_.substr(wordStart_, next_ - wordStart_);
    }

    bool Skip(std::wstring_view keyword)
    {
        const bool isKeyword = word_ == keyword;
        if (isKeyword) {
            Advance();
        }
        return isKeyword;
    }

    void Expect(std::wstring_view keyword, const wchar_t* reason)
    {
        if (!Skip(keyword)) {
            Fail(reason);
        }
    }

    std::wstring TakeText(const wchar_t* reason)
    {
        if (word_.empty() || word_ == L"{" || word_ == L"}" || word_ == L"=") {
            Fail(reason);
        }
        std::wstring text(word_);
        std::erase(text, kQuote);
        if (text.find(L'%') != std::wstring::npos) {
            const auto found = replacements_.find(text);
            if (found == replacements_.end()) {
                Fail(L"unknown replacement");
            }
            text = found->second;
        }
        Advance();
        return text;
    }

    std::wstring TakeValue()
    {
        Expect(L"s", L"a value begins with 's'");
        return TakeText(L"a value's text is missing");
    }

    void TakeEntries(ScriptKey& parent)
    {
        while (!Skip(L"}")) {
            if (Skip(L"val")) {
                std::wstring name = TakeText(L"a value's name is missing");
                Expect(L"=", L"a '=' is missing");
                parent.values.emplace_back(std::move(name), TakeValue());
            } else {
                parent.keys.push_back(TakeKey());
            }
        }
    }

    ScriptKey TakeKey()
    {
        ScriptKey key;
        if (Skip(L"NoRemove")) {
            key.mode = ScriptMode::NoRemove;
        } else if (Skip(L"ForceRemove")) {
            key.mode = ScriptMode::ForceRemove;
        }
        key.name = TakeText(L"a key's name or a '}' is missing");
        if (Skip(L"=")) {
            key.values.emplace_back(L"", TakeValue());
        }
        if (Skip(L"{")) {
            TakeEntries(key);
        }
        return key;
    }

    std::wstring_view text_;
    const ScriptReplacements& replacements_;
    std::wstring_view word_; // the current word, with its quotes; empty at the end
    std::size_t wordStart_ = 0;
    std::size_t next_ = 0; // where the search for the next word starts
};

} // namespace

ScriptKey ParseScript(std::wstring_view text, const ScriptReplacements& replacements)
{
    return Parser(text, replacements).Parse();
}

} // namespace orvel
