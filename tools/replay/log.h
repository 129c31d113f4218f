#pragma once

#include "tools/replay/xml_reader.h"

#include <array>
#include <map>
#include <memory>
#include <set>

namespace orvel::replay {

struct NameOrder {
    using is_transparent = void;
    bool operator()(std::wstring_view a, std::wstring_view b) const;
};

/// A loaded export: its text and where each entry stands in it. Immutable; deliveries keep it alive when another one is
/// loaded.
struct Log {
    struct Place {
        TextPlace text;
        bool isEvent;
    };
    std::string text; ///< UTF-8
    XmlReader root;   ///< of the text, with the namespaces that its root element declares
    std::vector<Place> entries;
    std::set<std::wstring, NameOrder> channels;
    /// By name; the name is all that there is of a publisher. Those of the desktop are there without an event.
    std::map<std::wstring, std::shared_ptr<const std::wstring>, NameOrder> publishers;

    /// Reads an export in UTF-8. Throws TextError.
    explicit Log(std::string utf8);
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

private:
    void Take(const Entry& entry, const TextPlace& place);
    void AddPublisher(std::wstring_view name);
};

/// Reads entries of a log one by one. The memory of an entry is used again when nobody holds it. One thread at a time.
class LogReader {
public:
    explicit LogReader(std::shared_ptr<const Log> log) : log_(std::move(log)), reader_(log_->root) {}

    std::shared_ptr<const Entry> Read(size_t index);
    /// As Read; null if the entry is not an event.
    std::shared_ptr<const Event> ReadEvent(size_t index);

private:
    struct Slot {
        std::array<std::byte, size_t{16} * 1024> first;
        Arena arena{first.data(), first.size()};
        Entry entry;
    };

    const std::shared_ptr<const Log> log_;
    XmlReader reader_;
    std::array<std::shared_ptr<Slot>, 160> slots_; // used in turn; more than are ever queued for a subscription
    size_t next_ = 0;
};

/// The log that is loaded; an empty one before the first.
std::shared_ptr<const Log> CurrentLog();
void SetCurrentLog(std::shared_ptr<const Log> log);

/// Whether the log has the channel, or Windows always does.
bool IsKnownChannel(const Log& log, std::wstring_view channel);

} // namespace orvel::replay
