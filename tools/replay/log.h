#pragma once

#include "tools/replay/xml_reader.h"

#include <map>
#include <memory>
#include <set>

namespace orvel::replay {

struct NameOrder {
    bool operator()(const std::wstring& a, const std::wstring& b) const;
};

/// A loaded export. Immutable; deliveries keep it alive when another one is loaded.
struct Log {
    Arena arena;
    std::vector<Entry> entries;
    std::set<std::wstring, NameOrder> channels;
    /// By name; the name is all that there is of a publisher. Those of the desktop are there without an event.
    std::map<std::wstring, std::shared_ptr<const std::wstring>, NameOrder> publishers;

    Log();
    void AddPublisher(const std::wstring& name);
};

/// Reads an export in UTF-8. Throws TextError.
std::shared_ptr<const Log> MakeLog(std::string_view xml);

/// The log that is loaded; an empty one before the first.
std::shared_ptr<const Log> CurrentLog();
void SetCurrentLog(std::shared_ptr<const Log> log);

/// Whether the log has the channel, or Windows always does.
bool IsKnownChannel(const Log& log, const std::wstring& channel);

} // namespace orvel::replay
