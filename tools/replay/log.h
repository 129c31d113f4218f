#pragma once

#include "tools/replay/xml_reader.h"

#include <array>
#include <memory>
#include <set>

namespace orvel::replay {

/// Names of channels or publishers.
using Names = std::set<std::wstring, NameOrder>;

/// What the desktop is declared to have or lack, by kind of declaration.
using Declarations = std::array<Names, kDeclarationKinds>;

/// A loaded export: its text and the offset of each entry. Immutable; replays keep it alive when another one is loaded.
struct Log {
    std::string text; ///< UTF-8
    XmlReader reader; ///< of the text, with the namespaces that its root element declares
    std::vector<size_t> entries;
    Names channels;            ///< of the events
    Declarations declarations; ///< of the export itself; the publishers of the events are among them

    /// Reads an export in UTF-8. Throws TextError.
    explicit Log(std::string utf8);
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;
};

/// Reads entries of a log one by one. The memory of an entry is used again when nobody holds it. One thread at a time.
class LogReader {
public:
    explicit LogReader(std::shared_ptr<const Log> log) : log_(std::move(log)), reader_(log_->reader) {}

    std::shared_ptr<const Entry> Read(size_t index);
    /// As Read. Returns null if there is no such entry or it is not an event.
    std::shared_ptr<const Event> ReadEvent(size_t index);

private:
    struct Slot; // an entry and its memory

    const std::shared_ptr<const Log> log_;
    XmlReader reader_;
    std::array<std::shared_ptr<Slot>, 160> slots_; // used in turn; more than are ever queued for a subscription
    size_t next_ = 0;
};

/// Returns the log that is loaded, or an empty one.
std::shared_ptr<const Log> CurrentLog();
void SetCurrentLog(std::shared_ptr<const Log> log);

/// Declares something for all logs of this process.
void Declare(Action::Kind kind, std::wstring_view name);

/// Returns a publisher's name if the log has events of the publisher, or it is declared or always installed. Returns
/// null for others, and for a publisher that is declared as missing. Allocates nothing, since clients leave many open.
std::shared_ptr<const std::wstring> FindPublisher(const std::shared_ptr<const Log>& log, std::wstring_view name);

/// Returns whether the log has events of the channel, or the channel is declared or open to every account on Windows.
bool HasChannel(const Log& log, std::wstring_view name);

} // namespace orvel::replay
