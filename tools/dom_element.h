#pragma once

#include <windows.h>
#include <comdef.h>
#include <msxml2.h>
#include <wrl/client.h>

#include <stdexcept>

namespace orvel {

/// Parses a document with the system's MSXML and returns its root element, as a host passes it to the provider. COM
/// must be initialised. Throws std::runtime_error when MSXML is missing or rejects the text.
inline Microsoft::WRL::ComPtr<IXMLDOMElement> ParseElement(const wchar_t* xml)
{
    Microsoft::WRL::ComPtr<IXMLDOMDocument> document;
    Microsoft::WRL::ComPtr<IXMLDOMElement> element;
    CLSID classId{};
    VARIANT_BOOL isParsed = VARIANT_FALSE;
    if (FAILED(CLSIDFromProgID(L"Msxml2.DOMDocument.6.0", &classId)) ||
        FAILED(CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument,
                                reinterpret_cast<void**>(document.GetAddressOf())))) {
        throw std::runtime_error("MSXML 6 cannot be created; check that msxml6.dll is registered");
    }
    if (document->loadXML(_bstr_t(xml), &isParsed) != S_OK ||
        document->get_documentElement(element.GetAddressOf()) != S_OK) {
        throw std::runtime_error("MSXML rejects the element; leave namespace prefixes out");
    }
    return element;
}

} // namespace orvel
