#include "lamina/mounted_entries.h"

namespace orvel {

namespace {

constexpr std::wstring_view kMountedMarker = L"MOUNTED-READ;";
constexpr std::wstring_view kLineEnd = L"\r\n";
constexpr wchar_t kSeparator = L';';

} // namespace

std::optional<MountedEntry> FindNextMountedEntry(std::wstring_view text, size_t start)
{
    const size_t marker = text.find(kMountedMarker, start);
    if (marker == text.npos) {
        return std::nullopt;
    }
    const size_t path = marker + kMountedMarker.size();
    const size_t separator = text.find(kSeparator, path);
    if (separator == text.npos) {
        return std::nullopt;
    }
    const size_t end = text.find(kLineEnd, separator);
    if (end == text.npos) {
        return std::nullopt;
    }
    const size_t id = separator + 1;
    return MountedEntry{text.substr(path, separator - path), text.substr(id, end - id), end};
}

} // namespace orvel
