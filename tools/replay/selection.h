#pragma once

#include "tools/replay/query.h"

namespace orvel::replay {

/// Which events a subscription selects: a channel and a query, or a structured query. Immutable; may be used from any
/// thread.
class Selection {
public:
    /// A null or empty query and "*" select every event of the channel (EvtSubscribe page). Throws QueryError.
    static Selection OfChannel(std::wstring_view channel, std::wstring_view query);

    /// A <QueryList> (QueryType page): each Query selects what one of its Selects matches and none of its Suppresses;
    /// it has at least one Select, and a Select for the path of each Suppress. Throws QueryError, whose position is one
    /// in the text of the element that the reason names.
    static Selection OfQueryList(const Node& queryList);

    bool Matches(const Event& event) const;

    /// Why an event is not selected; empty for one that is.
    std::wstring Explain(const Event& event) const;

    /// The channels that it names.
    std::vector<std::wstring> Channels() const;

private:
    struct Selector {
        bool isSuppress;
        std::wstring channel;
        Query query;
        std::wstring place; // "<Select> in line 2"; empty for a query that is not in a QueryList
    };
    using Selectors = std::vector<Selector>;

    static const Selector* FirstMatch(const Selectors& selectors, bool isSuppress, const Event& event);

    std::vector<Selectors> queries_;
};

} // namespace orvel::replay
