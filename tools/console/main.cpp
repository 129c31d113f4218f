#include "tools/console/commands.h"
#include "tools/console/input.h"
#include "tools/console/text.h"

#include <windows.h>
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
    } catch (...) {
        const Failure failure = CurrentFailure();
        Say("error", failure.what());
        return static_cast<int>(failure.code);
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
