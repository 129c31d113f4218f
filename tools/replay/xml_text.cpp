#include "tools/replay/xml_text.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdint>
#include <utility>

namespace orvel::replay {

namespace {

constexpr wchar_t kNoReference[] = L"this is not a character reference; write & as &amp;";
constexpr wchar_t kWrongEncoding[] =
    L"this is neither UTF-8 nor UTF-16LE; save it as UTF-8, or keep the tool's output unchanged";

/// Returns whether a byte of UTF-8 is a character by itself in every kind of text.
bool IsPlain(char c)
{
    return static_cast<signed char>(c) >= 0x20 && c != '&';
}

bool IsXmlCharacter(char32_t c)
{
    return c >= 0x20 ? (c < 0xD800 || c > 0xDFFF) && c != 0xFFFE && c != 0xFFFF && c <= 0x10FFFF
                     : c == '\t' || c == '\n' || c == '\r';
}

/// Takes the reference that `rest` begins with. Returns 0 if it is none.
char32_t TakeReference(std::string_view& rest)
{
    constexpr std::pair<std::string_view, char32_t> kReferences[] = {
        {"&lt;", U'<'}, {"&gt;", U'>'}, {"&amp;", U'&'}, {"&quot;", U'"'}, {"&apos;", U'\''}};
    for (const auto& [reference, meaning] : kReferences) {
        if (rest.starts_with(reference)) {
            rest.remove_prefix(reference.size());
            return meaning;
        }
    }
    const bool isHex = rest.starts_with("&#x");
    const char* const last = rest.data() + rest.size();
    uint32_t number = 0;
    if (rest.starts_with("&#")) {
        const auto [end, error] = std::from_chars(rest.data() + (isHex ? 3 : 2), last, number, isHex ? 16 : 10);
        number = error == std::errc() && end != last && *end == ';' ? number : 0;
        rest = {std::min(end + 1, last), last};
    }
    return number;
}

/// Takes the character that `rest` begins with in UTF-8; a line break is one LF. Returns 0 if the encoding is wrong.
char32_t TakeCharacter(std::string_view& rest)
{
    if (rest.front() == '\r') {
        rest.remove_prefix(rest.starts_with("\r\n") ? 2 : 1);
        return '\n';
    }
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto lead = static_cast<unsigned char>(rest.front());
    const auto ones = static_cast<size_t>(std::countl_one(lead)); // the number of bytes, or 0 for ASCII
    char32_t character = lead & (0x7FU >> ones);
    rest.remove_prefix(1);
    if (ones == 1 || ones > 4 || rest.size() + 1 < ones) {
        return 0;
    }
    for (size_t i = 1; i < ones; ++i, rest.remove_prefix(1)) {
        const auto byte = static_cast<unsigned char>(rest.front());
        if ((byte & 0xC0) != 0x80) {
            return 0;
        }
        character = character << 6 | (byte & 0x3FU);
    }
    return character >= kSmallest[ones] ? character : 0;
}

} // namespace

TextPlace PlaceOf(std::string_view text, size_t offset, const TextPlace& from)
{
    TextPlace place = from.offset <= offset ? from : TextPlace{};
    std::string_view passed = text.substr(place.offset, offset - place.offset);
    place.offset = offset;
    if (const size_t last = passed.rfind('\n'); last != passed.npos) {
        place.line += static_cast<size_t>(std::count(passed.begin(), passed.end(), '\n'));
        place.column = 1;
        passed.remove_prefix(last + 1);
    }
    for (const char c : passed) {
        const auto byte = static_cast<unsigned char>(c);
        place.column += ((byte & 0xC0) != 0x80 ? 1U : 0U) + (byte >= 0xF0 ? 1U : 0U);
    }
    return place;
}

std::wstring TextError::Text() const
{
    return L"line " + std::to_wstring(place.line) + L", column " + std::to_wstring(place.column) + L": " + reason;
}

void FailAt(std::string_view text, size_t offset, std::wstring reason)
{
    throw TextError{PlaceOf(text, offset), std::move(reason)};
}

void AppendXmlText(std::pmr::wstring& text, std::string_view xml, std::string_view rest, XmlTextKind kind)
{
    // UTF-16 never has more units than UTF-8 has bytes, and no reference means more units than it has bytes.
    const size_t size = text.size();
    text.resize(size + rest.size());
    wchar_t* end = text.data() + size;
    while (!rest.empty()) {
        if (IsPlain(rest.front())) {
            *end++ = static_cast<wchar_t>(rest.front());
            rest.remove_prefix(1);
            continue;
        }
        const auto offset = static_cast<size_t>(rest.data() - xml.data());
        const bool isReference = kind != XmlTextKind::Literal && rest.front() == '&';
        char32_t c = isReference ? TakeReference(rest) : TakeCharacter(rest);
        if (c == 0) {
            FailAt(xml, offset, isReference ? kNoReference : kWrongEncoding);
        }
        if (!IsXmlCharacter(c)) {
            FailAt(xml, offset, L"this character is not allowed in XML");
        }
        if (kind == XmlTextKind::AttributeValue) {
            c = isReference || c >= 0x20 ? c : ' ';
        } else if (c == '\n' && end != text.data() && end[-1] == '\r') {
            --end; // a CR written as a reference before a line break belongs to it
        }
        if (c >= 0x10000) {
            *end++ = static_cast<wchar_t>(0xD7C0 + (c >> 10));
            c = 0xDC00 + (c & 0x3FF);
        }
        *end++ = static_cast<wchar_t>(c);
    }
    text.resize(static_cast<size_t>(end - text.data()));
}

} // namespace orvel::replay
