#pragma once

#include <string>
#include <string_view>

namespace orvel::replay {

/// The text of a query and how far it has been parsed. The functions that take something skip the blanks after it; they
/// and the refusals throw QueryError.
class QueryText {
public:
    explicit QueryText(std::wstring_view text) : text_(text) {}

    /// Refuses what the documentation excludes.
    [[noreturn]] static void Forbid(size_t position, std::wstring reason);

    /// Refuses what the documentation does not settle and the replay log does not evaluate.
    [[noreturn]] static void GiveUp(size_t position, std::wstring reason);

    /// Refuses the text at the current position, where `expected` should be.
    [[noreturn]] void Unexpected(const wchar_t* expected);

    bool IsAtEnd() const { return position_ == text_.size(); }
    wchar_t Peek(size_t ahead = 0) const;
    bool IsNumberNext() const;
    void SkipSpace();

    bool Take(std::wstring_view token);
    bool TakeWord(std::wstring_view word);
    void Expect(std::wstring_view token, const wchar_t* reason);

    /// Takes a name if one stands here, otherwise returns an empty text.
    std::wstring TakeName();

    /// Takes the name of a function together with its opening parenthesis. Returns an empty text for other names and
    /// for text(), which is a node test.
    std::wstring TakeFunction();

    /// The text between the quotation marks at the current position.
    std::wstring_view TakeQuoted();

    /// The digits and the point at the current position.
    std::wstring_view TakeNumber();

protected:
    size_t position_ = 0;

private:
    std::wstring_view text_;
};

} // namespace orvel::replay
