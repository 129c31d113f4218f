#pragma once

#include "tools/replay/event_record.h"
#include "tools/replay/xml_text.h"

#include <memory_resource>

namespace orvel::replay {

/// Where the names, texts and children of nodes are stored.
using Arena = std::pmr::monotonic_buffer_resource;

/// Returns memory for a number of trivially copyable values.
template <typename Value>
Value* Allocate(Arena& arena, size_t count)
{
    return static_cast<Value*>(arena.allocate(count * sizeof(Value), alignof(Value)));
}

/// Copies a text to an arena.
std::wstring_view CopyTo(Arena& arena, std::wstring_view text);

/// Reads XML elements from UTF-8, one after another, in one pass and in memory that does not grow with the text. Checks
/// that the document is well-formed; there are no document types. An element that is read as a whole may nest 64 levels
/// deep, have 100 attributes per element and be 16 MiB long. All functions throw TextError. One thread at a time.
class XmlReader {
public:
    /// `text` must outlive the reader.
    explicit XmlReader(std::string_view text) : text_(text) {}

    /// Moves to the next element inside the one that was entered, or to the next at the top level. Returns false,
    /// behind the end tag or at the end of the text, if there is none.
    bool NextElement();

    /// Reads the start tag of the element that NextElement found, so that its children can be read one by one with the
    /// namespaces it declares. Returns false for an empty element.
    bool Enter();

    /// Reads the element that NextElement found, with all that is in it, into an arena.
    Node Read(Arena& arena);

    /// Returns the markup of the element that Read has read last.
    std::string_view Source() const { return text_.substr(begin_, next_ - begin_); }

    /// Throws TextError if another element follows.
    void ExpectEnd();

    /// The place of the element that NextElement found, its name as written, and the way back to it later.
    const TextPlace& Place() const { return place_; }
    std::string_view Name() const { return NameAt(next_ + 1); }
    void Return(const TextPlace& place);

private:
    struct Prefix {
        std::string_view name;
        bool isReplay; // stands for kReplayNamespace
    };
    struct RawAttribute {
        std::string_view name;
        std::wstring_view value;
    };
    struct OpenElement {
        std::string_view name;
        Node node;
        std::wstring text;
        size_t firstChild; // in finished_
        size_t firstPrefix;
    };
    /// At the end of the text, says so instead of `reason`.
    [[noreturn]] void Fail(size_t offset, std::wstring reason) const;
    void CheckSize(size_t end) const;
    bool StartsWith(std::string_view markup) const { return text_.substr(next_).starts_with(markup); }
    bool SkipComment(); ///< or a processing instruction
    size_t FindEnd(std::string_view last, size_t from) const;
    void SkipSpaces();
    std::string_view NameAt(size_t begin) const;
    std::string_view TakeName();
    bool Open(Arena& arena);
    void TakeAttributes(Arena& arena);
    std::span<const NodeAttribute> ResolvedAttributes(Arena& arena);
    std::wstring_view LocalName(Arena& arena, std::string_view name, bool hasDefault);
    void TakeEndTag(std::string_view name, size_t line);
    void Close(Arena& arena);
    void Append(std::wstring& text, size_t from, size_t to, XmlTextKind kind) const;

    std::string_view text_;
    size_t next_ = 0;
    size_t begin_ = 0; // of the element that is being read
    TextPlace place_;
    std::string_view container_; // name of the element that was entered
    size_t containerLine_ = 0;
    size_t depth_ = 0;
    // Kept from element to element for their memory.
    std::vector<OpenElement> open_;
    std::vector<Node> finished_; // children of the open elements
    std::vector<Prefix> prefixes_;
    std::vector<RawAttribute> attributes_;
    std::wstring decoded_;
};

/// A small document in memory.
class XmlDocument {
public:
    /// Parses UTF-8. Throws TextError.
    explicit XmlDocument(std::string_view text);
    const Node& Root() const { return root_; }

private:
    Arena arena_;
    Node root_;
};

} // namespace orvel::replay
