#include "host/property.h"

#include "host/bstr.h"
#include "host/com_failure.h"
#include "host/log.h"

#include <wrl/client.h>

namespace orvel {

using Microsoft::WRL::ComPtr;

HRESULT GetProperty(IXMLDOMElement* configuration, const wchar_t* name, IAgentLogger* logger, std::wstring& value)
{
    const UniqueBstr expression = MakeBstr(name);
    ComPtr<IXMLDOMNode> node;
    HRESULT hr = configuration->selectSingleNode(expression.get(), node.GetAddressOf());
    if (SUCCEEDED(hr) && (hr != S_OK || !node)) {
        Log(logger, LogLevel::Error, L"Property '%s' was not found in the configuration.", name);
        return HresultFromWin32(ERROR_NOT_FOUND);
    }
    ComPtr<IXMLDOMElement> element;
    if (SUCCEEDED(hr)) {
        hr = node->QueryInterface(IID_IXMLDOMElement, reinterpret_cast<void**>(element.GetAddressOf()));
    }
    BSTR text = nullptr;
    if (SUCCEEDED(hr)) {
        hr = element->get_text(&text);
    }
    const UniqueBstr owner(text);
    if (FAILED(hr)) {
        LogFailure(logger, hr, L"Failed to retrieve property '%s' from the configuration.", name);
        return hr;
    }
    value.assign(text != nullptr ? text : L"", SysStringLen(text));
    return S_OK;
}

} // namespace orvel
