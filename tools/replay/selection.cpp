#include "tools/replay/selection.h"

#include <algorithm>

namespace orvel::replay {

namespace {

std::wstring Place(const Node& element)
{
    return L"<" + std::wstring(element.name) + L"> in line " + std::to_wstring(element.line);
}

[[noreturn]] void Refuse(const Node& element, const wchar_t* reason)
{
    throw QueryError{kInvalidQuery, 0, Place(element) + L": " + reason};
}

Query ParseSelector(const Node& element)
{
    try {
        return Query::Parse(element.text, kMostSelectExpressions);
    } catch (QueryError& error) {
        error.reason = Place(element) + L": " + error.reason;
        error.source = std::wstring(element.text);
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

Selection Selection::OfQueryList(const Node& queryList)
{
    Selection selection;
    if (queryList.name != L"QueryList" || queryList.children.empty()) {
        Refuse(queryList, L"a structured query is a QueryList of Query elements");
    }
    for (const Node& query : queryList.children) {
        if (query.name != L"Query") {
            Refuse(query, L"a QueryList has Query elements only");
        }
        auto& selectors = selection.queries_.emplace_back();
        for (const Node& element : query.children) {
            if ((element.name != L"Select" && element.name != L"Suppress") || !element.children.empty()) {
                Refuse(element, L"a Query has Select and Suppress elements only, and they have text only");
            }
            const std::wstring_view* ownPath = element.Attribute(L"Path");
            const std::wstring_view* path = ownPath != nullptr ? ownPath : query.Attribute(L"Path");
            if (path == nullptr || path->empty() || path->find(L"://") != path->npos) {
                Refuse(element, L"a Path is needed, and a subscription takes channels only");
            }
            selectors.push_back({element.name == L"Suppress", std::wstring(*path), ParseSelector(element), Place(element)});
        }
        const auto isServed = [&](const Selector& suppress) {
            return std::any_of(selectors.begin(), selectors.end(), [&](const Selector& other) {
                return !other.isSuppress && EqualNames(other.channel, suppress.channel);
            });
        };
        if (selectors.empty() || !std::all_of(selectors.begin(), selectors.end(), isServed)) {
            Refuse(query, L"at least one Select is needed, and one for the path of each Suppress");
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
    std::wstring missed;
    for (const Selectors& selectors : queries_) {
        if (FirstMatch(selectors, false, event) != nullptr) {
            return FirstMatch(selectors, true, event)->place + L" suppresses it";
        }
        for (const Selector& selector : selectors) {
            if (EqualNames(selector.channel, event.channel) && !selector.isSuppress) {
                missed += missed.empty() ? L"" : L"; ";
                missed += selector.place + (selector.place.empty() ? L"" : L": ") + selector.query.Explain(event.xml);
            } else if (!selector.isSuppress && channels.find(L"'" + selector.channel + L"'") == channels.npos) {
                channels += (channels.empty() ? L"'" : L" or '") + selector.channel + L"'";
            }
        }
    }
    return !missed.empty() ? missed : L"the channel is '" + std::wstring(event.channel) + L"', the query wants " + channels;
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
