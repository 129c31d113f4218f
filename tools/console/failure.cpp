#include "tools/console/failure.h"

#include "host/format.h"
#include "host/log.h"
#include "tools/utf8.h"

#include <comdef.h>

namespace orvel::console {

void Require(bool condition, ExitCode code, const std::string& text)
{
    if (!condition) {
        throw Failure(code, text);
    }
}

std::string Describe(HRESULT code)
{
    std::wstring text = SystemText(code);
    text.erase(text.find_last_not_of(L"\r\n ") + 1);
    return ToUtf8(FormatString(text.empty() ? L"0x%08lx" : L"0x%08lx (%s)", code, text.c_str()));
}

std::optional<Failure> FailureOf(const std::function<void()>& body)
try {
    body();
    return std::nullopt;
} catch (const Failure& failure) {
    return failure;
} catch (const _com_error& error) {
    return Failure(ExitCode::Collection, "out of memory or a failure of COM: " + Describe(error.Error()));
} catch (const std::exception& error) {
    return Failure(ExitCode::Collection, error.what());
}

} // namespace orvel::console
