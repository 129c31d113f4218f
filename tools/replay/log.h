#pragma once

#include "tools/replay/xml_reader.h"

#include <array>
#include <map>
#include <memory>
#include <set>

namespace orvel::replay {

/// What the desktop is declared to have, beside what the export has events of.
class Desktop {
public:
    void Add(Declaration::Kind kind, std::wstring_view name) { names_[kind].emplace(name); }
    bool Has(Declaration::Kind kind, std::wstring_view name) const { return names_[kind].contains(name); }

private:
    std::array<std::set<std::wstring, NameOrder>, 3> names_;
};

/// A loaded export: its text and the place of each entry. Immutable; deliveries keep it alive when another one is
/// loaded.
struct Log {
    struct Place {
        TextPlace text;
        bool isEvent;
    };
    std::string text; ///< UTF-8
    XmlReader root;   ///< of the text, with the namespaces that its root element declares
    std::vector<Place> entries;
    Desktop desktop; ///< declared by the export itself
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

/// Declares something for all logs of this process.
void Declare(Declaration::Kind kind, std::wstring_view name);

/// The publisher's handle object: of the export, or declared; null if it is declared as missing, or unknown.
std::shared_ptr<const std::wstring> FindPublisher(const Log& log, std::wstring_view name);

/// Whether the log has events of the channel, or declares it.
bool HasChannel(const Log& log, std::wstring_view channel);

/// Whether the log has or declares the channel, or Windows always has it.
bool IsKnownChannel(const Log& log, std::wstring_view channel);

} // namespace orvel::replay
