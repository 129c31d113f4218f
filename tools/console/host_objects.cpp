#include "tools/console/host_objects.h"

#include "tools/console/output.h"
#include "tools/console/terminal.h"
#include "tools/utf8.h"

namespace orvel::console {

namespace {

std::wstring FromBstr(BSTR text)
{
    return {text == nullptr ? L"" : text, SysStringLen(text)};
}

} // namespace

void Logger::StartKeeping()
{
    const std::lock_guard guard(lock_);
    keptThread_ = GetCurrentThreadId();
}

std::vector<std::wstring> Logger::StopKeeping()
{
    const std::lock_guard guard(lock_);
    keptThread_ = 0;
    return std::exchange(kept_, {});
}

HRESULT Logger::GetLogLevels(LPWSTR /*category*/, LONG* levels)
{
    *levels = kAllLevels; // even if few are shown: the info lines say why a collection is empty
    return S_OK;
}

HRESULT Logger::Log(LogLevel level, const char* name, BSTR text)
{
    std::wstring line = FromBstr(text);
    line.erase(line.find_last_not_of(L"\r\n") + 1); // the system ends its error texts with a line break
    const std::lock_guard guard(lock_);
    if ((shown_ & static_cast<LONG>(level)) != 0) {
        WriteLine(std::string(name) + ": " + ToUtf8(Printable(line)));
    }
    if (level == LogLevel::Info && keptThread_ == GetCurrentThreadId()) {
        kept_.push_back(std::move(line));
    }
    return S_OK;
}

HRESULT Sink::WriteMetric(BSTR key, BSTR instance, VARIANT value)
{
    if (value.vt != VT_BSTR && value.vt != VT_UI8) {
        ++refused_;
        return DISP_E_BADVARTYPE;
    }
    const bool isText = value.vt == VT_BSTR;
    values_.push_back({FromBstr(key), FromBstr(instance), value.vt, isText ? FromBstr(value.bstrVal) : L"",
                       isText ? 0 : value.ullVal});
    return S_OK;
}

} // namespace orvel::console
