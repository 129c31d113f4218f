#include "tests/support/import_patch.h"

#include <stdexcept>
#include <string>

void** FindSlot(HMODULE module, const char* name)
{
    auto* base = reinterpret_cast<BYTE*>(module);
    const auto* headers =
        reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const DWORD imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* dll = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + imports); dll->Name != 0; ++dll) {
        const auto* names = reinterpret_cast<ULONG_PTR*>(base + dll->OriginalFirstThunk);
        auto* slots = reinterpret_cast<void**>(base + dll->FirstThunk);
        for (; *names != 0; ++names, ++slots) {
            const bool byName = (*names & IMAGE_ORDINAL_FLAG) == 0;
            if (byName && std::string(reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + *names)->Name) == name) {
                return slots;
            }
        }
    }
    throw std::runtime_error(std::string("the module does not import ") + name);
}

void SetSlot(void** slot, void* function)
{
    DWORD protection = 0;
    VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection);
    InterlockedExchangePointer(slot, function);
    VirtualProtect(slot, sizeof(*slot), protection, &protection);
}
