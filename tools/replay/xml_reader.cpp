#include "tools/replay/xml_reader.h"

#include <algorithm>
#include <memory>

namespace orvel::replay {

namespace {

constexpr size_t kMaxDepth = 64;
constexpr size_t kMaxAttributes = 100;
constexpr size_t kMaxElementSize = size_t{16} << 20;
constexpr std::string_view kLiteral = "<![CDATA[";
constexpr std::string_view kSpaces = " \t\n\r";

bool IsNameStart(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':' || static_cast<signed char>(c) < 0;
}

bool IsNameCharacter(char c)
{
    return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

/// Moves a place forward to an offset.
void Advance(TextPlace& place, std::string_view text, size_t offset)
{
    std::string_view passed = text.substr(place.offset, offset - place.offset);
    place.offset = offset;
    if (passed.find('\n') != passed.npos) {
        place.line += static_cast<uint32_t>(std::count(passed.begin(), passed.end(), '\n'));
        place.column = 1;
        passed.remove_prefix(passed.rfind('\n') + 1);
    }
    for (const char c : passed) {
        const auto byte = static_cast<unsigned char>(c);
        place.column += ((byte & 0xC0) != 0x80 ? 1U : 0U) + (byte >= 0xF0 ? 1U : 0U);
    }
}

/// A name for an error message, which needs no more than its beginning.
std::wstring Shown(std::string_view name)
{
    const std::string_view front = name.substr(0, 60);
    return {front.begin(), front.end()};
}

} // namespace

std::wstring_view CopyTo(Arena& arena, std::wstring_view text)
{
    wchar_t* const copy = Allocate<wchar_t>(arena, text.size());
    std::copy(text.begin(), text.end(), copy);
    return {copy, text.size()};
}

bool XmlReader::NextElement()
{
    const bool isTopLevel = container_.empty();
    for (;;) {
        const size_t markup = std::min(text_.find('<', next_), text_.size());
        if (isTopLevel) {
            SkipSpaces();
            if (next_ != markup) {
                Fail(next_, L"there is text outside of the root element");
            }
        }
        next_ = markup;
        if (next_ == text_.size()) {
            if (!isTopLevel) {
                Fail(next_, {});
            }
            return false;
        }
        if (StartsWith("</") && !isTopLevel) {
            TakeEndTag(container_, containerLine_);
            container_ = {};
            return false;
        }
        if (StartsWith("<!DOCTYPE")) {
            Fail(next_, L"document types are not supported; remove the declaration");
        }
        if (StartsWith(kLiteral) && !isTopLevel) {
            next_ = FindEnd("]]>", next_);
        } else if (!SkipComment()) {
            Advance(place_, text_, next_);
            return true;
        }
    }
}

std::string_view XmlReader::NameAt(size_t begin) const
{
    const auto end = std::find_if_not(text_.begin() + static_cast<ptrdiff_t>(begin), text_.end(), IsNameCharacter);
    return text_.substr(begin, static_cast<size_t>(end - text_.begin()) - begin);
}

bool XmlReader::Enter()
{
    Arena arena;
    begin_ = next_;
    const bool hasContent = Open(arena);
    container_ = hasContent ? open_.front().name : std::string_view();
    containerLine_ = place_.line;
    depth_ = 0;
    return hasContent;
}

void XmlReader::ExpectEnd()
{
    if (NextElement()) {
        Fail(next_, L"there is more than one root element");
    }
}

void XmlReader::Return(const TextPlace& place)
{
    place_ = place;
    next_ = place.offset;
}

Node XmlReader::Read(Arena& arena)
{
    begin_ = next_;
    finished_.clear();
    if (!Open(arena)) {
        Close(arena);
    }
    while (depth_ != 0) {
        const size_t text = next_;
        if (CheckSize(next_); next_ == text_.size()) {
            Fail(next_, {});
        } else if (text_[next_] != '<') {
            next_ = std::min(text_.find('<', next_), text_.size());
            Append(open_[depth_ - 1].text, text, next_, XmlTextKind::Characters);
        } else if (StartsWith("</")) {
            TakeEndTag(open_[depth_ - 1].name, open_[depth_ - 1].node.nameLine);
            Close(arena);
        } else if (StartsWith(kLiteral)) {
            next_ = FindEnd("]]>", next_);
            Append(open_[depth_ - 1].text, text + kLiteral.size(), next_ - 3, XmlTextKind::Literal);
        } else if (!SkipComment() && !Open(arena)) {
            Close(arena);
        }
    }
    return finished_.front();
}

void XmlReader::Fail(size_t offset, std::wstring reason) const
{
    const size_t line = depth_ != 0 ? open_[depth_ - 1].node.nameLine : containerLine_;
    if (offset == text_.size()) {
        reason =
            L"the text ends inside the element that begins in line " + std::to_wstring(line) + L"; was it cut off?";
    }
    TextPlace place;
    Advance(place, text_, offset);
    throw TextError{place.line, place.column, std::move(reason)};
}

void XmlReader::CheckSize(size_t end) const
{
    if (end - begin_ > kMaxElementSize) {
        Fail(begin_, L"the element is larger than 16 MiB");
    }
}

bool XmlReader::SkipComment()
{
    if (StartsWith("<!--")) {
        next_ = FindEnd("-->", next_ + 4);
        return true;
    }
    if (StartsWith("<?")) {
        next_ = FindEnd("?>", next_ + 2);
        return true;
    }
    return false;
}

size_t XmlReader::FindEnd(std::string_view last, size_t from) const
{
    const size_t end = text_.find(last, from);
    if (end == text_.npos) {
        Fail(next_, L"the markup that begins here has no end");
    }
    return end + last.size();
}

void XmlReader::SkipSpaces()
{
    next_ = std::min(text_.find_first_not_of(kSpaces, next_), text_.size());
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

bool XmlReader::Open(Arena& arena)
{
    if (depth_ == kMaxDepth) {
        Fail(next_, L"elements nest more than 64 levels deep");
    }
    open_.resize(std::max(open_.size(), depth_ + 1));
    OpenElement& element = open_[depth_++];
    element.node = {};
    element.text.clear();
    element.firstChild = finished_.size();
    element.firstPrefix = prefixes_.size();
    Advance(place_, text_, ++next_);
    element.node.nameLine = place_.line;
    element.node.nameColumn = place_.column;
    element.name = TakeName();
    TakeAttributes(arena);
    const bool isEmpty = StartsWith("/");
    next_ += isEmpty ? 1 : 0;
    if (!StartsWith(">")) {
        Fail(next_, L"an attribute or the end of <" + Shown(element.name) + L"> is missing here");
    }
    Advance(place_, text_, ++next_);
    element.node.line = place_.line;
    element.node.column = place_.column;
    element.node.name = LocalName(arena, element.name, true);
    element.node.attributes = ResolvedAttributes(arena);
    return !isEmpty;
}

void XmlReader::TakeAttributes(Arena& arena)
{
    attributes_.clear();
    for (SkipSpaces(); next_ != text_.size() && IsNameStart(text_[next_]); SkipSpaces()) {
        const size_t begin = next_;
        const std::string_view name = TakeName();
        const auto isSame = [&](const RawAttribute& other) { return other.name == name; };
        if (kSpaces.find(text_[begin - 1]) == kSpaces.npos ||
            std::any_of(attributes_.begin(), attributes_.end(), isSame)) {
            Fail(begin, L"the attribute " + Shown(name) + L" appears twice or without a blank before it");
        }
        if (attributes_.size() == kMaxAttributes) {
            Fail(begin, L"the element has more than 100 attributes");
        }
        SkipSpaces();
        const bool hasValue = StartsWith("=");
        next_ += hasValue ? 1 : 0;
        SkipSpaces();
        if (!hasValue || !(StartsWith("'") || StartsWith("\""))) {
            Fail(next_, L"the attribute " + Shown(name) + L" has no value in quotation marks");
        }
        const size_t value = next_ + 1;
        next_ = FindEnd(text_.substr(next_, 1), value);
        if (const size_t bracket = text_.substr(value, next_ - value).find('<'); bracket != text_.npos) {
            Fail(value + bracket, L"an attribute's value contains <; write it as &lt;");
        }
        decoded_.clear();
        Append(decoded_, value, next_ - 1, XmlTextKind::AttributeValue);
        if (name == "xmlns" || name.starts_with("xmlns:")) {
            prefixes_.push_back({name.substr(std::min<size_t>(name.size(), 6)), decoded_ == kReplayNamespace});
            attributes_.push_back({name, {}});
        } else {
            attributes_.push_back({name, CopyTo(arena, decoded_)});
        }
    }
}

std::span<const NodeAttribute> XmlReader::ResolvedAttributes(Arena& arena)
{
    NodeAttribute* const resolved = Allocate<NodeAttribute>(arena, attributes_.size());
    NodeAttribute* end = resolved;
    for (const auto& [name, value] : attributes_) {
        if (name != "xmlns" && !name.starts_with("xmlns:")) {
            *end++ = {LocalName(arena, name, false), value};
        }
    }
    return {resolved, end};
}

std::wstring_view XmlReader::LocalName(Arena& arena, std::string_view name, bool hasDefault)
{
    const size_t colon = std::min(name.find(':'), name.size());
    const std::string_view prefix = colon == name.size() ? std::string_view() : name.substr(0, colon);
    const auto found = std::find_if(prefixes_.rbegin(), prefixes_.rend(),
                                    [&](const Prefix& declared) { return declared.name == prefix; });
    const bool isDeclared = found != prefixes_.rend() && (hasDefault || !prefix.empty());
    const auto offset = static_cast<size_t>(name.data() - text_.data());
    if (!isDeclared && !prefix.empty() && prefix != "xml") {
        Fail(offset, L"the namespace prefix " + Shown(prefix) + L" is not declared");
    }
    decoded_ = isDeclared && found->isReplay ? kReplayPrefix : std::wstring_view();
    Append(decoded_, offset + (prefix.empty() ? 0 : colon + 1), offset + name.size(), XmlTextKind::Literal);
    return CopyTo(arena, decoded_);
}

void XmlReader::TakeEndTag(std::string_view name, size_t line)
{
    const size_t begin = next_;
    next_ += 2;
    const std::string_view found = TakeName();
    if (found != name) {
        Fail(begin, L"</" + Shown(found) + L"> does not close <" + Shown(name) + L"> of line " + std::to_wstring(line));
    }
    SkipSpaces();
    if (!StartsWith(">")) {
        Fail(next_, L"> is missing here");
    }
    ++next_;
}

void XmlReader::Close(Arena& arena)
{
    OpenElement& element = open_[--depth_];
    element.node.text = CopyTo(arena, element.text);
    const std::span children = std::span(finished_).subspan(element.firstChild);
    Node* const copy = Allocate<Node>(arena, children.size());
    std::ranges::uninitialized_copy(children, std::span(copy, children.size()));
    element.node.firstChild = copy;
    element.node.childCount = children.size();
    finished_.resize(element.firstChild);
    finished_.push_back(element.node);
    prefixes_.resize(element.firstPrefix);
}

void XmlReader::Append(std::wstring& text, size_t from, size_t to, XmlTextKind kind) const
{
    CheckSize(to);
    try {
        AppendXmlText(text, text_.substr(from, to - from), kind);
    } catch (const XmlTextError& error) {
        Fail(from + error.offset, error.reason);
    }
}

XmlDocument::XmlDocument(std::string_view text)
{
    XmlReader reader(text);
    if (!reader.NextElement()) {
        throw TextError{1, 1, L"there is no XML element"};
    }
    root_ = reader.Read(arena_);
    reader.ExpectEnd();
}

} // namespace orvel::replay
