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
    selection.queries_.push_back({{false, std::wstring(channel), Query::Parse(query.empty() ? L"*" : query), {}}});
    return selection;
}

Selection Selection::OfQueryList(std::string_view xml)
{
    Arena arena;
    const Node queryList = ReadDocument(xml, arena);
    const auto placeOf = [&](const Node& element) {
        return std::wstring(L"<").append(element.name) + L"> in line " +
               std::to_wstring(PlaceOf(xml, element.end).line);
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
        auto& selectors = selection.queries_.emplace_back();
        for (const Node& element : query.children) {
            const std::wstring place = placeOf(element);
            if ((element.name != L"Select" && element.name != L"Suppress") || !element.children.empty()) {
                Refuse(place, L"a Query contains Select and Suppress elements only, and these contain text only");
            }
            const auto* ownPath = element.Attribute(L"Path");
            const auto* path = ownPath != nullptr ? ownPath : query.Attribute(L"Path");
            if (path == nullptr || path->empty()) {
                Refuse(place, L"the element or its Query needs a Path, the name of a channel");
            }
            if (path->find(L"://") != path->npos) {
                Refuse(place, L"the Path is a file, which the replay log does not support; use a channel",
                       kNotSupported);
            }
            selectors.push_back(
                {element.name == L"Suppress", std::wstring(*path), ParseSelector(element, place), place});
        }
        const auto hasSelect = [&](const Selector& suppress) {
            return std::any_of(selectors.begin(), selectors.end(), [&](const Selector& other) {
                return !other.isSuppress && EqualNames(other.channel, suppress.channel);
            });
        };
        if (selectors.empty() || !std::all_of(selectors.begin(), selectors.end(), hasSelect)) {
            Refuse(placeOf(query), L"a Query needs a Select, and each Suppress a Select with the same Path");
        }
    }
    return selection;
}

const Selection::Selector* Selection::FirstMatch(const Selectors& selectors, bool isSuppress, const Event& event)
{
    const auto found = std::find_if(selectors.begin(), selectors.end(), [&](const Selector& selector) {
        return selector.isSuppress == isSuppress && EqualNames(selector.channel, event.channel) &&
               selector.query.Matches(event.xml);
    });
    return found != selectors.end() ? &*found : nullptr;
}

bool Selection::Matches(const Event& event) const
{
    return std::any_of(queries_.begin(), queries_.end(), [&](const Selectors& selectors) {
        return FirstMatch(selectors, false, event) != nullptr && FirstMatch(selectors, true, event) == nullptr;
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
    for (const Selectors& selectors : queries_) {
        if (FirstMatch(selectors, false, event) != nullptr) {
            return FirstMatch(selectors, true, event)->place + L" suppresses it";
        }
        for (const Selector& selector : selectors) {
            if (EqualNames(selector.channel, event.channel) && !selector.isSuppress) {
                const Explanation explanation = selector.query.Explain(event.xml);
                if (nearest.empty() || explanation.nearness > nearness) {
                    nearest = selector.place + (selector.place.empty() ? L"" : L": ") + explanation.Text();
                    nearness = explanation.nearness;
                    equals = 0;
                }
                equals += explanation.nearness == nearness ? 1 : 0;
            } else if (!selector.isSuppress && channels.find(L"'" + selector.channel + L"'") == channels.npos) {
                channels += (channels.empty() ? L"'" : L" or '") + selector.channel + L"'";
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
    for (const auto& selectors : queries_) {
        for (const Selector& selector : selectors) {
            channels.push_back(selector.channel);
        }
    }
    return channels;
}

} // namespace orvel::replay
