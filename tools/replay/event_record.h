#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace orvel::replay {

struct NodeAttribute {
    std::wstring_view name;
    std::wstring_view value;
};

/// A place in a text: an offset in bytes, and line and column, which count from 1; columns are UTF-16 units.
struct TextPlace {
    size_t offset = 0;
    uint32_t line = 1;
    uint32_t column = 1;
};

/// An XML element, a view of memory that its reader names. Names carry no prefix, except that those of the replay's
/// namespace begin with kReplayPrefix. `text` is the text directly inside the element; its line ends are single LFs.
struct Node {
    std::wstring_view name;
    std::span<const NodeAttribute> attributes;
    std::wstring_view text;
    const Node* firstChild = nullptr;
    size_t childCount = 0;
    uint32_t line = 0; ///< where the start tag ends
    uint32_t column = 0;
    uint32_t nameLine = 0; ///< where the start tag's name begins
    uint32_t nameColumn = 0;

    /// The child elements, in order.
    std::span<const Node> Children() const { return {firstChild, childCount}; }
    /// The first child element of that name; null when there is none.
    const Node* Child(std::wstring_view childName) const;
    /// An attribute's value; null when there is none.
    const std::wstring_view* Attribute(std::wstring_view attributeName) const;
};

constexpr std::wstring_view kReplayNamespace = L"urn:orvel:replay";
constexpr std::wstring_view kReplayPrefix = L"replay:";

/// An event as the log stores it, without RenderingInfo, and the rendered message. A view, like its node.
struct Event {
    Node xml;
    std::wstring_view publisher;
    std::wstring_view channel;
    std::optional<std::wstring_view> message; ///< line ends are CR LF, as a formatted message has them
    bool isForwarded = false;                 ///< marked as an event that another computer forwarded
    unsigned messageError = 0;                ///< the code that formatting returns instead of success
};

/// Something that happens between events; the node is known to have what its kind needs.
struct Action {
    enum Kind { Append, Write, Rename, Delete, Registry, Wait };
    Kind kind;
    Node node;
};

/// What the export says of the desktop beside its events. The kinds have the values of ReplayDeclaration.
struct Declaration {
    enum Kind { Channel, Publisher, MissingPublisher };
    Kind kind;
    std::wstring_view name;
};

using Entry = std::variant<Event, Action, Declaration>;

/// What is wrong with an export or a structured query, with the place: line and column from 1.
struct TextError {
    size_t line;
    size_t column;
    std::wstring reason;
};

/// Equality as the Event Log compares channel and publisher names: without regard to case, here of ASCII letters.
bool EqualNames(std::wstring_view a, std::wstring_view b);

/// Orders such names for a container.
struct NameOrder {
    using is_transparent = void;
    bool operator()(std::wstring_view a, std::wstring_view b) const;
};

} // namespace orvel::replay
