#pragma once

#include <windows.h>
#include <oaidl.h>

namespace orvel {

/// Gives the type information of the provider's interface: from the host's type library as it is registered, else from
/// the copy in this module, so that late binding does not depend on a host. Registers nothing.
/// The platform's failure code of the copy; E_OUTOFMEMORY. `out` must not be null. Any thread.
HRESULT LoadProviderTypeInfo(ITypeInfo** out) noexcept;

} // namespace orvel
