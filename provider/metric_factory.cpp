#include "provider/metric_factory.h"

#include "appcrash/app_crash_metric.h"
#include "lamina/lamina_metric.h"

#include <cwchar>
#include <string_view>

namespace orvel {

namespace {

bool IsNamed(const std::wstring& name, std::wstring_view known)
{
    return name.size() == known.size() && _wcsnicmp(name.c_str(), known.data(), known.size()) == 0;
}

} // namespace

std::shared_ptr<CMetric> CreateMetric(const std::wstring& name, IAgentLogger* logger, IAgentHost* host)
{
    if (IsNamed(name, L"eventlog|eventlog_lamina")) {
        return std::make_shared<CLaminaMetric>(name, logger, host);
    }
    if (IsNamed(name, L"eventlog|eventlog_appcrash")) {
        return std::make_shared<CAppCrashMetric>(name, logger, host);
    }
    return nullptr;
}

} // namespace orvel
