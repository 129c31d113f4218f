#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace orvel {

/// An attached application volume, as the layering agent names it.
struct PlinthInfo {
    std::wstring id;   ///< may be empty and may contain ';'
    std::wstring path; ///< may be empty, never contains ';'
};

/// An entry "MOUNTED-READ;path;id" CR LF. The views point into the searched text.
struct MountedEntry {
    std::wstring_view path;
    std::wstring_view id;
    size_t next = 0; ///< where to continue the search: the entry's CR
};

/// Finds the first complete entry at or after `start`, which may lie past the end. Returns nothing when there is none.
/// An incomplete entry ends the search, so finding all entries of a text takes linear time.
std::optional<MountedEntry> FindNextMountedEntry(std::wstring_view text, size_t start);

} // namespace orvel
