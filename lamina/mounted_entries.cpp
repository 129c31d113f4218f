#include "lamina/mounted_entries.h"

#include "host/text_search.h"

namespace orvel {

namespace {

constexpr std::wstring_view kMountedMarker = L"MOUNTED-READ;";
constexpr std::wstring_view kLineEnd = L"\r\n";
constexpr wchar_t kSeparator = L';';

} // namespace

std::optional<MountedEntry> FindNextMountedEntry(std::wstring_view text, size_t start)
{
    const size_t marker = FindText(text, kMountedMarker, start);
    if (marker == text.npos) {
        return std::nullopt;
    }
    const size_t path = marker + kMountedMarker.size();
    const size_t separator = FindCharacter(text, kSeparator, path);
    if (separator == text.size()) {
        return std::nullopt;
    }
    const size_t end = FindText(text, kLineEnd, separator);
    if (end == text.npos) {
        return std::nullopt;
    }
    const size_t id = separator + 1;
    return MountedEntry{text.substr(path, separator - path), text.substr(id, end - id), end};
}

} // namespace orvel
