#pragma once

#include <windows.h>
#include <OrvelAgent.h>
#include <msxml2.h>

#include <string>

namespace orvel {

/// Reads one property of a subscription: the text of the child element `name` of the host's configuration element.
/// `name` is used as the XPath expression as it stands. `logger` may be null.
///
/// S_OK: `value` holds the text, empty for an empty element.
/// 0x80070490 (ERROR_NOT_FOUND): no such child; an error line was logged, `value` is as it was.
/// Any other failure code is the DOM's; an error line with that code was logged, `value` is as it was.
/// Throws `_com_error` with E_OUTOFMEMORY.
HRESULT GetProperty(IXMLDOMElement* configuration, const wchar_t* name, IAgentLogger* logger, std::wstring& value);

} // namespace orvel
