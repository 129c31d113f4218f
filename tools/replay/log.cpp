#include "tools/replay/log.h"

#include "tools/replay/export_reader.h"
#include "tools/replay/xml_reader.h"

#include <algorithm>
#include <cwctype>
#include <mutex>

namespace orvel::replay {

namespace {

constexpr const wchar_t* kClassicChannels[] = {L"Application", L"System", L"Security", L"Setup"};
// What is installed on the desktop that is played, though the export may have no event of it.
constexpr const wchar_t* kInstalledPublishers[] = {L"Application Error", L"korvex"};

std::mutex currentLock;

std::shared_ptr<const Log>& Current()
{
    static auto& log = *new std::shared_ptr<const Log>(std::make_shared<Log>());
    return log;
}

} // namespace

bool NameOrder::operator()(const std::wstring& a, const std::wstring& b) const
{
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](wchar_t x, wchar_t y) {
        return std::towlower(static_cast<std::wint_t>(x)) < std::towlower(static_cast<std::wint_t>(y));
    });
}

Log::Log()
{
    for (const wchar_t* name : kInstalledPublishers) {
        AddPublisher(name);
    }
}

void Log::AddPublisher(const std::wstring& name)
{
    auto& publisher = publishers[name];
    publisher = publisher ? publisher : std::make_shared<std::wstring>(name);
}

std::shared_ptr<const Log> MakeLog(std::string_view xml)
{
    auto log = std::make_shared<Log>();
    XmlReader reader(xml);
    bool hasEntry = reader.NextElement();
    // Without /e:Events, wevtutil writes one event after the other and no element around them.
    const bool hasRoot = hasEntry && reader.Name() != "Event";
    for (hasEntry = hasRoot ? reader.Enter() && reader.NextElement() : hasEntry; hasEntry;
         hasEntry = reader.NextElement()) {
        log->entries.push_back(ReadEntry(reader, log->arena));
        if (const auto* event = std::get_if<Event>(&log->entries.back())) {
            log->channels.emplace(event->channel);
            log->AddPublisher(std::wstring(event->publisher));
        }
    }
    reader.ExpectEnd();
    return log;
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

bool IsKnownChannel(const Log& log, const std::wstring& channel)
{
    return log.channels.contains(channel) ||
           std::any_of(std::begin(kClassicChannels), std::end(kClassicChannels),
                       [&](const wchar_t* classic) { return EqualNames(classic, channel); });
}

} // namespace orvel::replay
