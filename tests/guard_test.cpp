// Makes faults on purpose in the guarded build: a run of the other tests against it proves something only if each of
// them stops the program.

#include "tests/support/module_under_test.h"

namespace {

TEST(GuardTest, EveryFaultStopsTheProgramOnTheSpot)
{
    constexpr DWORD kAbort = 3;
    struct {
        const char* fault;
        DWORD exitCode;
    } const cases[] = {{"read behind a block", EXCEPTION_ACCESS_VIOLATION},
                       {"use of a freed block", EXCEPTION_ACCESS_VIOLATION},
                       {"write behind a block of the process heap", EXCEPTION_ACCESS_VIOLATION},
                       {"use of a freed BSTR", EXCEPTION_ACCESS_VIOLATION},
                       {"write in front of a block, found when it is freed", kAbort},
                       {"index beyond a vector", kAbort},
                       {"overflow of a number", EXCEPTION_ILLEGAL_INSTRUCTION},
                       {"none", 0}};
    Replay(); // what the module imports
    SetEnvironmentVariableW(L"ORVEL_MODULE_FOLDER", L"guarded");
    const HMODULE module = LoadLibraryW(ModuleFile().c_str());
    int(WINAPI* const probe)(int) = orvel::FunctionOf{module, "GuardProbe"};
    ASSERT_NE(probe, nullptr);
    for (const auto& each : cases) {
        SCOPED_TRACE(each.fault);
        EXPECT_EXIT(ExitProcess(static_cast<UINT>(probe(static_cast<int>(&each - cases)))),
                    testing::ExitedWithCode(static_cast<int>(each.exitCode)), "");
    }
}

} // namespace
