#include "tools/replay/selection.h"

#include <algorithm>

namespace orvel::replay {

namespace {

[[noreturn]] void Refuse(const Node& element, const wchar_t* reason)
{
    throw QueryError{kInvalidQuery, 0,
                     L"<" + element.name + L"> in line " + std::to_wstring(element.line) + L": " + reason};
}

Query ParseSelector(const Node& element)
{
    try {
        return Query::Parse(element.text, kMostSelectExpressions);
    } catch (QueryError& error) {
        error.reason = L"<" + element.name + L"> in line " + std::to_wstring(element.line) + L": " + error.reason;
        throw;
    }
}

} // namespace

Selection Selection::OfChannel(std::wstring_view channel, std::wstring_view query)
{
    Selection selection;
    selection.queries_.push_back({{false, std::wstring(channel), Query::Parse(query.empty() ? L"*" : query)}});
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
            const std::wstring* ownPath = element.Attribute(L"Path");
            const std::wstring* path = ownPath != nullptr ? ownPath : query.Attribute(L"Path");
            if (path == nullptr || path->empty() || path->find(L"://") != std::wstring::npos) {
                Refuse(element, L"a Path is needed, and a subscription takes channels only");
            }
            selectors.push_back({element.name == L"Suppress", *path, ParseSelector(element)});
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

bool Selection::Matches(const Event& event) const
{
    return std::any_of(queries_.begin(), queries_.end(), [&](const std::vector<Selector>& selectors) {
        const auto matches = [&](bool isSuppress) {
            return std::any_of(selectors.begin(), selectors.end(), [&](const Selector& selector) {
                return selector.isSuppress == isSuppress && EqualNames(selector.channel, event.channel) &&
                       selector.query.Matches(event.xml);
            });
        };
        return matches(false) && !matches(true);
    });
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
