#include "tools/replay/query_text.h"

#include "tools/replay/query.h"

#include <algorithm>

namespace orvel::replay {

namespace {

bool IsNameStart(wchar_t c)
{
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || c == L'_' || static_cast<uint32_t>(c) >= 0x80;
}

bool IsNameCharacter(wchar_t c)
{
    return IsNameStart(c) || IsDigit(c) || c == L'-' || c == L'.';
}

} // namespace

void QueryText::Fail(unsigned code, size_t position, std::wstring reason) const
{
    throw Refusal{code, std::move(reason), position, std::wstring(text_)};
}

void QueryText::FailUnexpected(const wchar_t* reason)
{
    const std::wstring_view rest = text_.substr(position_);
    if (rest.starts_with(L"&lt;") || rest.starts_with(L"&gt;")) {
        Fail(kInvalidQuery, position_, L"&lt; and &gt; are for queries inside XML; use < and > here");
    }
    if (rest.starts_with(L'|')) {
        Fail(kInvalidQuery, position_, L"node sets, and so |, are not supported; use 'or'");
    }
    const size_t start = position_;
    const std::wstring word = TakeName();
    if (EqualNames(word, L"and") || EqualNames(word, L"or")) {
        Fail(kNotSupported, start, L"the documentation writes AND and OR, but XPath 1.0 has them in lower case only");
    }
    if (word == L"div" || word == L"mod" || rest.starts_with(L'+') || rest.starts_with(L'-') ||
        rest.starts_with(L'*')) {
        Fail(kNotSupported, start, L"arithmetic is part of XPath 1.0, but is not among the documented operators");
    }
    Fail(kInvalidQuery, start, reason);
}

wchar_t QueryText::Peek(size_t ahead) const
{
    return position_ + ahead < text_.size() ? text_[position_ + ahead] : L'\0';
}

void QueryText::SkipSpace()
{
    position_ = std::min(text_.find_first_not_of(L" \t\r\n", position_), text_.size());
}

bool QueryText::Take(std::wstring_view token)
{
    const bool found = text_.substr(position_).starts_with(token);
    if (found) {
        position_ += token.size();
        SkipSpace();
    }
    return found;
}

bool QueryText::TakeWord(std::wstring_view word)
{
    return !IsNameCharacter(Peek(word.size())) && Take(word);
}

void QueryText::Expect(std::wstring_view token, const wchar_t* reason)
{
    if (!Take(token)) {
        FailUnexpected(reason);
    }
}

std::wstring QueryText::TakeName()
{
    const size_t start = position_;
    while (position_ == start ? IsNameStart(Peek()) : IsNameCharacter(Peek())) {
        ++position_;
    }
    std::wstring name(text_.substr(start, position_ - start));
    SkipSpace();
    return name;
}

std::wstring QueryText::TakeFunction()
{
    const size_t start = position_;
    std::wstring name = TakeName();
    if (name.empty() || name == L"text" || !Take(L"(")) {
        position_ = start;
        name.clear();
    }
    return name;
}

std::wstring_view QueryText::TakeQuoted()
{
    const size_t start = position_;
    const size_t end = text_.find(Peek(), start + 1);
    if (end == text_.npos) {
        Fail(kInvalidQuery, start, L"the closing quotation mark is missing");
    }
    position_ = end + 1;
    SkipSpace();
    return text_.substr(start + 1, end - start - 1);
}

std::wstring_view QueryText::TakeNumber()
{
    const size_t start = position_;
    while (IsDigit(Peek()) || Peek() == L'.') {
        ++position_;
    }
    const std::wstring_view digits = text_.substr(start, position_ - start);
    if (text_.substr(start).starts_with(L"0x")) {
        Fail(kNotSupported, start, L"hexadecimal numbers are not among the documented literals; quote it: '0x...'");
    }
    if (IsNameStart(Peek()) || std::count(digits.begin(), digits.end(), L'.') > 1) {
        Fail(kInvalidQuery, start, L"this is not a number; quote a text");
    }
    SkipSpace();
    return digits;
}

} // namespace orvel::replay
