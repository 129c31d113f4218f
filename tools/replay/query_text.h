#pragma once

#include <string>
#include <string_view>

namespace orvel::replay {

/// The text of a query and the current position. The Take functions consume a token and the blanks after it. Take
/// functions, Expect and Fail functions throw Refusal.
class QueryText {
public:
    explicit QueryText(std::wstring_view text) : text_(text) { SkipSpace(); }

    [[noreturn]] void Fail(unsigned code, size_t position, std::wstring reason) const;

    /// Fails at the current position. `reason` says what was expected there.
    [[noreturn]] void FailUnexpected(const wchar_t* reason);

    bool IsAtEnd() const { return position_ == text_.size(); }
    wchar_t Peek(size_t ahead = 0) const;

    bool Take(std::wstring_view token);
    bool TakeWord(std::wstring_view word);
    void Expect(std::wstring_view token, const wchar_t* reason);

    /// Takes a name. Returns an empty text if there is none.
    std::wstring TakeName();

    /// Takes a function's name and its opening parenthesis. Returns an empty text and takes nothing for other names and
    /// for the node test text().
    std::wstring TakeFunction();

    /// Takes a quoted text and returns it without its quotation marks.
    std::wstring_view TakeQuoted();

    /// Takes an unsigned number.
    std::wstring_view TakeNumber();

protected:
    size_t position_ = 0;

private:
    void SkipSpace();

    std::wstring_view text_;
};

} // namespace orvel::replay
