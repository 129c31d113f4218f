#include "tools/replay/log.h"

#include "tools/replay/export_reader.h"

#include <atomic>
#include <functional>
#include <mutex>

namespace orvel::replay {

namespace {

constexpr size_t kEntrySize = size_t{20} * 1024; // in memory; most events are smaller

std::mutex lock;
// The channels of every desktop and the publishers that are installed on the one that is played, though the export may
// have no event of them. ReplayDeclare adds to these.
Declarations declarations = {Names{L"Application", L"System", L"Setup"}, Names{L"Application Error", L"korvex"}};
// Never destroyed, since workers end with the process.
auto& currentLog = *new std::shared_ptr<const Log>(std::make_shared<Log>(std::string()));

void Add(Names& names, std::wstring_view name)
{
    if (!names.contains(name)) {
        names.emplace(name);
    }
}

bool IsDeclared(const Log& log, Action::Kind kind, std::wstring_view name)
{
    const std::lock_guard guard(lock);
    return log.declarations[kind].contains(name) || declarations[kind].contains(name);
}

} // namespace

Log::Log(std::string utf8) : text(std::move(utf8)), reader(text)
{
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
    const auto entry = index < log_->entries.size() ? Read(index) : nullptr;
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
    if (IsDeclared(*log, Action::MissingPublisher, name)) {
        return nullptr;
    }
    const std::lock_guard guard(lock);
    for (const auto& known : {std::cref(log->declarations), std::cref(declarations)}) {
        const Names& publishers = known.get()[Action::Publisher];
        if (const auto found = publishers.find(name); found != publishers.end()) {
            return {log, &*found};
        }
    }
    return nullptr;
}

bool HasChannel(const Log& log, std::wstring_view name)
{
    return log.channels.contains(name) || IsDeclared(log, Action::Channel, name);
}

} // namespace orvel::replay
