#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace orvel {

/// One attached application volume, as the layering agent names it.
struct PlinthInfo {
    std::wstring id;   ///< may be empty and may contain ';'
    std::wstring path; ///< may be empty, never contains ';'
};

/// One "MOUNTED-READ;path;id" entry of a text. The views point into that text.
struct MountedEntry {
    std::wstring_view path;
    std::wstring_view id;
    size_t next = 0; ///< where to search on: the CR of the entry's line end
};

/// Finds the first complete entry at or after `start`, which may lie past the end. Empty when there is none; an entry
/// that breaks off before its ';' or its CR LF also ends the search, so walking a whole text reads it once.
std::optional<MountedEntry> FindNextMountedEntry(std::wstring_view text, size_t start);

} // namespace orvel
