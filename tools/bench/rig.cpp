#include "tools/bench/rig.h"

#include "tools/function_of.h"

#include <comdef.h>
#include <msxml2.h>

#include <stdexcept>

namespace orvel::bench {

using Microsoft::WRL::ComPtr;

namespace {

constexpr CLSID kProviderClass = {0xDAF69464, 0xF4E2, 0x40C0, {0xBC, 0xC3, 0xA3, 0x0E, 0x81, 0x99, 0x75, 0xF0}};
constexpr const wchar_t* kChannels[kReceiverCount] = {L"Application", L"System", L"Setup"};

void Check(bool isGood, const char* what)
{
    if (!isGood) {
        throw std::runtime_error(what);
    }
}

template <typename Interface>
void** Out(ComPtr<Interface>& pointer)
{
    return reinterpret_cast<void**>(pointer.GetAddressOf());
}

ComPtr<IXMLDOMElement> Configuration(const wchar_t* channel, const wchar_t* query)
{
    ComPtr<IXMLDOMDocument> document;
    ComPtr<IXMLDOMElement> element;
    VARIANT_BOOL isParsed = VARIANT_FALSE;
    CLSID documentClass{};
    const std::wstring xml =
        std::wstring(L"<metric><channel>") + channel + L"</channel><query>" + query + L"</query></metric>";
    Check(SUCCEEDED(CLSIDFromProgID(L"Msxml2.DOMDocument.6.0", &documentClass)) &&
              SUCCEEDED(
                  CoCreateInstance(documentClass, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument, Out(document))) &&
              document->loadXML(_bstr_t(xml.c_str()), &isParsed) == S_OK &&
              document->get_documentElement(element.GetAddressOf()) == S_OK,
          "MSXML gives no configuration element");
    return element;
}

} // namespace

HRESULT SilentLogger::GetLogLevels(LPWSTR, LONG* levels)
{
    ++asked;
    *levels = 0;
    return S_OK;
}

HRESULT CountingSink::WriteMetric(BSTR, BSTR, VARIANT value)
{
    textBytes += value.vt == VT_BSTR ? SysStringByteLen(value.bstrVal) : 0;
    return room-- > 0 ? S_OK : E_FAIL;
}

Rig::Rig(const std::wstring& folder, const std::wstring& agentLog)
    : replay(folder + L"replay\\wevtapi.dll"), module(LoadLibraryW((folder + L"Orvel_eventlog.dll").c_str())),
      floor(replay, logger, agentLog)
{
    Check(module != nullptr, "Orvel_eventlog.dll cannot be loaded");
    decltype(&DllGetClassObject) const getClassObject = FunctionOf{module, "DllGetClassObject"};
    Check(getClassObject != nullptr && SUCCEEDED(getClassObject(kProviderClass, IID_IClassFactory, Out(factory_))),
          "Orvel_eventlog.dll gives no class factory");
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
    return count_++ * kReceiverCount;
}

void Rig::LoadEvents()
{
    wchar_t message[256] = L"";
    Check(replay.LoadText((L"<Events>" + events_ + L"</Events>").c_str(), message, 256) == ERROR_SUCCESS,
          "the replay log does not take the events");
}

void Rig::Deliver(DWORD event, Receiver receiver, DWORD times)
{
    Check(replay.Deliver(event + receiver, times) == ERROR_SUCCESS, "the replay log does not deliver");
}

ComPtr<IOrvelDataProvider> Rig::Subscribe(const wchar_t* metric, const wchar_t* query, Receiver receiver)
{
    if (receiver == kFloor) {
        floor.Subscribe(kChannels[receiver], query);
        return nullptr;
    }
    ComPtr<IOrvelDataProvider> provider;
    Check(SUCCEEDED(factory_->CreateInstance(nullptr, __uuidof(IOrvelDataProvider), Out(provider))) &&
              provider->SetHost(&logger, &host) == S_OK &&
              provider->SubscribeMetric(_bstr_t(metric), Configuration(kChannels[receiver], query).Get()) == S_OK,
          "the module does not subscribe");
    return provider;
}

void Rig::Collect(IOrvelDataProvider& provider, const wchar_t* metric, long room)
{
    sink.room = room;
    provider.QueryMetricEx(_bstr_t(metric), 0, &sink);
}

} // namespace orvel::bench
