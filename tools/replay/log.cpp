#include "tools/replay/log.h"

#include "tools/replay/export_reader.h"
#include "tools/replay/xml_reader.h"

#include <algorithm>
#include <atomic>
#include <mutex>

namespace orvel::replay {

namespace {

constexpr const wchar_t* kClassicChannels[] = {L"Application", L"System", L"Security", L"Setup"};
// What is installed on the desktop that is played, though the export may have no event of it.
constexpr const wchar_t* kInstalledPublishers[] = {L"Application Error", L"korvex"};

std::mutex currentLock;
Desktop declared; // by ReplayDeclare

std::shared_ptr<const Log>& Current()
{
    static auto& log = *new std::shared_ptr<const Log>(std::make_shared<Log>(std::string()));
    return log;
}

} // namespace

Log::Log(std::string utf8) : text(std::move(utf8)), root(text)
{
    for (const wchar_t* name : kInstalledPublishers) {
        AddPublisher(name);
    }
    bool hasEntry = root.NextElement();
    // Without /e:Events, wevtutil writes the events one after the other and no element around them.
    if (hasEntry && root.Name() != "Event") {
        hasEntry = root.Enter();
    }
    XmlReader reader(root);
    Arena arena;
    for (hasEntry = hasEntry && reader.NextElement(); hasEntry; hasEntry = reader.NextElement()) {
        const TextPlace place = reader.Place();
        Take(ReadEntry(reader, arena), place);
        arena.release();
    }
    reader.ExpectEnd();
}

void Log::Take(const Entry& entry, const TextPlace& place)
{
    if (const auto* const declaration = std::get_if<Declaration>(&entry)) {
        desktop.Add(declaration->kind, declaration->name);
        return;
    }
    const auto* const event = std::get_if<Event>(&entry);
    entries.push_back({place, event != nullptr});
    if (event != nullptr) {
        if (!channels.contains(event->channel)) {
            channels.emplace(event->channel);
        }
        AddPublisher(event->publisher);
    }
}

void Log::AddPublisher(std::wstring_view name)
{
    if (!publishers.contains(name)) {
        publishers.emplace(name, std::make_shared<std::wstring>(name));
    }
}

std::shared_ptr<const Entry> LogReader::Read(size_t index)
{
    next_ = (next_ + 1) % slots_.size();
    std::shared_ptr<Slot>& slot = slots_[next_];
    if (slot == nullptr || slot.use_count() != 1) {
        slot = std::make_shared<Slot>();
    }
    std::atomic_thread_fence(std::memory_order_acquire); // after the last use on another thread
    slot->arena.release();
    reader_.Return(log_->entries[index].text);
    slot->entry = ReadEntry(reader_, slot->arena);
    return {slot, &slot->entry};
}

std::shared_ptr<const Event> LogReader::ReadEvent(size_t index)
{
    const auto entry = Read(index);
    return {entry, std::get_if<Event>(entry.get())};
}

std::shared_ptr<const Log> CurrentLog()
{
    const std::lock_guard guard(currentLock);
    return Current();
}

void SetCurrentLog(std::shared_ptr<const Log> log)
{
    const std::lock_guard guard(currentLock);
    Current().swap(log);
}

void Declare(Declaration::Kind kind, std::wstring_view name)
{
    const std::lock_guard guard(currentLock);
    declared.Add(kind, name);
}

bool HasChannel(const Log& log, std::wstring_view channel)
{
    const std::lock_guard guard(currentLock);
    return log.channels.contains(channel) || log.desktop.Has(Declaration::Channel, channel) ||
           declared.Has(Declaration::Channel, channel);
}

std::shared_ptr<const std::wstring> FindPublisher(const Log& log, std::wstring_view name)
{
    const std::lock_guard guard(currentLock);
    if (log.desktop.Has(Declaration::MissingPublisher, name) || declared.Has(Declaration::MissingPublisher, name)) {
        return nullptr;
    }
    const auto publisher = log.publishers.find(name);
    if (publisher != log.publishers.end()) {
        return publisher->second;
    }
    const bool isDeclared = log.desktop.Has(Declaration::Publisher, name) || declared.Has(Declaration::Publisher, name);
    return isDeclared ? std::make_shared<std::wstring>(name) : nullptr;
}

bool IsKnownChannel(const Log& log, std::wstring_view channel)
{
    return HasChannel(log, channel) ||
           std::any_of(std::begin(kClassicChannels), std::end(kClassicChannels),
                       [&](const wchar_t* classic) { return EqualNames(classic, channel); });
}

} // namespace orvel::replay
