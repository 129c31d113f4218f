#include "tools/bench/rig.h"

#include "module/provider_ids.h"
#include "tools/dom_element.h"
#include "tools/function_of.h"
#include "tools/utf8.h"

#include <stdexcept>

namespace orvel::bench {

namespace {

void Require(bool condition, const char* failure)
{
    if (!condition) {
        throw std::runtime_error(failure);
    }
}

} // namespace

Rig::Rig(const std::filesystem::path& folder)
    : replay_((folder / L"replay\\wevtapi.dll").wstring()),
      module_(LoadLibraryW((folder / L"Orvel_eventlog.dll").wstring().c_str()))
{
    Require(module_ != nullptr, "Orvel_eventlog.dll cannot be loaded");
    MeasureImports(module_);
    decltype(&DllGetClassObject) const getClassObject = FunctionOf{module_, "DllGetClassObject"};
    Require(getClassObject != nullptr && SUCCEEDED(getClassObject(kProviderClass, IID_PPV_ARGS(&factory_))),
            "Orvel_eventlog.dll has no class factory");
    replay_.SetMode(ReplayOnCallingThread);
}

DWORD Rig::AddEvent(const Metric& metric, const std::wstring& message)
{
    events_ += std::wstring(L"<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System>"
                            L"<Provider Name='") +
               metric.publisher + L"'/><EventID>" + std::to_wstring(metric.eventId) +
               L"</EventID><TimeCreated SystemTime='2024-03-05T07:08:09.1234567Z'/><Channel>Application</Channel>"
               L"</System><RenderingInfo><Message>" +
               message + L"</Message></RenderingInfo></Event>";
    const std::string xml = ToUtf8(L"<Events>" + events_ + L"</Events>");
    Require(replay_.LoadBytes(xml.data(), xml.size(), nullptr, 0) == ERROR_SUCCESS,
            "the replay log refuses the events");
    return replay_.Count() - 1;
}

void Rig::Deliver(DWORD event, DWORD times)
{
    Require(replay_.Deliver(event, times) == ERROR_SUCCESS, "the replay log cannot deliver an event");
}

Provider Rig::Subscribe(const Metric& metric)
{
    Provider provider;
    const std::wstring xml = L"<metric><channel>Application</channel><query>*[System[EventID=" +
                             std::to_wstring(metric.eventId) + L"]]</query></metric>";
    Require(SUCCEEDED(factory_->CreateInstance(nullptr, IID_PPV_ARGS(&provider))) &&
                provider->SetHost(&logger_, &host_) == S_OK &&
                provider->SubscribeMetric(_bstr_t(metric.name), ParseElement(xml.c_str()).Get()) == S_OK,
            "the module refuses the subscription");
    return provider;
}

void Rig::Collect(const Provider& provider, const Metric& metric, long accepted)
{
    const _bstr_t name(metric.name);
    sink_.accepted = accepted;
    sink_.written = 0;
    TakeSample([&] {
        provider->QueryMetricEx(name, 0, &sink_);
        return std::max(sink_.written, 1L);
    });
}

} // namespace orvel::bench
