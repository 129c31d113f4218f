// Compares mounted entries with a search by standard algorithms. The first unit selects the start position.
#include "lamina/mounted_entries.h"

#include "tools/fuzz/fuzz.h"

void orvel::Fuzz(std::wstring_view text, std::string_view)
{
    constexpr std::wstring_view kMarker = L"MOUNTED-READ;", kLineEnd = L"\r\n";
    size_t start = text.empty() ? 1 : text.front() % (text.size() + 2);
    for (bool isFound = true; isFound;) {
        const auto from = text.begin() + std::min(start, text.size());
        const auto marker = std::search(from, text.end(), kMarker.begin(), kMarker.end());
        const auto path = marker != text.end() ? marker + kMarker.size() : marker;
        const auto separator = std::find(path, text.end(), L';');
        const auto end = std::search(separator, text.end(), kLineEnd.begin(), kLineEnd.end());
        const auto entry = FindNextMountedEntry(text, start);
        isFound = end != text.end();
        assert(entry.has_value() == isFound);
        if (isFound) {
            start = end - text.begin();
            assert(entry->path == std::wstring_view(path, separator) && entry->path.data() == &*path);
            assert(entry->id == std::wstring_view(separator + 1, end) && entry->next == start);
        }
    }
}
