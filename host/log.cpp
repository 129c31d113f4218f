#include "host/log.h"

#include "host/bstr.h"
#include "host/unique_resource.h"

namespace orvel {

namespace {

// Not const: GetLogLevels takes a non-const pointer.
wchar_t category[] = L"eventlog";

} // namespace

std::wstring SystemText(HRESULT code)
{
    wchar_t* text = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        static_cast<DWORD>(code), LANG_USER_DEFAULT, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    if (length == 0) {
        return {};
    }
    const UniqueLocalText owner(text);
    return text;
}

std::wstring ErrorSuffix(HRESULT code)
{
    const std::wstring text = SystemText(code);
    return text.empty() ? FormatString(L"  Error code 0x%08lx.", code)
                        : FormatString(L"  Error code 0x%08lx -- %s", code, text.c_str());
}

bool IsLogged(IAgentLogger* logger, LogLevel level)
{
    if (logger == nullptr) {
        return false;
    }
    LONG levels = 0;
    logger->GetLogLevels(category, &levels);
    return (levels & static_cast<LONG>(level)) != 0;
}

void SendLogLine(IAgentLogger* logger, LogLevel level, const wchar_t* text)
{
    const UniqueBstr categoryBstr = MakeBstr(category);
    const UniqueBstr textBstr = MakeBstr(text);
    switch (level) {
    case LogLevel::Error:
        logger->LogError(categoryBstr.get(), textBstr.get());
        break;
    case LogLevel::Warning:
        logger->LogWarning(categoryBstr.get(), textBstr.get());
        break;
    case LogLevel::Info:
        logger->LogInfo(categoryBstr.get(), textBstr.get());
        break;
    }
}

} // namespace orvel
