#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace orvel::replay {

/// How a text of an XML document is written: between tags, as an attribute's value, or without references (CDATA).
enum class XmlTextKind { Characters, AttributeValue, Literal };

/// What is wrong with a text, and where: a byte offset from its start.
struct XmlTextError {
    size_t offset;
    const wchar_t* reason;
};

/// Decodes UTF-8 and references, and appends the characters to `text`. Line breaks become single LFs, in an attribute's
/// value blanks. Throws XmlTextError.
void AppendXmlText(std::wstring& text, std::string_view raw, XmlTextKind kind);

} // namespace orvel::replay
