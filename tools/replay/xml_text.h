#pragma once

#include <cstddef>
#include <memory_resource>
#include <string>
#include <string_view>

namespace orvel::replay {

/// A place in a text: an offset in bytes, and line and column, which count from 1; columns are UTF-16 units.
struct TextPlace {
    size_t offset = 0;
    size_t line = 1;
    size_t column = 1;
};

/// Returns the place of an offset. Counts from the place `from` if that comes earlier, else from the start.
TextPlace PlaceOf(std::string_view text, size_t offset, const TextPlace& from = {});

/// What is wrong with an export, a structured query or a configuration.
struct TextError {
    TextPlace place;
    std::wstring reason;

    /// Returns the reason with the line and the column.
    std::wstring Text() const;
};

/// Throws TextError with the place of an offset.
[[noreturn]] void FailAt(std::string_view text, size_t offset, std::wstring reason);

/// How a text of an XML document is written: between tags, as an attribute's value, or without references (CDATA).
enum class XmlTextKind { Characters, AttributeValue, Literal };

/// Decodes the UTF-8 and the references in `part`, a part of `xml`, and appends the characters to `text`. Line breaks
/// become single LFs, in an attribute's value blanks. Throws TextError.
void AppendXmlText(std::pmr::wstring& text, std::string_view xml, std::string_view part, XmlTextKind kind);

} // namespace orvel::replay
