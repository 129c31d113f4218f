#include "host/format.h"

#include "host/heap_buffer.h"

#include <comdef.h>

#include <cstdarg>
#include <cwchar>

namespace orvel {

namespace {

// _vscwprintf and vswprintf_s are the Windows runtime's own; the standard names may bind to a C99 printf, whose "%s"
// is a narrow string.
std::wstring FormatArguments(const wchar_t* format, va_list measured, va_list printed)
{
    const int length = _vscwprintf(format, measured);
    if (length < 0) {
        return {};
    }
    const size_t size = static_cast<size_t>(length) + 1;
    const HeapBuffer buffer = AllocateHeapBuffer(size);
    if (!buffer) {
        _com_issue_error(E_OUTOFMEMORY);
    }
    vswprintf_s(buffer.get(), size, format, printed);
    return {buffer.get(), static_cast<size_t>(length)};
}

// va_end must run when formatting throws, too.
struct ArgumentList {
    va_list list;
    ~ArgumentList() { va_end(list); }
};

} // namespace

std::wstring FormatString(const wchar_t* format, ...)
{
    ArgumentList measured;
    va_start(measured.list, format);
    ArgumentList printed;
    va_start(printed.list, format);
    return FormatArguments(format, measured.list, printed.list);
}

} // namespace orvel
