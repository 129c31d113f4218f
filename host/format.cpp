#include "host/format.h"

#include "host/unique_resource.h"

#include <comdef.h>

#include <cstdarg>
#include <cwchar>

namespace orvel {

// _vscwprintf and vswprintf_s are the Windows runtime's own. The standard names may be bound to a C99 printf, whose
// "%s" takes a narrow string.
std::wstring FormatString(const wchar_t* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = _vscwprintf(format, arguments);
    va_end(arguments);
    if (length < 0) {
        return {};
    }
    const size_t size = static_cast<size_t>(length) + 1;
    const UniqueHeapText text = AllocateHeapText(size);
    if (!text) {
        _com_issue_error(E_OUTOFMEMORY);
    }
    va_start(arguments, format);
    vswprintf_s(text.get(), size, format, arguments);
    va_end(arguments);
    return {text.get(), static_cast<size_t>(length)};
}

} // namespace orvel
