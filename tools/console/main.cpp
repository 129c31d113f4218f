#include "tools/console/commands.h"
#include "tools/console/input.h"
#include "tools/console/text.h"

#include <windows.h>
#include <comdef.h>
#include <fcntl.h>
#include <io.h>
#include <objbase.h>
#include <shellapi.h>

#include <cstdio>

namespace {

using namespace orvel::console;

// The wide command line: the narrow one loses letters outside the system's code page.
std::vector<std::string> Arguments()
{
    std::vector<std::string> arguments;
    int count = 0;
    wchar_t** const all = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int i = 1; i < count; ++i) {
        arguments.push_back(ToUtf8(all[i]));
    }
    LocalFree(all);
    return arguments;
}

int Fail(ExitCode code, const std::string& text)
{
    Say("error", text);
    return static_cast<int>(code);
}

int Main()
{
    try {
        const std::variant<Options, int> parsed = ParseOptions(Arguments());
        if (const int* code = std::get_if<int>(&parsed)) {
            return *code;
        }
        const Options& options = std::get<Options>(parsed);
        CatchControlC();
        if (options.command == Command::Check) {
            return static_cast<int>(Check(options));
        }
        Run(options);
        return static_cast<int>(ExitCode::Ok);
    } catch (const Failure& failure) {
        return Fail(failure.code, failure.what());
    } catch (const _com_error& error) {
        return Fail(ExitCode::Collection, "out of memory or a failure of COM: " + Describe(error.Error()));
    } catch (const std::exception& error) {
        return Fail(ExitCode::Collection, error.what());
    }
}

} // namespace

int main()
{
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    const UINT codePage = GetConsoleOutputCP();
    SetConsoleOutputCP(CP_UTF8); // what a terminal is to make of the output
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const int code = Main();
    CoUninitialize();
    SetConsoleOutputCP(codePage);
    return code;
}
