#pragma once

#include <windows.h>

namespace orvel {

/// The provider's class, {DAF69464-F4E2-40C0-BCC3-A30E819975F0}.
inline constexpr CLSID kProviderClass = {0xDAF69464, 0xF4E2, 0x40C0, {0xBC, 0xC3, 0xA3, 0x0E, 0x81, 0x99, 0x75, 0xF0}};

/// The provider's type library, {BA21C1A6-3183-4E99-A464-6DF4178B7249}, version 1.0.
inline constexpr GUID kProviderLibrary = {0xBA21C1A6, 0x3183, 0x4E99, {0xA4, 0x64, 0x6D, 0xF4, 0x17, 0x8B, 0x72, 0x49}};

/// The host agent's type library, {2C3F5B0E-7D64-4C0F-9E0B-3B5D3A8E6F71}, version 1.0, as in host/OrvelAgent.idl.
inline constexpr GUID kHostLibrary = {0x2C3F5B0E, 0x7D64, 0x4C0F, {0x9E, 0x0B, 0x3B, 0x5D, 0x3A, 0x8E, 0x6F, 0x71}};

/// Version of both libraries.
inline constexpr WORD kLibraryMajor = 1;
inline constexpr WORD kLibraryMinor = 0;

} // namespace orvel
