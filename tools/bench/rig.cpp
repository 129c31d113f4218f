#include "tools/bench/rig.h"

#include "module/provider_ids.h"
#include "tools/dom_element.h"
#include "tools/function_of.h"
#include "tools/utf8.h"

#include <stdexcept>

namespace orvel::bench {

namespace {

constexpr const wchar_t* kChannels[kChannelCount] = {L"Application", L"System"};

void Check(bool isGood, const char* what)
{
    if (!isGood) {
        throw std::runtime_error(what);
    }
}

} // namespace

HRESULT SilentLogger::GetLogLevels(LPWSTR, LONG* levels)
{
    const OutsideCall measured;
    *levels = 0;
    return S_OK;
}

HRESULT CountingSink::WriteMetric(BSTR, BSTR, VARIANT)
{
    const OutsideCall measured;
    return written++ < accepted ? S_OK : E_FAIL;
}

Rig::Rig(const std::filesystem::path& folder)
    : replay((folder / L"replay\\wevtapi.dll").wstring()),
      module_(LoadLibraryW((folder / L"Orvel_eventlog.dll").wstring().c_str()))
{
    Check(module_ != nullptr, "Orvel_eventlog.dll cannot be loaded");
    MeasureImports(module_);
    decltype(&DllGetClassObject) const getClassObject = FunctionOf{module_, "DllGetClassObject"};
    Check(getClassObject != nullptr && SUCCEEDED(getClassObject(kProviderClass, IID_PPV_ARGS(&factory_))),
          "Orvel_eventlog.dll has no class factory");
    replay.SetMode(ReplayOnCallingThread);
}

DWORD Rig::AddEvent(const wchar_t* publisher, int id, const std::wstring& message)
{
    for (const wchar_t* channel : kChannels) {
        events_ += std::wstring(L"<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System>"
                                L"<Provider Name='") +
                   publisher + L"'/><EventID>" + std::to_wstring(id) +
                   L"</EventID><TimeCreated SystemTime='2024-03-05T07:08:09.1234567Z'/><Channel>" + channel +
                   L"</Channel></System><RenderingInfo><Message>" + message + L"</Message></RenderingInfo></Event>";
    }
    return count_++ * kChannelCount;
}

void Rig::LoadEvents()
{
    wchar_t message[256] = L"";
    const std::string xml = ToUtf8(L"<Events>" + events_ + L"</Events>");
    Check(replay.LoadBytes(xml.data(), xml.size(), message, 256) == ERROR_SUCCESS, "the replay log refuses the events");
}

void Rig::Deliver(DWORD event, Channel channel, DWORD times)
{
    Check(replay.Deliver(event + channel, times) == ERROR_SUCCESS, "the replay log cannot deliver an event");
}

Provider Rig::Subscribe(const wchar_t* metric, const wchar_t* query, Channel channel)
{
    Provider provider;
    const std::wstring xml =
        std::wstring(L"<metric><channel>") + kChannels[channel] + L"</channel><query>" + query + L"</query></metric>";
    Check(SUCCEEDED(factory_->CreateInstance(nullptr, IID_PPV_ARGS(&provider))) &&
              provider->SetHost(&logger_, &host_) == S_OK &&
              provider->SubscribeMetric(_bstr_t(metric), ParseElement(xml.c_str()).Get()) == S_OK,
          "the module refuses the subscription");
    return provider;
}

void Rig::Collect(const Provider& provider, const wchar_t* metric, long accepted)
{
    const _bstr_t name(metric);
    sink_.accepted = accepted;
    sink_.written = 0;
    TakeSample([&] { provider->QueryMetricEx(name, 0, &sink_); }, [&] { return std::max(sink_.written, 1L); });
}

} // namespace orvel::bench
