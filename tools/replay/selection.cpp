#include "tools/replay/selection.h"

#include "tools/replay/xml_reader.h"

#include <algorithm>

namespace orvel::replay {

namespace {

[[noreturn]] void Refuse(const std::wstring& place, const wchar_t* reason, unsigned code = kInvalidQuery)
{
    throw Refusal{code, place + L": " + reason};
}

Query ParseSelector(const Node& element, const std::wstring& place)
{
    try {
        return Query::Parse(element.text, kMaxSelectExpressions);
    } catch (Refusal& refusal) {
        refusal.reason = place + L": " + refusal.reason;
        throw;
    }
}

} // namespace

Selection Selection::OfChannel(std::wstring_view channel, std::wstring_view query)
{
    Selection selection;
    selection.queries_.push_back({{{std::wstring(channel), Query::Parse(query.empty() ? L"*" : query), {}}}, {}});
    return selection;
}

Selection Selection::OfQueryList(std::string_view xml)
{
    Arena arena;
    const Node queryList = ReadDocument(xml, arena);
    TextPlace last; // each place is counted from the one before
    const auto placeOf = [&](const Node& element) {
        last = PlaceOf(xml, element.end, last);
        return std::wstring(L"<").append(element.name) + L"> in line " + std::to_wstring(last.line);
    };
    Selection selection;
    selection.isStructured_ = true;
    if (queryList.name != L"QueryList" || queryList.children.empty()) {
        Refuse(placeOf(queryList), L"a structured query is a QueryList that contains Query elements");
    }
    for (const Node& query : queryList.children) {
        if (query.name != L"Query") {
            Refuse(placeOf(query), L"a QueryList contains Query elements only");
        }
        QueryElement& parsed = selection.queries_.emplace_back();
        for (const Node& element : query.children) {
            const std::wstring place = placeOf(element);
            if ((element.name != L"Select" && element.name != L"Suppress") || !element.children.empty()) {
                Refuse(place, L"a Query contains Select and Suppress elements only, and these contain text only");
            }
            const auto inherited = query.Attribute(L"Path").value_or(L"");
            const std::wstring path(element.Attribute(L"Path").value_or(inherited));
            if (path.empty()) {
                Refuse(place, L"the element or its Query needs a Path, the name of a channel");
            }
            if (path.find(L"://") != path.npos) {
                Refuse(place, L"the Path is a file, which the replay log does not support; use a channel",
                       kNotSupported);
            }
            auto& selectors = element.name == L"Select" ? parsed.selects : parsed.suppresses;
            selectors.push_back({path, ParseSelector(element, place), place});
        }
        const auto hasSelect = [&](const Selector& suppress) {
            return std::ranges::any_of(
                parsed.selects, [&](const Selector& select) { return EqualNames(select.channel, suppress.channel); });
        };
        if (parsed.selects.empty() || !std::ranges::all_of(parsed.suppresses, hasSelect)) {
            Refuse(placeOf(query), L"a Query needs a Select, and each Suppress a Select with the same Path");
        }
    }
    return selection;
}

const Selection::Selector* Selection::FirstMatch(const std::vector<Selector>& selectors, const Event& event)
{
    const auto found = std::ranges::find_if(selectors, [&](const Selector& selector) {
        return EqualNames(selector.channel, event.channel) && selector.query.Matches(event.xml);
    });
    return found != selectors.end() ? &*found : nullptr;
}

bool Selection::Matches(const Event& event) const
{
    return std::ranges::any_of(queries_, [&](const QueryElement& query) {
        return FirstMatch(query.selects, event) != nullptr && FirstMatch(query.suppresses, event) == nullptr;
    });
}

std::wstring Selection::Explain(const Event& event) const
{
    if (Matches(event)) {
        return {};
    }
    std::wstring channels;
    std::wstring nearest;
    Nearness nearness;
    size_t equals = 0;
    for (const auto& [selects, suppresses] : queries_) {
        if (FirstMatch(selects, event) != nullptr) {
            return FirstMatch(suppresses, event)->place + L" suppresses it";
        }
        for (const Selector& select : selects) {
            if (EqualNames(select.channel, event.channel)) {
                const Explanation explanation = select.query.Explain(event.xml);
                if (nearest.empty() || explanation.nearness > nearness) {
                    nearest = select.place + (select.place.empty() ? L"" : L": ") + explanation.Text();
                    nearness = explanation.nearness;
                    equals = 0;
                }
                equals += explanation.nearness == nearness ? 1 : 0;
            } else if (channels.find(L"'" + select.channel + L"'") == channels.npos) {
                channels += (channels.empty() ? L"'" : L" or '") + select.channel + L"'";
            }
        }
    }
    if (nearest.empty()) {
        return std::wstring(L"the channel is '").append(event.channel) + L"', the query wants " + channels;
    }
    return equals > 1 ? nearest + L" (the first of " + std::to_wstring(equals) + L" equally near ones)" : nearest;
}

std::vector<std::wstring> Selection::Channels() const
{
    std::vector<std::wstring> channels;
    for (const QueryElement& query : queries_) {
        for (const Selector& select : query.selects) { // a Suppress has the channel of a Select
            channels.push_back(select.channel);
        }
    }
    return channels;
}

} // namespace orvel::replay
