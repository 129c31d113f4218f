#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace orvel::replay {

/// An XML element. Names carry no prefix, but those of the replay's own namespace begin with kReplayPrefix. `text` is
/// what stands directly in the element; line ends are single LFs. Line and column count from 1 and are the place where
/// the start tag ends.
struct Node {
    std::wstring name;
    std::vector<std::pair<std::wstring, std::wstring>> attributes;
    std::wstring text;
    std::vector<Node> children;
    size_t line = 0;
    size_t column = 0;

    /// The first child element of that name; null when there is none.
    const Node* Child(std::wstring_view childName) const;
    /// An attribute's value; null when there is none.
    const std::wstring* Attribute(std::wstring_view attributeName) const;
};

constexpr std::wstring_view kReplayNamespace = L"urn:orvel:replay";
constexpr std::wstring_view kReplayPrefix = L"replay:";

/// An event as it stands in the log, without its rendering, and what the tool rendered for it.
struct Event {
    Node xml;
    std::wstring publisher;
    std::wstring channel;
    std::optional<std::wstring> message; // line ends are CR LF, as a formatted message has them
    unsigned messageError = 0;           // what formatting gives instead of success
    std::vector<Node> rendering;         // the tool's RenderingInfo
};

/// Something that happens between events; the node is known to have what its kind needs.
struct Action {
    enum Kind { Append, Write, Rename, Delete, Registry, Wait };
    Kind kind;
    Node node;
};

using Entry = std::variant<Event, Action>;

/// What is wrong with an export or a structured query, with the place: line and column from 1.
struct TextError {
    size_t line;
    size_t column;
    std::wstring reason;
};

/// Equality as the Event Log compares channel and publisher names: without regard to case, here of ASCII letters.
bool EqualNames(std::wstring_view a, std::wstring_view b);

} // namespace orvel::replay
