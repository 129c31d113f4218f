#include "host/bstr.h"

#include <comdef.h>

#include <limits>

namespace orvel {

namespace {

UniqueBstr Checked(BSTR copy)
{
    if (copy == nullptr) {
        _com_issue_error(E_OUTOFMEMORY);
    }
    return UniqueBstr(copy);
}

} // namespace

UniqueBstr MakeBstr(const wchar_t* text)
{
    return Checked(SysAllocString(text));
}

UniqueBstr MakeCountedBstr(std::wstring_view text)
{
    // The byte count in front of a BSTR is 32 bits wide and must also hold the terminator.
    constexpr size_t kMaxCharacters = std::numeric_limits<UINT>::max() / sizeof(wchar_t) - 1;
    if (text.empty()) {
        return nullptr;
    }
    if (text.size() > kMaxCharacters) {
        _com_issue_error(E_INVALIDARG);
    }
    return Checked(SysAllocStringLen(text.data(), static_cast<UINT>(text.size())));
}

} // namespace orvel
