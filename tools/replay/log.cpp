#include "tools/replay/log.h"

#include "tools/replay/export_reader.h"

#include <atomic>
#include <functional>
#include <mutex>

namespace orvel::replay {

namespace {

constexpr size_t kEntrySize = size_t{20} * 1024; // in memory; most events are smaller

const Names kClassicChannels = {L"Application", L"System", L"Security", L"Setup"};
// What is installed on the desktop that is played, though the export may have no event of it.
const Names kInstalledPublishers = {L"Application Error", L"korvex"};

std::mutex lock;
Declarations declarations; // by ReplayDeclare
// Never destroyed, since workers end with the process.
auto& currentLog = *new std::shared_ptr<const Log>(std::make_shared<Log>(std::string()));

void Add(Names& names, std::wstring_view name)
{
    if (!names.contains(name)) {
        names.emplace(name);
    }
}

/// Returns the name as the log or the process declares it; null if neither does.
const std::wstring* FindDeclared(const Log& log, Action::Kind kind, std::wstring_view name)
{
    const std::lock_guard guard(lock);
    for (const Names& names : {std::cref(log.declarations[kind]), std::cref(declarations[kind])}) {
        if (const auto found = names.find(name); found != names.end()) {
            return &*found;
        }
    }
    return nullptr;
}

} // namespace

Log::Log(std::string utf8) : text(std::move(utf8)), reader(text)
{
    declarations[Action::Publisher] = kInstalledPublishers;
    bool hasEntry = reader.NextElement();
    // Without /e:Events, wevtutil writes the events one after the other and no element around them.
    if (hasEntry && reader.Name() != "Event") {
        hasEntry = reader.Enter();
    }
    while (hasEntry && reader.NextElement()) {
        const size_t offset = reader.Offset();
        Arena arena(kEntrySize);
        const Entry entry = ReadEntry(reader, arena);
        const auto* const action = std::get_if<Action>(&entry);
        if (action != nullptr && action->kind < kDeclarationKinds) {
            Add(declarations[action->kind], *action->node.Attribute(L"name"));
            continue;
        }
        entries.push_back(offset);
        if (const auto* const event = std::get_if<Event>(&entry)) {
            Add(channels, event->channel);
            Add(declarations[Action::Publisher], event->publisher);
        }
    }
    reader.ExpectEnd();
}

struct LogReader::Slot {
    std::array<std::byte, kEntrySize> first;
    Arena arena{first.data(), first.size()};
    std::optional<Entry> entry;
};

std::shared_ptr<const Entry> LogReader::Read(size_t index)
{
    std::shared_ptr<Slot>& slot = slots_[next_++ % slots_.size()];
    if (slot.use_count() != 1) {
        slot = std::make_shared<Slot>();
    }
    std::atomic_thread_fence(std::memory_order_acquire); // after the last use on another thread
    slot->entry.reset();
    slot->arena.release();
    reader_.Return(log_->entries[index]);
    return {slot, &slot->entry.emplace(ReadEntry(reader_, slot->arena))};
}

std::shared_ptr<const Event> LogReader::ReadEvent(size_t index)
{
    const auto entry = Read(index);
    return {entry, std::get_if<Event>(entry.get())};
}

std::shared_ptr<const Log> CurrentLog()
{
    const std::lock_guard guard(lock);
    return currentLog;
}

void SetCurrentLog(std::shared_ptr<const Log> log)
{
    const std::lock_guard guard(lock);
    currentLog.swap(log);
}

void Declare(Action::Kind kind, std::wstring_view name)
{
    const std::lock_guard guard(lock);
    declarations[kind].emplace(name);
}

std::shared_ptr<const std::wstring> FindPublisher(const std::shared_ptr<const Log>& log, std::wstring_view name)
{
    const bool isMissing = FindDeclared(*log, Action::MissingPublisher, name) != nullptr;
    return {log, isMissing ? nullptr : FindDeclared(*log, Action::Publisher, name)};
}

bool HasChannel(const Log& log, std::wstring_view name)
{
    return log.channels.contains(name) || FindDeclared(log, Action::Channel, name) != nullptr;
}

bool IsKnownChannel(const Log& log, std::wstring_view name)
{
    return HasChannel(log, name) || kClassicChannels.contains(name);
}

} // namespace orvel::replay
