#pragma once

#include <cstddef>
#include <initializer_list>
#include <list>
#include <memory_resource>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace orvel::replay {

using NodeAttribute = std::pair<std::pmr::wstring, std::pmr::wstring>; ///< name and value

/// An XML element in a memory resource, which must outlive it. It can be moved, which leaves its children in place.
/// Names carry no prefix, except that those of the replay's namespace begin with kReplayPrefix. `text` is the text
/// directly inside the element; its line ends are single LFs.
struct Node {
    using allocator_type = std::pmr::polymorphic_allocator<>;

    explicit Node(allocator_type memory) : name(memory), attributes(memory), text(memory), children(memory) {}
    Node(Node&&) = default;
    ~Node() = default;

    /// Returns the element at the end of a path of first children with these names, or null.
    const Node* Child(std::initializer_list<std::wstring_view> path) const;
    /// Returns an attribute's value, if it is present.
    std::optional<std::wstring_view> Attribute(std::wstring_view attributeName) const;

    std::pmr::wstring name;
    std::pmr::vector<NodeAttribute> attributes;
    std::pmr::wstring text;
    std::pmr::list<Node> children;
    size_t begin = 0; ///< offset of the start tag's name in the text
    size_t end = 0;   ///< offset behind the start tag
};

constexpr std::wstring_view kReplayNamespace = L"urn:orvel:replay";
constexpr std::wstring_view kReplayPrefix = L"replay:";

/// An event as the log stores it, without RenderingInfo and replay attributes, and the rendered message.
struct Event {
    Node xml;
    std::wstring_view publisher; ///< a view of `xml`, like the channel
    std::wstring_view channel;
    std::optional<std::pmr::wstring> message = {}; ///< line ends are CR LF, as a formatted message has them
    bool isForwarded = false;                      ///< marked as an event that another computer forwarded
    unsigned messageError = 0;                     ///< the code that formatting returns instead of success
};

/// A declaration about the desktop, or something that happens between events; the node is known to have what its kind
/// needs. The first kinds are declarations and have the values of ReplayDeclaration.
struct Action {
    enum Kind { Channel, Publisher, MissingPublisher, Append, Write, Rename, Delete, Registry, Wait };
    Kind kind;
    Node node;
};
constexpr size_t kDeclarationKinds = Action::MissingPublisher + 1;

using Entry = std::variant<Event, Action>;

/// Compares channel or publisher names as the Event Log does: without regard to case, here of ASCII letters.
bool EqualNames(std::wstring_view a, std::wstring_view b);

/// Orders such names for a container.
struct NameOrder {
    using is_transparent = void;
    bool operator()(std::wstring_view a, std::wstring_view b) const;
};

} // namespace orvel::replay
