#pragma once

#include "tools/replay/event_record.h"
#include "tools/replay/xml_text.h"

namespace orvel::replay {

/// Where nodes are stored.
using Arena = std::pmr::monotonic_buffer_resource;

/// Reads XML elements from UTF-8, one after another, in one pass and in memory that does not grow with the text. Checks
/// that the document is well-formed; there are no document types. An element that is read as a whole may nest 64 levels
/// deep, have 100 attributes per element and be 16 MiB long. All functions throw TextError. One thread at a time.
class XmlReader {
public:
    /// `text` must outlive the reader.
    explicit XmlReader(std::string_view text) : text_(text) {}

    std::string_view Text() const { return text_; }

    /// Moves to the next element inside the one that was entered, or to the next at the top level. Returns false,
    /// behind the end tag or at the end of the text, if there is none.
    bool NextElement();

    /// Reads the start tag of the element that NextElement found, so that its children can be read one by one with the
    /// namespaces it declares. Returns false for an empty element.
    bool Enter();

    /// Reads the element that NextElement found, with all that is in it, into an arena.
    Node Read(Arena& arena);

    /// Throws TextError if another element follows.
    void ExpectEnd();

    /// Returns the name, as written, of the element that NextElement found.
    std::string_view Name() const { return NameAt(next_ + 1); }

    /// Returns the offset of the element that NextElement found, or the one behind the element that Read has read.
    size_t Offset() const { return next_; }

    /// Moves to an element, by the offset that Offset returned for it.
    void Return(size_t offset) { next_ = offset; }

private:
    struct Prefix {
        std::string_view name;
        bool isReplay; // stands for kReplayNamespace
    };

    /// At the end of the text, says so instead of `reason`.
    [[noreturn]] void Fail(size_t offset, std::wstring reason) const;
    size_t OffsetOf(std::string_view part) const { return static_cast<size_t>(part.data() - text_.data()); }
    std::string_view NameAt(size_t begin) const;
    bool StartsWith(std::string_view markup) const { return text_.substr(next_).starts_with(markup); }
    void SkipSpaces();
    bool Take(std::string_view markup);
    std::optional<std::string_view> TakeEnclosed(std::string_view first, std::string_view last);
    std::string_view TakeName();
    void TakeAttributes(Node& node);
    bool TakeStartTag(Node& node);
    void TakeEndTag();
    bool NextChild(std::pmr::wstring& text);
    void ReadElement(Node& node, size_t depth);
    void AppendName(std::pmr::wstring& text, std::string_view name, bool isElement) const;
    void Append(std::pmr::wstring& text, std::string_view part, XmlTextKind kind) const;

    std::string_view text_;
    size_t next_ = 0;
    size_t begin_ = 0; // of the element that is being read
    size_t open_ = 0;  // offset of the name of the innermost element that is open; 0 at the top level
    std::vector<Prefix> prefixes_;
    std::vector<std::string_view> names_; // of one start tag's attributes, kept for its memory
};

/// Reads a document with one root element into an arena. Throws TextError.
Node ReadDocument(std::string_view text, Arena& arena);

} // namespace orvel::replay
