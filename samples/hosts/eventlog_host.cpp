// A small host agent for you to copy. It creates the Orvel event-log provider, subscribes the metrics of a
// configuration file, collects them once a second and shuts down in order. docs/hosting.md explains its rules.
//
//   eventlog_host CONFIG.xml SECONDS [MODULE.dll]     MODULE.dll: full path, instead of the registered module
//
// OrvelAgent.h is generated from OrvelAgent.idl; with Visual C++:
//   midl OrvelAgent.idl
//   cl /std:c++20 /EHsc /W4 /DUNICODE eventlog_host.cpp ole32.lib oleaut32.lib
// and with mingw-w64:
//   widl -h -o OrvelAgent.h OrvelAgent.idl
//   x86_64-w64-mingw32-g++-posix -std=c++20 -DUNICODE -municode -static eventlog_host.cpp -lole32 -loleaut32 -luuid

#include <windows.h>
#include <OrvelAgent.h>
#include <comdef.h>
#include <fcntl.h>
#include <io.h>
#include <msxml2.h>
#include <wrl/client.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using Microsoft::WRL::ComPtr;

namespace {

// Throws on failure, so that every object is released.
void Check(HRESULT hr)
{
    if (FAILED(hr)) {
        throw _com_error(hr);
    }
}

// Writes a line in one call, because several threads write lines.
void Print(const std::wstring& line)
{
    std::fputws((line + L'\n').c_str(), stdout);
    std::fflush(stdout);
}

std::wstring Text(BSTR text)
{
    return {text != nullptr ? text : L"", SysStringLen(text)}; // an empty text may be a null BSTR
}

// Base of the host's COM objects. The provider calls them through the vtable, never by name.
template <typename Interface>
class HostObject : public Interface {
public:
    virtual ~HostObject() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override
    {
        const bool isKnown =
            IsEqualIID(iid, __uuidof(Interface)) || IsEqualIID(iid, IID_IDispatch) || IsEqualIID(iid, IID_IUnknown);
        *out = isKnown ? static_cast<Interface*>(this) : nullptr;
        return isKnown ? (AddRef(), S_OK) : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++count_; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --count_;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override
    {
        return E_NOTIMPL;
    }

private:
    std::atomic<ULONG> count_ = 0;
};

class Host final : public HostObject<IAgentHost> {};

// Called from the host's threads and from the Event Log's. Takes no lock that is held while the provider is called.
class Logger final : public HostObject<IAgentLogger> {
public:
    HRESULT STDMETHODCALLTYPE Reserved7() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetLogLevels(LPWSTR, LONG* levels) override
    {
        *levels = 1 | 2; // errors and warnings; add 4 for information
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE LogError(BSTR, BSTR text) override { return Write(L"error: ", text); }
    HRESULT STDMETHODCALLTYPE LogWarning(BSTR, BSTR text) override { return Write(L"warning: ", text); }
    HRESULT STDMETHODCALLTYPE LogInfo(BSTR, BSTR text) override { return Write(L"info: ", text); }

private:
    static HRESULT Write(const wchar_t* level, BSTR text)
    {
        std::wstring line = level + Text(text);
        line.erase(line.find_last_not_of(L"\r\n") + 1); // the system's error texts end in a line break
        Print(line);
        return S_OK;
    }
};

// Returns S_OK only for values that it has stored: the provider keeps a refused crash for the next collection.
class Sink final : public HostObject<IMetricSink> {
public:
    HRESULT STDMETHODCALLTYPE Reserved7() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reserved8() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reserved9() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WriteMetric(BSTR key, BSTR instance, VARIANT value) override
    {
        if (value.vt != VT_BSTR && value.vt != VT_UI8) {
            return DISP_E_BADVARTYPE;
        }
        // The caller owns the strings and the value; a sink copies what it keeps.
        Print(Text(key) + L" [" + Text(instance) + L"] = " +
              (value.vt == VT_BSTR ? Text(value.bstrVal) : std::to_wstring(value.ullVal)));
        return S_OK;
    }
};

ComPtr<IDataProviderEx> CreateProvider(const wchar_t* module)
{
    ComPtr<IDataProviderEx> provider;
    CLSID id{};
    if (module == nullptr) {
        Check(CLSIDFromProgID(L"OrvelAgent.EventLogProvider", &id));
        Check(CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(provider.GetAddressOf())));
        return provider;
    }
    Check(CLSIDFromString(L"{DAF69464-F4E2-40C0-BCC3-A30E819975F0}", &id));
    const HMODULE loaded = CoLoadLibrary(const_cast<wchar_t*>(module), TRUE); // COM frees it at CoUninitialize
    if (loaded == nullptr) {
        throw _com_error(HRESULT_FROM_WIN32(GetLastError()));
    }
    const auto getClassObject = reinterpret_cast<decltype(&DllGetClassObject)>(
        reinterpret_cast<void*>(GetProcAddress(loaded, "DllGetClassObject")));
    if (getClassObject == nullptr) {
        throw _com_error(HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND));
    }
    ComPtr<IClassFactory> factory;
    Check(getClassObject(id, IID_PPV_ARGS(factory.GetAddressOf())));
    Check(factory->CreateInstance(nullptr, IID_PPV_ARGS(provider.GetAddressOf())));
    return provider;
}

// Reads <metrics>; each <metric name='...'> element in it is the configuration of that metric.
std::vector<ComPtr<IXMLDOMElement>> ReadMetrics(const wchar_t* path)
{
    CLSID id{};
    ComPtr<IXMLDOMDocument> document;
    Check(CLSIDFromProgID(L"Msxml2.DOMDocument.6.0", &id));
    Check(CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument,
                           reinterpret_cast<void**>(document.GetAddressOf())));
    VARIANT_BOOL isGood = VARIANT_FALSE;
    Check(document->put_async(VARIANT_FALSE));
    Check(document->load(_variant_t(path), &isGood));
    ComPtr<IXMLDOMNodeList> nodes;
    Check(document->selectNodes(_bstr_t(L"/metrics/metric"), nodes.GetAddressOf()));
    std::vector<ComPtr<IXMLDOMElement>> metrics;
    for (ComPtr<IXMLDOMNode> node; nodes->nextNode(node.ReleaseAndGetAddressOf()) == S_OK;) {
        ComPtr<IXMLDOMElement> element;
        Check(node->QueryInterface(IID_IXMLDOMElement, reinterpret_cast<void**>(element.GetAddressOf())));
        metrics.push_back(element);
    }
    if (metrics.empty()) {
        throw _com_error(HRESULT_FROM_WIN32(ERROR_INVALID_DATA)); // malformed, or without metrics
    }
    return metrics;
}

