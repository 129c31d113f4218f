#include "tools/replay/xml_reader.h"

#include <algorithm>

namespace orvel::replay {

namespace {

constexpr size_t kMaxDepth = 64;
constexpr size_t kMaxAttributes = 100;
constexpr size_t kMaxElementSize = size_t{16} << 20;
constexpr std::string_view kSpaces = " \t\n\r";

bool IsNameStart(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':' || static_cast<signed char>(c) < 0;
}

bool IsNameCharacter(char c)
{
    return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

/// Formats a name for an error message, which needs no more than its beginning.
std::wstring Shown(std::string_view name)
{
    const std::string_view front = name.substr(0, 60);
    return {front.begin(), front.end()};
}

} // namespace

bool XmlReader::NextElement()
{
    std::pmr::wstring ignored;
    begin_ = next_;
    return NextChild(ignored);
}

bool XmlReader::Enter()
{
    Arena arena;
    Node node(&arena);
    begin_ = next_;
    return TakeStartTag(node);
}

Node XmlReader::Read(Arena& arena)
{
    Node node(&arena);
    begin_ = next_;
    ReadElement(node, 1);
    return node;
}

void XmlReader::ExpectEnd()
{
    if (NextElement()) {
        Fail(next_, L"there is more than one root element");
    }
}

void XmlReader::Fail(size_t offset, std::wstring reason) const
{
    if (offset == text_.size()) {
        reason = L"the text ends inside the element that begins in line " +
                 std::to_wstring(PlaceOf(text_, open_).line) + L"; was it cut off?";
    }
    FailAt(text_, offset, std::move(reason));
}

std::string_view XmlReader::NameAt(size_t begin) const
{
    const std::string_view rest = text_.substr(begin);
    return {rest.begin(), std::find_if_not(rest.begin(), rest.end(), IsNameCharacter)};
}

void XmlReader::SkipSpaces()
{
    next_ = std::min(text_.find_first_not_of(kSpaces, next_), text_.size());
}

bool XmlReader::Take(std::string_view markup)
{
    const bool isNext = StartsWith(markup);
    next_ += isNext ? markup.size() : 0;
    return isNext;
}

/// Takes markup that begins and ends with these texts, if it is next, and returns what is between them.
std::optional<std::string_view> XmlReader::TakeEnclosed(std::string_view first, std::string_view last)
{
    if (!StartsWith(first)) {
        return std::nullopt;
    }
    const size_t begin = next_ + first.size();
    const size_t end = text_.find(last, begin);
    if (end == text_.npos) {
        Fail(next_, L"the markup that begins here has no end");
    }
    next_ = end + last.size();
    return text_.substr(begin, end - begin);
}

std::string_view XmlReader::TakeName()
{
    const std::string_view name = NameAt(next_);
    if (name.empty() || !IsNameStart(name.front())) {
        Fail(next_, L"a name is missing here; write < in a text as &lt;");
    }
    next_ += name.size();
    return name;
}

void XmlReader::TakeAttributes(Node& node)
{
    const auto isDeclaration = [](std::string_view name) { return name == "xmlns" || name.starts_with("xmlns:"); };
    names_.clear();
    for (SkipSpaces(); next_ != text_.size() && IsNameStart(text_[next_]); SkipSpaces()) {
        const size_t begin = next_;
        const std::string_view name = TakeName();
        if (kSpaces.find(text_[begin - 1]) == kSpaces.npos || std::ranges::find(names_, name) != names_.end()) {
            Fail(begin, L"the attribute " + Shown(name) + L" appears twice or without a blank before it");
        }
        if (names_.size() == kMaxAttributes) {
            Fail(begin, L"the element has more than 100 attributes");
        }
        names_.push_back(name);
        SkipSpaces();
        const bool hasValue = Take("=");
        SkipSpaces();
        const std::string_view quote = text_.substr(next_, 1);
        if (!hasValue || (quote != "'" && quote != "\"")) {
            Fail(next_, L"the attribute " + Shown(name) + L" has no value in quotation marks");
        }
        const std::string_view raw = *TakeEnclosed(quote, quote);
        if (const size_t bracket = raw.find('<'); bracket != raw.npos) {
            Fail(OffsetOf(raw) + bracket, L"an attribute's value contains <; write it as &lt;");
        }
        std::pmr::wstring& value = node.attributes.emplace_back().second;
        Append(value, raw, XmlTextKind::AttributeValue);
        if (isDeclaration(name)) {
            prefixes_.push_back({name.substr(std::min<size_t>(name.size(), 6)), value == kReplayNamespace});
            node.attributes.pop_back();
        }
    }
    // A prefix may be used before its declaration.
    std::erase_if(names_, isDeclaration);
    for (size_t i = 0; i != names_.size(); ++i) {
        AppendName(node.attributes[i].first, names_[i], false);
    }
}

/// Takes a start tag and opens the element, unless it is empty; returns whether it is not.
bool XmlReader::TakeStartTag(Node& node)
{
    open_ = node.begin = ++next_;
    const std::string_view name = TakeName();
    TakeAttributes(node);
    const bool isEmpty = Take("/");
    if (!Take(">")) {
        Fail(next_, L"an attribute or the end of <" + Shown(name) + L"> is missing here");
    }
    node.end = next_;
    AppendName(node.name, name, true);
    open_ = isEmpty ? 0 : open_;
    return !isEmpty;
}

/// Moves to the next element inside the open one and appends the text before it. Returns false behind the end tag.
bool XmlReader::NextChild(std::pmr::wstring& text)
{
    const bool isTopLevel = open_ == 0;
    for (;;) {
        const std::string_view characters = text_.substr(next_, text_.find('<', next_) - next_);
        Append(text, characters, XmlTextKind::Characters);
        if (isTopLevel && characters.find_first_not_of(kSpaces) != characters.npos) {
            Fail(next_ + characters.find_first_not_of(kSpaces), L"there is text outside of the root element");
        }
        next_ += characters.size();
        if (next_ == text_.size()) {
            if (!isTopLevel) {
                Fail(next_, {});
            }
            return false;
        }
        if (StartsWith("<!DOCTYPE")) {
            Fail(next_, L"document types are not supported; remove the declaration");
        }
        if (!isTopLevel && StartsWith("</")) {
            TakeEndTag();
            return false;
        }
        if (const auto literal = isTopLevel ? std::nullopt : TakeEnclosed("<![CDATA[", "]]>")) {
            Append(text, *literal, XmlTextKind::Literal);
        } else if (!TakeEnclosed("<!--", "-->") && !TakeEnclosed("<?", "?>")) {
            return true;
        }
    }
}

/// Takes the end tag of the open element, after which no element is open; ReadElement opens its parent again.
void XmlReader::TakeEndTag()
{
    const size_t begin = next_;
    next_ += 2;
    const std::string_view found = TakeName();
    if (const std::string_view name = NameAt(open_); found != name) {
        Fail(begin, L"</" + Shown(found) + L"> does not close <" + Shown(name) + L"> of line " +
                        std::to_wstring(PlaceOf(text_, open_).line));
    }
    SkipSpaces();
    if (!Take(">")) {
        Fail(next_, L"> is missing here");
    }
    open_ = 0;
}

void XmlReader::ReadElement(Node& node, size_t depth)
{
    if (depth > kMaxDepth) {
        Fail(next_, L"elements nest more than 64 levels deep");
    }
    const size_t parent = open_;
    const size_t prefixes = prefixes_.size();
    if (TakeStartTag(node)) {
        while (NextChild(node.text)) {
            ReadElement(node.children.emplace_back(), depth + 1);
        }
    }
    prefixes_.resize(prefixes);
    open_ = parent;
}

void XmlReader::AppendName(std::pmr::wstring& text, std::string_view name, bool isElement) const
{
    const size_t colon = name.find(':');
    const std::string_view prefix = name.substr(0, colon != name.npos ? colon : 0);
    const auto found = std::find_if(prefixes_.rbegin(), prefixes_.rend(),
                                    [&](const Prefix& declared) { return declared.name == prefix; });
    if (found == prefixes_.rend() && !prefix.empty() && prefix != "xml") {
        Fail(OffsetOf(name), L"the namespace prefix " + Shown(prefix) + L" is not declared");
    }
    // The default namespace is one of elements.
    if (found != prefixes_.rend() && found->isReplay && (isElement || !prefix.empty())) {
        text = kReplayPrefix;
    }
    Append(text, name.substr(prefix.empty() ? 0 : colon + 1), XmlTextKind::Literal);
}

void XmlReader::Append(std::pmr::wstring& text, std::string_view part, XmlTextKind kind) const
{
    if (OffsetOf(part) + part.size() - begin_ > kMaxElementSize) {
        Fail(begin_, L"the element is larger than 16 MiB");
    }
    AppendXmlText(text, text_, part, kind);
}

Node ReadDocument(std::string_view text, Arena& arena)
{
    XmlReader reader(text);
    if (!reader.NextElement()) {
        FailAt(text, 0, L"there is no XML element");
    }
    Node root = reader.Read(arena);
    reader.ExpectEnd();
    return root;
}

} // namespace orvel::replay
