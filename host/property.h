#pragma once

#include <windows.h>
#include <OrvelAgent.h>
#include <msxml2.h>

#include <string>

namespace orvel {

/// Reads a property of a subscription: the text of the child element `name` of the host's configuration element.
/// `name` is used as an XPath expression. `logger` may be null.
///
/// Returns S_OK, 0x80070490 (ERROR_NOT_FOUND) when there is no such child, or the DOM's failure code. A failure has
/// been logged and leaves `value` unchanged. Throws `_com_error` with E_OUTOFMEMORY, and std::bad_alloc.
HRESULT GetProperty(IXMLDOMElement* configuration, const wchar_t* name, IAgentLogger* logger, std::wstring& value);

} // namespace orvel