void Run(const wchar_t* configuration, int seconds, const wchar_t* module)
{
    const std::vector<ComPtr<IXMLDOMElement>> metrics = ReadMetrics(configuration);
    const ComPtr<IAgentLogger> logger(new Logger);
    const ComPtr<IAgentHost> host(new Host);
    const ComPtr<IMetricSink> sink(new Sink);
    const ComPtr<IDataProviderEx> provider = CreateProvider(module);

    Check(provider->SetHost(logger.Get(), host.Get())); // first: a metric keeps the logger it was created with
    std::vector<_bstr_t> names;
    for (const auto& metric : metrics) {
        _variant_t name;
        Check(metric->getAttribute(_bstr_t(L"name"), &name));
        Check(provider->SubscribeMetric(_bstr_t(name), metric.Get()));
        names.emplace_back(name);
    }
    for (int second = 0; second < seconds; ++second) {
        Sleep(1000);
        for (const _bstr_t& name : names) {
            const HRESULT hr = provider->QueryMetricEx(name, 0, sink.Get());
            if (FAILED(hr)) {
                Print(L"collecting " + std::wstring(name) + L" failed: " + _com_error(hr).ErrorMessage());
            }
        }
    }
    Check(provider->UnsubscribeAll()); // before the provider, and then the host's objects, are released
}

} // namespace

int wmain(int count, wchar_t** arguments)
{
    if (count < 3) {
        Print(L"usage: eventlog_host CONFIG.xml SECONDS [MODULE.dll]");
        return 2;
    }
    _setmode(_fileno(stdout), _O_U8TEXT); // writes wide text as UTF-8
    int code = 0;
    try {
        Check(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        Run(arguments[1], _wtoi(arguments[2]), count > 3 ? arguments[3] : nullptr);
    } catch (const _com_error& error) {
        Print(std::wstring(L"failed: ") + error.ErrorMessage());
        code = 1;
    }
    CoUninitialize(); // unloads the module
    return code;
}
