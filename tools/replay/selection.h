#pragma once

#include "tools/replay/query.h"

namespace orvel::replay {

/// The events that a subscription selects: a channel and a query, or a structured query. Immutable and thread-safe.
class Selection {
public:
    /// Parses an XPath query. An empty query and "*" select every event of the channel (EvtSubscribe page). Throws
    /// Refusal.
    static Selection OfChannel(std::wstring_view channel, std::wstring_view query);

    /// Parses a <QueryList> (QueryType page). A Query selects the events that one of its Selects and none of its
    /// Suppresses match. It needs a Select, and a Select for the path of each Suppress. Throws Refusal and
    /// TextError.
    static Selection OfQueryList(std::string_view xml);

    /// Returns whether it was made of a QueryList.
    bool IsStructured() const { return isStructured_; }

    bool Matches(const Event& event) const;

    /// Returns why an event is not selected, or an empty text if it is.
    std::wstring Explain(const Event& event) const;

    /// Returns the names of the channels.
    std::vector<std::wstring> Channels() const;

private:
    struct Selector {
        std::wstring channel;
        Query query;
        std::wstring place; // "<Select> in line 2"; empty for a query that is not in a QueryList
    };
    struct QueryElement {
        std::vector<Selector> selects;
        std::vector<Selector> suppresses;
    };

    static const Selector* FirstMatch(const std::vector<Selector>& selectors, const Event& event);

    std::vector<QueryElement> queries_;
    bool isStructured_ = false;
};

} // namespace orvel::replay
