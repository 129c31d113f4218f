#include "tools/replay/xml_text.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <utility>

namespace orvel::replay {

namespace {

constexpr wchar_t kWrongEncoding[] =
    L"this is neither UTF-8 nor UTF-16LE; save it as UTF-8, or keep the tool's output unchanged";

/// Whether a byte of UTF-8 is a character by itself in every kind of text.
bool IsPlain(char c)
{
    return static_cast<signed char>(c) >= 0x20 && c != '&';
}

bool IsXmlCharacter(char32_t c)
{
    return c >= 0x20 ? (c < 0xD800 || c > 0xDFFF) && c != 0xFFFE && c != 0xFFFF && c <= 0x10FFFF
                     : c == '\t' || c == '\n' || c == '\r';
}

/// Reads the reference at `at` and returns the offset behind it.
size_t TakeReference(std::string_view raw, size_t at, char32_t& character)
{
    constexpr std::pair<std::string_view, char32_t> kReferences[] = {
        {"&lt;", U'<'}, {"&gt;", U'>'}, {"&amp;", U'&'}, {"&quot;", U'"'}, {"&apos;", U'\''}};
    constexpr size_t kLongest = 13;
    const std::string_view rest = raw.substr(at, kLongest);
    for (const auto& [reference, meaning] : kReferences) {
        if (rest.starts_with(reference)) {
            character = meaning;
            return at + reference.size();
        }
    }
    const bool isHex = rest.starts_with("&#x");
    const char* const last = rest.data() + rest.size();
    uint32_t number = 0;
    const auto [stop, error] =
        std::from_chars(rest.data() + std::min<size_t>(isHex ? 3 : 2, rest.size()), last, number, isHex ? 16 : 10);
    const bool isNumber = rest.starts_with("&#") && error == std::errc() && stop != last && *stop == ';';
    if (!isNumber || !IsXmlCharacter(number)) {
        throw XmlTextError{at, L"this is not a character reference; write & as &amp;"};
    }
    character = number;
    return at + static_cast<size_t>(stop - rest.data()) + 1;
}

/// Reads the character of several bytes at `at` and returns the offset behind it.
size_t TakeCharacter(std::string_view raw, size_t at, char32_t& character)
{
    const auto byte = [&](size_t index) { return static_cast<unsigned char>(raw[index]); };
    const unsigned lead = byte(at);
    const size_t count = 2 + (lead >= 0xE0 ? 1U : 0U) + (lead >= 0xF0 ? 1U : 0U);
    constexpr char32_t kSmallest[] = {0x80, 0x800, 0x10000};
    character = lead & (0x7F >> count);
    bool isValid = lead >= 0xC0 && lead < 0xF8 && raw.size() - at >= count;
    for (size_t i = 1; isValid && i != count; ++i) {
        isValid = (byte(at + i) & 0xC0) == 0x80;
        character = character << 6 | (byte(at + i) & 0x3F);
    }
    if (!isValid || character < kSmallest[count - 2] || character > 0x10FFFF || (character >> 11) == 0x1B) {
        throw XmlTextError{at, kWrongEncoding};
    }
    return at + count;
}

} // namespace

void AppendXmlText(std::wstring& text, std::string_view raw, XmlTextKind kind)
{
    // UTF-16 never has more units than UTF-8 has bytes, and no reference means more units than it has bytes.
    const size_t size = text.size();
    text.resize(size + raw.size());
    wchar_t* end = text.data() + size;
    for (size_t at = 0;;) {
        for (; at != raw.size() && IsPlain(raw[at]); ++at) {
            *end++ = static_cast<wchar_t>(raw[at]);
        }
        if (at == raw.size()) {
            break;
        }
        char32_t c = static_cast<unsigned char>(raw[at]);
        if (c == '&' && kind != XmlTextKind::Literal) {
            at = TakeReference(raw, at, c);
        } else if (c >= 0x80) {
            at = TakeCharacter(raw, at, c);
        } else {
            const bool isBreak = c == '\r' || c == '\n';
            at += raw.substr(at).starts_with("\r\n") ? 2 : 1;
            c = isBreak ? '\n' : c;
            c = kind == XmlTextKind::AttributeValue && (isBreak || c == '\t') ? ' ' : c;
        }
        if (!IsXmlCharacter(c)) {
            throw XmlTextError{at - 1, L"this character is not allowed in XML"};
        }
        if (c >= 0x10000) {
            *end++ = static_cast<wchar_t>(0xD7C0 + (c >> 10));
            c = 0xDC00 + (c & 0x3FF);
        }
        // A CR written as a reference before a line break belongs to it.
        end -= kind != XmlTextKind::AttributeValue && c == '\n' && end != text.data() && end[-1] == '\r' ? 1 : 0;
        *end++ = static_cast<wchar_t>(c);
    }
    text.resize(static_cast<size_t>(end - text.data()));
}

} // namespace orvel::replay
